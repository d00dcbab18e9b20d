#include "lib/general/crash.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <new>
#include <string>

#include "lib/general/assert_fail.h"
#include "lib/general/file_lock.h"
#include "lib/general/log.h"
#include "lib/general/log_internal.h"
#include "lib/general/logfiles.h"
#include "lib/general/result_file.h"

namespace veld {
namespace {
constexpr int MAX_FRAMES = 128;
constexpr int REPORT_SECONDS = 5;  // a report that takes longer is stuck on a lock of the crashed thread

struct SignalLabel {
  int number;
  const char* label;
  int code;  // exit value: the same on all systems, whatever number the signal has there
};
const SignalLabel labels[] = {{SIGABRT, "ABRT", 134},     {SIGFPE, "FPE", 136},   {SIGILL, "ILL", 132},
                              {SIGINT, "INT", 130},       {SIGSEGV, "SEGV", 139}, {SIGTERM, "TERM", 143},
                              {SIGTRAP, "TRAP", 133},     {SIGQUIT, "QUIT", 131}, {SIGSYS, "SYS", 140},
                              {SIGBUS, "BUS", 138},       {SIGHUP, "HUP", 129},   {SIGUSR1, "USR1", 138},
                              {SIGUSR2, "USR2", 140},     {SIGALRM, "ALRM", 142}, {SIGXCPU, "XCPU", 152},
                              {SIGVTALRM, "VTALRM", 154}, {SIGPROF, "PROF", 155}};

SignalLabel label_of(int number) {
  for (const SignalLabel& s : labels)
    if (s.number == number) return s;
  return {number, "?", 128 + number};
}

struct Frames {
  void* at[MAX_FRAMES];
  int n = 0;
};

// What the handler leaves for the reporting thread.
std::atomic<int> caught{0};  // the first signal's number
Frames caught_frames;
sem_t caught_one;
bool has_reporter = false;

volatile std::sig_atomic_t exit_value = 1;
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

std::string frame_list(const Frames& frames) {
  std::string text;
  if (frames.n < 4) return text;
  // The first two are the handler's own, the last one is the process start.
  for (int i = 2; i <= frames.n - 2; i++) text += frame_line(i - 2, frames.at[i]);
  if (frames.n == MAX_FRAMES) text += "[truncated]\n";
  return text;
}

// number is negative when there is no signal.
void crash_report(const std::string& label, int number, const Frames& frames) {
  LogState& log = log_state();
  {
    const LogLock lock;
    std::string text = "[" + label;
    if (number >= 0) text += " " + std::to_string(number);
    // The user who interrupts a run knows why it ends.
    text += number == SIGINT ? " - interrupted]\n" : " - ABNORMAL TERMINATION]\n" + frame_list(frames);
    if (log_files_open) log.main_log << '\n' << text << std::flush;
    console_text(text, true);
    if (!log.base.empty())
      console_text("WARNING: logs not copied to output directory, see " + log.base + "*.log\n", true);
  }
  end_logs("", false, false, 1);
}

[[noreturn]] void leave_at_once() {
  if (lock_file) unlink(lock_file);
  _exit(exit_value);
}

void on_watchdog(int) { leave_at_once(); }

// Ends the process when the report does not: it may wait for ever for a lock that the crashed thread holds.
void start_watchdog() {
  struct sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGRTMIN;
  std::signal(SIGRTMIN, on_watchdog);
  timer_t timer;
  if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) return;
  struct itimerspec span = {};
  span.it_value.tv_sec = REPORT_SECONDS;
  timer_settime(timer, 0, &span, nullptr);
}

// Makes the calling thread the one that reports; all others stop at their next line in the log. When a report
// has begun before, the thread waits for its end.
void begin_report(int value) {
  LogState& log = log_state();
  if (log.crashed.exchange(true)) {
    if (pthread_equal(pthread_self(), log.reporter)) leave_at_once();  // the report itself has failed
    for (;;) pause();
  }
  log.reporter = pthread_self();
  exit_value = value;
  if (!log.lock_path.empty()) lock_file = log.lock_path.c_str();
  start_watchdog();
}

[[noreturn]] void end_report() {
  remove_unfinished_results();
  remove_held_locks();
  std::fflush(stdout);
  _exit(exit_value);
}

[[noreturn]] void report_signal(int number, const Frames& frames) {
  const SignalLabel signal = label_of(number);
  begin_report(signal.code);
  crash_report(signal.label, number, frames);
  end_report();
}

void* wait_for_signal(void*) {
  sigset_t all;
  sigfillset(&all);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGRTMIN})
    sigdelset(&all, fault);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);  // signals from outside go to the threads that work
  std::free(std::malloc(4096));               // memory of its own, so that it need not wait for another's
  while (sem_wait(&caught_one) != 0) continue;
  report_signal(caught, caught_frames);
}

// A fault of the thread itself, or its own abort: it cannot go on. Signals from outside interrupt any thread.
bool is_fault(const siginfo_t& info) {
  const bool from_kernel = info.si_code > 0 && info.si_code != SI_KERNEL;
  const bool fault_of_code =
      info.si_code == SI_KERNEL && (info.si_signo == SIGSEGV || info.si_signo == SIGTRAP);
  return from_kernel || fault_of_code || (info.si_code <= 0 && info.si_pid == getpid());
}

// Writes down what there is and wakes the reporting thread: the signal may have come in the middle of an
// allocation or a log line, where nothing that allocates or locks can be called. A thread that was only
// interrupted goes on until it next writes to the log.
void on_signal(int number, siginfo_t* info, void*) {
  const int saved_errno = errno;
  const bool fault = is_fault(*info);
  int none = 0;
  if (caught.compare_exchange_strong(none, number)) {
    caught_frames.n = backtrace(caught_frames.at, MAX_FRAMES);
    if (!has_reporter) report_signal(number, caught_frames);
    sem_post(&caught_one);
  } else if (fault && log_state().crashed && pthread_equal(pthread_self(), log_state().reporter)) {
    leave_at_once();
  }
  while (fault) pause();
  errno = saved_errno;
}

void on_terminate() {
  Frames frames;
  frames.n = backtrace(frames.at, MAX_FRAMES);
  try {
    if (const std::exception_ptr current = std::current_exception()) std::rethrow_exception(current);
  } catch (const std::bad_alloc&) {
    allocation_failed();
  } catch (const std::exception& e) {
    begin_report(1);
    crash_report(e.what(), -1, frames);
    end_report();
  } catch (...) {
  }
  std::abort();
}

// Signals that the parent wants ignored, as nohup does, stay so.
bool is_ignored(int number) {
  struct sigaction old = {};
  return number == SIGHUP && sigaction(number, nullptr, &old) == 0 && old.sa_handler == SIG_IGN;
}
}  // namespace

void end_in_error(const std::string& text) {
  begin_report(1);
  {
    const LogLock lock;
    log_depth_add(1);
    if (log_files_open) log_stream() << log_prefix() << "> @ " << text << '\n';
    console_text(text + "\nEXIT_FAILURE\r\n", true);
  }
  end_logs("", false, false, 1);
  end_report();
}

void install_crash_handlers() {
  std::set_terminate(on_terminate);
  void* frame;
  backtrace(&frame, 1);  // loads the unwinder now, not in a handler
  pthread_t thread;
  has_reporter = sem_init(&caught_one, 0, 0) == 0 &&
                 pthread_create(&thread, nullptr, wait_for_signal, nullptr) == 0 &&
                 pthread_detach(thread) == 0;
  struct sigaction action = {};
  action.sa_sigaction = on_signal;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  for (const SignalLabel& s : labels)
    if (!is_ignored(s.number)) sigaction(s.number, &action, nullptr);
  // A file over its limit or a console that is gone is a failed write, with its message, not the end.
  for (const int number : {SIGXFSZ, SIGPIPE}) std::signal(number, SIG_IGN);
}
}  // namespace veld
