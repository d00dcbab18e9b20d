#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>

#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
struct Block {    // a tile of a swath
  uint32_t unit;  // in the list of units
  uint32_t tile;  // in USGDstr::want
};

// Compares all swaths with their caches, on threads: the tables of one swath a thread stand in memory.
SwathVector<GridPlan> plan_swaths(const Project& prj, const GridScope& scope, int nthreads,
                                  GridResult& result) {
  SwathVector<GridPlan> plans(prj.swaths);
  const std::vector<SwathId> ids = prj.swaths.ids();
  run_units(static_cast<int64_t>(ids.size()), nthreads, [&](int64_t i, int) {
    const Swath& s = prj.swaths[ids[static_cast<size_t>(i)]];
    plans[s.id] = plan_grid(s, scope);
    return true;
  });
  for (const Swath& s : prj.swaths.present()) {
    const GridPlan& plan = plans[s.id];
    result.nskipped += plan.task == GridTask::none;
    result.ncached += plan.task == GridTask::cached;
    if (plan.task != GridTask::beyond) continue;
    result.beyond.push_back(s.id);
    ERROR_MSG("gridding requires " << (plan.need >> 20) + 1 << " MB, only " << MEM_MB
                                   << " reserved (use option -mem), swath " << s.path());
  }
  if (result.nskipped > 0) WARNING_MSG("skipped gridding " << result.nskipped << " swaths (no overlap)");
  if (result.ncached > 0) LOG_MSG1("Cached " << result.ncached << " swaths");
  return plans;
}

// Compares the points that are about to be gridded with their checksums.
void check_points(const Project& prj, const SwathVector<GridPlan>& plans, int nthreads, GridResult& result) {
  const std::vector<SwathId> ids = prj.swaths.ids();
  std::vector<uint8_t> sound(ids.size(), 1);
  run_units(static_cast<int64_t>(ids.size()), nthreads, [&](int64_t i, int) {
    const SwathId id = ids[static_cast<size_t>(i)];
    if (plans[id].task == GridTask::grid)
      sound[static_cast<size_t>(i)] = sound_points(prj.swaths, prj.swaths[id]);
    return true;
  });
  for (size_t i = 0; i < ids.size(); i++)
    if (!sound[i]) result.damaged.push_back(ids[i]);
}

// The units and their tiles, in the order of the work.
void list_blocks(const Project& prj, const SwathVector<GridPlan>& plans, std::vector<USGDstr>& units,
                 std::vector<Block>& blocks) {
  size_t n = 0;
  for (const Swath& s : prj.swaths.present()) {
    if (plans[s.id].task != GridTask::grid) continue;
    USGDstr& u = units[n];
    u.swath = &s;
    u.ntiles = plans[s.id].ntiles;
    u.index = plans[s.id].index;
    for (size_t k = 0; k < u.ntiles; k++)
      blocks.push_back({static_cast<uint32_t>(n), static_cast<uint32_t>(k)});
    n++;
  }
}

// Threads whose tiles fit into the memory side by side.
int threads_in_budget(const SwathVector<GridPlan>& plans, int nthreads) {
  uint64_t need = 1;
  for (const GridPlan& p : plans)
    if (p.task == GridTask::grid) need = std::max(need, p.need);
  const uint64_t budget = static_cast<uint64_t>(MEM_MB) << 20;
  return static_cast<int>(std::clamp<uint64_t>(budget / need, 1, static_cast<uint64_t>(nthreads)));
}

// The tiles of swaths that another run was gridding, after a moment. They are looked at again.
std::vector<Block> busy_blocks(const std::vector<Block>& blocks, std::vector<USGDstr>& units) {
  std::vector<Block> left;
  for (const Block& block : blocks)
    if (units[block.unit].state == UnitState::busy) left.push_back(block);
  for (const Block& block : left) units[block.unit].loaded = false;
  if (!left.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  return left;
}

struct Totals {  // under the mutex
  std::mutex mutex;
  size_t ngt_w = 0, ngs_w = 0;  // tiles and swaths done
};

// One tile of a swath; the first one to come loads the swath, the last one ends it.
void th_LmT_grid_tile(USGDstr& u, size_t tile, const GridScope& scope, GridWorker& worker, int thread,
                      Totals& totals, GridResult& result) {
  LOG_ENTER("th_LmT_grid_tile[T] id=" << thread);
  uint64_t np = 0, npix = 0;
  bool tok = false, last = false;
  {
    const std::lock_guard<std::mutex> lock(u.mutex);
    if (!u.loaded) u.failed = !lock_grid(u, scope) || (u.state == UnitState::work && !sw_grid_pre(u, scope));
    u.loaded = true;
    if (u.state != UnitState::work) return;
    tok = !u.failed;
  }
  if (tok) tok = sw_grid_tile(u, tile, scope, worker, np, npix);
  {
    const std::lock_guard<std::mutex> lock(u.mutex);
    u.failed = u.failed || !tok;
    last = ++u.ngt_w == u.ntiles;
  }
  const bool swath_ok = last && sw_grid_post(u, scope);
  size_t ndone = 0;
  {
    const std::lock_guard<std::mutex> lock(totals.mutex);
    result.npoints += np;
    result.npixels += npix;
    totals.ngs_w += swath_ok;
    ndone = ++totals.ngt_w;
  }
  progress_step(static_cast<int>(ndone), "GRIDDED " + std::to_string(ndone) + " blocks");
}
}  // namespace

bool LmT_grid(const Project& prj, const Tovr& ovr, bool full, int nthreads, GridResult& result) {
  const GridScope scope{ovr, full, prj.scale.dim, prj.scale.mTsize};
  ASSERT(scope.dim > 0 && nthreads > 0);
  LOG_ENTER("LmT_grid[T] nsw=" << prj.swaths.size() << " nthreads=" << nthreads << " dim=" << scope.dim
                               << " mTsize=" << scope.mTsize << " full=" << full
                               << " LmTcacheG=" << CACHE_GRID << " CHECK_SW_TSTAMP=" << CHECK_SW_TSTAMP);
  const Stopwatch time;
  result = GridResult{};
  const SwathVector<GridPlan> plans = plan_swaths(prj, scope, nthreads, result);
  check_points(prj, plans, nthreads, result);
  if (!result.damaged.empty()) return true;
  const auto count = [&plans](GridTask task) {
    return static_cast<size_t>(
        std::count_if(plans.begin(), plans.end(), [task](const GridPlan& p) { return p.task == task; }));
  };
  std::vector<USGDstr> units(count(GridTask::grid));
  std::vector<Block> blocks;
  list_blocks(prj, plans, units, blocks);
  LOG_LINE("nswu=" << units.size());
  result.nblocks = blocks.size();
  const int nth = threads_in_budget(plans, nthreads);
  LOG_MSG1((full ? "FULL" : "OVERLAP") << " GRIDDING [V1] " << units.size() << " swaths, " << blocks.size()
                                       << " blocks [" << nth << " TH]");
  std::vector<GridWorker> workers(static_cast<size_t>(nth));
  Totals totals;
  if (!blocks.empty()) progress_start(static_cast<int>(std::min<size_t>(blocks.size(), INT32_MAX)));
  for (std::vector<Block> todo = blocks; !todo.empty(); todo = busy_blocks(todo, units)) {
    run_units(static_cast<int64_t>(todo.size()), nth, [&](int64_t b, int thread) {
      const Block& block = todo[static_cast<size_t>(b)];
      th_LmT_grid_tile(units[block.unit], block.tile, scope, workers[static_cast<size_t>(thread)], thread,
                       totals, result);
      return true;
    });
  }
  const size_t nothers = static_cast<size_t>(std::count_if(
      units.begin(), units.end(), [](const USGDstr& u) { return u.state == UnitState::cached; }));
  result.ncached += static_cast<int>(nothers);
  if (!blocks.empty()) progress_end("GRIDDED " + std::to_string(totals.ngt_w) + " blocks");
  result.ngridded = static_cast<int>(totals.ngs_w);
  const bool ok = totals.ngs_w + nothers == units.size() && count(GridTask::failed) == 0;
  if (!ok) ERROR_MSG(units.size() + count(GridTask::failed) << " swaths, at least one failed");
  const double Mpt = static_cast<double>(result.npoints) * 1e-6,
               Mpixt = static_cast<double>(result.npixels) * 1e-6;
  LOG_LINE("ngt=" << blocks.size() << " ngs=" << units.size() << " ngt_w=" << totals.ngt_w
                  << " ngs_w=" << totals.ngs_w << " Mpt=" << Mpt << " Mpixt=" << Mpixt);
  LOG_LINE("/// GRID_TIME=" << time.text());
  LOG_MSG1("Used " << Mpt << " Mp, written " << Mpixt << " Mpix ~ " << Mpixt * 4 << " MB | " << time.text());
  return ok;
}
}  // namespace veld
