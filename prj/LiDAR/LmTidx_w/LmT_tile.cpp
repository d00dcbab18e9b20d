// All swaths of a project, on threads.
#include <algorithm>
#include <chrono>
#include <deque>
#include <mutex>
#include <thread>

#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_internal.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// A thread's share of the budget must hold some hundred open tiles: a swath crosses about that many at a
// time.
constexpr uint64_t MIN_THREAD_BYTES = 512 * TILE_BUFFER;

uint64_t budget_bytes() { return static_cast<uint64_t>(MEM_MB) * 1000000; }

struct Totals {       // under the mutex
  bool stop = false;  // a file of the program's own failed
  std::mutex mutex;
  std::deque<size_t> queue;  // places in the list of work, those in work by another run again at its end
  int ndone = 0;
  LmTtileResult sum;
};

struct SwathSlot {    // of one swath, written by the thread that took it
  bool told = false;  // that another run is at it
  bool ok = false;    // stays off for those that were not begun
  LmTswathResult res;
};

struct TileJob {
  const SwathTable& swaths;
  const std::vector<SwathId>& todo;
  const TilingParam& par;
  bool cache;
  TilingMemory& memory;
};

void th_LmT_tile(const TileJob& job, std::vector<SwathSlot>& slots, Totals& totals, int id) {
  LOG_ENTER("th_LmT_tile id=" << id);
  for (;;) {
    size_t i;
    {
      const std::lock_guard<std::mutex> lock(totals.mutex);
      if (totals.stop || totals.queue.empty()) return;
      i = totals.queue.front();
      totals.queue.pop_front();
    }
    SwathSlot& slot = slots[i];
    slot.ok = LmT_swath(job.swaths[job.todo[i]].cache, job.todo[i], job.par, job.cache, job.memory, slot.res,
                        false);
    if (slot.res.busy) {  // others first
      if (!slot.told)
        LOG_MSG1("waiting for the tiles of swath " << job.swaths[job.todo[i]].path()
                                                   << ", in work by another run");
      slot.told = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      const std::lock_guard<std::mutex> lock(totals.mutex);
      totals.queue.push_back(i);
      continue;
    }
    const std::lock_guard<std::mutex> lock(totals.mutex);
    LmTtileResult& sum = totals.sum;
    totals.ndone++;
    totals.stop = totals.stop || slot.res.fault == SwathFault::own;
    if (slot.ok && slot.res.done) {
      sum.Mp += slot.res.Mp;
      sum.Mp0 += slot.res.Mp0;
      sum.MB += slot.res.MB;
    }
    progress_step(totals.ndone,
                  LOG_STR("TILED " << totals.ndone << " swaths, " << sum.Mp << " Mp, " << sum.MB << " MB"));
    LOG_LINE("sw=" << job.todo[i] << " swok=" << slot.ok);
  }
}
}  // namespace

int tiling_threads(int nthreads, int nswaths) {
  const int by_memory = static_cast<int>(std::max<uint64_t>(1, budget_bytes() / MIN_THREAD_BYTES));
  return std::max(1, std::min({nthreads, NTHREADSIO, nswaths, by_memory}));
}

bool LmT_tile(SwathTable& swaths, const std::vector<SwathId>& todo, const TilingParam& par, bool cache,
              int nthreads, LmTtileResult& res) {
  const Stopwatch watch;
  LOG_ENTER("LmT_tile nsw=" << swaths.size() << " nthreads=" << nthreads << " large=" << par.large
                            << " xlevel=" << par.xlevel << " DTS=" << par.DTS << " LAREA=" << par.large
                            << " xcls.size()=" << par.xcls.size()
                            << " Tdrop.size()=" << par.TIO.nx * par.TIO.ny << " syn=" << par.syn
                            << " all=" << par.all << " last=" << par.last << " LmTcacheT=" << cache
                            << " CHECK_SW_TSTAMP=" << CHECK_SW_TSTAMP);
  res = LmTtileResult{};
  if (todo.empty()) {
    LOG_LINE("<!> nswt0=0");
    return true;
  }
  const int nth = tiling_threads(nthreads, static_cast<int>(todo.size()));
  LOG_MSG("TILING: swaths (" << todo.size() << "/" << swaths.size() << ") [" << nth
                             << " TH] Unit=" << DATAUNIT);
  TilingMemory memory(budget_bytes(), nth);
  const TileJob job{swaths, todo, par, cache, memory};
  std::vector<SwathSlot> slots(todo.size());
  Totals totals;
  for (size_t i = 0; i < todo.size(); i++) totals.queue.push_back(i);
  progress_start(static_cast<int>(todo.size()));
  run_units(nth, nth, [&](int64_t id, int) {  // a unit is a worker: the queue of swaths may get longer again
    th_LmT_tile(job, slots, totals, static_cast<int>(id));
    return true;
  });
  // The totals are added anew in swath order: they must not depend on the order of finishing.
  for (size_t i = 0; i < todo.size(); i++) {
    const SwathSlot& slot = slots[i];
    if (!slot.ok) {
      swaths.reject(todo[i], SwathState::untiled, slot.res.reason);
      res.nmemory += slot.res.fault == SwathFault::memory;
      continue;
    }
    res.nswt++;
    res.ncached += !slot.res.done;
    res.Mp += slot.res.Mp;
    res.Mp0 += slot.res.Mp0;
    res.MB += slot.res.MB;
  }
  LOG_LINE("nswt=" << res.nswt << " Mpt=" << res.Mp << " Mp0t=" << res.Mp0 << " MBt=" << res.MB
                   << " /// TILE_TIME=" << watch.text());
  progress_end(LOG_STR(res.nswt << " swaths, read " << res.Mp0 << " Mp, " << res.MB << " MB, written "
                                << res.Mp << " Mp, " << res.Mp * sizeof(LmTpoint) << " MB | "
                                << watch.text()));
  return !totals.stop;
}
}  // namespace veld
