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
      const int32_t tick = Ct[mt];
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
    const uint32_t n = N[mt];
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
  s.stamp = hdr.tstamp;
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
      if (N[mt] > NMT_MIN) z.push_back(Zm[mt]);
    if (tproc) sense.add(TI[k], s.info, Ct);
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
    if (std::ranges::any_of(prj.swaths, [g](const Swath& s) { return s.mobile() && s.group == g; })) continue;
    const size_t i = static_cast<size_t>(g - 1);
    ERROR_MSG("group " << g << ", channel " << (i < prj.chgrp.size() ? prj.chgrp[i] : 0) << " is empty");
    ok = false;
  }
  return ok;
}

namespace {
double time_overlap(const Swath& a, const Swath& b) {
  return std::min(a.clock.tmax, b.clock.tmax) - std::max(a.clock.tmin, b.clock.tmin);
}

// The groups of a sensor's channels follow that of its channel 0.
int sensor_group(const Swath& s) { return s.group - s.channel; }

SwathId find_main(const SwathTable& swaths, const Swath& s, bool only_ch0) {
  SwathId best;
  double most = 0;
  for (const Swath& m : swaths) {
    if (!m.mobile() || m.channel >= s.channel || !m.is_main() || sensor_group(m) != sensor_group(s)) continue;
    if ((only_ch0 && m.channel != 0) || time_overlap(m, s) <= most) continue;
    most = time_overlap(m, s);
    best = m.id;
  }
  return best;
}
}  // namespace

bool comp_mainch_swaths(SwathTable& swaths, bool fix_ch0) {
  std::vector<SwathId> order;
  for (Swath& s : swaths) {
    s.mainch = s.id;
    if (s.mobile() && s.channel > 0) order.push_back(s.id);
  }
  std::stable_sort(order.begin(), order.end(),
                   [&](SwathId a, SwathId b) { return swaths[a].channel < swaths[b].channel; });
  int missing = 0;
  for (const SwathId id : order) {
    Swath& s = swaths[id];
    if (const SwathId best = find_main(swaths, s, fix_ch0); best != SwathId()) {
      s.mainch = best;
      continue;
    }
    missing++;
    if (fix_ch0)
      ERROR_MSG("channel 0 swath missing or dropped for swath " << s.path() << ", channel " << s.channel);
    else
      WARNING_MSG("channel 0 swath missing or dropped for swath " << s.path()
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
