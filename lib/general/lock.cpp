// The instance lock: a file that appears with its content, and is taken over when its owner has ended.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "lib/general/log_internal.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"

namespace veld {
namespace {
struct Owner {
  long process = 0;
  std::string start;  // of the process, in clock ticks since the machine started: numbers are used again
  std::string host;
};

// The 22nd field of /proc/N/stat, counted behind the name in brackets; "-" when it cannot be read.
std::string process_start(long process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(file, line);
  const size_t bracket = line.rfind(')');
  if (bracket == std::string::npos) return "-";
  std::istringstream fields(line.substr(bracket + 1));
  std::string field;
  for (int i = 3; i <= 22; i++)
    if (!(fields >> field)) return "-";
  return field;
}

std::string owner_line() {
  return std::to_string(getpid()) + " " + process_start(getpid()) + " " + host_name() + "\n";
}

// False for a lock that does not say whose it is.
bool read_owner(int fd, Owner& owner) {
  char text[512];
  const ssize_t n = pread(fd, text, sizeof text - 1, 0);
  if (n <= 0) return false;
  std::istringstream fields(std::string(text, static_cast<size_t>(n)));
  return fields >> owner.process >> owner.start >> owner.host && owner.process > 0;
}

bool has_ended(const Owner& owner) {
  if (owner.host != host_name()) return false;  // nobody here can tell
  if (kill(static_cast<pid_t>(owner.process), 0) != 0 && errno == ESRCH) return true;
  const std::string start = process_start(owner.process);
  return start != "-" && owner.start != "-" && start != owner.start;
}

// Creates the lock with its content at once, so that nobody sees it empty. False with errno, EEXIST when there
// is one.
bool create_lock(const std::string& path) {
  const std::string line = owner_line(), own = path + "." + host_name() + "." + std::to_string(getpid());
  const int fd = open(own.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  bool good = write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  int reason = errno;
  if (close(fd) != 0) good = false;
  if (good && link(own.c_str(), path.c_str()) != 0) {
    good = false;
    reason = errno;
  }
  unlink(own.c_str());
  if (good || reason == EEXIST || reason == ENOSPC) {
    errno = reason;
    return good;
  }
  // A file system without hard links.
  const int plain = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
  if (plain < 0) return false;
  good = write(plain, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  return close(plain) == 0 && good;
}

// Puts this process in the place of an owner that has ended. Of several that try, one succeeds: each looks again
// while it holds the file.
bool take_over(const std::string& path, Owner& owner) {
  const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat held, there;
  const std::string line = owner_line();
  const bool good = flock(fd, LOCK_EX | LOCK_NB) == 0 && fstat(fd, &held) == 0 &&
                    stat(path.c_str(), &there) == 0 && held.st_ino == there.st_ino &&
                    held.st_dev == there.st_dev && read_owner(fd, owner) && has_ended(owner) &&
                    ftruncate(fd, 0) == 0 &&
                    pwrite(fd, line.data(), line.size(), 0) == static_cast<ssize_t>(line.size());
  close(fd);
  return good;
}

void hold(const std::string& path, const std::string& note) {
  log_state().lock_path = path;
  log_state().lock_note = note;
}
}  // namespace

std::string host_name() {
  char name[256] = "";
  return gethostname(name, sizeof name - 1) == 0 && name[0] != '\0' ? name : "localhost";
}

std::string own_tag() { return host_name() + "-" + std::to_string(getpid()); }

bool take_lock(const std::string& base, const std::string& program, bool report) {
  const std::string path = base + ".lock";
  const LogLock whole;  // a signal in between waits until the lock is known, and removes it
  bool exists = true;
  for (int attempt = 0; attempt < 3 && exists && (attempt == 0 || file_mode(path) < 0); attempt++) {
    if (create_lock(path)) {
      hold(path, "");
      return true;
    }
    exists = errno == EEXIST;  // unless it goes right now
  }
  Owner owner;
  if (exists && take_over(path, owner)) {
    const std::string note = "WARNING: lock of process " + std::to_string(owner.process) +
                             " taken over, it ended without removing it";
    if (report) std::fprintf(stderr, "%s\n", note.c_str());
    hold(path, note);
    return true;
  }
  if (!report) return false;
  if (!exists) {
    std::fprintf(stderr, "ERROR: could not create file \"%s\"\n", path.c_str());
    return false;
  }
  std::fprintf(stderr, "ERROR: one instance of %s is already running!\nfile \"%s\" found.\n", program.c_str(),
               path.c_str());
  if (owner.process > 0)
    std::fprintf(stderr, "held by process %ld on %s\n", owner.process, owner.host.c_str());
  return false;
}
}  // namespace veld
