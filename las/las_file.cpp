#include "las/las_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

namespace veld {
namespace {
// The files open for reading in the whole process, by device and inode; one entry for each reader.
std::mutex open_mutex;
std::vector<std::pair<uint64_t, uint64_t>>& open_files() {
  static std::vector<std::pair<uint64_t, uint64_t>> files;
  return files;
}
}  // namespace

LasInFile::~LasInFile() {
  if (fd_ < 0) return;
  ::close(fd_);
  const std::lock_guard<std::mutex> lock(open_mutex);
  auto& files = open_files();
  const auto mine = std::find(files.begin(), files.end(), std::pair(device_, inode_));
  if (mine != files.end()) files.erase(mine);
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
  const std::lock_guard<std::mutex> lock(open_mutex);
  open_files().emplace_back(device_, inode_);
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
  if (stat(path.c_str(), &st) != 0) return false;
  const std::pair<uint64_t, uint64_t> key(st.st_dev, st.st_ino);
  const std::lock_guard<std::mutex> lock(open_mutex);
  const auto& files = open_files();
  return std::find(files.begin(), files.end(), key) != files.end();
}
}  // namespace veld
