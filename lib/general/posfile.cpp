#include "lib/general/posfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "lib/general/log.h"

namespace veld {
PosFileIn::PosFileIn(PosFileIn&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), size_(other.size_), name_(std::move(other.name_)) {}

PosFileIn& PosFileIn::operator=(PosFileIn&& other) noexcept {
  if (this == &other) return *this;
  close();
  fd_ = std::exchange(other.fd_, -1);
  size_ = other.size_;
  name_ = std::move(other.name_);
  return *this;
}

bool PosFileIn::open(const std::string& name) {
  close();
  name_ = name;
  struct stat info;
  fd_ = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0 || fstat(fd_, &info) != 0) {
    ERROR_MSG("PosFileIn: open failed, file='" << name << "': " << std::strerror(errno));
    close();
    return false;
  }
  size_ = static_cast<uint64_t>(info.st_size);
  return true;
}

void PosFileIn::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool PosFileIn::read(uint64_t offset, void* dest, uint64_t n) const {
  char* to = static_cast<char*>(dest);
  while (n > 0) {
    const ssize_t got = pread(fd_, to, n, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      ERROR_MSG("PosFileIn: read failed, file='"
                << name_ << "': " << (got == 0 ? "unexpected end of the file" : std::strerror(errno)));
      return false;
    }
    to += got;
    offset += static_cast<uint64_t>(got);
    n -= static_cast<uint64_t>(got);
  }
  return true;
}
}  // namespace veld
