// Statistics over the project: consistency, the scale of its grids, the console table.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTidx_w/swath_stat.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// The swaths that the project's numbers rest on: the mobile ones, all when there are none.
auto counting(const Project& prj) {
  const bool any = std::ranges::any_of(prj.swaths, &Swath::mobile);
  return prj.swaths.present() | std::views::filter([any](const Swath& s) { return !any || !s.fixed; });
}

// Frame of tiles that holds the mobile swaths; references count on their ground only. False when it is too
// wide to be worked on.
bool comp_project_frame(const Project& prj, const ProjectStat& stat, bool LAREA, TileInfo& frame) {
  uint32_t x0 = UINT32_MAX, y0 = UINT32_MAX, x1 = 0, y1 = 0;
  for (const Swath& swath : counting(prj)) {
    const SwathStat& s = stat.swaths[swath.id];
    x0 = std::min(x0, uint32_t{s.info.XImin});
    y0 = std::min(y0, uint32_t{s.info.YImin});
    x1 = std::max(x1, uint32_t{s.info.XImax});
    y1 = std::max(y1, uint32_t{s.info.YImax});
  }
  const uint32_t nx = x1 - x0 + 1, ny = y1 - y0 + 1;
  if (nx > MAX_FRAME || ny > MAX_FRAME) {
    ERROR_MSG("bounding box too large (" << nx << "x" << ny << " tiles), limit=" << MAX_FRAME
                                         << " - check locations and projections"
                                         << (LAREA ? "" : ". For large area projects use option -large"));
    return false;
  }
  frame.XI = x0;
  frame.YI = y0;
  frame.nx = static_cast<int>(nx);
  frame.ny = static_cast<int>(ny);
  return true;
}

void add_swaths(const Project& prj, ProjectStat& stat) {
  double sum_density = 0, nsw = 0, sum_dt = 0, sum_dev = 0, sum_med = 0, nmob = 0;
  stat.Zmin = 1e30;
  stat.Zmax = -1e30;
  for (const Swath& swath : counting(prj)) sum_density += stat.swaths[swath.id].density, nsw++;
  for (const Swath& swath : prj.swaths.present()) {
    const SwathStat& s = stat.swaths[swath.id];
    const double nmt = s.info.nmt;
    stat.np += s.info.np;
    stat.nmt += s.info.nmt;
    stat.cache_bytes += s.cache_bytes;
    stat.Zmin = std::min(stat.Zmin, s.Zmin);
    stat.Zmax = std::max(stat.Zmax, s.Zmax);
    sum_med += s.Zmed * nmt;
    if (swath.fixed) continue;
    nmob += nmt;
    sum_dt += static_cast<double>(s.info.mdt) * nmt;
    sum_dev += static_cast<double>(s.info.mdev) * nmt;
  }
  stat.density = sum_density / nsw;
  stat.Zmed = sum_med / static_cast<double>(std::max<uint64_t>(1, stat.nmt));
  if (nmob > 0) {
    stat.mdt = sum_dt / nmob;
    stat.mdev = sum_dev / nmob;
  }
}

struct Part {  // the mobile swaths, the reference ones, or all
  int n = 0;
  double Mp = 0, MB = 0;
  double min[3] = {1e30, 1e30, 1e30}, max[3] = {-1e30, -1e30, -1e30};
};

Part sum_part(const Project& prj, const ProjectStat& stat, bool mob, bool ref) {
  Part p;
  for (const Swath& swath : prj.swaths.present()) {
    if (swath.fixed ? !ref : !mob) continue;
    const SwathStat& s = stat.swaths[swath.id];
    p.n++;
    p.Mp += static_cast<double>(s.info.np) * 1e-6;
    p.MB += static_cast<double>(s.cache_bytes) * 1e-6;
    for (int c = 0; c < 3; c++) {
      p.min[c] = std::min(p.min[c], double{s.info.bbmin[c]});
      p.max[c] = std::max(p.max[c], double{s.info.bbmax[c]});
    }
  }
  return p;
}

std::string padded(std::string label) {
  label.resize(std::max<size_t>(label.size(), 28), ' ');
  return label;
}

void show_part(const std::string& form, const Part& p) {
  LOG_MSG(padded("Input used" + form) << p.n << " files, " << p.Mp << " Mp, " << p.MB << " MB cache");
  LOG_MSG(padded("XYZ min" + form) << p.min[0] << " " << p.min[1] << " " << p.min[2]);
  LOG_MSG(padded("XYZ max" + form) << p.max[0] << " " << p.max[1] << " " << p.max[2]);
  LOG_MSG(padded("BB size" + form) << p.max[0] - p.min[0] << " " << p.max[1] - p.min[1] << " "
                                   << p.max[2] - p.min[2]);
}

void show_table(const Project& prj, const ProjectStat& stat) {
  const Part mob = sum_part(prj, stat, true, false), ref = sum_part(prj, stat, false, true);
  const Part all = sum_part(prj, stat, true, true);
  if (ref.n > 0) {
    show_part(" (mob)", mob);
    show_part(" (ref)", ref);
    show_part(" (all)", all);
  } else {
    show_part("", all);
  }
  LOG_MSG(padded("Mean sw density") << stat.density << " pts/m2");
  LOG_MSG(padded("Grid GSD") << prj.scale.GSD() << " m");
  LOG_MSG(padded("Microtile size") << prj.scale.mTsize << " m");
  LOG_MSG(padded("Mean time resolution") << stat.mdt << " s");
  LOG_MSG(padded("Mean time deviation") << stat.mdev);
  LOG_LINE("Microtile size=" << prj.scale.mTsize << " | Mean swath density=" << stat.density
                             << " | Mean time resolution=" << stat.mdt << ", deviation=" << stat.mdev);
  LOG_LINE("Z_range=" << stat.Zmax - stat.Zmin << " Z_vmin=" << stat.Zmin);
  LOG_LINE("Using total " << all.Mp << " Mp (" << mob.Mp << " mob, " << ref.Mp << " ref), tile cache size "
                          << all.MB << " MB");
}

void warn_rollovers(const Project& prj) {
  int nday = 0, nweek = 0;
  for (const Swath& s : prj.swaths.present()) {
    nday += s.clock.rover == Rollover::day;
    nweek += s.clock.rover == Rollover::week;
  }
  if (nday > 0) WARNING_MSG("corrected day rollover for " << nday << " swaths");
  if (nweek > 0) WARNING_MSG("corrected week rollover for " << nweek << " swaths");
}

// Statistics, and in the table what the tiling left in the caches.
bool read_stats(Project& prj, const InfoParam& par, ProjectStat& stat) {
  stat.swaths = SwathVector<SwathStat>(prj.swaths);
  const std::vector<SwathId> ids = prj.swaths.ids();
  const int64_t bad = run_units(static_cast<int64_t>(ids.size()), NTHREADSIO, [&](int64_t i, int) {
    Swath& s = prj.swaths[ids[static_cast<size_t>(i)]];
    const bool times = par.tproc && !s.fixed;  // references are tiled without
    SwathStat& swath = stat.swaths[s.id];
    if (!comp_swath_stat(s.cache, times, par.median, swath)) return false;
    for (const SwathId member : s.members) swath.cache_bytes += tile_cache_bytes(prj.swaths[member].cache);
    s.clock = clock_of(swath.info);
    s.stamp = swath.stamp;
    return true;
  });
  if (bad >= 0) {
    ERROR_MSG("missing/incompatible temp. tile files, " << prj.swaths[ids[static_cast<size_t>(bad)]].path());
    return false;
  }
  uint64_t nmt = 0, nocc = 0;
  for (const Swath& s : prj.swaths.present()) {
    nmt += stat.swaths[s.id].info.nmt;
    nocc += stat.swaths[s.id].nocc;
    LOG_LINE("swmdim=" << stat.swaths[s.id].grid.dim << " " << s.path());
  }
  if (nmt == 0) {
    ERROR_MSG("no microtile data");
    return false;
  }
  if (nocc == 0) {
    ERROR_MSG("no height data");
    return false;
  }
  return true;
}
}  // namespace

bool InfoTI_swstat(Project& prj, const InfoParam& par, ProjectStat& stat) {
  LOG_ENTER("InfoTI_swstat name=" << prj.name << " nsw=" << prj.swaths.size() << " ngrp=" << prj.ngrp
                                  << " mTsize=" << prj.scale.mTsize << " fixch0=" << par.fix_ch0);
  stat = ProjectStat{};
  if (!check_nonempty_groups(prj) || !read_stats(prj, par, stat)) return false;
  if (!comp_mainch_swaths(prj.swaths, par.fix_ch0)) return false;
  if (!comp_project_frame(prj, stat, par.LAREA, stat.frame)) return false;
  add_swaths(prj, stat);
  // One spacing serves all swaths, since pairs are compared pixel by pixel: that of their microtiles
  // together. References have no say, they may be of another time and sensor.
  CountHist all;
  for (const Swath& s : counting(prj)) add_counts(all, stat.swaths[s.id].hist);
  prj.scale.dim = comp_GGSD_dim(all, static_cast<double>(prj.scale.mTsize), par.median).dim;
  prj.time_res = stat.mdt;
  if (!write_sw_stat(prj, stat)) return false;
  warn_rollovers(prj);
  show_table(prj, stat);
  return true;
}
}  // namespace veld
