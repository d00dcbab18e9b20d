// One tile of the second pass: a plane of time over each microtile, and the times at the microtile corners.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
using v4 = float __attribute__((vector_size(16)));

struct TimeSums {  // over the points of a microtile: x, y in [0, 1), t in ticks less T0
  float x = 0, y = 0, xx = 0, xy = 0, yy = 0, t = 0, xt = 0, yt = 0, tt = 0;
};

float add4(v4 v) { return (v[0] + v[1]) + (v[2] + v[3]); }

// Four points at a time in single precision; the last ones count with weight 0 where there are fewer.
TimeSums comp_sums(const LmTpoint* p, const int32_t* tick, uint32_t n, int32_t T0, float scale) {
  v4 x{}, y{}, xx{}, xy{}, yy{}, t{}, xt{}, yt{}, tt{};
  for (uint32_t i = 0; i < n; i += 4) {
    v4 px{}, py{}, pt{};
    const uint32_t m = std::min(n - i, 4u);
    for (uint32_t l = 0; l < m; l++) {
      px[l] = static_cast<float>(p[i + l].xyz & 0x3FFF);
      py[l] = static_cast<float>((p[i + l].xyz >> 14) & 0x3FFF);
      pt[l] = static_cast<float>(tick[i + l] - T0);
    }
    px *= scale;
    py *= scale;
    x += px;
    y += py;
    xx += px * px;
    xy += px * py;
    yy += py * py;
    t += pt;
    xt += px * pt;
    yt += py * pt;
    tt += pt * pt;
  }
  return {add4(x), add4(y), add4(xx), add4(xy), add4(yy), add4(t), add4(xt), add4(yt), add4(tt)};
}

struct TimeFit {
  bool ok = false;             // a plane was found
  int64_t dev = 0;             // rms residual, per mille of the range
  double a = 0, b = 0, c = 0;  // t' = a + b x + c y, ticks
  bool corner[4];              // the plane is good enough at corner (0,0), (1,0), (0,1), (1,1)
};

// Largest variances of the time in units of that of a single point: at the centre of a microtile, and at its
// corners. The first asks for four points, the second for a direction across the scan lines as well.
constexpr double VAR_CENTRE = 0.3, VAR_CORNER = 4;

// Plane by the normal equations, through cofactors. No plane when the points do not surround the centre or
// don't determine the time there.
TimeFit fit_plane(const TimeSums& s, uint32_t npoints, int64_t range) {
  TimeFit fit;
  const double n = npoints;
  const double mx = s.x / n - 0.5, my = s.y / n - 0.5;
  if (!(mx * mx + my * my < 0.14)) return fit;
  const double x = s.x, y = s.y, xx = s.xx, xy = s.xy, yy = s.yy;
  const double D = xx * yy - xy * xy;
  if (!(D > 0)) return fit;
  const double c01 = y * xy - x * yy, c02 = x * xy - xx * y;
  const double det = n * D + x * c01 + y * c02;
  if (!(det > 0)) return fit;
  const double c11 = n * yy - y * y, c12 = x * y - n * xy, c22 = n * xx - x * x;
  const auto variance_at = [&](double u, double v) {
    return (D + 2 * (u * c01 + v * c02) + u * u * c11 + 2 * u * v * c12 + v * v * c22) / det;
  };
  if (!(variance_at(0.5, 0.5) < VAR_CENTRE)) return fit;
  for (int k = 0; k < 4; k++) fit.corner[k] = variance_at(k & 1, k >> 1) < VAR_CORNER;
  fit.a = (D * s.t + c01 * s.xt + c02 * s.yt) / det;
  fit.b = (c01 * s.t + c11 * s.xt + c12 * s.yt) / det;
  fit.c = (c02 * s.t + c12 * s.xt + c22 * s.yt) / det;
  const double variance = (s.tt - (fit.a * s.t + fit.b * s.xt + fit.c * s.yt)) / n;
  if (variance > 0) fit.dev = std::lround(std::sqrt(variance) / (static_cast<double>(range) * 0.001));
  fit.ok = true;
  return fit;
}

uint8_t code_range(int64_t range) {
  return static_cast<uint8_t>(
      std::min(255L, std::lround(static_cast<double>(range) * 0.2490234375 / DT_RANGE)));
}

uint8_t code_dev(int64_t dev) {
  const long code =
      std::min(255L, std::lround(static_cast<double>(dev) * 0.255 / static_cast<double>(DEV_RANGE)));
  return static_cast<uint8_t>(dev != 0 && code == 0 ? 1 : code);
}

// Mean of the corner values that the up to four microtiles around each vertex give, truncated; where none gives
// one, mean of their centres, which lie half a microtile off.
uint64_t comp_vertices(const int32_t (*corner)[4], const LmTtimeRec& rec, int32_t* vertex) {
  uint64_t nc = 0;
  for (int j = 0; j <= mTsub; j++)
    for (int i = 0; i <= mTsub; i++) {
      int64_t sum[2] = {0, 0};  // of corners, of centres
      int count[2] = {0, 0};
      for (int c = 0; c < 4; c++) {  // corner (0,0), (1,0), (0,1), (1,1)
        const int x = i - (c & 1), y = j - (c >> 1);
        if (x < 0 || y < 0 || x >= mTsub || y >= mTsub) continue;
        const int mt = y * mTsub + x;
        const int32_t times[2] = {corner[mt][c], rec.centre[mt]};
        for (int k = 0; k < 2; k++)
          if (times[k] != NO_I32) sum[k] += times[k], count[k]++;
      }
      const int k = count[0] > 0 ? 0 : 1;
      vertex[j * (mTsub + 1) + i] = count[k] > 0 ? static_cast<int32_t>(sum[k] / count[k]) : NO_I32;
      nc += count[k] > 0;
    }
  return nc;
}
}  // namespace

void proc_LmT(TileWork& w, const TileGeom& g, uint32_t stmax, LmTstat& stat) {
  LmTtimeRec& rec = w.time;
  std::fill_n(rec.centre, mTn, NO_I32);
  std::fill_n(rec.dt, mTn, uint8_t{0});
  std::fill_n(rec.dev, mTn, uint8_t{0});
  int32_t corner[mTn][4];
  const float scale = 1.0f / static_cast<float>(1 << g.mshift);
  uint64_t nmt = 0, ndev = 0, nfit = 0;
  int64_t max_dt = 0, max_dev = 0, sum_dt = 0, sum_dev = 0;
  for (int mt = 0; mt < mTn; mt++) {
    std::fill_n(corner[mt], 4, NO_I32);
    const uint32_t n = w.N[mt];
    if (n == 0) continue;
    const int32_t* tick = w.ticks.data() + w.offset[mt];
    const auto [lowest, highest] = std::minmax_element(tick, tick + n);
    const int64_t range = int64_t{*highest} - *lowest;
    TimeFit fit;
    if (n >= 3 && range > 0) {
      const int32_t T0 = static_cast<int32_t>((int64_t{tick[0]} + tick[n - 1]) >> 1);
      fit = fit_plane(comp_sums(w.points.data() + w.offset[mt], tick, n, T0, scale), n, range);
      if (fit.ok && fit.dev <= stmax) {
        const double T00 = fit.a + T0;
        rec.centre[mt] = static_cast<int32_t>(std::lround((fit.b + fit.c) * 0.5 + T00));
        for (int k = 0; k < 4; k++)
          if (fit.corner[k])
            corner[mt][k] = static_cast<int32_t>(std::lround(T00 + (k & 1) * fit.b + (k >> 1) * fit.c));
        nfit++;
      } else if (fit.ok) {
        ndev++;
      }
    }
    rec.dt[mt] = code_range(range);
    rec.dev[mt] = code_dev(fit.dev);
    max_dt = std::max(max_dt, range);
    max_dev = std::max(max_dev, fit.dev);
    sum_dt += range;
    sum_dev += fit.dev;
    nmt++;
  }
  const uint64_t nc = comp_vertices(corner, rec, rec.vertex);
  const double mean = nmt ? 1.0 / static_cast<double>(nmt) : 0.0;
  LOG_LINE("proc_LmT -> nmt=" << nmt << " ndev=" << ndev << " nmtl=" << nfit << " nc=" << nc
                              << " MeanST=" << static_cast<double>(sum_dev) * mean * 0.001
                              << " MaxST=" << static_cast<double>(max_dev) * 0.001
                              << " MeanDT=" << static_cast<double>(sum_dt) * mean * TICK_S
                              << " MaxDT=" << static_cast<double>(max_dt) * TICK_S
                              << " deltaT=" << static_cast<double>(max_dt) * TICK_S);
  stat.nmtl += nmt;
  stat.nfit += nfit;
  stat.ndev += ndev;
  stat.sum_dt += static_cast<double>(sum_dt);
  stat.sum_dev += static_cast<double>(sum_dev);
  stat.max_dt = std::max(stat.max_dt, max_dt);
  stat.max_dev = std::max(stat.max_dev, max_dev);
}
}  // namespace veld
