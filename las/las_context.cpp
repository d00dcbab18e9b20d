#include "las/las_context.h"

#include <algorithm>

#include "las/lasreader.h"

namespace veld {
LasContext& las_context() {
  static LasContext context;
  return context;
}

void OpenSources::add(dev_t device, ino_t inode) {
  const std::lock_guard<std::mutex> lock(mutex_);
  files_.emplace_back(device, inode);
}

void OpenSources::drop(dev_t device, ino_t inode) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = std::find(files_.begin(), files_.end(), std::pair(device, inode));
  if (found != files_.end()) files_.erase(found);
}

bool OpenSources::holds(dev_t device, ino_t inode) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::find(files_.begin(), files_.end(), std::pair(device, inode)) != files_.end();
}

void CodecBudget::set_threads(int n) {
  const std::lock_guard<std::mutex> lock(mutex_);
  threads_ = std::max(1, n);
  change_.notify_all();
}

int CodecBudget::threads() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return threads_;
}

void CodecBudget::add_caller(std::thread::id caller) {
  const std::lock_guard<std::mutex> lock(mutex_);
  callers_.push_back(caller);
}

void CodecBudget::drop_caller(std::thread::id caller) {
  const std::lock_guard<std::mutex> lock(mutex_);
  callers_.erase(std::find(callers_.begin(), callers_.end(), caller));
  change_.notify_all();
}

int CodecBudget::spare_locked() const {
  int ncallers = 0;  // different ones; the list is short
  for (size_t i = 0; i < callers_.size(); i++)
    ncallers += std::find(callers_.begin(), callers_.begin() + static_cast<std::ptrdiff_t>(i), callers_[i]) ==
                callers_.begin() + static_cast<std::ptrdiff_t>(i);
  return std::max(0, threads_ - ncallers);
}

int CodecBudget::spare() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return spare_locked();
}

bool CodecBudget::acquire(const bool& stop) {
  std::unique_lock<std::mutex> lock(mutex_);
  change_.wait(lock, [&] { return stop || running_ < spare_locked(); });
  if (stop) return false;
  running_++;
  return true;
}

void CodecBudget::release() {
  const std::lock_guard<std::mutex> lock(mutex_);
  running_--;
  change_.notify_all();
}

void CodecBudget::stop_waiting(bool& stop) {
  const std::lock_guard<std::mutex> lock(mutex_);
  stop = true;
  change_.notify_all();
}

void las_set_threads(int n) { las_context().codecs.set_threads(n); }
int las_threads() { return las_context().codecs.threads(); }
}  // namespace veld
