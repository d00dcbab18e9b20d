#include "lib/general/txtfile.h"

#include <cerrno>
#include <cstring>
#include <iomanip>

#include "lib/general/log.h"

namespace veld {
namespace {
void report_failure(const char* what, const std::string& name, int reason) {
  ERROR_MSG(what << " failed, file='" << name
                 << "': " << (reason ? std::strerror(reason) : "stream failure"));
}
}  // namespace

TxtFileIn::TxtFileIn(const std::string& name, bool report) : report_(report) { (void)open(name); }

bool TxtFileIn::open(const std::string& name) {
  close();
  name_ = name;
  errno = 0;
  fs.clear();
  fs.open(name, std::ios::in | std::ios::binary);
  if (fs.is_open()) return true;
  if (report_) report_failure("TxtFileIn: open", name, errno);
  return false;
}

bool TxtFileIn::getline(std::string& line) {
  errno = 0;
  if (std::getline(fs, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
  }
  if (!fs.eof() && report_) report_failure("TxtFileIn: getline", name_, errno);
  return false;
}

bool TxtFileIn::close() {
  if (!fs.is_open()) return true;
  errno = 0;
  fs.clear();
  fs.close();
  if (!fs.fail()) return true;
  if (report_) report_failure("TxtFileIn: close", name_, errno);
  return false;
}

bool TxtFileOut::open(const std::string& name, int mode) {
  if (!close()) return false;
  name_ = name;
  errno = 0;
  fs.clear();
  fs.open(name, std::ios::out | std::ios::binary | (mode == 1 ? std::ios::app : std::ios::trunc));
  if (!fs.is_open()) {
    if (report_) report_failure("TxtFileOut: open", name, errno);
    return false;
  }
  fs << std::fixed << std::setprecision(3);
  return true;
}

bool TxtFileOut::close() {
  if (!fs.is_open()) return true;
  errno = 0;
  const bool good = !fs.fail();
  fs.close();  // clears nothing: an earlier failure stays
  if (good && !fs.fail()) return true;
  if (report_) report_failure("TxtFileOut: close", name_, errno);
  return false;
}
}  // namespace veld
