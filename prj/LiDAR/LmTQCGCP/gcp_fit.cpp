#include "prj/LiDAR/LmTQCGCP/gcp_fit.h"

#include <algorithm>
#include <cmath>

namespace veld {
namespace {
constexpr double OUT_SCALE = 3.5;     // residuals beyond this many robust deviations are no ground
constexpr double SCALE_MIN = 0.01;    // m, least deviation that the points are judged by
constexpr double DENSITY_MIN = 0.25;  // points per kernel unit, as for a grid
constexpr double ZVAR_MAX = 4;        // largest variance factor of the height, as for a grid
constexpr double NEFF_MIN = 4;        // effective number of points that a plane and its scatter need
constexpr int ROUNDS = 10;

// The kernel of the grids: 0.75 times the cubic B-spline at 0.75 d.
double kernel(double d) {
  const double u = 0.75 * std::fabs(d);
  if (u >= 2) return 0;
  return u < 1 ? 0.5 + 0.125 * u * u * (3 * u - 6) : (2 - u) * (2 - u) * (2 - u) / 8;
}

struct Sample {
  double dx, dy, z, w;  // from the place, kernel units; m; weight
  double r = 0;         // residual, m
  uint64_t i = 0;       // point
  bool in = true;
};

struct Plane {
  double z = 0, bx = 0, by = 0;  // m, per kernel unit
  double S0 = 0, S2 = 0, R = 0;  // sums of weights, of their squares, of weighted squared residuals
  double var = 0;                // variance of z in units of that of a point
  bool ok = false;
};

Plane fit_plane(std::vector<Sample>& s) {
  Plane f;
  double Sx = 0, Sy = 0, Sz = 0, Sxx = 0, Syy = 0, Sxy = 0, Sxz = 0, Syz = 0;
  for (const Sample& p : s) {
    if (!p.in) continue;
    f.S0 += p.w, f.S2 += p.w * p.w;
    Sx += p.w * p.dx, Sy += p.w * p.dy, Sz += p.w * p.z;
    Sxx += p.w * p.dx * p.dx, Syy += p.w * p.dy * p.dy, Sxy += p.w * p.dx * p.dy;
    Sxz += p.w * p.dx * p.z, Syz += p.w * p.dy * p.z;
  }
  const double D = Sxx * Syy - Sxy * Sxy, A = Sxy * Sy - Syy * Sx, B = Sxy * Sx - Sxx * Sy;
  const double det = B * Sy + A * Sx + D * f.S0;
  if (!(f.S0 > DENSITY_MIN && D > 0 && det > 0 && ZVAR_MAX * det > D)) return f;
  const double C = Sy * Sx - Sxy * f.S0;
  f.z = (B * Syz + A * Sxz + D * Sz) / det;
  f.bx = (C * Syz + (Syy * f.S0 - Sy * Sy) * Sxz + A * Sz) / det;
  f.by = ((Sxx * f.S0 - Sx * Sx) * Syz + C * Sxz + B * Sz) / det;
  for (Sample& p : s) {
    p.r = p.z - (f.z + f.bx * p.dx + f.by * p.dy);
    if (!p.in) continue;
    f.R += p.w * p.r * p.r;
    const double g = p.w * (D + A * p.dx + B * p.dy) / det;  // what the point adds to z, per metre
    f.var += g * g;
  }
  f.ok = true;
  return f;
}

// Leaves out what is far from the plane. The deviation is the median of all points within the kernel, whatever their
// weight: a plane follows its heaviest points. False when nothing changed.
bool choose_ground(std::vector<Sample>& s) {
  std::vector<double> r;
  for (const Sample& p : s) r.push_back(std::fabs(p.r));
  const auto middle = r.begin() + static_cast<std::ptrdiff_t>(r.size() / 2);
  std::nth_element(r.begin(), middle, r.end());
  const double limit = OUT_SCALE * std::max(1.4826 * *middle, SCALE_MIN);
  bool changed = false;
  for (Sample& p : s) {
    const bool in = std::fabs(p.r) <= limit;
    changed = changed || in != p.in;
    p.in = in;
  }
  return changed;
}

// Whether the place lies among the points: no half plane without any.
bool is_surrounded(const std::vector<Sample>& s) {
  constexpr double PI = 3.14159265358979323846;
  std::vector<double> angle;
  for (const Sample& p : s)
    if (p.in && (p.dx != 0 || p.dy != 0)) angle.push_back(std::atan2(p.dy, p.dx));
  if (angle.size() < 3) return false;
  std::sort(angle.begin(), angle.end());
  double gap = angle.front() + 2 * PI - angle.back();
  for (size_t i = 1; i < angle.size(); i++) gap = std::max(gap, angle[i] - angle[i - 1]);
  return gap < PI;
}
}  // namespace

GCPfit comp_GCP_fit(const xyz* p, uint64_t n, double x, double y, double h, std::vector<uint8_t>& in) {
  GCPfit fit;
  in.assign(n, 0);
  std::vector<Sample> s;
  double z0 = 0;  // heights are taken from it, for the sake of digits
  for (uint64_t i = 0; i < n; i++) {
    const double dx = (static_cast<double>(p[i].x) - x) / h, dy = (static_cast<double>(p[i].y) - y) / h;
    const double w = kernel(dx) * kernel(dy);
    if (w <= 0) continue;
    if (s.empty()) z0 = static_cast<double>(p[i].z);
    s.push_back({dx, dy, static_cast<double>(p[i].z) - z0, w, 0, i});
  }
  fit.npts = static_cast<int>(s.size());
  Plane plane;
  for (int round = 0; round < ROUNDS; round++) {
    plane = fit_plane(s);
    if (!plane.ok || !choose_ground(s)) break;
  }
  if (plane.ok) plane = fit_plane(s);
  for (const Sample& q : s) fit.nin += q.in;
  fit.density = plane.S0 / (h * h);
  if (!plane.ok) return fit;
  fit.z = z0 + plane.z;
  fit.slope_x = plane.bx / h;
  fit.slope_y = plane.by / h;
  fit.roughness = std::sqrt(plane.R / plane.S0);
  const double neff = plane.S0 * plane.S0 / plane.S2;
  if (neff < NEFF_MIN || !is_surrounded(s)) return fit;
  const double sigma2 = plane.R / plane.S0 * neff / (neff - 3);
  fit.unc = std::sqrt(plane.var * sigma2);
  fit.ok = true;
  for (const Sample& q : s) in[q.i] = q.in;
  return fit;
}
}  // namespace veld
