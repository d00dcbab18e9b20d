// lib/general/crash.h
// What happens on a signal or an uncaught exception: a report with the stack in the main log and on standard
// error, the closing of the logs, and an exit with a value above 128 for each signal (1 for an exception).
#pragma once
#include <string>

namespace veld {
// Installs the terminate handler, the handlers of ABRT FPE ILL INT SEGV TERM TRAP QUIT SYS BUS HUP USR1 USR2
// ALRM XCPU VTALRM PROF (HUP not where it is ignored), and the thread that reports for them; XFSZ and PIPE are
// ignored, so that the write that raised them fails. To be called first of all in main().
void install_crash_handlers();

// Ends the run with an ERROR line, the closing of the logs and exit value 1, from any thread and depth.
[[noreturn]] void end_in_error(const std::string& text);
}  // namespace veld
