#include "geo/datum.h"

#include <cmath>

namespace veld {
namespace {
constexpr double RAD = 0.01745329251994;              // radians per degree
constexpr double ARCSEC = 3.14159265358979 / 648000;  // radians

struct Linear {  // p -> scale (p + r x p)
  dxyz r;        // radians
  double scale;
};
Linear linear_part(const double H7[7]) {
  return {{H7[3] * ARCSEC, H7[4] * ARCSEC, H7[5] * ARCSEC}, 1 + H7[6] * 1e-6};
}
}  // namespace

dxyz geodetic_to_ecef(double lon, double lat, double h, const Spheroid& s) {
  const double sin_lat = std::sin(lat * RAD), cos_lat = std::cos(lat * RAD);
  const double nu = s.a / std::sqrt(1 - s.e2 * sin_lat * sin_lat);
  return {(nu + h) * cos_lat * std::cos(lon * RAD), (nu + h) * cos_lat * std::sin(lon * RAD),
          (nu * (1 - s.e2) + h) * sin_lat};
}

void ecef_to_geodetic(const dxyz& p, double& lon, double& lat, double& h, const Spheroid& s) {
  const double b = s.a * std::sqrt(1 - s.e2);
  const double e2b = s.e2 / (1 - s.e2);  // second eccentricity squared
  const double r = std::hypot(p.x, p.y);
  double u = std::atan2(p.z * s.a, r * b);  // parametric latitude
  double phi = 0;
  for (int i = 0; i < 2; i++) {
    const double su = std::sin(u), cu = std::cos(u);
    phi = std::atan2(p.z + e2b * b * su * su * su, r - s.e2 * s.a * cu * cu * cu);
    u = std::atan2(b * std::sin(phi), s.a * std::cos(phi));
  }
  const double sp = std::sin(phi), cp = std::cos(phi);
  h = r * cp + p.z * sp - s.a * std::sqrt(1 - s.e2 * sp * sp);
  lon = std::atan2(p.y, p.x) / RAD;
  lat = phi / RAD;
}

dxyz helmert_to_wgs84(const double H7[7], const dxyz& p) {
  const Linear m = linear_part(H7);
  const dxyz turned = p + cross(m.r, p);
  return {H7[0] + m.scale * turned.x, H7[1] + m.scale * turned.y, H7[2] + m.scale * turned.z};
}

// (I + [r]) q = w has the solution q = (w - r x w + r (r . w)) / (1 + r . r).
dxyz helmert_from_wgs84(const double H7[7], const dxyz& p) {
  const Linear m = linear_part(H7);
  const dxyz w = dxyz{p.x - H7[0], p.y - H7[1], p.z - H7[2]} / m.scale;
  return (w - cross(m.r, w) + m.r * dot(m.r, w)) / (1 + dot(m.r, m.r));
}
}  // namespace veld
