// One pair, from its tiles to what the logs and the DUT files get of it.
#include <cmath>
#include <optional>
#include <utility>

#include "lib/general/file_lock.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTinter/LmTinter_internal.h"
#include "prj/LiDAR/LmTinter/warp_pair.h"
#include "prj/LiDAR/TNRreg/reg_cache.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Looks whether the cache of a pair will do. If not, it is locked for this run, after a wait for another that makes
// it. False after an ERROR line.
bool lock_pair(const SwPair& p, const std::string& name, const RegpairIdx& idx, FileLock& lock,
               bool& cached) {
  const FileStamp before = file_stamp(name + EXT_RPCIDX);
  cached = check_regpair_idx(p.sw1, p.sw2, idx);
  if (cached || name.empty()) return true;
  if (!lock.wait(name + ".rpc.lock", LOG_STR("the pair of swaths " << p.sw1 << "/" << p.sw2))) return false;
  if (file_stamp(name + EXT_RPCIDX) != before) cached = check_regpair_idx(p.sw1, p.sw2, idx);
  return true;
}

// The parameters of a pair's registration; its cache is locked unless it will do. False after an ERROR line.
bool make_NRparam(const PairWork& work, const SwPair& p, const PairSwaths& sw, RegpairIdx& idx,
                  FileLock& lock, NRparam& param) {
  if (!make_regpair_idx(sw.s1.cache, sw.s2.cache, work.levels, idx)) return false;
  const std::string name = regpair_name(idx);
  param.Jstart = work.levels.Jstart;
  param.Jend = work.levels.Jend;
  param.nthreads = work.nthreads;
  param.cache = name.empty() ? "" : name + EXT_RPCD0;
  if (!lock_pair(p, name, idx, lock, param.cached)) return false;
  if (!param.cached && !name.empty())
    remove_file(name + EXT_RPCIDX);  // never an index of another deformation
  return true;
}

// The same about the model of the job. It has no cache, which would hold for one inversion only.
NRparam model_NRparam(const PairWork& work) {
  NRparam param;
  param.Jstart = param.Jend = work.levels.Jend;
  param.nthreads = work.nthreads;
  param.about_model = true;
  return param;
}

// What a measurement is to map.
DZmap want_map(const PairWork& work, bool deformed) {
  const InterParam& par = work.param;
  DZmap map;
  map.sub = map_sub(par.map.DZ_sub, mTsub * work.prj.scale.dim);
  (deformed ? map.want : map.want0) =
      !par.nop && par.frame.nx > 0 && (draws_maps(par.map) || draws_plots(par.map));
  return map;
}

// Measures a pair at displacement 0.
void measure_before(const PairWork& work, const NRpair& pair, PairOutcome& out) {
  DZmap map = want_map(work, false);
  out.has_before = work.param.QC && acc_qc_tiles(pair, nullptr, work.nthreads, out.before, &map);
  out.dz0.swap(map.dz0);
}

// Measures a pair and registers it; out.rec holds its records if it is valid, else out.lost says why not.
// False after an ERROR line.
bool register_pair(const PairWork& work, const SwPair& p, PairSwaths& sw, const InterTiles& inter,
                   NRpair& pair, PairOutcome& out) {
  RegpairIdx idx;
  NRparam param;
  if (work.model) param = model_NRparam(work);
  FileLock lock;
  if (!work.model && !make_NRparam(work, p, sw, idx, lock, param)) return false;
  NRstart start = start_reg(pair.img2.size(), param);
  prepare_pair(pair, work.model ? 0 : start.depth(), param.nthreads);
  measure_before(work, pair, out);
  ModelOfPair model;
  if (work.model) {
    model = {(*work.corr_at)(p.sw1), (*work.corr_at)(p.sw2), work.prj.scale.level, work.prj.time_res};
    if (!model.c1.at || !model.c2.at) return false;
    warp_moved(inter, model, start.depth(), work.nthreads, pair);
  }
  NRresult reg;
  const bool ok = mg_nr_reg_tiles(pair, param, std::move(start), reg);
  const bool fresh = !param.cache.empty() && !reg.from_cache;
  if (fresh && ((ok && !reg.cache_written) || !write_regpair_idx(p.sw1, p.sw2, idx, ok))) {
    ERROR_MSG("pair cache not written, swaths " << p.sw1 << "/" << p.sw2);
    return false;
  }
  lock.release();
  out.cached = ok && reg.from_cache;
  out.lost = ok ? "" : "the registration finds no solution";
  if (!ok) return true;
  DZmap map = want_map(work, true);
  out.has_after = work.param.QC && acc_qc_tiles(pair, &reg.Def, work.nthreads, out.after, &map);
  out.dz.swap(map.dz);
  if (!open_times(work.prj, sw.s1) || !open_times(work.prj, sw.s2)) return false;
  if (!write_DUT(work.prj, sw.s1, sw.s2, inter, reg, work.levels.Jend, out.rec, out.disp)) return false;
  if (work.model) add_model(model, out.rec);
  out.registered = !out.rec.empty();
  if (!out.registered) out.lost = "no vertex could be estimated";
  LOG_LINE("stat_Def[img] ntX=" << inter.tiles.size() << " npts=" << out.disp.n);
  return true;
}

// Why nothing of a pair could be compared.
std::string why_lost(InterState state, const PairWork& work) {
  if (state == InterState::memory) return "too large for the memory reserved (-mem)";
  if (state == InterState::none) return "no common ground";
  const float width = static_cast<float>(min_overlap_width(work.levels)) * work.prj.scale.mTsize;
  return LOG_STR("overlap narrower than " << std::lround(width) << " m");
}

bool read_swaths(const Project& prj, const SwPair& p, PairSwaths& sw) {
  for (const SwathId id : {p.sw1, p.sw2})
    if (!read_InterSwath(prj, id, id == p.sw1 ? sw.s1 : sw.s2)) {
      ERROR_MSG("missing/incompatible temp. tile or grid files, swath " << prj.swaths[id].path());
      return false;
    }
  return true;
}
}  // namespace

bool process_pair(const PairWork& work, const SwPair& p, PairSwaths& sw, PairOutcome& out) {
  LOG_ENTER("pair " << p.number << " sw1=" << p.sw1 << " sw2=" << p.sw2 << " reg=" << p.reg);
  if (!p.reg && !work.param.QC) return true;
  if (!read_swaths(work.prj, p, sw)) return false;
  if (work.model && !(fits((*work.model)[p.sw1], sw.s1) && fits((*work.model)[p.sw2], sw.s2))) {
    ERROR_MSG("tiles and correction tables differ, swaths " << p.sw1 << "/" << p.sw2);
    return false;
  }
  InterTiles inter;
  InterState& state = out.state;
  state = choose_inter_tiles(work.prj, sw.s1, sw.s2, work.param.nmTmin, work.levels, inter);
  std::optional<MemoryBudget::Lease> lease;
  NRpair pair;
  if (state == InterState::ok) {
    lease.emplace(work.memory, comp_reg_bytes(inter.tiles.size(), work.prj.scale.dim, work.levels));
    state = read_inter_tiles(work.prj, sw.s1, sw.s2, work.levels, work.nthreads, inter, pair);
  }
  if (state == InterState::failed) return false;
  const bool wanted = work.param.REG && p.reg;
  if (wanted && state != InterState::ok) out.lost = why_lost(state, work);
  if (state != InterState::ok) return true;
  out.Mpix = static_cast<double>(inter.nfpix2) * 1e-6;
  bool ok = true;
  if (wanted) {
    ok = register_pair(work, p, sw, inter, pair, out);
  } else {
    prepare_pair(pair, 0, work.nthreads);
    measure_before(work, pair, out);
  }
  if (!out.dz0.empty() || !out.dz.empty() || work.param.FP) out.tiles.swap(inter.tiles);
  return ok;
}
}  // namespace veld
