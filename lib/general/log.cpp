#include "lib/general/log.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <thread>

#include "lib/general/console.h"
#include "lib/general/log_internal.h"

namespace veld {
std::atomic<bool> log_files_open{false};

namespace {
constexpr size_t MAX_SHOWN = 10000;  // texts remembered; a run with more of them repeats itself

thread_local int depth = 0;

// Takes the identity of the main thread during static initialisation.
const bool state_ready = (log_state(), true);

constexpr char ERROR_WORD[] = "ERROR:", WARNING_WORD[] = "WARNING:";

// The first word of an error or a warning in colour, on a terminal whose user has not set NO_COLOR.
std::string coloured(const std::string& text) {
  static const bool colours = isatty(STDERR_FILENO) && !std::getenv("NO_COLOR");
  const char* const colour = text.starts_with(ERROR_WORD)     ? "\033[1;31m"
                             : text.starts_with(WARNING_WORD) ? "\033[1;33m"
                                                              : nullptr;
  if (!colours || !colour) return text;
  const size_t end = text.find(':') + 1;
  return colour + text.substr(0, end) + "\033[0m" + text.substr(end);
}

std::vector<std::string>& reported(bool errors) {
  static std::vector<std::string>* const lists = new std::vector<std::string>[2];
  return lists[errors];
}

void remember(const std::string& text, bool error) {
  constexpr size_t MOST = 1000;
  const LogLock lock;
  if (reported(error).size() < MOST) reported(error).push_back(text);
}

void write_message(const std::string& text, bool one_line, bool error) {
  const LogLock lock;
  if (log_files_open) {
    const bool in_scope = !one_line && depth > 0;
    if (!in_scope) depth++;
    log_stream() << log_prefix() << (in_scope ? "| @ " : "> @ ") << text << '\n';
    if (!in_scope) depth--;
  }
  LogState& log = log_state();
  if (error && log.once && log.shown.size() < MAX_SHOWN && !log.shown.insert(text).second) return;
  if (error || log.nquiet == 0) console_text(text + '\n', error);
}
}  // namespace

LogState& log_state() {
  static LogState* const state = [] {
    LogState* const s = new LogState;
    s->main_thread = pthread_self();
    return s;
  }();
  return *state;
}

LogLock::LogLock() : owned_(true) {
  LogState& log = log_state();
  if (log.crashed && pthread_equal(pthread_self(), log.reporter)) {
    owned_ = log.mutex.try_lock_for(std::chrono::seconds(1));
    return;
  }
  log.mutex.lock();
  if (!log.crashed) return;
  log.mutex.unlock();
  for (;;) pause();
}
LogLock::~LogLock() {
  if (owned_) log_state().mutex.unlock();
}

std::ofstream& log_stream() {
  LogState& log = log_state();
  return pthread_equal(pthread_self(), log.main_thread) ? log.main_log : log.back_log;
}

std::string log_prefix() {
  std::ostringstream text;
  const pthread_t self = pthread_self();
  if (pthread_equal(self, log_state().main_thread)) {
    if (depth > 0) text << ".   ";
  } else if (self == 0) {
    text << "thread::id of a non-executing thread:   ";
  } else {
    text << std::hex << std::setw(16) << self << ":   ";
  }
  for (int d = 1; d < depth; d++) text << "|   ";
  return text.str();
}

void log_depth_add(int step) { depth += step; }

void console_text(const std::string& text, bool error) {
  LogState& log = log_state();
  if (!log.console && !(error && text.starts_with(ERROR_WORD))) return;
  if (log.progress_pending) {
    log.progress_pending = false;
    std::fputs("\n", stdout);
  }
  if (error) {
    std::fflush(stdout);
    std::fputs(coloured(text).c_str(), stderr);
  } else {
    std::printf("%s", text.c_str());
    std::fflush(stdout);
  }
}

void set_console_once(bool once) {
  const LogLock lock;
  log_state().once = once;
  log_state().shown.clear();
}

ConsoleQuiet::ConsoleQuiet() {
  const LogLock lock;
  log_state().nquiet++;
}
ConsoleQuiet::~ConsoleQuiet() {
  const LogLock lock;
  log_state().nquiet--;
}

LogText::LogText() { text_ << std::fixed << std::setprecision(3); }

LogScope::LogScope(const std::string& text) {
  depth++;
  if (!log_files_open) return;
  const LogLock lock;
  log_stream() << log_prefix() + "/ " + text + "\n";  // in one piece: a crash rarely cuts it
}
LogScope::~LogScope() { depth--; }

void log_line(const std::string& text) {
  if (!log_files_open) return;
  const LogLock lock;
  log_stream() << log_prefix() + "| " + text + "\n";
}

void log_msg(const std::string& text) { write_message(text, false, false); }
void log_msg1(const std::string& text) { write_message(text, true, false); }
void log_error(const std::string& text) {
  remember(text, true);
  write_message("ERROR: " + text, false, true);
}
void log_warning(const std::string& text) {
  remember(text, false);
  write_message("WARNING: " + text, false, true);
}

std::vector<std::string> reported_messages(bool errors) {
  const LogLock lock;
  return reported(errors);
}
}  // namespace veld
