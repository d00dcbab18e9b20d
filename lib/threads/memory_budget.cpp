#include "lib/threads/memory_budget.h"

#include "lib/general/assert_fail.h"

namespace veld {
MemoryBudget::Lease::Lease(MemoryBudget& budget, uint64_t bytes) : budget_(budget), bytes_(bytes) {
  ASSERT(bytes <= budget.total_);
  std::unique_lock<std::mutex> lock(budget_.mutex_);
  budget_.freed_.wait(lock, [&] { return budget_.total_ - budget_.used_ >= bytes_; });
  budget_.used_ += bytes_;
}

MemoryBudget::Lease::~Lease() {
  {
    const std::lock_guard<std::mutex> lock(budget_.mutex_);
    budget_.used_ -= bytes_;
  }
  budget_.freed_.notify_all();
}
}  // namespace veld
