// Conversion of positions; the projection formulas are PROJ's.
#include <proj.h>

#include <cmath>
#include <memory>

#include "geo/georef.h"

namespace veld {
namespace {
constexpr double RAD = 0.01745329251994;  // radians per degree

struct ContextEnd {
  void operator()(PJ_CONTEXT* context) const { proj_context_destroy(context); }
};
struct OperationEnd {
  void operator()(PJ* operation) const { proj_destroy(operation); }
};
void no_log(void*, int, const char*) {}

// PROJ's objects of one thread: the operation used last. A run has one projection, so one entry is enough.
struct ThreadOperation {
  std::unique_ptr<PJ_CONTEXT, ContextEnd> context;
  std::unique_ptr<PJ, OperationEnd> operation;
  std::string def;

  PJ* get(const std::string& wanted) {
    if (def == wanted) return operation.get();
    if (!context) {
      context.reset(proj_context_create());
      if (!context) return nullptr;
      proj_log_func(context.get(), nullptr, no_log);
      proj_context_set_enable_network(context.get(), 0);
    }
    operation.reset(proj_create(context.get(), wanted.c_str()));
    def = wanted;
    return operation.get();
  }
};

PJ* thread_operation(const GeoRefParam& g) {
  static thread_local ThreadOperation mine;
  return mine.get(g.def);
}

// Radians to metres; the operation carries the false origin, but for south-orientated systems.
bool plane(PJ* operation, const GeoRefParam& g, double lon, double lat, double& x, double& y) {
  const PJ_COORD in = proj_coord(lon, lat, 0, 0);
  const PJ_COORD out = proj_trans(operation, PJ_FWD, in);
  if (!std::isfinite(out.xy.x) || !std::isfinite(out.xy.y)) {
    proj_errno_reset(operation);
    return false;
  }
  x = g.south ? g.Eo * g.unit_wkt - out.xy.x : out.xy.x;
  y = g.south ? g.No * g.unit_wkt - out.xy.y : out.xy.y;
  return true;
}
}  // namespace

bool geo_forward(const GeoRefParam& g, double lon, double lat, double h, dxyz& p) {
  double north = 0;
  if (g.kind == ProjKind::GEO) return geo_forward_north(g, lon, lat, h, p, north);
  if (!(std::fabs(lat) <= 90) || !std::isfinite(lon)) return false;
  PJ* operation = thread_operation(g);
  double x = 0, y = 0;
  if (!operation || !plane(operation, g, lon * RAD, lat * RAD, x, y)) return false;
  p = {x / g.unit, y / g.unit, (h - g.geoid_h) / g.unit_z};
  return true;
}

bool geo_forward_north(const GeoRefParam& g, double lon, double lat, double h, dxyz& p, double& north_deg) {
  if (!(std::fabs(lat) <= 90) || !std::isfinite(lon)) return false;
  if (g.kind == ProjKind::GEO) {
    p = {lon, lat, h - g.geoid_h};
    north_deg = 0;
    return true;
  }
  PJ* operation = thread_operation(g);
  // A step of some 11 m along the meridian: long enough for the digits, short enough to be straight.
  const double step = lat > 89.9 ? -1e-4 : 1e-4;
  double x = 0, y = 0, xn = 0, yn = 0;
  if (!operation || !plane(operation, g, lon * RAD, lat * RAD, x, y) ||
      !plane(operation, g, lon * RAD, (lat + step) * RAD, xn, yn))
    return false;
  p = {x / g.unit, y / g.unit, (h - g.geoid_h) / g.unit_z};
  north_deg = step > 0 ? std::atan2(xn - x, yn - y) / RAD : std::atan2(x - xn, y - yn) / RAD;
  return true;
}

bool geo_inverse(const GeoRefParam& g, const dxyz& p, double& lon, double& lat, double& h) {
  if (g.kind == ProjKind::GEO) {
    lon = p.x, lat = p.y, h = p.z + g.geoid_h;
    return true;
  }
  PJ* operation = thread_operation(g);
  if (!operation) return false;
  double x = p.x * g.unit, y = p.y * g.unit;
  if (g.south) {
    x = g.Eo * g.unit_wkt - x;
    y = g.No * g.unit_wkt - y;
  }
  const PJ_COORD out = proj_trans(operation, PJ_INV, proj_coord(x, y, 0, 0));
  if (!std::isfinite(out.lp.lam) || !std::isfinite(out.lp.phi)) {
    proj_errno_reset(operation);
    return false;
  }
  lon = out.lp.lam / RAD;
  lat = out.lp.phi / RAD;
  h = p.z * g.unit_z + g.geoid_h;
  return true;
}

dxyz geodetic_to_ecef(double lon, double lat, double h) {
  const double sin_lat = std::sin(lat * RAD), cos_lat = std::cos(lat * RAD);
  const double nu = WGS84_A / std::sqrt(1 - WGS84_E2 * sin_lat * sin_lat);
  return {(nu + h) * cos_lat * std::cos(lon * RAD), (nu + h) * cos_lat * std::sin(lon * RAD),
          (nu * (1 - WGS84_E2) + h) * sin_lat};
}

void ecef_to_geodetic(const dxyz& p, double& lon, double& lat, double& h) {
  constexpr double b = 6356752.3142;
  constexpr double e2b = (WGS84_A * WGS84_A - b * b) / (b * b);  // second eccentricity squared
  const double r = std::hypot(p.x, p.y);
  double u = std::atan2(p.z * WGS84_A, r * b);  // parametric latitude
  double phi = 0;
  for (int i = 0; i < 2; i++) {
    const double su = std::sin(u), cu = std::cos(u);
    phi = std::atan2(p.z + e2b * b * su * su * su, r - WGS84_E2 * WGS84_A * cu * cu * cu);
    u = std::atan2(b * std::sin(phi), WGS84_A * std::cos(phi));
  }
  const double s = std::sin(phi), c = std::cos(phi);
  h = r * c + p.z * s - WGS84_A * std::sqrt(1 - WGS84_E2 * s * s);
  lon = std::atan2(p.y, p.x) / RAD;
  lat = phi / RAD;
}
}  // namespace veld
