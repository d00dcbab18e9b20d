#include "lib/general/posfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "lib/general/log.h"

namespace veld {
namespace {
thread_local std::string last_fault;
}

PosFileIn::PosFileIn(PosFileIn&& other) noexcept
    : report_(other.report_),
      fd_(std::exchange(other.fd_, -1)),
      size_(other.size_),
      name_(std::move(other.name_)),
      summed_(other.summed_),
      blocks_(std::move(other.blocks_)) {}

PosFileIn& PosFileIn::operator=(PosFileIn&& other) noexcept {
  if (this == &other) return *this;
  close();
  report_ = other.report_;
  fd_ = std::exchange(other.fd_, -1);
  size_ = other.size_;
  name_ = std::move(other.name_);
  summed_ = other.summed_;
  blocks_ = std::move(other.blocks_);
  return *this;
}

const std::string& PosFileIn::fault() { return last_fault; }

bool PosFileIn::fail(const char* what, const std::string& cause) const {
  last_fault = cause + ", file " + name_;
  if (report_) ERROR_MSG("PosFileIn: " << what << " failed, file='" << name_ << "': " << cause);
  return false;
}

bool PosFileIn::open(const std::string& name) {
  close();
  name_ = name;
  summed_ = false;
  struct stat info;
  fd_ = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0 || fstat(fd_, &info) != 0) {
    const int reason = errno;
    close();
    return fail("open", std::strerror(reason));
  }
  size_ = static_cast<uint64_t>(info.st_size);
  return true;
}

bool PosFileIn::open(const std::string& name, BlockSums&& blocks) {
  if (!open(name)) return false;
  if (size_ != blocks.size) {
    close();
    return fail("open",
                "the size is " + std::to_string(size_) + " bytes, expected " + std::to_string(blocks.size));
  }
  summed_ = true;
  blocks_ = std::move(blocks);
  return true;
}

bool PosFileIn::refuse(const std::string& name, const std::string& cause) {
  close();
  name_ = name;
  return fail("open", cause);
}

void PosFileIn::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool PosFileIn::read(uint64_t offset, void* dest, uint64_t n) const {
  if (n == 0) return true;
  if (n > size_ || offset > size_ - n) return fail("read", "unexpected end of the file");
  char* const to = static_cast<char*>(dest);
  return summed_ ? read_summed(offset, to, n) : read_plain(offset, to, n);
}

bool PosFileIn::read_plain(uint64_t offset, char* to, uint64_t n) const {
  while (n > 0) {
    const ssize_t got = pread(fd_, to, n, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return fail("read", got == 0 ? "unexpected end of the file" : std::strerror(errno));
    to += got;
    offset += static_cast<uint64_t>(got);
    n -= static_cast<uint64_t>(got);
  }
  return true;
}

// Reads the blocks that hold the bytes through a buffer of the thread's own.
bool PosFileIn::read_summed(uint64_t offset, char* to, uint64_t n) const {
  constexpr uint64_t AT_ONCE = 64;  // blocks: stays in the processor's cache between reading and copying
  thread_local std::vector<char> buffer(AT_ONCE * SUM_BLOCK);
  while (n > 0) {
    const uint64_t block = offset / SUM_BLOCK, first = block * SUM_BLOCK;
    const uint64_t end = std::min(offset + n, first + buffer.size());
    const uint64_t stop = std::min(size_, (end + SUM_BLOCK - 1) / SUM_BLOCK * SUM_BLOCK);
    if (!read_plain(first, buffer.data(), stop - first)) return false;
    for (uint64_t at = first; at < stop; at += SUM_BLOCK) {
      const uint64_t bytes = std::min(SUM_BLOCK, stop - at), i = at / SUM_BLOCK;
      if (checksum64(buffer.data() + (at - first), bytes) != blocks_.sums[i])
        return fail("read", "block " + std::to_string(i) + " of " + std::to_string(blocks_.sums.size()) +
                                " does not match its checksum");
    }
    std::memcpy(to, buffer.data() + (offset - first), end - offset);
    to += end - offset;
    n -= end - offset;
    offset = end;
  }
  return true;
}

bool PosReader::read(void* dest, uint64_t n) {
  char* to = static_cast<char*>(dest);
  if (n > left()) return false;
  while (n > 0) {
    if (pos_ == valid_) {
      pos_ = valid_ = 0;
      if (n >= buffer_.size()) {
        if (!file_.read(at_, to, n)) return false;
        at_ += n;
        return true;
      }
      const uint64_t more = std::min<uint64_t>(buffer_.size(), file_.size() - at_);
      if (!file_.read(at_, buffer_.data(), more)) return false;
      at_ += more;
      valid_ = more;
    }
    const uint64_t part = std::min(n, valid_ - pos_);
    std::memcpy(to, buffer_.data() + pos_, part);
    pos_ += part;
    to += part;
    n -= part;
  }
  return true;
}
}  // namespace veld
