#include "prj/LiDAR/check/scan_pattern.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace veld {
namespace {
constexpr double DEG = 57.29577951308232;
constexpr double INNER = 0.68;        // share of residuals that a spread stands for
constexpr double MIN_ROLL = 0.15;     // degrees, standard deviation of roll that a slope over it needs
constexpr double MIN_SPEED = 2;       // m/s, below which a track has no direction
constexpr double MIN_OPENING = 0.03;  // sine of the opening of a cone below which it is no pattern

using Mat = std::array<std::array<double, 3>, 3>;

struct Seen {        // a beam from the scanner
  dxyz d;            // unit vector, internal coordinates
  double level_deg;  // across the heading, from the vertical
  double angle_deg;  // as recorded
  double roll_deg;   // of the platform
};

xyz changed_attitude(const xyz& a, AngleChange change) {
  switch (change) {
    case AngleChange::none:
      return a;
    case AngleChange::swapped:
      return {a.y, a.x, a.z};
    case AngleChange::roll_sign:
      return {-a.x, a.y, a.z};
    case AngleChange::pitch_sign:
      return {a.x, -a.y, a.z};
    case AngleChange::both_signs:
      return {-a.x, -a.y, a.z};
    case AngleChange::yaw_sign:
      return {a.x, a.y, -a.z};
    case AngleChange::yaw_from_east:
      return {a.x, a.y, 90 - a.z};
    case AngleChange::yaw_back:
      return {a.x, a.y, a.z + 180};
    case AngleChange::yaw_right:
      return {a.x, a.y, a.z + 90};
    case AngleChange::yaw_left:
      return {a.x, a.y, a.z - 90};
  }
  return a;
}

// Eigenvectors of a symmetric matrix, as columns of V (Jacobi's rotations; six sweeps are plenty for 3 x 3).
void eigenvectors(Mat A, Mat& V) {
  V = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  for (int sweep = 0; sweep < 6; sweep++)
    for (int p = 0; p < 2; p++)
      for (int q = p + 1; q < 3; q++) {
        if (A[p][q] == 0) continue;
        const double theta = (A[q][q] - A[p][p]) / (2 * A[p][q]);
        const double t = (theta < 0 ? -1 : 1) / (std::fabs(theta) + std::hypot(theta, 1.0));
        const double c = 1 / std::hypot(t, 1.0), s = t * c;
        for (int k = 0; k < 3; k++) {
          const double kp = A[k][p], kq = A[k][q];
          A[k][p] = c * kp - s * kq;
          A[k][q] = s * kp + c * kq;
        }
        for (int k = 0; k < 3; k++) {
          const double pk = A[p][k], qk = A[q][k];
          A[p][k] = c * pk - s * qk;
          A[q][k] = s * pk + c * qk;
          const double vp = V[k][p], vq = V[k][q];
          V[k][p] = c * vp - s * vq;
          V[k][q] = s * vp + c * vq;
        }
      }
}

// The value that a share of the magnitudes stays below.
double inner_magnitude(std::vector<double>& v) {
  for (double& x : v) x = std::fabs(x);
  const auto at = v.begin() + static_cast<std::ptrdiff_t>(INNER * static_cast<double>(v.size() - 1));
  std::nth_element(v.begin(), at, v.end());
  return *at;
}

double median(std::vector<double> v) {
  const auto middle = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
  std::nth_element(v.begin(), middle, v.end());
  return *middle;
}

// Spread about the plane (c = 0) or cone with this axis, radians. c: cosine of the opening.
double axis_spread(const std::vector<Seen>& seen, const dxyz& axis, double c) {
  const double opening = std::sqrt(std::max(0.0, 1 - c * c));
  if (opening < MIN_OPENING) return 1;
  std::vector<double> e;
  e.reserve(seen.size());
  for (const Seen& s : seen) e.push_back((dot(s.d, axis) - c) / opening);
  return inner_magnitude(e);
}

// The best of a plane through the scanner and of the cones about the principal axes, degrees.
double comp_spread(const std::vector<Seen>& seen) {
  Mat around0{}, around_mean{};
  dxyz sum{0, 0, 0};
  for (const Seen& s : seen) {
    const double d[3] = {s.d.x, s.d.y, s.d.z};
    for (size_t i = 0; i < 3; i++)
      for (size_t j = 0; j < 3; j++) around0[i][j] += d[i] * d[j];
    sum += s.d;
  }
  const double n = static_cast<double>(seen.size());
  const dxyz mean = sum / n;
  const double m[3] = {mean.x, mean.y, mean.z};
  for (size_t i = 0; i < 3; i++)
    for (size_t j = 0; j < 3; j++) around_mean[i][j] = around0[i][j] - n * m[i] * m[j];
  double best = 1;
  Mat V;
  eigenvectors(around0, V);
  for (size_t k = 0; k < 3; k++) best = std::min(best, axis_spread(seen, {V[0][k], V[1][k], V[2][k]}, 0));
  eigenvectors(around_mean, V);
  for (size_t k = 0; k < 3; k++) {
    const dxyz axis = {V[0][k], V[1][k], V[2][k]};
    best = std::min(best, axis_spread(seen, axis, dot(mean, axis)));
  }
  return best * DEG;
}

// Spread of geometric less recorded angles, degrees. Files count them from the scanner's or from the vertical
// beam, to the right or to the left: the best of the four.
double comp_angle_fit(const std::vector<Seen>& seen) {
  double best = 1e9;
  std::vector<double> e(seen.size());
  for (const bool level : {false, true})
    for (const double sign : {1.0, -1.0}) {
      for (size_t i = 0; i < seen.size(); i++) {
        const double geometric =
            level ? seen[i].level_deg : std::asin(std::clamp(seen[i].d.y, -1.0, 1.0)) * DEG;
        e[i] = std::remainder(geometric - sign * seen[i].angle_deg, 360.0);
      }
      const double middle = median(e);
      for (double& v : e) v -= middle;
      best = std::min(best, inner_magnitude(e));
    }
  return best;
}

// Slope of geometric less recorded angles over roll, 0 when roll changes too little to tell.
double comp_roll_slope(const std::vector<Seen>& seen) {
  double best = 0, least = 1e300;
  for (const double sign : {1.0, -1.0}) {
    double n = 0, x = 0, y = 0, xx = 0, xy = 0, yy = 0;
    for (const Seen& s : seen) {
      const double roll = std::remainder(s.roll_deg, 360.0);
      const double e =
          std::remainder(std::asin(std::clamp(s.d.y, -1.0, 1.0)) * DEG - sign * s.angle_deg, 360.0);
      n++, x += roll, y += e, xx += roll * roll, xy += roll * e, yy += e * e;
    }
    const double var_x = xx / n - x / n * x / n, cov = xy / n - x / n * y / n, var_y = yy / n - y / n * y / n;
    if (var_x < MIN_ROLL * MIN_ROLL || var_y >= least) continue;
    least = var_y;
    best = cov / var_x;
  }
  return best;
}

struct Velocity {  // least squares slope of positions over time
  double n = 0, t = 0, tt = 0;
  dxyz p{0, 0, 0}, tp{0, 0, 0};
  void add(double time, const dxyz& v) {
    n++;
    t += time;
    tt += time * time;
    p += v;
    tp += v * time;
  }
  dxyz slope() const {
    const double det = n * tt - t * t;
    return det > 0 ? (tp * n - p * t) / det : dxyz{0, 0, 0};
  }
};
}  // namespace

ScanPattern comp_ScanPattern(const std::vector<Beam>& beams, double dt, bool angled, const Vector<PO>& po,
                             bool AREC, const SwRot& rot, const TrajChange& change) {
  ScanPattern r;
  if (beams.empty() || po.size() < 2) return r;
  const double po_dt = mean_dt_PO(po);
  const PO& middle = po[po.size() / 2];
  std::vector<Seen> seen;
  std::vector<double> beside;
  Velocity echo, track;
  double cos_yaw = 0, sin_yaw = 0;
  dxyz sum{0, 0, 0};
  TrajFrame frame;
  for (size_t i = 0; i < beams.size(); i++) {
    PO rec;
    const double t = beams[i].t + dt + change.late;
    if (!(AREC ? SafeInterpPO(po, t, po_dt, rec) : InterpPO(po, t, po_dt, rec))) {
      r.nmissing++;
      continue;
    }
    const xyz att = AREC ? xyz{middle.roll, middle.pitch, middle.yaw} : xyz{rec.roll, rec.pitch, rec.yaw};
    const dxyz at = {rec.x, rec.y, rec.z + change.low};
    const dxyz v = beams[i].P - at;
    const double range = norm(v);
    if (range < 1) continue;
    comp_TrajFrame(at, changed_attitude(att, change.angles), rot, frame);
    const xyz f = {static_cast<float>(v.x / range), static_cast<float>(v.y / range),
                   static_cast<float>(v.z / range)};
    const dxyz d = {dot(frame.u, f), dot(frame.v, f), dot(frame.w, f)};
    const double yaw = static_cast<double>(att.z) / DEG;
    const double right = v.x * std::cos(yaw) - v.y * std::sin(yaw);
    seen.push_back({d, std::asin(std::clamp(right / range, -1.0, 1.0)) * DEG, beams[i].angle_deg,
                    static_cast<double>(frame.Att.x)});
    beside.push_back(std::hypot(v.x, v.y));
    echo.add(beams[i].t - beams[0].t, beams[i].P - beams[0].P);
    track.add(beams[i].t - beams[0].t, at - beams[0].P);
    const double heading = static_cast<double>(frame.Att.z) / DEG;
    cos_yaw += std::cos(heading);
    sin_yaw += std::sin(heading);
    sum += d;
    r.range += range;
    r.AGL -= v.z;
  }
  r.n = static_cast<int>(seen.size());
  if (r.n < 10) return r;
  r.range /= r.n;
  r.AGL /= r.n;
  r.beside = median(beside);
  r.spread = comp_spread(seen);
  if (angled) {
    r.angle = comp_angle_fit(seen);
    r.roll_slope = comp_roll_slope(seen);
  }
  r.off_nadir = std::atan2(std::hypot(sum.x, sum.y), sum.z) * DEG;
  const dxyz vo = track.slope(), vp = echo.slope();
  r.speed = std::hypot(vo.x, vo.y);
  if (r.speed > MIN_SPEED)
    r.crab = std::fabs(std::remainder(std::atan2(sin_yaw, cos_yaw) - std::atan2(vo.x, vo.y), 2 * M_PI)) * DEG;
  r.v_mismatch = r.speed > 0 ? std::hypot(vp.x - vo.x, vp.y - vo.y) / r.speed : 0;
  return r;
}
}  // namespace veld
