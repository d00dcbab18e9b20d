#include "lib/general/binfile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lib/general/log.h"
#include "lib/general/path.h"

namespace {
void failure(bool report, const char* what, const std::string& name) {
  if (report) ERROR_MSG(what << ", file='" << name << "': " << std::strerror(errno));
}
}  // namespace

BufBinFileOut::BufBinFileOut(uint64_t bsize, bool report, char* buffer)
    : buf_(buffer), bsize_(bsize), own_(buffer == nullptr && bsize > 0), report_(report) {
  if (own_) buf_ = new char[bsize];
}

BufBinFileOut::~BufBinFileOut() {
  if (open_ && !close()) LOG_LINE("<!> BufBinFileOut::destructor '" << name_ << "'");
  if (own_) delete[] buf_;
}

bool BufBinFileOut::open(const std::string& name, int mode) {
  if (open_ && !close()) return false;
  errno = 0;
  fs_.clear();
  fs_.open(name, std::ios::binary | std::ios::out | (mode == 1 ? std::ios::app : std::ios::trunc));
  const bool good = fs_.is_open() && fs_.good();
  if (good) fs_.close();
  if (!good || fs_.fail()) {
    failure(report_, "BufBinFileOut: open failed", name);
    return false;
  }
  name_ = name;
  n_ = 0;
  open_ = true;
  return true;
}

// Opens the file for this write only, so that no descriptor is held between flushes.
bool BufBinFileOut::append(const char* src, uint64_t n) {
  errno = 0;
  fs_.clear();
  fs_.open(name_, std::ios::binary | std::ios::out | std::ios::app);
  if (fs_.is_open()) {
    fs_.write(src, static_cast<std::streamsize>(n));
    fs_.close();
  }
  return !fs_.fail();
}

bool BufBinFileOut::flush() {
  if (n_ == 0) return true;
  const bool ok = append(buf_, n_);
  n_ = 0;
  return ok;
}

bool BufBinFileOut::write(const void* src, uint64_t n) {
  if (!open_) {
    if (report_) ERROR_MSG("BufBinFileOut: write failed, file not open");
    return false;
  }
  const char* from = static_cast<const char*>(src);
  if (n <= bsize_ - n_) {
    if (n > 0) std::memcpy(buf_ + n_, from, n);
    n_ += n;
    return true;
  }
  const uint64_t part = bsize_ - n_;
  if (part > 0) std::memcpy(buf_ + n_, from, part);
  n_ += part;
  from += part;
  n -= part;
  bool ok = flush();
  if (ok && n >= bsize_) {
    ok = append(from, n);
  } else if (ok) {
    std::memcpy(buf_, from, n);
    n_ = n;
  }
  if (!ok) failure(report_, "BufBinFileOut: write failed", name_);
  return ok;
}

bool BufBinFileOut::close() {
  if (!open_) return true;
  open_ = false;
  const uint64_t n = n_;
  if (flush()) return true;
  LOG_LINE("<!> BufBinFileOut::close '" << name_ << "' fs.bad()=" << fs_.bad() << " n=" << n
                                        << " bsize=" << bsize_);
  failure(report_, "BufBinFileOut: close failed", name_);
  return false;
}

BufBinFileIn::BufBinFileIn(uint64_t bsize, bool report, char* buffer)
    : buf_(buffer), bsize_(bsize), own_(buffer == nullptr && bsize > 0), report_(report) {
  if (own_) buf_ = new char[bsize];
}

BufBinFileIn::~BufBinFileIn() {
  close();
  if (own_) delete[] buf_;
}

bool BufBinFileIn::open(const std::string& name) {
  close();
  name_ = name;
  errno = 0;
  fs_.clear();
  fs_.open(name, std::ios::in | std::ios::binary);
  if (fs_.is_open() && fs_.good() && !is_directory(name)) return true;
  if (fs_.is_open()) errno = EISDIR;
  LOG_LINE("<!> BufBinFileIn::open '" << name << "' fs.bad()=" << fs_.bad() << " bsize=" << bsize_);
  failure(report_, "BufBinFileIn: open failed", name);
  fs_.close();
  return false;
}

bool BufBinFileIn::close() {
  pos_ = valid_ = 0;
  if (!fs_.is_open()) return true;
  fs_.clear();
  errno = 0;
  fs_.close();
  if (!fs_.fail()) return true;
  failure(report_, "BufBinFileIn: close failed", name_);
  return false;
}

bool BufBinFileIn::read(void* dest, uint64_t n) {
  char* to = static_cast<char*>(dest);
  const uint64_t held = std::min(n, valid_ - pos_);
  if (held > 0) std::memcpy(to, buf_ + pos_, held);
  pos_ += held;
  if (held == n) return true;
  to += held;
  const uint64_t na = n - held;
  uint64_t got = 0;
  errno = 0;
  if (fs_.is_open() && fs_.good()) {
    if (na < bsize_) {
      fs_.read(buf_, static_cast<std::streamsize>(bsize_));
      valid_ = static_cast<uint64_t>(fs_.gcount());
      got = std::min(na, valid_);
      std::memcpy(to, buf_, got);
      pos_ = got;
    } else {
      fs_.read(to, static_cast<std::streamsize>(na));
      got = static_cast<uint64_t>(fs_.gcount());
    }
  }
  if (got == na) return true;
  if (fs_.fail() && !fs_.eof()) {
    LOG_LINE("<!> BufBinFileIn::read '" << name_ << "' fs.bad()=" << fs_.bad() << " n=" << n << " na=" << na
                                        << " dsize=" << got << " bsize=" << bsize_);
    failure(report_, "BufBinFileIn: read failed", name_);
  }
  return false;
}

bool BufBinFileIn::seek(uint64_t pos) {
  pos_ = valid_ = 0;
  if (!fs_.is_open()) return false;
  fs_.clear();
  fs_.seekg(static_cast<std::streamoff>(pos));
  return fs_.good();
}

int64_t BufBinFileIn::get_size() {
  const int64_t size = file_size(name_);
  if (size < 0 && report_) ERROR_MSG("BufBinFileIn: get_size failed, file=" << name_);
  return size;
}
