// lib/general/file_lock.h
// Locks that are files: made by link(2), so that they hold between machines on a shared file system, too.
// Here:     taking, taking over from an owner that is gone, releasing, keeping them fresh.
// Not here: the lock of the instance and its messages (lock.cpp), what is locked when (the caches).
//
// A lock holds "process start host". Its owner is gone when the process has ended on this host, or its
// number is another process's now; of another host, when the lock has not been refreshed for LOCK_STALE_S by the
// clock of the file system (locks of class FileLock are refreshed every LOCK_REFRESH_S).
#pragma once
#include <string>

namespace veld {
constexpr int LOCK_REFRESH_S = 10;
constexpr int LOCK_STALE_S = 120;

struct LockOwner {
  long process = 0;   // 0 when the lock does not say whose it is
  std::string start;  // of the process, in clock ticks since the machine started: numbers are used again
  std::string host;   // as own_host() gives it
  bool operator==(const LockOwner&) const = default;
};

enum class LockState { held, busy, failed };

struct LockTake {
  LockState state = LockState::failed;
  int reason = 0;   // errno when failed
  LockOwner owner;  // who holds it when busy; whose it was when it was taken over
  bool taken_over = false;
};

// Tries to make the lock file. stale_s: when to take one over from another host, 0 for never.
LockTake take_lock_file(const std::string& path, int stale_s);
// Removes the lock unless it is another's by now.
void release_lock_file(const std::string& path);

// A lock that is kept fresh while it is held, and released at the end of its scope or of the process.
class FileLock {
 public:
  FileLock() = default;
  ~FileLock() { release(); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  // what: in words, for the notes. A lock that is taken over is one WARNING; failed is an ERROR line.
  [[nodiscard]] LockState take(const std::string& path, const std::string& what);
  // Waits for it, silently after one line that names what is waited for. False after an ERROR line.
  [[nodiscard]] bool wait(const std::string& path, const std::string& what);
  void release();
  bool held() const { return !path_.empty(); }

 private:
  std::string path_;
  LockTake taken_;
};

// For the end of the process by a signal.
void remove_held_locks();

// Removes what runs of this host that are gone left in a directory: parts and other files with their tag, and
// locks.
void remove_orphans(const std::string& dir);
}  // namespace veld
