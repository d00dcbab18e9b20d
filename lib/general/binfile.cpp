#include "lib/general/binfile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "lib/general/path.h"

namespace veld {
namespace {
char* take_buffer(uint64_t bsize, char* given, bool& own) {
  own = !given && bsize > 0;
  if (!own) return given;
  char* const buffer = new (std::nothrow) char[bsize];
  if (!buffer) alloc_failed("BufBinFile", bsize, 1);
  return buffer;
}

void report_failure(const char* what, const std::string& name, int reason) {
  ERROR_MSG(what << " failed, file='" << name
                 << "': " << (reason ? std::strerror(reason) : "stream failure"));
}

std::streamsize as_stream_size(uint64_t n) { return static_cast<std::streamsize>(n); }
}  // namespace

BufBinFileOut::BufBinFileOut(uint64_t bsize, bool report, char* buffer) : bsize_(bsize), report_(report) {
  buf_ = take_buffer(bsize, buffer, own_);
}

BufBinFileOut::~BufBinFileOut() {
  (void)close();
  if (own_) delete[] buf_;
}

bool BufBinFileOut::open(const std::string& name, int mode) {
  if (!close()) return false;
  const std::ios::openmode how =
      std::ios::binary | std::ios::out | (mode == 1 ? std::ios::app : std::ios::trunc);
  errno = 0;
  fs_.clear();
  fs_.open(name, how);
  const int reason = errno;
  const bool good = fs_.is_open();
  fs_.close();
  LOG_LINE("BufBinFileOut::open " << (mode == 1 ? "A " : "C ") << "'" << name << "' good=" << good);
  if (!good) {
    if (report_) report_failure("BufBinFileOut: open", name, reason);
    return false;
  }
  name_ = name;
  open_ = true;
  n_ = 0;
  return true;
}

bool BufBinFileOut::append(const char* src, uint64_t n) {
  errno = 0;
  fs_.clear();
  fs_.open(name_, std::ios::binary | std::ios::out | std::ios::app);
  if (fs_.is_open()) {
    fs_.write(src, as_stream_size(n));
    fs_.close();  // a full disk may show only here
  }
  if (!fs_.fail()) return true;
  const int reason = errno;
  if (report_) report_failure("BufBinFileOut: write", name_, reason);
  return false;
}

bool BufBinFileOut::flush() {
  if (n_ == 0) return true;
  const uint64_t n = n_;
  n_ = 0;
  return append(buf_, n);
}

bool BufBinFileOut::write(const void* src, uint64_t n) {
  if (!open_) {
    if (report_) ERROR_MSG("BufBinFileOut: write failed, file not open");
    return false;
  }
  const char* from = static_cast<const char*>(src);
  if (n > bsize_ - n_) {
    const uint64_t part = bsize_ - n_;
    if (part > 0) std::memcpy(buf_ + n_, from, part);
    n_ = bsize_;
    from += part;
    n -= part;
    if (!flush()) return false;
    if (n >= bsize_) return append(from, n);
  }
  if (n > 0) std::memcpy(buf_ + n_, from, n);
  n_ += n;
  return true;
}

bool BufBinFileOut::close() {
  if (!open_) return true;
  const uint64_t n = n_;
  const bool good = flush();
  open_ = false;
  if (!good) {
    LOG_LINE("<!> BufBinFileOut::close '" << name_ << "' bad=" << fs_.bad() << " n=" << n
                                          << " bsize=" << bsize_);
    if (report_) report_failure("BufBinFileOut: close", name_, errno);
  }
  return good;
}

BufBinFileIn::BufBinFileIn(uint64_t bsize, bool report, char* buffer) : bsize_(bsize), report_(report) {
  buf_ = take_buffer(bsize, buffer, own_);
  if (bsize_ > 0) fs_.rdbuf()->pubsetbuf(nullptr, 0);  // one buffer is enough
}

BufBinFileIn::~BufBinFileIn() {
  close();
  if (own_) delete[] buf_;
}

bool BufBinFileIn::open(const std::string& name) {
  close();
  name_ = name;
  pos_ = valid_ = 0;
  errno = 0;
  fs_.clear();
  fs_.open(name, std::ios::binary | std::ios::in);
  if (fs_.is_open()) return true;
  const int reason = errno;
  LOG_LINE("<!> BufBinFileIn::open '" << name << "' bad=" << fs_.bad() << " bsize=" << bsize_);
  if (report_) report_failure("BufBinFileIn: open", name, reason);
  return false;
}

bool BufBinFileIn::close() {
  pos_ = valid_ = 0;
  if (!fs_.is_open()) return true;
  errno = 0;
  fs_.clear();
  fs_.close();
  if (!fs_.fail()) return true;
  if (report_) report_failure("BufBinFileIn: close", name_, errno);
  return false;
}

bool BufBinFileIn::read(void* dest, uint64_t n) {
  char* to = static_cast<char*>(dest);
  const uint64_t na = std::min(n, valid_ - pos_);
  if (na > 0) std::memcpy(to, buf_ + pos_, na);
  pos_ += na;
  if (na == n) return true;
  to += na;
  const uint64_t rest = n - na;

  uint64_t got;
  errno = 0;
  if (rest < bsize_) {
    fs_.read(buf_, as_stream_size(bsize_));
    valid_ = static_cast<uint64_t>(fs_.gcount());
    pos_ = got = std::min(rest, valid_);
    if (got > 0) std::memcpy(to, buf_, got);
  } else {
    fs_.read(to, as_stream_size(rest));
    got = static_cast<uint64_t>(fs_.gcount());
    pos_ = valid_ = 0;
  }
  if (fs_.fail() && !fs_.eof()) {
    const int reason = errno;
    LOG_LINE("<!> BufBinFileIn::read '" << name_ << "' bad=" << fs_.bad() << " n=" << n << " na=" << na
                                        << " dsize=" << valid_ << " bsize=" << bsize_);
    if (report_) report_failure("BufBinFileIn: read", name_, reason);
    return false;
  }
  return got == rest;
}

bool BufBinFileIn::seek(uint64_t pos) {
  pos_ = valid_ = 0;
  errno = 0;
  fs_.clear();
  fs_.seekg(static_cast<std::streamoff>(pos));
  if (!fs_.fail()) return true;
  if (report_) report_failure("BufBinFileIn: read", name_, errno);
  return false;
}

int64_t BufBinFileIn::get_size() {
  const int64_t size = file_size(name_);
  if (size < 0 && report_) ERROR_MSG("BufBinFileIn: get_size failed, file=" << name_);
  return size;
}
}  // namespace veld
