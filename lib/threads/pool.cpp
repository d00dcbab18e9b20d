#include "lib/threads/pool.h"

#include <mutex>
#include <system_error>
#include <utility>

#include "lib/general/log.h"

namespace veld {
bool add_thread(std::vector<std::thread>& threads, std::function<void()> work) {
  try {
    threads.emplace_back(std::move(work));
    return true;
  } catch (const std::system_error& error) {
    LOG_LINE("<!> no thread " << error.what());
    return false;
  }
}

int64_t run_units(int64_t nunits, int nthreads, const std::function<bool(int64_t unit, int thread)>& task) {
  std::mutex mutex;
  int64_t next = 0;
  int64_t failed = -1;
  // Units are handed out in order under the lock, so when one fails every lower unit has been handed out and
  // will finish: the lowest failure is the same whatever the number of threads.
  const auto worker = [&](int thread) {
    for (;;) {
      int64_t unit;
      {
        const std::lock_guard<std::mutex> lock(mutex);
        if (failed >= 0 || next >= nunits) return;
        unit = next++;
      }
      if (!task(unit, thread)) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (failed < 0 || unit < failed) failed = unit;
      }
    }
  };
  std::vector<std::thread> threads;
  for (int t = 1; t < nthreads && t < nunits; t++)
    if (!add_thread(threads, [&worker, t] { worker(t); })) break;
  worker(0);
  for (std::thread& thread : threads) thread.join();
  return failed;
}
}  // namespace veld
