#include "lib/general/file_lock.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "lib/general/log.h"
#include "lib/general/logfiles.h"

namespace veld {
namespace {
// A field of /proc/N/stat from the third on, counted behind the name in brackets; "-" when it cannot be read.
std::string process_field(long process, int number) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(file, line);
  const size_t bracket = line.rfind(')');
  if (bracket == std::string::npos) return "-";
  std::istringstream fields(line.substr(bracket + 1));
  std::string field;
  for (int i = 3; i <= number; i++)
    if (!(fields >> field)) return "-";
  return field;
}

std::string process_start(long process) { return process_field(process, 22); }

// One that has ended counts as gone although its parent has not asked for it yet.
bool is_running(long process) {
  return (kill(static_cast<pid_t>(process), 0) == 0 || errno != ESRCH) && process_field(process, 3) != "Z";
}

// Not kept: a child of this process is another one.
std::string owner_line() {
  return std::to_string(getpid()) + " " + process_start(getpid()) + " " + own_host() + "\n";
}

struct Seen {  // a lock of somebody
  LockOwner owner;
  struct stat info;
};

bool look_at(const std::string& path, Seen& seen) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char text[512];
  const bool good = fstat(fd, &seen.info) == 0;
  const ssize_t n = pread(fd, text, sizeof text - 1, 0);
  close(fd);
  std::istringstream fields(std::string(text, n > 0 ? static_cast<size_t>(n) : 0));
  LockOwner& o = seen.owner;
  if (!(fields >> o.process >> o.start >> o.host)) o = LockOwner{};
  return good;
}

// now: by the clock of the file system, s.
bool is_gone(const Seen& seen, time_t now, int stale_s) {
  const LockOwner& o = seen.owner;
  if (o.host == own_host() && o.process > 0) {
    if (!is_running(o.process)) return true;
    const std::string start = process_start(o.process);
    return start != "-" && o.start != "-" && start != o.start;
  }
  return stale_s > 0 && now - seen.info.st_mtime > stale_s;
}

// Takes a lock out of the way whose owner is gone. Another may have done so and hold a new one: that is put back.
bool move_away(const std::string& path, const Seen& seen, const std::string& own) {
  const std::string away = own + ".gone";
  if (rename(path.c_str(), away.c_str()) != 0) return false;
  Seen moved;  // numbers of files are reused, so the content is compared too
  const bool same = look_at(away, moved) && moved.owner == seen.owner &&
                    moved.info.st_ino == seen.info.st_ino && moved.info.st_mtime == seen.info.st_mtime;
  if (!same && link(away.c_str(), path.c_str()) != 0) LOG_LINE("<!> lock lost " << path);
  unlink(away.c_str());
  return same;
}

// A file with the owner's line; info: its place and time. False with errno.
bool write_own(const std::string& path, int flags, struct stat& info) {
  const std::string line = owner_line();
  const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC | flags, 0644);
  if (fd < 0) return false;
  bool good = write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  if (!good && errno == 0) errno = EIO;
  good = good && fstat(fd, &info) == 0;
  const int reason = errno;
  const bool closed = close(fd) == 0;
  if (good && closed) return true;
  if (!good) errno = reason;
  const int cause = errno;
  unlink(path.c_str());
  errno = cause;
  return false;
}
}  // namespace

LockTake take_lock_file(const std::string& path, int stale_s) {
  static std::atomic<unsigned> number{0};
  const std::string own = path + "." + own_tag() + "-" + std::to_string(number++);
  LockTake take;
  LockOwner former;
  for (int attempt = 0; attempt < 5; attempt++) {
    struct stat info;
    if (!write_own(own, O_TRUNC, info)) {
      take.reason = errno;
      return take;
    }
    const bool linked = link(own.c_str(), path.c_str()) == 0;
    int reason = errno;
    // The answer of a file server may be lost; the number of names shows whether the call succeeded.
    struct stat after;
    const bool counted = stat(own.c_str(), &after) == 0 && after.st_nlink == 2;
    unlink(own.c_str());
    bool made = linked || counted;
    if (!made && reason != EEXIST && reason != ENOSPC && reason != ENOENT) {  // no hard links there
      made = write_own(path, O_EXCL, info);
      reason = errno;
    }
    if (made) {
      take.state = LockState::held;
      take.owner = former;
      return take;
    }
    if (reason != EEXIST) {
      take.reason = reason;
      return take;
    }
    Seen seen;
    if (!look_at(path, seen)) continue;  // released right now
    take.owner = seen.owner;
    take.state = LockState::busy;
    if (!is_gone(seen, info.st_mtime, stale_s)) return take;
    take.state = LockState::failed;
    if (move_away(path, seen, own)) {
      take.taken_over = true;
      former = seen.owner;
    }
  }
  take.state = LockState::busy;
  take.taken_over = false;
  return take;
}

void release_lock_file(const std::string& path) {
  Seen seen;
  if (look_at(path, seen) && seen.owner.process == getpid() && seen.owner.host == own_host())
    unlink(path.c_str());
}

namespace {
struct HeldLocks {
  std::timed_mutex mutex;
  std::set<std::string> paths;
  bool refreshed = false;  // the thread has been started
};
HeldLocks& held_locks() {
  static HeldLocks* const list = new HeldLocks;  // never destroyed: a signal may come at the very end
  return *list;
}

void* refresh(void*) {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  for (;;) {
    std::this_thread::sleep_for(std::chrono::seconds(LOCK_REFRESH_S));
    const std::lock_guard lock(held_locks().mutex);
    for (const std::string& path : held_locks().paths) utimensat(AT_FDCWD, path.c_str(), nullptr, 0);
  }
}

// Without that thread another host might think a lock forgotten, and do the work twice: no fault of either.
void start_refresh() {
  pthread_t thread;
  if (pthread_create(&thread, nullptr, refresh, nullptr) == 0)
    pthread_detach(thread);
  else
    LOG_LINE("<!> locks are not refreshed");
}

std::string owner_text(const LockOwner& o) {
  return o.process > 0 ? "process " + std::to_string(o.process) + " on " + o.host : "another run";
}
}  // namespace

LockState FileLock::take(const std::string& path, const std::string& what) {
  release();
  HeldLocks& held = held_locks();
  {
    const std::lock_guard lock(held.mutex);  // a signal in between waits, and removes the lock
    taken_ = take_lock_file(path, LOCK_STALE_S);
    if (taken_.state == LockState::held) {
      held.paths.insert(path);
      path_ = path;
      if (!held.refreshed) start_refresh();
      held.refreshed = true;
    }
  }
  if (taken_.state == LockState::failed)
    ERROR_MSG("could not lock " << what << ", file='" << path << "': " << std::strerror(taken_.reason));
  if (taken_.state == LockState::held && taken_.taken_over)
    WARNING_MSG(what << " was left by " << owner_text(taken_.owner) << ", which is gone: lock taken over");
  return taken_.state;
}

bool FileLock::wait(const std::string& path, const std::string& what) {
  constexpr auto STEP = std::chrono::milliseconds(50);
  for (bool told = false;; told = true) {
    const LockState state = take(path, what);
    if (state != LockState::busy) return state == LockState::held;
    if (!told) LOG_MSG1("waiting for " << what << ", in work by " << owner_text(taken_.owner));
    std::this_thread::sleep_for(STEP);
  }
}

void FileLock::release() {
  if (path_.empty()) return;
  const std::lock_guard lock(held_locks().mutex);
  held_locks().paths.erase(path_);
  release_lock_file(path_);
  path_.clear();
}

void remove_held_locks() {
  HeldLocks& held = held_locks();
  std::unique_lock lock(held.mutex, std::chrono::seconds(1));
  if (!lock.owns_lock()) return;
  lock.release();  // for good: no other lock is taken
  for (const std::string& path : held.paths) release_lock_file(path);
}

namespace {
// The process in a name with the tag of a run of this host, "...host-process." or "...host-process-", 0 without one.
long process_of(const std::string& name) {
  const std::string start = "." + own_host() + "-";
  const size_t at = name.rfind(start);
  if (at == std::string::npos) return 0;
  char* end = nullptr;
  const long process = std::strtol(name.c_str() + at + start.size(), &end, 10);
  return *end == '.' || *end == '-' || *end == '_' ? process : 0;
}
}  // namespace

void remove_orphans(const std::string& dir) {
  DIR* const list = opendir(dir.empty() ? "." : dir.c_str());
  if (!list) return;
  std::vector<std::string> orphans, locks;
  while (const dirent* const entry = readdir(list)) {
    const std::string name = entry->d_name;
    const long process = process_of(name);
    if (process > 0 && !is_running(process)) orphans.push_back(name);
    if (name.ends_with(".lock")) locks.push_back(name);
  }
  closedir(list);
  for (const std::string& name : orphans)
    if (unlink((dir + name).c_str()) == 0) LOG_LINE("<!> removed " << name << ", its run is gone");
  for (const std::string& name : locks) {
    Seen seen;
    if (look_at(dir + name, seen) && seen.owner.host == own_host() && is_gone(seen, 0, 0) &&
        move_away(dir + name, seen, dir + name + "." + own_tag()))
      LOG_LINE("<!> removed " << name << ", its owner is gone");
  }
}
}  // namespace veld
