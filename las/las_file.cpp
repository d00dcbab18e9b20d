#include "las/las_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "las/las_context.h"

namespace veld {
LasInFile::~LasInFile() {
  if (fd_ < 0) return;
  ::close(fd_);
  las_context().sources.drop(device_, inode_);
}

bool LasInFile::open(const std::string& name, std::string& error) {
  name_ = name;
  const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // never waits on a pipe
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0) {
    error = std::strerror(errno);
    if (fd >= 0) ::close(fd);
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    error = "not a regular file";
    ::close(fd);
    return false;
  }
  fd_ = fd;
  size_ = static_cast<uint64_t>(st.st_size);
  device_ = st.st_dev;
  inode_ = st.st_ino;
  las_context().sources.add(device_, inode_);
  return true;
}

int64_t LasInFile::read_some(uint64_t offset, void* to, uint64_t n) const {
  if (offset >= size_) return 0;
  uint64_t done = 0;
  while (done < n) {
    const ssize_t got =
        pread(fd_, static_cast<char*>(to) + done, n - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<uint64_t>(got);
  }
  return static_cast<int64_t>(done);
}

bool LasInFile::read_at(uint64_t offset, void* to, uint64_t n) const {
  return read_some(offset, to, n) == static_cast<int64_t>(n);
}

bool las_is_open_for_reading(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && las_context().sources.holds(st.st_dev, st.st_ino);
}
}  // namespace veld
