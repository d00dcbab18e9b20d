// lib/general/log_internal.h
// The one state of the log, shared by the sources of lib/general that write to it.
#pragma once
#include <pthread.h>

#include <atomic>
#include <ctime>
#include <fstream>
#include <mutex>
#include <set>
#include <string>

namespace veld {
struct LogState {
  std::timed_mutex mutex;  // guards all that follows, the console included
  std::ofstream main_log;  // the main thread's
  std::ofstream back_log;  // all other threads'
  std::string base;        // path of the logs without ".log" or "_b.log"
  std::string stem;        // the same for a run that shares its logs: where the logs of all runs begin
  std::string lock_path;   // empty while no lock is held
  std::string lock_note;   // whose lock was taken over; empty otherwise
  std::string prog_path;   // progress file, empty for none
  pthread_t main_thread;
  clock_t clock_start = 0;
  time_t time_start = 0;
  bool console = true;
  int nquiet = 0;                     // owners of a ConsoleQuiet
  bool once = false;                  // each ERROR and WARNING text comes on the console once
  std::set<std::string> shown;        // ERROR and WARNING texts that the console has had
  bool progress_pending = false;      // a progress line stands on the console without its line end
  std::atomic<bool> crashed{false};   // a crash report has begun
  std::atomic<pthread_t> reporter{};  // the thread that writes it
};

// Constructed before main() by the main thread and never destroyed, so that late writers find it.
LogState& log_state();

// Holds the log mutex. After a crash report has begun all threads but the reporting one stop here. Its own
// wait is bounded, since the thread that crashed may be the owner; the text then goes out unguarded.
class LogLock {
 public:
  LogLock();
  ~LogLock();
  LogLock(const LogLock&) = delete;
  LogLock& operator=(const LogLock&) = delete;

 private:
  bool owned_;
};

// All of these need the lock held.
std::ofstream& log_stream();   // of the calling thread
std::string log_prefix();      // of the calling thread at its depth
void log_depth_add(int step);  // the calling thread's depth
void console_text(const std::string& text,
                  bool error);  // ends a pending progress line first; no line end added
}  // namespace veld
