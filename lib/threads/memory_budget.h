// lib/threads/memory_budget.h
// Memory that several threads share: who needs a part of it waits until there is room.
// A thread holds one lease at a time, so every request of no more than the whole is granted in the end.
#pragma once
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace veld {
class MemoryBudget {
 public:
  explicit MemoryBudget(uint64_t bytes) : total_(bytes) {}
  uint64_t total() const { return total_; }

  class Lease {
   public:
    // Waits for `bytes`, which must not exceed the whole (asserted).
    Lease(MemoryBudget& budget, uint64_t bytes);
    ~Lease();
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

   private:
    MemoryBudget& budget_;
    uint64_t bytes_;
  };

 private:
  const uint64_t total_;
  uint64_t used_ = 0;
  std::mutex mutex_;
  std::condition_variable freed_;
};
}  // namespace veld
