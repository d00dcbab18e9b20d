// Unrolling of angles, statistics of intervals.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Makes one angle continuous from record i0 on. Counts the wraps and widens the largest step.
void unroll_angle(Vector<PO>& po, uint64_t i0, float PO::*angle, uint64_t& nro, double& rmax) {
  double turn = 0;  // degrees added to the records from here on
  double last = po[i0 - 1].*angle;
  for (uint64_t i = i0; i < po.size(); i++) {
    const double raw = po[i].*angle;
    const double step = raw + turn - last;
    if (std::fabs(step) > 180) {
      const double wrap = 360 * std::round(step / 360);
      if (wrap != 0) nro++;
      turn -= wrap;
    }
    rmax = std::max(rmax, std::fabs(raw + turn - last));
    last = raw + turn;
    po[i].*angle = static_cast<float>(last);
  }
}

// Mean interval of those up to MAX_TRAJ_DT, or of all if there is none of these.
double mean_interval(const Vector<PO>& po) {
  double sum = 0, sum_all = 0;
  uint64_t n = 0;
  for (uint64_t i = 1; i < po.size(); i++) {
    const double step = po[i].t - po[i - 1].t;
    if (step > 0 && step <= MAX_TRAJ_DT) sum += step, n++;
    sum_all += step;
  }
  if (n > 0) return sum / static_cast<double>(n);
  return po.size() > 1 ? sum_all / static_cast<double>(po.size() - 1) : 1.0;
}
}  // namespace

void unroll_PO(Vector<PO>& po, uint32_t i0) {
  LOG_ENTER("unroll_PO i0=" << i0 << " i1=" << po.size());
  if (po.empty()) return;
  uint64_t nro = 0;
  double rmax = 0;
  const uint64_t start = std::max<uint64_t>(i0, 1);
  unroll_angle(po, start, &PO::roll, nro, rmax);
  unroll_angle(po, start, &PO::pitch, nro, rmax);
  unroll_angle(po, start, &PO::yaw, nro, rmax);
  if (nro > 1) LOG_LINE("<!> nro: " << nro << " rmax: " << rmax);
}

double mean_dt_PO(const Vector<PO>& po) { return std::max(mean_interval(po), 1e-6); }

POstat comp_PO_dt_stat(const Vector<PO>& po, int proj, bool tadj) {
  POstat s;
  if (po.empty()) return s;
  const uint64_t n = po.size();
  LOG_ENTER("comp_PO_dt_stat proj=" << proj << " tadj=" << tadj << " ndt=" << n - 1);
  s.dt = mean_interval(po);
  s.minint = n > 1 ? 2e307 : 0;
  double sum2 = 0;
  for (uint64_t i = 1; i < n; i++) {
    const double step = po[i].t - po[i - 1].t;
    s.minint = std::min(s.minint, step);
    s.maxint = std::max(s.maxint, step);
    sum2 += (step - s.dt) * (step - s.dt);
    s.nerr += step <= 0;
    s.nsmall += step < 0.5 * s.dt;
    s.nlarge += step > 2 * s.dt;
  }
  if (n > 1) s.devint = std::sqrt(sum2 / static_cast<double>(n - 1));
  s.min = s.max = position(po[0]);
  for (const PO& rec : po) grow_box(s.min, s.max, position(rec));
  const double t0 = po[0].t, t1 = po[n - 1].t;
  LOG_LINE("TIME: t:[" << t0 << " " << t1 << "] DT=" << t1 - t0
                       << (tadj ? " from ADJ_GPS" : " from WEEKSEC"));
  LOG_LINE("STAT: dt=" << s.dt << " nerr=" << s.nerr << " maxint=" << s.maxint << " devint=" << s.devint
                       << " minint=" << s.minint << " small=" << s.nsmall << " large=" << s.nlarge);
  if (proj == PO_GEO)
    LOG_LINE("BBOX: lon:[" << s.min.x << " " << s.max.x << "] lat:[" << s.min.y << " " << s.max.y << "] h:["
                           << s.min.z << " " << s.max.z << "]");
  else
    LOG_LINE("BBOX: X:[" << s.min.x << " " << s.max.x << "] Y:[" << s.min.y << " " << s.max.y << "] Z:["
                         << s.min.z << " " << s.max.z << "]");
  return s;
}
}  // namespace veld
