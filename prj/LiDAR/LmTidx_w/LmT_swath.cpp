// One swath: reuse of its cache, the two passes, and what is said about losses.
#include <algorithm>
#include <cmath>

#include "lib/general/file_lock.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/pin_cache.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"

namespace veld {
namespace {
constexpr uint32_t MIN_TILE_POINTS = 15;  // at least one tile must hold more

// First pass, and once more over the whole file when a rollover stopped it.
bool first_pass(const CacheName& swath, SwathId sw, const TilingParam& par, TilingMemory& memory,
                TTresult& tt, SwathFailure& why) {
  const MemoryBudget::Lease lease(memory.budget, memory.share);
  if (!sw_LAS2TT(swath, sw, par, Rollover::none, 0, memory.share, tt, why)) {
    ERROR_MSG("could not tile LiDAR data, " << swath.source());
    return false;
  }
  if (!tt.again) return true;
  const Rollover rover = tt.clock.rover;
  if (tt.clock.raw_adj)
    WARNING_MSG((rover == Rollover::week ? "week" : "day")
                << " second rollover detected but timestamps are adjusted GPS, " << swath.source());
  if (sw_LAS2TT(swath, sw, par, rover, tt.clock.tmax, memory.share, tt, why)) return true;
  ERROR_MSG("could not tile LiDAR data (rollover correction pass), " << swath.source());
  return false;
}

long percent(uint64_t part, uint64_t whole) {
  return whole ? std::lround(100.0 * static_cast<double>(part) / static_cast<double>(whole)) : 0;
}

void warn_losses(const CacheName& swath, const TilingParam& par, const LmTstat& stat) {
  if (const long lost = percent(stat.nlost, stat.nlost + stat.np); lost != 0)
    WARNING_MSG(lost << "% pts lost due to microtile overflow, " << swath.source());
  if (const long lost = percent(stat.ndev, stat.nmt); lost != 0)
    WARNING_MSG(lost << "% microtile timestamps lost, time deviation exceeds " << par.DTS
                     << " s (possible self-overlap), " << swath.source());
}

bool lock_tiles(const CacheName& swath, bool wait, FileLock& lock, LmTswathResult& res) {
  const std::string name = swath.file(EXT_MTLOCK), what = "the tiles of swath " + swath.source();
  const LockState state = !wait                   ? lock.take(name, what)
                          : lock.wait(name, what) ? LockState::held
                                                  : LockState::failed;
  res.busy = state == LockState::busy;
  if (state == LockState::failed)
    return swath_error(res, "LAS tiling: I/O no lock, " + swath.source(), SwathFault::own);
  return state == LockState::held;
}

void delete_grid(const CacheName& swath) {
  uint64_t nfiles = 0, nbytes = 0;
  if (!delete_LmT_grid(swath, nfiles, nbytes) || nfiles == 0) LOG_LINE("<!> no grid to delete");
}

bool tile_or_reuse(const CacheName& swath, SwathId sw, const TilingParam& par_in, bool cache,
                   TilingMemory& memory, LmTswathResult& res, bool wait) {
  TilingParam par = par_in;
  if (par.TIO.nx == 0) {
    par.Tdrop.reset();
    par.TIO = TileInfo{};
    par.chk = 0;
  }
  LOG_ENTER("LmT_swath " << swath.source() << " sw=" << sw << " DTS=" << par.DTS << " syn=" << par.syn
                         << " all=" << par.all << " last=" << par.last << " large=" << par.large
                         << " xlevel=" << par.xlevel << " cache=" << cache << " tproc=" << par.tproc
                         << " LAREA=" << par.large);
  log_xcls(par.xcls);
  res = LmTswathResult{};
  const std::string index = swath.file(EXT_TIDX);
  const FileStamp before = file_stamp(index);
  if (cache && check_tiles(swath, sw, par)) return true;
  FileLock lock;
  if (!lock_tiles(swath, wait, lock, res)) return false;
  // Another run may have made it in between.
  if (cache && file_stamp(index) != before && check_tiles(swath, sw, par)) return true;
  TTresult tt;
  if (!first_pass(swath, sw, par, memory, tt, res)) return false;
  const int64_t size = file_size(swath.source());
  if (size < 0) LOG_LINE("<!> file size");
  // The grid goes before the new points come: it must never stand beside an index that it does not fit.
  delete_grid(swath);
  LmTstat stat;
  if (!sw_TT2LmT_XYZ(swath, par, memory.budget, tt, stat, res)) {
    if (res.fault == SwathFault::input && stat.np == 0 && par.Tdrop)
      WARNING_MSG(res.reason);
    else
      ERROR_MSG("could not process tiles, " << swath.source());
    return false;
  }
  if (std::none_of(tt.TI.begin(), tt.TI.end(), [](const TIsxy& t) { return t.n > MIN_TILE_POINTS; })) {
    remove_file(swath.file(EXT_TIDX));
    return swath_error(res, "could not tile LiDAR data, not enough points per tile, " + swath.source());
  }
  warn_losses(swath, par, stat);
  if (!check_TidxHdr(swath, sw, par))
    return swath_error(res, "tiling: invalid index data, " + swath.source(), SwathFault::own);
  res.MB = size < 0 ? 0.0f : static_cast<float>(static_cast<double>(size) * 1e-06);
  res.Mp = static_cast<float>(static_cast<double>(stat.np) * 1e-06);
  res.Mp0 = static_cast<float>(static_cast<double>(tt.nfile) * 1e-06);
  res.done = true;
  return true;
}
}  // namespace

bool LmT_swath(const CacheName& swath, SwathId sw, const TilingParam& par, bool cache, TilingMemory& memory,
               LmTswathResult& res, bool wait) {
  unpin_cache(swath, EXT_MTSUM);
  if (!tile_or_reuse(swath, sw, par, cache, memory, res, wait)) return false;
  pin_cache(swath, EXT_MTSUM);
  return true;
}
}  // namespace veld
