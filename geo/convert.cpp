// Conversion of positions; the projection formulas are PROJ's.
#include <cmath>
#include <string>

#include "geo/georef.h"
#include "geo/proj_internal.h"

namespace veld {
namespace {
constexpr double RAD = 0.01745329251994;  // radians per degree

void no_log(void*, int, const char*) {}

// A run has one projection, so one operation a thread is enough.
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
struct Place {
  double lon, lat, h;  // degrees, m
};

// From the trajectory's datum to that of the points, and back.
Place to_local(const GeoRefParam& g, Place p) {
  if (g.samedat || !g.hasH7) return p;
  const dxyz local = helmert_from_wgs84(g.H7, geodetic_to_ecef(p.lon, p.lat, p.h));
  ecef_to_geodetic(local, p.lon, p.lat, p.h, {g.a, g.e2});
  return p;
}
Place to_wgs84(const GeoRefParam& g, Place p) {
  if (g.samedat || !g.hasH7) return p;
  const dxyz wgs84 = helmert_to_wgs84(g.H7, geodetic_to_ecef(p.lon, p.lat, p.h, {g.a, g.e2}));
  ecef_to_geodetic(wgs84, p.lon, p.lat, p.h);
  return p;
}

// Height of the geoid at a place of the trajectory's datum. False outside the grid.
bool geoid_at(const GeoRefParam& g, double lon, double lat, double& height) {
  height = 0;
  if (g.geoH && !geoid_height(*g.geoH, lon, lat, height)) return false;
  height += g.geoid_h;
  return true;
}

// A geodetic place to projected metres; the direction of true north when asked for.
bool project(const GeoRefParam& g, const Place& from, dxyz& p, double* north_deg) {
  PJ* operation = thread_operation(g);
  const Place at = to_local(g, from);
  double x = 0, y = 0;
  if (!operation || !plane(operation, g, at.lon * RAD, at.lat * RAD, x, y)) return false;
  p = {x, y, at.h};
  if (!north_deg) return true;
  // A step of some 11 m along the meridian: long enough for the digits, short enough to be straight.
  const double step = from.lat > 89.9 ? -1e-4 : 1e-4;
  const Place north = to_local(g, {from.lon, from.lat + step, from.h});
  double xn = 0, yn = 0;
  if (!plane(operation, g, north.lon * RAD, north.lat * RAD, xn, yn)) return false;
  *north_deg = step > 0 ? std::atan2(xn - x, yn - y) / RAD : std::atan2(x - xn, y - yn) / RAD;
  return true;
}

bool forward(const GeoRefParam& g, const Place& from, dxyz& p, double* north_deg) {
  double geoid = 0;
  if (!(std::fabs(from.lat) <= 90) || !std::isfinite(from.lon) || !geoid_at(g, from.lon, from.lat, geoid))
    return false;
  if (north_deg) *north_deg = 0;
  if (g.kind == ProjKind::GEO) {
    p = {from.lon, from.lat, from.h - geoid};
    return true;
  }
  dxyz metres;
  if (!project(g, from, metres, north_deg)) return false;
  p = {metres.x / g.unit, metres.y / g.unit, (g.orthometric() ? from.h - geoid : metres.z) / g.unit_z};
  return true;
}
}  // namespace

ProjContext make_proj_context() {
  ProjContext context(proj_context_create());
  if (!context) return context;
  proj_log_func(context.get(), nullptr, no_log);
  proj_context_set_enable_network(context.get(), 0);
  return context;
}

PJ* ThreadOperation::get(const std::string& wanted) {
  if (operation && def == wanted) return operation.get();
  if (!context) context = make_proj_context();
  if (!context) return nullptr;
  operation.reset(proj_create(context.get(), wanted.c_str()));
  def = wanted;
  return operation.get();
}

bool geo_forward(const GeoRefParam& g, double lon, double lat, double h, dxyz& p) {
  return forward(g, {lon, lat, h}, p, nullptr);
}

bool geo_forward_north(const GeoRefParam& g, double lon, double lat, double h, dxyz& p, double& north_deg) {
  return forward(g, {lon, lat, h}, p, &north_deg);
}

bool geo_inverse(const GeoRefParam& g, const dxyz& p, double& lon, double& lat, double& h) {
  Place at = {p.x, p.y, p.z * g.unit_z};
  if (g.kind != ProjKind::GEO) {
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
    at.lon = out.lp.lam / RAD;
    at.lat = out.lp.phi / RAD;
  }
  Place wgs84 = to_wgs84(g, at);
  double geoid = 0;
  if (!geoid_at(g, wgs84.lon, wgs84.lat, geoid)) return false;
  if (g.orthometric()) {  // the height on the local spheroid follows from that above the geoid
    const double h_wgs84 = p.z * g.unit_z + geoid;
    wgs84 = to_wgs84(g, {at.lon, at.lat, at.h + h_wgs84 - wgs84.h});
    wgs84.h = h_wgs84;
  }
  lon = wgs84.lon;
  lat = wgs84.lat;
  h = wgs84.h;
  return true;
}

bool same_system(const GeoRefParam& a, const GeoRefParam& b, const dxyz& place) {
  if (a.unit_z != b.unit_z || a.unit != b.unit || (a.kind == ProjKind::GEO) != (b.kind == ProjKind::GEO))
    return false;
  const double side = 1000 / a.unit;  // a place alone may be common to two systems
  for (const double dx : {-side, side}) {
    const dxyz p = {place.x + dx, place.y + dx, place.z};
    double lon = 0, lat = 0, h = 0;
    dxyz q;
    if (!geo_inverse(a, p, lon, lat, h) || !geo_forward(b, lon, lat, h, q)) return false;
    if (std::hypot(q.x - p.x, q.y - p.y) * a.unit > 0.01) return false;
  }
  return true;
}
}  // namespace veld
