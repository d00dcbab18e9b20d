#include "lib/general/txtfile.h"

#include <cerrno>
#include <cstring>
#include <iomanip>

#include "lib/general/log.h"
#include "lib/general/path.h"

namespace {
bool failure(bool report, const char* what, const std::string& name) {
  if (report) ERROR_MSG(what << ", file='" << name << "': " << std::strerror(errno));
  return false;
}
}  // namespace

TxtFileIn::TxtFileIn(const std::string& name, bool report) : report_(report) {
  if (!open(name)) fs.close();
}

bool TxtFileIn::open(const std::string& name) {
  if (fs.is_open()) close();
  name_ = name;
  errno = 0;
  fs.clear();
  fs.open(name, std::ios::in | std::ios::binary);
  if (fs.is_open() && !is_directory(name)) return true;
  if (fs.is_open()) {
    fs.close();
    errno = EISDIR;
  }
  return failure(report_, "TxtFileIn: open failed", name);
}

bool TxtFileIn::getline(std::string& line) {
  errno = 0;
  if (std::getline(fs, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
  }
  if (fs.bad()) failure(report_, "TxtFileIn: getline failed", name_);
  return false;
}

bool TxtFileIn::close() {
  if (!fs.is_open()) return true;
  fs.clear();
  errno = 0;
  fs.close();
  return !fs.fail() || failure(report_, "TxtFileIn: close failed", name_);
}

bool TxtFileOut::open(const std::string& name, int mode) {
  if (fs.is_open() && !close()) return false;
  name_ = name;
  errno = 0;
  fs.clear();
  fs.open(name, std::ios::out | (mode == 1 ? std::ios::app : std::ios::trunc));
  if (!fs.is_open()) return failure(report_, "TxtFileOut: open failed", name);
  fs << std::fixed << std::setprecision(3);
  return true;
}

bool TxtFileOut::close() {
  if (!fs.is_open()) return true;
  errno = 0;
  const bool written = fs.good();
  fs.close();
  return (written && !fs.fail()) || failure(report_, "TxtFileOut: close failed", name_);
}
