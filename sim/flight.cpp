#include "sim/flight.h"

#include <algorithm>
#include <cmath>

#include "lib/Geometry/angle.h"
#include "sim/simrand.h"

namespace veld {
dxyz apply(const Mat3& m, const dxyz& v) { return {dot(m.r[0], v), dot(m.r[1], v), dot(m.r[2], v)}; }

Mat3 product(const Mat3& a, const Mat3& b) {
  Mat3 c;
  for (dxyz* row = c.r; row != c.r + 3; row++) {
    const dxyz& ar = a.r[row - c.r];
    *row = ar.x * b.r[0] + ar.y * b.r[1] + ar.z * b.r[2];
  }
  return c;
}

Mat3 rotation_xyz(double rx, double ry, double rz) {
  const Mat3 x{{{1, 0, 0}, {0, std::cos(rx), -std::sin(rx)}, {0, std::sin(rx), std::cos(rx)}}};
  const Mat3 y{{{std::cos(ry), 0, std::sin(ry)}, {0, 1, 0}, {-std::sin(ry), 0, std::cos(ry)}}};
  const Mat3 z{{{std::cos(rz), -std::sin(rz), 0}, {std::sin(rz), std::cos(rz), 0}, {0, 0, 1}}};
  return product(z, product(y, x));
}

Mat3 body_to_world(double roll, double pitch, double heading) {
  const Mat3 ned_to_enu{{{0, 1, 0}, {1, 0, 0}, {0, 0, -1}}};
  return product(ned_to_enu, rotation_xyz(roll, pitch, heading));
}

namespace {
// Sum of sinusoids with hashed phases, each of amplitude amp[k] and period[k] seconds.
double wobble(uint64_t seed, uint64_t channel, double t, const double (&amp)[3], const double (&period)[3]) {
  double sum = 0;
  for (int k = 0; k < 3; k++)
    sum += amp[k] * std::sin(2 * M_PI * (t / period[k] + sim_cell(seed, k, 0, channel)));
  return sum;
}

Pose line_pose(const FlightPlan& plan, const FlightLine& line, double t) {
  const double s = plan.speed * (t - 0.5 * (line.t0 + line.t1));
  const double m = plan.motion, deg = RAD_PER_DEG;
  const double across = m * wobble(plan.seed, 100, t, {0.9, 0.3, 0.05}, {23, 9.1, 3.7});
  const double up = m * wobble(plan.seed, 101, t, {0.7, 0.25, 0.04}, {19, 7.3, 2.9});
  const double sh = std::sin(line.heading), ch = std::cos(line.heading);
  Pose pose;
  pose.p = {line.x + s * sh + across * ch, line.y + s * ch - across * sh, line.z + up};
  pose.roll = m * deg * wobble(plan.seed, 102, t, {1.3, 0.6, 0.12}, {12.7, 4.9, 1.3});
  pose.pitch = m * deg * (1.1 + wobble(plan.seed, 103, t, {0.9, 0.4, 0.10}, {14.3, 5.7, 1.7}));
  pose.heading = line.heading + m * deg * wobble(plan.seed, 104, t, {1.7, 0.6, 0.10}, {17.9, 6.7, 2.3});
  return pose;
}

double turn_by(double from, double to) { return std::remainder(to - from, 2 * M_PI); }

// Smooth turn between two lines: a cubic in position, a smooth step in the angles.
Pose turn_pose(const FlightPlan& plan, const FlightLine& a, const FlightLine& b, double t) {
  const double T = b.t0 - a.t1, f = (t - a.t1) / T, h = 0.001;
  const Pose p = line_pose(plan, a, a.t1), q = line_pose(plan, b, b.t0);
  const dxyz vp = (p.p - line_pose(plan, a, a.t1 - h).p) / h, vq = (line_pose(plan, b, b.t0 + h).p - q.p) / h;
  const double f2 = f * f, f3 = f2 * f;
  Pose pose;
  pose.p = p.p * (2 * f3 - 3 * f2 + 1) + vp * (T * (f3 - 2 * f2 + f)) + q.p * (3 * f2 - 2 * f3) +
           vq * (T * (f3 - f2));
  const double g = f3 * (10 - 15 * f + 6 * f2);
  pose.roll = p.roll + g * (q.roll - p.roll);
  pose.pitch = p.pitch + g * (q.pitch - p.pitch);
  pose.heading = p.heading + g * turn_by(p.heading, q.heading);
  return pose;
}
}  // namespace

Pose true_pose(const FlightPlan& plan, double t) {
  for (size_t i = 0; i < plan.lines.size(); i++) {
    const FlightLine& line = plan.lines[i];
    if (t < line.t0) return i == 0 ? line_pose(plan, line, t) : turn_pose(plan, plan.lines[i - 1], line, t);
    if (t <= line.t1) return line_pose(plan, line, t);
  }
  return line_pose(plan, plan.lines.back(), t);
}

double drift_factor(const DriftModel& model, double t) {
  const double step = 0.5 * model.tau;
  const double inside = std::min(t - model.t_bad0, model.t_bad1 - t) / step + 1;
  const double f = std::clamp(inside, 0.0, 1.0);
  return 1 + (model.worse - 1) * f * f * (3 - 2 * f);
}

Drift drift_at(const DriftModel& model, double t) {
  constexpr int N = 12;  // sinusoids: enough for a process that is near to normal
  double v[6];
  for (int c = 0; c < 6; c++) {
    double sum = 0;
    for (int k = 0; k < N; k++) {
      // Frequencies spread over half a normal curve of width 1/(2 pi tau), by its stratified quantiles.
      const double u = (k + sim_cell(model.seed, k, c, 200)) / N;
      const double f = 1.6 * std::tan(0.45 * M_PI * u) / (2 * M_PI * model.tau);
      sum += std::sin(2 * M_PI * (std::min(f, 1 / model.tau) * t + sim_cell(model.seed, k, c, 201)));
    }
    v[c] = sum * std::sqrt(2.0 / N) * drift_factor(model, t);
  }
  return {{model.pos_sd.x * v[0], model.pos_sd.y * v[1], model.pos_sd.z * v[2]},
          {model.att_sd.x * v[3], model.att_sd.y * v[4], model.att_sd.z * v[5]}};
}

Pose recorded_pose(const FlightPlan& plan, const DriftModel& drift, double t) {
  Pose pose = true_pose(plan, t);
  const Drift d = drift_at(drift, t);
  pose.p += d.pos;
  pose.roll += d.att.x;
  pose.pitch += d.att.y;
  pose.heading += d.att.z;
  return pose;
}

void utm_inverse(int zone, double east, double north, double& lat, double& lon, double& convergence) {
  constexpr double a = 6378137.0, finv = 298.257223563, k0 = 0.9996;
  constexpr double n = 1 / (2 * finv - 1), n2 = n * n, n3 = n2 * n, n4 = n3 * n;
  constexpr double A = a / (1 + n) * (1 + n2 / 4 + n4 / 64);
  const double beta[4] = {n / 2 - 2 * n2 / 3 + 37 * n3 / 96 - n4 / 360, n2 / 48 + n3 / 15 - 437 * n4 / 1440,
                          17 * n3 / 480 - 37 * n4 / 840, 4397 * n4 / 161280};
  const double delta[4] = {2 * n - 2 * n2 / 3 - 2 * n3 + 116 * n4 / 45,
                           7 * n2 / 3 - 8 * n3 / 5 - 227 * n4 / 45, 56 * n3 / 15 - 136 * n4 / 35,
                           4279 * n4 / 630};
  if (zone < 0) {
    zone = -zone;
    north -= 1e7;
  }
  const auto inverse = [&](double e, double m, double& phi, double& lambda) {
    const double xi = m / (k0 * A), eta = (e - 500000) / (k0 * A);
    double xi1 = xi, eta1 = eta;
    for (int j = 1; j <= 4; j++) {
      xi1 -= beta[j - 1] * std::sin(2 * j * xi) * std::cosh(2 * j * eta);
      eta1 -= beta[j - 1] * std::cos(2 * j * xi) * std::sinh(2 * j * eta);
    }
    const double chi = std::asin(std::sin(xi1) / std::cosh(eta1));
    phi = chi;
    for (int j = 1; j <= 4; j++) phi += delta[j - 1] * std::sin(2 * j * chi);
    lambda = (6 * zone - 183) * M_PI / 180 + std::atan2(std::sinh(eta1), std::cos(xi1));
  };
  inverse(east, north, lat, lon);
  // Grid north seen from true north: a step north in the grid, as distances along the meridian and the
  // parallel.
  double lat1, lon1;
  const double step = 10;
  inverse(east, north + step, lat1, lon1);
  constexpr double e2 = (2 - 1 / finv) / finv;
  const double w2 = 1 - e2 * std::sin(lat) * std::sin(lat);
  const double dn = (lat1 - lat) * a * (1 - e2) / (w2 * std::sqrt(w2));
  const double de = (lon1 - lon) * a / std::sqrt(w2) * std::cos(lat);
  convergence = std::atan2(de, dn);
}
}  // namespace veld
