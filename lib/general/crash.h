// lib/general/crash.h
// What happens on a signal or an uncaught exception: a report with the stack in the main log and on standard
// error, the closing of the logs, and an exit with a value above 128 for each signal (1 for an exception).
#pragma once

// Installs the terminate handler and the handlers of ABRT FPE ILL INT SEGV TERM TRAP QUIT SYS BUS; XFSZ and
// PIPE are ignored, so that the write that raised them fails. To be called first of all in main().
void install_crash_handlers();
