// Second pass over a swath: tile after tile, from the temporary tile files to the final family.
#include <algorithm>
#include <cmath>

#include "lib/general/family_out.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
struct LmTfiles {  // the four files that are written side by side
  FamilyOut& family;
  SummedFileOut *idx = nullptr, *zm = nullptr, *dt = nullptr, *xyz = nullptr;
  bool open(bool tproc) {
    return (idx = family.create(EXT_MTIDX, TILE_BUFFER)) && (zm = family.create(EXT_MTZM, TILE_BUFFER)) &&
           (xyz = family.create(EXT_MTXYZ, TILE_BUFFER)) &&
           (!tproc || (dt = family.create(EXT_MTDT, TILE_BUFFER)));
  }
};

bool read_TT_tmpXYZT(const CacheName& swath, const TIsxy& tile, TileWork& w) {
  const std::string name = tile_tmp_name(swath, tile.x, tile.y);
  const uint64_t bytes = tile.n * TT_REC_BYTES;
  if (file_size(name) != static_cast<int64_t>(bytes)) {
    LOG_LINE("read_TT_tmpXYZT <!> fsize " << name);
    ERROR_MSG("temporary tile file of " << file_size(name) << " bytes, expected " << bytes << ", file='"
                                        << name << "'");
    return false;
  }
  BufBinFileIn in(0);
  if (!in.open(name)) {
    LOG_LINE("read_TT_tmpXYZT <!> open " << name);
    return false;
  }
  if (!in.read(w.raw.data(), bytes)) {
    LOG_LINE("read_TT_tmpXYZT <!> read " << name);
    return false;
  }
  return true;
}

bool write_LmT_tile(const TileWork& w, const TileCounts& c, bool tproc, LmTfiles& files) {
  // Microtiles follow each other without a gap unless points were left out: then one write a microtile.
  if (c.nZout == 0) {
    if (c.np > 0 && !files.xyz->write(w.points.data(), c.np * sizeof(LmTpoint))) {
      LOG_LINE("<!> write_LmT_XYZ_tile");
      return false;
    }
  } else {
    for (int mt = 0; mt < mTn; mt++)
      if (w.N[mt] > 0 && !files.xyz->write(w.points.data() + w.offset[mt], w.N[mt] * sizeof(LmTpoint))) {
        LOG_LINE("<!> write_LmT_XYZ_tile");
        return false;
      }
  }
  if (!files.idx->write(w.N, sizeof w.N) || !files.zm->write(w.Zm, sizeof w.Zm)) return false;
  if (tproc && !files.dt->write(&w.time, sizeof w.time)) return false;
  LOG_LINE("write_LmT_tile -> MB_xyz="
           << static_cast<double>(c.np * sizeof(LmTpoint)) * 1e-6 << " MB_idx_tbl="
           << static_cast<double>(sizeof w.N + sizeof w.Zm + (tproc ? sizeof w.time : 0)) * 1e-6);
  return true;
}

void remove_TT_file(const CacheName& swath, const TIsxy& tile) {
  const std::string ttname = tile_tmp_name(swath, tile.x, tile.y);
  if (file_size(ttname) >= 0 && !remove_file(ttname)) LOG_LINE("<!> delete failed ttname=" << ttname);
}

// Buffers for the largest tile, taken at once: growing would hold two sets for a moment.
void reserve_work(TileWork& w, uint32_t nmax) {
  w.raw.resize(nmax * TT_REC_BYTES + 8);
  w.points.resize(nmax);
  w.ticks.resize(nmax);
}

struct TileTask {  // what stays the same for all tiles
  const CacheName& swath;
  const TilingParam& par;
  TileGeom g;
  uint32_t stmax;
};

// The dropped microtiles of a tile, null for none.
const Image<uint8_t>* drop_mask(const TilingParam& par, const TIsxy& tile) {
  if (!par.Tdrop) return nullptr;
  const int64_t x = int64_t{tile.x} - par.TIO.XI, y = int64_t{tile.y} - par.TIO.YI;
  if (x < 0 || y < 0 || x >= par.TIO.nx || y >= par.TIO.ny) return nullptr;
  const Image<uint8_t>& mask = (*par.Tdrop)(static_cast<int>(x), static_cast<int>(y));
  return mask.empty() ? nullptr : &mask;
}

// One tile through all steps; tile.n becomes the number of stored points.
bool proc_tile(const TileTask& task, TIsxy& tile, TileWork& w, LmTfiles& files, OccBits& occ, LmTstat& stat) {
  TileCounts c;
  if (!read_TT_tmpXYZT(task.swath, tile, w) ||
      !comp_LmT_LNZm(w, tile.n, task.g, drop_mask(task.par, tile), c) || !sort_LmT_XYZT(w, tile.n, task.g, c))
    return false;
  stat.nlost += c.nZout;
  stat.ntdrop += c.nmtdrop > 0;
  stat.np += c.np;
  stat.nmt += c.nmt;
  tile.n = static_cast<uint32_t>(c.np);
  if (task.par.tproc) proc_LmT(w, task.g, task.stmax, stat);
  occ = occupied_bits(w.N);
  if (!write_LmT_tile(w, c, task.par.tproc, files)) return false;
  remove_TT_file(task.swath, tile);
  return true;
}

LTidxInfo make_info(const TTresult& tt, const LmTstat& stat) {
  LTidxInfo info{};
  info.np = stat.np;
  info.nmt = static_cast<uint32_t>(stat.nmt);
  info.nt = static_cast<uint32_t>(tt.TI.size());
  set_clock(tt.clock, info);
  info.XImin = info.YImin = info.Nmin = UINT32_MAX;
  for (const TIsxy& t : tt.TI) {
    if (t.x < info.XImin) info.XImin = t.x;
    if (t.y < info.YImin) info.YImin = t.y;
    if (t.n < info.Nmin) info.Nmin = t.n;
    if (t.x > info.XImax) info.XImax = t.x;
    if (t.y > info.YImax) info.YImax = t.y;
    if (t.n > info.Nmax) info.Nmax = t.n;
  }
  for (int i = 0; i < 3; i++) {
    info.bbmin[i] = tt.kept.min[i];
    info.bbmax[i] = tt.kept.max[i];
    info.bbmin0[i] = tt.all.min[i];
    info.bbmax0[i] = tt.all.max[i];
  }
  if (stat.nmtl > 0) {
    info.mdt = static_cast<float>(stat.sum_dt / static_cast<double>(stat.nmtl) * TICK_S);
    info.mdev = static_cast<float>(stat.sum_dev / static_cast<double>(stat.nmtl) * 0.001);
  }
  info.maxdt = static_cast<float>(static_cast<double>(stat.max_dt) * TICK_S);
  info.maxdev = static_cast<float>(static_cast<double>(stat.max_dev) * 0.001);
  info.amin = tt.amin;
  info.amax = tt.amax;
  return info;
}

// Files of the program's own that failed; the line before names the file and the cause.
bool own_failure(SwathFailure& why) {
  why = {SwathFault::own, "could not process tiles"};
  return false;
}

bool proc_tiles(const TileTask& task, FamilyOut& family, MemoryBudget& budget, Vector<TIsxy>& TI,
                Vector<OccBits>& occ, LmTstat& stat, SwathFailure& why) {
  uint32_t nmax = 0;
  for (const TIsxy& t : TI) nmax = std::max(nmax, t.n);
  const uint64_t need = nmax * (TT_REC_BYTES + sizeof(LmTpoint) + sizeof(int32_t));
  if (need > budget.total())
    return swath_error(
        why,
        LOG_STR("LAS tiling: a tile requires " << need / 1000000 << " MB, only " << budget.total() / 1000000
                                               << " MB reserved (use option -mem), " << task.swath.source()),
        SwathFault::memory);
  const MemoryBudget::Lease lease(budget, need);
  LmTfiles files{family};
  if (!files.open(task.par.tproc)) return own_failure(why);
  TileWork w;
  reserve_work(w, nmax);
  for (uint64_t k = 0; k < TI.size(); k++)
    if (!proc_tile(task, TI[k], w, files, occ[k], stat)) return own_failure(why);
  if (stat.np == 0 && task.par.Tdrop) {  // no fault of the swath; the caller reports it
    why = {SwathFault::input, "no point left due to drop map, " + task.swath.source()};
    return false;
  }
  if (stat.np == 0) return swath_error(why, "could not process tiles, no point left, " + task.swath.source());
  if (task.par.tproc && stat.nfit == 0)
    return swath_error(why, "timestamp processing: insufficient data, " + task.swath.source());
  return true;
}
}  // namespace

void remove_TT_files(const CacheName& swath, const Vector<TIsxy>& TI) {
  for (const TIsxy& tile : TI) remove_TT_file(swath, tile);
}

bool sw_TT2LmT_XYZ(const CacheName& swath, const TilingParam& par, MemoryBudget& budget, TTresult& tt,
                   LmTstat& stat, SwathFailure& why) {
  const Stopwatch watch;
  LTidxHdr hdr = make_LTidxHdr(par);
  hdr.tstamp = tt.tstamp;
  const TileTask task{swath, par, make_tile_geom(tile_level(par.large, par.xlevel)), hdr.stmax};
  LOG_ENTER("sw_TT2LmT_XYZ level=" << task.g.level << " nt=" << tt.TI.size() << " stmax=" << task.stmax);
  FamilyOut family(swath.file(""), EXT_TIDX, EXT_MTSUM);
  Vector<OccBits> occ(tt.TI.size());
  if (!proc_tiles(task, family, budget, tt.TI, occ, stat, why)) {
    remove_TT_files(swath, tt.TI);
    return false;
  }
  if (stat.nlost + stat.ntdrop > 0) LOG_LINE("<!> TOTAL lost=" << stat.nlost << " ntdrop=" << stat.ntdrop);
  LTidxInfo info = make_info(tt, stat);
  if (!mtile_MBR_stat(task.g, tt.TI, occ, info))
    return swath_error(why, "LAS stat and MBR computation: insufficient data, " + swath.source());
  if (!write_LTidx(family, hdr, par.xcls, info, tt.TI) || !family.publish()) return own_failure(why);
  LOG_LINE("maxdt=" << float(info.maxdt) << " mdt=" << float(info.mdt) << " maxdev=" << float(info.maxdev)
                    << " mdev=" << float(info.mdev));
  LOG_LINE("nmt=" << stat.nmt << " nmtl=" << stat.nmtl << " np=" << stat.np
                  << " MB=" << static_cast<double>(stat.np * sizeof(LmTpoint)) * 1e-6
                  << " lost=" << stat.nlost << " dev=" << stat.ndev);
  LOG_LINE(" /// SWATH_LmT_PROC_TIME=" << watch.text());
  return true;
}
}  // namespace veld
