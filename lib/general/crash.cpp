#include "lib/general/crash.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "lib/general/log.h"
#include "lib/general/log_internal.h"
#include "lib/general/logfiles.h"

namespace {
constexpr int MAX_FRAMES = 128;
constexpr unsigned REPORT_SECONDS = 5;  // a report that takes longer is stuck on a lock of the crashed thread

struct SignalLabel {
  int number;
  const char* label;
  int code;  // exit value: the same on all systems, whatever number the signal has there
};
const SignalLabel labels[] = {{SIGABRT, "ABRT", 134}, {SIGFPE, "FPE", 136},   {SIGILL, "ILL", 132},
                              {SIGINT, "INT", 130},   {SIGSEGV, "SEGV", 139}, {SIGTERM, "TERM", 143},
                              {SIGTRAP, "TRAP", 133}, {SIGQUIT, "QUIT", 131}, {SIGSYS, "SYS", 140},
                              {SIGBUS, "BUS", 138}};

volatile std::sig_atomic_t exit_value = 1;
pthread_t reporter;               // the thread of the report, once crashed is set
const char* lock_file = nullptr;  // for the watchdog, which may not touch strings

std::string frame_line(int number, void* address) {
  char line[1024];
  Dl_info info;
  if (dladdr(address, &info) && info.dli_sname) {
    std::string name = info.dli_sname;
    if (name[0] == '_') {
      int status = 0;
      char* const plain = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status);
      if (status == 0) name = plain;
      std::free(plain);
    }
    const ptrdiff_t offset = static_cast<char*>(address) - static_cast<char*>(info.dli_saddr);
    std::snprintf(line, sizeof line, "%-3d %*p %s + %zd\n", number, 18, address, name.c_str(), offset);
  } else {
    char** const text = backtrace_symbols(&address, 1);
    std::snprintf(line, sizeof line, "%-3d %*p %s\n", number, 18, address, text ? text[0] : "");
    std::free(text);
  }
  return line;
}

std::string frame_list() {
  void* frames[MAX_FRAMES];
  const int n = backtrace(frames, MAX_FRAMES);
  std::string text;
  if (n < 4) return text;
  // The first two are the report's own, the last one is the process start.
  for (int i = 2; i <= n - 2; i++) text += frame_line(i - 2, frames[i]);
  if (n == MAX_FRAMES) text += "[truncated]\n";
  return text;
}

// number is negative when there is no signal.
void crash_report(const std::string& label, int number) {
  LogState& log = log_state();
  {
    const LogLock lock;
    std::string text = "[" + label;
    if (number >= 0) text += " " + std::to_string(number);
    text += " - ABNORMAL TERMINATION]\n" + frame_list();
    if (log_files_open) log.main_log << '\n' << text << std::flush;
    console_text(text, true);
    if (!log.base.empty())
      console_text("WARNING: logs not copied to output directory, see " + log.base + "*.log\n", true);
  }
  end_logs("", false, false, 1);
}

// The report allocates and locks, which may wait for ever when the signal came in the middle of just that.
void on_watchdog(int) {
  if (lock_file) unlink(lock_file);
  _exit(exit_value);
}

// When a report has begun before, the reporting thread then leaves at once, any other waits for the end.
void begin_report(int value) {
  LogState& log = log_state();
  if (log.crashed.exchange(true)) {
    if (pthread_equal(pthread_self(), reporter)) _exit(exit_value);
    for (;;) pause();
  }
  reporter = pthread_self();
  exit_value = value;
  if (!log.lock_path.empty()) lock_file = log.lock_path.c_str();
  std::signal(SIGALRM, on_watchdog);
  alarm(REPORT_SECONDS);
}

void on_signal(int number) {
  SignalLabel signal = {number, "?", 128 + number};
  for (const SignalLabel& s : labels)
    if (s.number == number) signal = s;
  begin_report(signal.code);
  crash_report(signal.label, number);
  std::exit(signal.code);
}

void on_terminate() {
  try {
    if (const std::exception_ptr current = std::current_exception()) std::rethrow_exception(current);
  } catch (const std::exception& e) {
    begin_report(1);
    crash_report(e.what(), -1);
    std::exit(1);
  } catch (...) {
  }
  std::abort();
}
}  // namespace

void install_crash_handlers() {
  std::set_terminate(on_terminate);
  for (const SignalLabel& s : labels) std::signal(s.number, on_signal);
  // A file over its limit or a console that is gone is a failed write, with its message, not the end.
  for (const int number : {SIGXFSZ, SIGPIPE}) std::signal(number, SIG_IGN);
  void* frame;
  backtrace(&frame, 1);  // loads the unwinder now, not in a handler
}
