#include "las/las_outfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "las/las_file.h"
#include "lib/general/path.h"

namespace veld {
namespace {
constexpr uint64_t BUFFER = 1 << 18;  // bytes; larger pieces go to the file as they are
}

bool LasOutFile::fail(const std::string& what) {
  if (error_.empty()) error_ = what + ": " + std::strerror(errno);
  return false;
}

bool LasOutFile::open(const std::string& name, const std::vector<std::string>& sources, std::string& error) {
  name_ = name;
  const std::string part = ResultFile::part_of(name);
  bool is_source = las_is_open_for_reading(name) || las_is_open_for_reading(part);
  const bool exists = file_mode(name) >= 0 || file_mode(part) >= 0;  // else it is no file at all yet
  for (size_t i = 0; exists && !is_source && i < sources.size(); i++)
    is_source = same_file(name, sources[i]) || same_file(part, sources[i]);
  if (is_source) {
    error = "output is a source file";
    return false;
  }
  if (is_directory(name_)) {
    error = "is a directory";
    return false;
  }
  result_.begin(name);
  fd_ = ::open(part.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (fd_ < 0) {
    error = std::strerror(errno);
    result_.forget();
    return false;
  }
  buffer_.reserve(BUFFER);
  return true;
}

bool LasOutFile::write_at(uint64_t offset, const uint8_t* from, uint64_t n) {
  if (!error_.empty()) return false;
  while (n > 0) {
    const ssize_t put = pwrite(fd_, from, n, static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return fail("write error");
    from += put;
    offset += static_cast<uint64_t>(put);
    n -= static_cast<uint64_t>(put);
  }
  return true;
}

bool LasOutFile::flush() {
  if (!write_at(written_, buffer_.data(), buffer_.size())) return false;
  written_ += buffer_.size();
  buffer_.clear();
  return true;
}

bool LasOutFile::append(const void* from, uint64_t n) {
  const uint8_t* bytes = static_cast<const uint8_t*>(from);
  if (buffer_.size() + n > BUFFER && !flush()) return false;
  if (n < BUFFER) {
    buffer_.insert(buffer_.end(), bytes, bytes + n);
    return true;
  }
  if (!write_at(written_, bytes, n)) return false;
  written_ += n;
  return true;
}

bool LasOutFile::patch(uint64_t offset, const void* from, uint64_t n) {
  return flush() && write_at(offset, static_cast<const uint8_t*>(from), n);
}

bool LasOutFile::finish() {
  if (!flush()) return false;
  const int fd = fd_;
  fd_ = -1;
  bool ok = sync_file(fd) || fail("write error");  // a full disk may show up only here
  if (::close(fd) != 0 && ok) ok = fail("close error");
  if (ok && !result_.commit()) ok = fail("rename error");
  if (!ok) result_.give_up();
  return ok;
}

void LasOutFile::discard() {
  if (fd_ < 0) return;
  ::close(fd_);
  fd_ = -1;
  result_.give_up();
}
}  // namespace veld
