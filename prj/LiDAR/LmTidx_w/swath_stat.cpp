#include "prj/LiDAR/LmTidx_w/swath_stat.h"

#include <algorithm>
#include <cmath>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr size_t HIST_MAX = 1u << 20;  // larger counts of points share the last bin

// Value below which the given fraction of the values lies; reorders them.
int32_t percentile(std::vector<int32_t>& values, double fraction) {
  const size_t i = static_cast<size_t>(fraction * static_cast<double>(values.size() - 1) + 0.5);
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(i), values.end());
  return values[i];
}

// Sense of flight along an axis: the sign of the covariance of time and position.
struct TimeSense {
  double ax, ay;
  double n = 0, st = 0, sr = 0, str = 0;
  void add(const TIsxy& tile, const LTidxInfo& info, const Image<int32_t>& Ct) {
    for (int mt = 0; mt < mTn; mt++) {
      const int32_t tick = Ct.val[mt];
      if (tick == NO_I32) continue;
      const double x = (tile.x - info.XImin) + (mt % mTsub) * 0.03125;
      const double y = (tile.y - info.YImin) + (mt / mTsub) * 0.03125;
      const double r = x * ax + y * ay, t = tick * TICK_S;
      n += 1;
      st += t;
      sr += r;
      str += t * r;
    }
  }
  double sign() const { return n * str - st * sr < 0 ? -1.0 : 1.0; }
};

void rectangle_stat(const LTidxInfo& info, SwathStat& s, double& ax, double& ay) {
  const double ux = info.mbr[1][0] - info.mbr[0][0], uy = info.mbr[1][1] - info.mbr[0][1];
  const double vx = info.mbr[2][0] - info.mbr[1][0], vy = info.mbr[2][1] - info.mbr[1][1];
  const double u = std::hypot(ux, uy), v = std::hypot(vx, vy);
  s.length = std::max(u, v);
  s.width = std::min(u, v);
  s.area = u * v;
  ax = (u >= v ? ux : vx) / s.length;
  ay = (u >= v ? uy : vy) / s.length;
}

void height_stat(std::vector<int32_t>& z, SwathStat& s) {
  s.nocc = z.size();
  if (z.empty()) return;
  s.Zmin = percentile(z, 0.01) * M_PER_UNIT;
  s.Zmax = percentile(z, 0.99) * M_PER_UNIT;
  s.Zmed = percentile(z, 0.5) * M_PER_UNIT;
}
}  // namespace

void add_counts(CountHist& hist, const Image<uint32_t>& N) {
  for (int mt = 0; mt < mTn; mt++) {
    const uint32_t n = N.val[mt];
    if (n == 0) continue;
    const size_t bin = std::min<size_t>(n, HIST_MAX);
    if (hist.nmt_of.size() <= bin) hist.nmt_of.resize(bin + 1);
    hist.nmt_of[bin]++;
    hist.np += n;
    hist.nmt++;
  }
}

void add_counts(CountHist& hist, const CountHist& other) {
  if (hist.nmt_of.size() < other.nmt_of.size()) hist.nmt_of.resize(other.nmt_of.size());
  for (size_t n = 0; n < other.nmt_of.size(); n++) hist.nmt_of[n] += other.nmt_of[n];
  hist.np += other.np;
  hist.nmt += other.nmt;
}

GridScale comp_GGSD_dim(const CountHist& hist, double mTsize, bool median) {
  GridScale g;
  g.dim = 1;
  g.GGSD = mTsize;
  if (hist.nmt == 0) return g;
  // Counts in units of 1/32 of their mean, accumulated over 64 bins.
  const double npmt = static_cast<double>(hist.np) / static_cast<double>(hist.nmt);
  double cum[64] = {};
  for (size_t n = 1; n < hist.nmt_of.size(); n++)
    if (hist.nmt_of[n])
      cum[std::min(63L, std::lround(static_cast<double>(n) * 32.0 / npmt))] +=
          static_cast<double>(hist.nmt_of[n]);
  for (int b = 1; b < 64; b++) cum[b] += cum[b - 1];
  double xm = 32;
  const double half = cum[63] * 0.5;
  for (int b = 0; b < 63; b++)
    if (cum[b] <= half && half < cum[b + 1]) {
      xm = b + 0.5 + (half - cum[b]) / (cum[b + 1] - cum[b]);
      break;
    }
  g.D0 = (median ? npmt * xm * 0.03125 : npmt) / (mTsize * mTsize);
  g.GSD0 = std::sqrt(static_cast<double>(TARGET_DF) / g.D0);
  const double wanted = GGSD_OPT > 0 ? static_cast<double>(GGSD_OPT) : g.GSD0;
  g.dim = std::max(1, static_cast<int>(std::lround(mTsize / wanted)));
  g.GGSD = mTsize / g.dim;
  LOG_LINE("comp_GGSD_dim np=" << hist.np << " nmt=" << hist.nmt << " npmt=" << npmt << " mGSD=" << mTsize
                               << " median=" << median << " TARGET_DF=" << TARGET_DF << " D0=" << g.D0
                               << " xm=" << xm << " GSD0=" << g.GSD0 << " dim=" << g.dim);
  return g;
}

bool comp_swath_stat(const CacheName& swath, bool tproc, bool median, SwathStat& s) {
  LTidxHdr hdr;
  Vector<TIsxy> TI;
  TileTables tables;
  if (!read_LTidxHdr(swath, hdr) || !read_LTidxInfo(swath, s.info) || !read_LTidx_TI(swath, TI) ||
      !tables.open(swath, s.info.nt, tproc))
    return false;
  const TileGeom geom = make_tile_geom(header_level(hdr));
  double ax = 0, ay = 1;
  rectangle_stat(s.info, s, ax, ay);
  TimeSense sense{ax, ay};
  s.hist = CountHist{};
  std::vector<int32_t> z;
  Image<uint32_t> N;
  Image<int32_t> Zm, Ct;
  for (uint32_t k = 0; k < s.info.nt; k++) {
    if (!tables.read_N(k, N) || !tables.read_Zm(k, Zm) || (tproc && !tables.read_Ct(k, Ct))) return false;
    add_counts(s.hist, N);
    for (int mt = 0; mt < mTn; mt++)
      if (N.val[mt] > NMT_MIN) z.push_back(Zm.val[mt]);
    if (tproc) sense.add(TI.val[k], s.info, Ct);
  }
  s.grid = comp_GGSD_dim(s.hist, geom.mTsize, median);
  if (s.info.nmt > 0) s.density = static_cast<double>(s.info.np) / (geom.mTsize * geom.mTsize * s.info.nmt);
  height_stat(z, s);
  if (tproc) {
    ax *= sense.sign();
    ay *= sense.sign();
  }
  s.heading = std::atan2(ax, ay) * DEG_PER_RAD;
  if (s.heading < 0) s.heading += tproc ? 360.0 : 180.0;
  s.cache_bytes = tile_cache_bytes(swath);
  return true;
}

uint64_t tile_cache_bytes(const CacheName& swath) {
  uint64_t n = 0;
  for (const char* suffix : {EXT_TIDX, EXT_MTIDX, EXT_MTZM, EXT_MTDT, EXT_MTXYZ})
    n += static_cast<uint64_t>(std::max<int64_t>(0, file_size(swath.file(suffix))));
  return n;
}

bool check_nonempty_groups(const Project& prj) {
  bool ok = true;
  for (int g = 1; g <= prj.nmgrp; g++) {
    const bool found = std::any_of(prj.swaths.begin(), prj.swaths.end(),
                                   [g](const Swath& s) { return s.used && !s.fixed && s.group == g; });
    if (found) continue;
    const size_t i = static_cast<size_t>(g - 1);
    ERROR_MSG("group " << g << ", channel " << (i < prj.chgrp.size() ? prj.chgrp[i] : 0) << " is empty");
    ok = false;
  }
  return ok;
}

namespace {
// The main channel among the swaths of lower channels of the same sensor, down to channel 0, whose time interval
// overlaps most; -1 when none does. The groups of a sensor's channels follow that of its channel 0.
int find_main(const Project& prj, const std::vector<SwathStat>& stat, size_t i, bool only_ch0) {
  int best = -1;
  double most = 0;
  for (size_t j = 0; j < prj.swaths.size(); j++) {
    const Swath& s = prj.swaths[j];
    if (s.fixed || s.channel >= prj.swaths[i].channel || s.mainch != static_cast<int>(j)) continue;
    if (s.group - s.channel != prj.swaths[i].group - prj.swaths[i].channel) continue;
    if (only_ch0 && s.channel != 0) continue;
    const double overlap = std::min(double{stat[i].info.tmax}, double{stat[j].info.tmax}) -
                           std::max(double{stat[i].info.tmin}, double{stat[j].info.tmin});
    if (overlap > most) {
      most = overlap;
      best = static_cast<int>(j);
    }
  }
  return best;
}
}  // namespace

bool comp_mainch_swaths(Project& prj, const std::vector<SwathStat>& stat, bool fix_ch0) {
  std::vector<size_t> order;
  for (size_t i = 0; i < prj.swaths.size(); i++) {
    prj.swaths[i].mainch = static_cast<int>(i);
    if (!prj.swaths[i].fixed && prj.swaths[i].channel > 0) order.push_back(i);
  }
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return prj.swaths[a].channel < prj.swaths[b].channel; });
  int missing = 0;
  for (const size_t i : order) {
    const int best = find_main(prj, stat, i, fix_ch0);
    if (best >= 0) {
      prj.swaths[i].mainch = best;
      continue;
    }
    missing++;
    if (fix_ch0)
      ERROR_MSG("channel 0 swath missing or dropped for swath " << prj.swaths[i].path() << ", channel "
                                                                << prj.swaths[i].channel);
    else
      WARNING_MSG("channel 0 swath missing or dropped for swath " << prj.swaths[i].path()
                                                                  << " - setting as main channel");
  }
  if (missing == 0) return true;
  if (fix_ch0)
    LOG_MSG("Channel 0 swath missing or dropped for " << missing
                                                      << " swaths, initial consistency check failed");
  else
    LOG_MSG("Main channel updated for " << missing << " swaths, initial consistency check passed");
  return !fix_ch0;
}
}  // namespace veld
