#include "lib/general/result_file.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>

#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"

namespace veld {
namespace {
struct Unfinished {  // of the whole process
  std::timed_mutex mutex;
  std::set<std::string> parts;
  std::vector<std::string> committed;
};
Unfinished& unfinished() {
  static Unfinished* const list = new Unfinished;  // never destroyed: a signal may come at the very end
  return *list;
}
}  // namespace

ResultFile::~ResultFile() { give_up(); }

void ResultFile::begin(const std::string& name) { begin_part(name, part_of(name)); }

void ResultFile::begin_own(const std::string& name) {
  begin_part(name, part_of(name + "." + own_tag()));
  own_ = true;
}

void ResultFile::begin_part(const std::string& name, const std::string& part) {
  give_up();
  own_ = false;
  name_ = name;
  part_ = part;
  const std::lock_guard lock(unfinished().mutex);
  unfinished().parts.insert(part_);
}

bool ResultFile::open(const std::string& name) {
  give_up();
  name_ = name;
  part_ = part_of(name);
  {
    const std::lock_guard lock(unfinished().mutex);  // no file comes up behind the removal of all
    unfinished().parts.insert(part_);
    if (text_.open(part_, 0)) return true;
  }
  forget();
  return false;
}

bool ResultFile::commit() {
  const bool whole = text_.close() && (reports_ ? publish_file(part_, name_) : rename_file(part_, name_));
  if (!whole) {
    const int reason = errno;
    give_up();
    errno = reason;
    return false;
  }
  forget();
  if (own_) return true;
  const std::lock_guard lock(unfinished().mutex);
  unfinished().committed.push_back(name_);
  return true;
}

std::vector<std::string> committed_results() {
  const std::lock_guard lock(unfinished().mutex);
  return unfinished().committed;
}

void ResultFile::give_up() {
  if (part_.empty()) return;
  if (text_.fs.is_open()) {
    text_.fs.setstate(std::ios::failbit);  // it is thrown away: a failure at its end is not reported
    text_.fs.close();
  }
  remove_file(part_);
  forget();
}

void ResultFile::forget() {
  const std::lock_guard lock(unfinished().mutex);
  unfinished().parts.erase(part_);
  part_.clear();
}

bool BinResultFile::open(const std::string& name) {
  result_.begin(name);
  if (file_.open(result_.part(), 0)) return true;
  result_.forget();
  return false;
}

bool BinResultFile::commit_synced() {
  if (!file_.close()) return false;
  if (sync_file(result_.part())) return result_.commit();
  ERROR_MSG("write error, file='" << result_.part() << "': " << std::strerror(errno));
  result_.give_up();
  return false;
}

void remove_unfinished_results() {
  // Who holds the lock for a second is stuck while it opens a file, perhaps this thread itself with an allocation that
  // failed there. The list is whole then: nodes are made before they are entered.
  std::unique_lock lock(unfinished().mutex, std::chrono::seconds(1));
  lock.release();  // for good: no other result is begun
  for (const std::string& part : unfinished().parts) remove_file(part);
  if (unfinished().parts.empty()) return;
  // A writer of its own may have been on the way between begin() and its file.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  for (const std::string& part : unfinished().parts) remove_file(part);
}
}  // namespace veld
