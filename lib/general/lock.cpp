// The instance lock, and what distinguishes this run from others.
#include <unistd.h>

#include <cstdio>

#include "lib/general/file_lock.h"
#include "lib/general/log_internal.h"
#include "lib/general/logfiles.h"

namespace veld {
namespace {
void hold(const std::string& path, const std::string& note) {
  log_state().lock_path = path;
  log_state().lock_note = note;
}

// The namespace of the process numbers, unless it is that of the machine.
std::string container() {
  constexpr char MACHINE[] = "pid:[4026531836]";
  char text[64];
  const ssize_t n = readlink("/proc/self/ns/pid", text, sizeof text);
  const std::string space(text, n > 0 ? static_cast<size_t>(n) : 0);
  return space.size() < 7 || space == MACHINE ? "" : "+" + space.substr(5, space.size() - 6);
}
}  // namespace

std::string host_name() {
  char name[256] = "";
  return gethostname(name, sizeof name - 1) == 0 && name[0] != '\0' ? name : "localhost";
}

std::string own_host() {
  static const std::string host = host_name() + container();
  return host;
}

std::string own_tag() { return own_host() + "-" + std::to_string(getpid()); }

bool take_lock(const std::string& base, const std::string& program, bool report) {
  const std::string path = base + ".lock";
  const LogLock whole;  // a signal in between waits until the lock is known, and removes it
  const LockTake take = take_lock_file(path, 0);
  if (take.state == LockState::held) {
    const std::string note = take.taken_over
                                 ? "WARNING: lock of process " + std::to_string(take.owner.process) +
                                       " taken over, it ended without removing it"
                                 : "";
    if (report && take.taken_over) std::fprintf(stderr, "%s\n", note.c_str());
    hold(path, note);
    return true;
  }
  if (!report) return false;
  if (take.state == LockState::failed) {
    std::fprintf(stderr, "ERROR: could not create file \"%s\"\n", path.c_str());
    return false;
  }
  std::fprintf(stderr, "ERROR: one instance of %s is already running!\nfile \"%s\" found.\n", program.c_str(),
               path.c_str());
  if (take.owner.process > 0)
    std::fprintf(stderr, "held by process %ld on %s\n", take.owner.process, take.owner.host.c_str());
  return false;
}
}  // namespace veld
