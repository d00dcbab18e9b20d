#include "prj/LiDAR/LmTQCsep/ground_cells.h"

#include <array>
#include <cmath>
#include <vector>

#include "lib/DataStructure/nodata.h"

namespace veld {
namespace {
constexpr int QUARTERS = 4, REFITS = 3;
constexpr float FIRST_TOLERANCE = 1.5f * GROUND_TOLERANCE;  // about a plane of four points only

struct Plane {
  float z = 0, zx = 0, zy = 0;
  float variance = 0;  // of z, in variances of a point
  float above(const xyz& p) const { return p.z - z - zx * p.x - zy * p.y; }
};

struct PlaneSums {
  float n = 0, x = 0, y = 0, z = 0, xx = 0, xy = 0, yy = 0, xz = 0, yz = 0;
  void add(const xyz& p) {
    n++, x += p.x, y += p.y, z += p.z;
    xx += p.x * p.x, xy += p.x * p.y, yy += p.y * p.y, xz += p.x * p.z, yz += p.y * p.z;
  }
  // False when the points do not span a plane.
  bool solve(Plane& to) const {
    const float mx = x / n, my = y / n, mz = z / n;
    const float a = xx - x * mx, b = xy - x * my, c = yy - y * my, u = xz - x * mz, v = yz - y * mz;
    const float det = a * c - b * b;
    if (!(det > 1e-3f * a * c)) return false;
    to.zx = (u * c - v * b) / det;
    to.zy = (v * a - u * b) / det;
    to.z = mz - to.zx * mx - to.zy * my;
    to.variance = 1 / n + (mx * mx * c - 2 * mx * my * b + my * my * a) / det;
    return true;
  }
};

int quarter(const xyz& p) { return (p.x > 0 ? 1 : 0) + (p.y > 0 ? 2 : 0); }

// The plane through the lowest point of each quarter. False when a quarter has none.
bool lowest_plane(const xyz* p, uint32_t n, Plane& plane) {
  std::array<const xyz*, QUARTERS> low{};
  for (uint32_t i = 0; i < n; i++) {
    const xyz*& q = low[static_cast<size_t>(quarter(p[i]))];
    if (!q || p[i].z < q->z) q = &p[i];
  }
  PlaneSums sums;
  for (const xyz* q : low) {
    if (!q) return false;
    sums.add(*q);
  }
  return sums.solve(plane);
}

// p: n points of a cell, relative to its centre and to a height close by.
bool open_ground(const xyz* p, uint32_t n, Plane& plane) {
  if (n < MIN_GROUND_POINTS || !lowest_plane(p, n, plane)) return false;
  for (int k = 0; k < REFITS; k++) {
    const float tolerance = k == 0 ? FIRST_TOLERANCE : GROUND_TOLERANCE;
    PlaneSums sums;
    for (uint32_t i = 0; i < n; i++)
      if (std::fabs(plane.above(p[i])) <= tolerance) sums.add(p[i]);
    if (sums.n < static_cast<float>(MIN_GROUND_POINTS) || !sums.solve(plane)) return false;
  }
  uint32_t on = 0, quarters = 0;
  for (uint32_t i = 0; i < n; i++) {
    const float r = plane.above(p[i]);
    if (r < -GROUND_TOLERANCE) return false;
    if (r > GROUND_TOLERANCE) continue;
    on++;
    quarters |= 1u << quarter(p[i]);
  }
  return on >= MIN_GROUND_POINTS && static_cast<float>(on) >= GROUND_SHARE * static_cast<float>(n) &&
         quarters == (1u << QUARTERS) - 1 && plane.variance <= MAX_GROUND_VARIANCE &&
         std::hypot(plane.zx, plane.zy) < MAX_SLOPE;
}
}  // namespace

void ground_cells(const Vector<xyz>& P, uint64_t np, int side, float cell, Image<float>& Z) {
  Z.resize(side, side, NODATA);
  // Points sorted by cell: counts, then places.
  const auto cell_of = [&](const xyz& p) {
    const int x = static_cast<int>(std::floor(p.x / cell)), y = static_cast<int>(std::floor(p.y / cell));
    return x < 0 || y < 0 || x >= side || y >= side ? -1 : y * side + x;
  };
  std::vector<uint32_t> first(static_cast<size_t>(side) * static_cast<size_t>(side) + 1, 0);
  for (uint64_t i = 0; i < np; i++)
    if (const int c = cell_of(P[i]); c >= 0) first[static_cast<size_t>(c) + 1]++;
  for (size_t c = 1; c < first.size(); c++) first[c] += first[c - 1];
  std::vector<xyz> sorted(first.back());
  std::vector<uint32_t> place(first.begin(), first.end() - 1);
  for (uint64_t i = 0; i < np; i++)
    if (const int c = cell_of(P[i]); c >= 0) sorted[place[static_cast<size_t>(c)]++] = P[i];
  for (int y = 0; y < side; y++)
    for (int x = 0; x < side; x++) {
      const auto c = static_cast<size_t>(y) * static_cast<size_t>(side) + static_cast<size_t>(x);
      const uint32_t n = first[c + 1] - first[c];
      if (n < MIN_GROUND_POINTS) continue;
      xyz* const p = &sorted[first[c]];
      const xyz centre = {(static_cast<float>(x) + 0.5f) * cell, (static_cast<float>(y) + 0.5f) * cell, p->z};
      for (uint32_t i = 0; i < n; i++) p[i] -= centre;
      Plane plane;
      if (open_ground(p, n, plane)) Z.row(y)[x] = plane.z + centre.z;
    }
}
}  // namespace veld
