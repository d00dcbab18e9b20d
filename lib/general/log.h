// lib/general/log.h
// The log: scopes, lines and messages, in two files (main thread, all other threads) and on the console.
// Here:     the operations, composed as streams: LOG_LINE("np=" << np).
// Not here: opening and closing the logs (logfiles.h), progress (progress.h), the crash report (crash.h).
#pragma once
#include <atomic>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace veld {
// A text under composition: fixed notation with 3 decimals.
class LogText {
 public:
  LogText();
  std::ostream& os() { return text_; }
  std::string str() const { return text_.str(); }

 private:
  std::ostringstream text_;
};

// True while log files are open: the text of a scope or line is composed only then.
extern std::atomic<bool> log_files_open;

// Writes "/ " and its text into the calling thread's log; the depth falls by one when it goes out of scope.
class LogScope {
 public:
  explicit LogScope(const std::string& text);
  ~LogScope();
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;
};

void log_line(const std::string& text);     // "| " text, log only
void log_msg(const std::string& text);      // "| @ " in a scope, "> @ " outside one; log and standard output
void log_msg1(const std::string& text);     // "> @ " one-line form; log and standard output
void log_error(const std::string& text);    // the same with "ERROR: " in front; standard error
void log_warning(const std::string& text);  // the same with "WARNING: " in front; standard error

// The WARNING or ERROR lines of this process so far, the first thousand, without the word in front.
std::vector<std::string> reported_messages(bool errors);

#define LOG_CAT2(a, b) a##b
#define LOG_CAT(a, b) LOG_CAT2(a, b)
#define LOG_STR(expr)       \
  ([&]() {                  \
    LogText log_text_;      \
    log_text_.os() << expr; \
    return log_text_.str(); \
  }())
#define LOG_ENTER(expr) \
  const LogScope LOG_CAT(log_scope_, __LINE__)(log_files_open ? LOG_STR(expr) : std::string())
#define LOG_LINE(expr)                           \
  do {                                           \
    if (log_files_open) log_line(LOG_STR(expr)); \
  } while (0)
#define LOG_MSG(expr) log_msg(LOG_STR(expr))
#define LOG_MSG1(expr) log_msg1(LOG_STR(expr))
#define ERROR_MSG(expr) log_error(LOG_STR(expr))
#define WARNING_MSG(expr) log_warning(LOG_STR(expr))
}  // namespace veld
