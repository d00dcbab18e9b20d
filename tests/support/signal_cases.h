// tests/support/signal_cases.h
// The signals that end a run with a report: their words in it and their exit values.
#pragma once
#include <csignal>

namespace veld {
constexpr struct SignalCase {
  int number;
  const char* label;
  int code;
} SIGNAL_CASES[] = {{SIGABRT, "ABRT 6", 134},  {SIGFPE, "FPE 8", 136},    {SIGILL, "ILL 4", 132},
                    {SIGINT, "INT 2", 130},    {SIGSEGV, "SEGV 11", 139}, {SIGTERM, "TERM 15", 143},
                    {SIGTRAP, "TRAP 5", 133},  {SIGQUIT, "QUIT 3", 131},  {SIGSYS, "SYS 31", 140},
                    {SIGBUS, "BUS 7", 138},    {SIGHUP, "HUP 1", 129},    {SIGUSR1, "USR1 10", 138},
                    {SIGALRM, "ALRM 14", 142}, {SIGXCPU, "XCPU 24", 152}, {SIGVTALRM, "VTALRM 26", 154}};
}  // namespace veld
