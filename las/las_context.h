// las/las_context.h
// What all point files of a process share; the only state that las keeps outside its readers and writers.
// Here:     the threads that codecs may use together, the list of files that are open for reading.
// Not here: the files themselves (las_file.h), the chunks in work (laz_ring.h).
#pragma once
#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace veld {
// Threads that all coders may use together, the callers of readers and writers included. A file counts its calling
// thread while it is open.
class CodecBudget {
 public:
  void set_threads(int n);
  int threads();
  void add_caller(std::thread::id caller);
  void drop_caller(std::thread::id caller);
  // Workers that may run beside the callers at the moment.
  int spare();
  // Waits until the calling worker may run, or `stop` is true (then false).
  bool acquire(const bool& stop);
  void release();
  // Sets `stop` so that a waiting worker sees it.
  void stop_waiting(bool& stop);

 private:
  int spare_locked() const;
  std::mutex mutex_;
  std::condition_variable change_;
  int threads_ = 1;
  int running_ = 0;
  std::vector<std::thread::id> callers_;  // one entry for each open file
};

// Files by device and inode, one entry for each reader.
class OpenSources {
 public:
  void add(dev_t device, ino_t inode);
  void drop(dev_t device, ino_t inode);
  bool holds(dev_t device, ino_t inode);

 private:
  std::mutex mutex_;
  std::vector<std::pair<dev_t, ino_t>> files_;
};

struct LasContext {
  CodecBudget codecs;
  OpenSources sources;
};
LasContext& las_context();  // of the process
}  // namespace veld
