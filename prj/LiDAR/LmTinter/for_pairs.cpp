// Pairs side by side, their outcomes in the order of the list.
#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTinter/LmTinter_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Pairs that are done, until those before them are: what a pair gives to the files goes there in their order.
class PairQueue {
 public:
  PairQueue(size_t npairs, int nthreads, const PairWriter& write)
      : write_(write), ahead_(AHEAD * static_cast<size_t>(nthreads)), out_(npairs) {}

  // Waits until pair i is not too far ahead of the first that is not written: results that wait take memory.
  void wait_turn(size_t i) {
    std::unique_lock<std::mutex> lock(mutex_);
    moved_.wait(lock, [&] { return failed_ || i < next_ + ahead_; });
  }
  // Takes the outcome of pair i and writes what is due. False when that fails.
  bool put(size_t i, PairOutcome&& out) {
    const std::lock_guard<std::mutex> lock(mutex_);
    out_[i] = std::make_unique<PairOutcome>(std::move(out));
    for (; !failed_ && next_ < out_.size() && out_[next_]; next_++) {
      failed_ = !write_(next_, *out_[next_]);
      out_[next_].reset();
    }
    moved_.notify_all();
    return !failed_;
  }
  void fail() {
    const std::lock_guard<std::mutex> lock(mutex_);
    failed_ = true;
    moved_.notify_all();
  }

 private:
  static constexpr size_t AHEAD = 8;
  const PairWriter& write_;
  const size_t ahead_;
  std::vector<std::unique_ptr<PairOutcome>> out_;
  size_t next_ = 0;
  bool failed_ = false;
  std::mutex mutex_;
  std::condition_variable moved_;
};
}  // namespace

bool for_pairs(const PairJob& job, const std::vector<SwPair>& pairs, const PairWriter& write) {
  const int npairs = static_cast<int>(pairs.size());
  const int outer = std::clamp(job.param.nthreads, 1, std::max(1, npairs));
  PairQueue queue(pairs.size(), outer, write);
  MemoryBudget memory(static_cast<uint64_t>(MEM_MB) << 20);
  const PairWork work = {job, std::max(1, job.param.nthreads / outer), memory};
  std::vector<PairSwaths> swaths(static_cast<size_t>(outer));
  const int64_t bad = run_units(npairs, outer, [&](int64_t i, int thread) {
    const size_t k = static_cast<size_t>(i);
    queue.wait_turn(k);
    PairOutcome out;
    if (process_pair(work, pairs[k], swaths[static_cast<size_t>(thread)], out) &&
        queue.put(k, std::move(out)))
      return true;
    queue.fail();
    return false;
  });
  return bad < 0;
}
}  // namespace veld
