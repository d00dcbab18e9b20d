#include "prj/LiDAR/VR2geom/grid_shape.h"

#include <cmath>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"

namespace veld {
GridShape comp_GridShape(const GeoRefParam& g, const dxyz& place) {
  constexpr double STEP = 1e-3;  // degrees, some 100 m: long for the digits, short for changes of the scale
  GridShape shape;
  double lon = 0, lat = 0, h = 0;
  dxyz east, west, north, south;
  if (g.kind == ProjKind::GEO ||
      !geo_inverse(g, {place.x / g.unit, place.y / g.unit, place.z / g.unit_z}, lon, lat, h) ||
      !geo_forward(g, lon + STEP, lat, h, east) || !geo_forward(g, lon - STEP, lat, h, west) ||
      !geo_forward(g, lon, lat + STEP, h, north) || !geo_forward(g, lon, lat - STEP, h, south))
    return shape;
  // Radii of curvature along the parallel and the meridian.
  const double s = std::sin(lat / DEG_PER_RAD), w2 = 1 - g.e2 * s * s;
  const double N = g.a / std::sqrt(w2), M = N * (1 - g.e2) / w2;
  const double dE = 2 * STEP / DEG_PER_RAD * N * std::cos(lat / DEG_PER_RAD), dN = 2 * STEP / DEG_PER_RAD * M;
  const double a[4] = {(east.x - west.x) * g.unit / dE, (north.x - south.x) * g.unit / dN,
                       (east.y - west.y) * g.unit / dE, (north.y - south.y) * g.unit / dN};
  // Attitudes count from where the grid has north, so the axes are those of the ground turned by that much.
  const double turn = std::atan2(a[1], a[3]), c = std::cos(turn), d = std::sin(turn);
  const double m[4] = {a[0] * c + a[1] * d, a[1] * c - a[0] * d, a[2] * c + a[3] * d, a[3] * c - a[2] * d};
  const double det = m[0] * m[3] - m[1] * m[2];
  if (!std::isfinite(det) || std::fabs(det) < 0.1) return shape;
  const double inverse[4] = {m[3] / det, -m[1] / det, -m[2] / det, m[0] / det};
  for (int k = 0; k < 4; k++) {
    shape.grid[k] = static_cast<float>(m[k]);
    shape.ground[k] = static_cast<float>(inverse[k]);
  }
  shape.curvature = static_cast<float>(1 / std::sqrt(M * N));
  shape.flat = false;
  LOG_LINE("comp_GridShape " << m[0] << ' ' << m[1] << ' ' << m[2] << ' ' << m[3]
                             << " R=" << std::sqrt(M * N));
  return shape;
}
}  // namespace veld
