#include "geo/georef.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iomanip>

#include "geo/crs_resolve.h"
#include "geo/wkt.h"
#include "lib/Geometry/angle.h"
#include "lib/general/log.h"

namespace veld {
namespace {
constexpr double SAME_PARALLEL_DEG = 1e-10 * DEG_PER_RAD;  // two parallels closer than this are one

std::string proj_key(const char* key, double value) {
  char text[64];
  std::snprintf(text, sizeof(text), " +%s=%.17g", key, value);
  return text;
}

// The operation in PROJ's words, with results in metres. South-orientated systems are turned by the caller.
std::string proj_definition(const GeoRefParam& g) {
  const std::string ellipsoid = proj_key("a", g.a) + proj_key("es", g.e2);
  const double m = g.unit_wkt;
  const std::string offset = proj_key("x_0", g.Eo * m) + proj_key("y_0", g.No * m);
  const bool one = std::fabs(g.lat1 - g.lat2) < SAME_PARALLEL_DEG;
  switch (g.kind) {
    case ProjKind::UTM:
      return "+proj=utm +zone=" + std::to_string(std::abs(g.Zone)) + (g.Zone < 0 ? " +south" : "") +
             ellipsoid;
    case ProjKind::TM:
      return "+proj=tmerc" + proj_key("lon_0", g.lcm) + proj_key("lat_0", g.lato) + proj_key("k_0", g.ko) +
             (g.south ? std::string() : offset) + ellipsoid;
    case ProjKind::LCC:
      return "+proj=lcc" + proj_key("lon_0", g.lcm) + proj_key("lat_0", g.lato) + proj_key("lat_1", g.lat1) +
             (g.SP2 && !one ? proj_key("lat_2", g.lat2) : std::string()) + proj_key("k_0", g.ko) + offset +
             ellipsoid;
    case ProjKind::AEAC:
      return "+proj=aea" + proj_key("lon_0", g.lono) + proj_key("lat_0", g.lato) + proj_key("lat_1", g.lat1) +
             proj_key("lat_2", one ? g.lat1 : g.lat2) + offset + ellipsoid;
    case ProjKind::HOM:
      return std::string("+proj=omerc") + (g.centre ? "" : " +no_uoff") + proj_key("lonc", g.lono) +
             proj_key("lat_0", g.lato) + proj_key("alpha", g.az) + proj_key("gamma", g.rga) +
             proj_key("k", g.ko) + offset + ellipsoid;
    case ProjKind::OS:
      return "+proj=sterea" + proj_key("lon_0", g.lono) + proj_key("lat_0", g.lato) + proj_key("k", g.ko) +
             offset + ellipsoid;
    case ProjKind::GEO:
      break;
  }
  return {};
}

// The projection must exist near its own origin.
bool works_at_origin(const GeoRefParam& g) {
  if (g.kind == ProjKind::GEO) return true;
  const bool meridian = g.kind == ProjKind::TM || g.kind == ProjKind::LCC;
  const double lon = g.kind == ProjKind::UTM ? 6 * std::abs(g.Zone) - 183 : meridian ? g.lcm : g.lono;
  double lat = g.kind == ProjKind::UTM ? 0 : g.lato;
  if (std::fabs(lat) > 89) lat = lat > 0 ? 89 : -89;
  GeoRefParam plain = g;  // without datum and geoid
  plain.samedat = true;
  plain.geoH = nullptr;
  dxyz p;
  return geo_forward(plain, lon, lat, 0, p);
}

// What text and keys have in common: datum, geoid, the operation. False after an ERROR line.
bool complete(GeoRefParam& g, bool same_datum, const std::string& geodir) {
  LOG_ENTER("GeoRefParam::init " << proj_word(g.kind) << " Zone=" << g.Zone << " unit=" << g.unit
                                 << " unit_z=" << g.unit_z << " geoid=" << g.geoid << " geoH=" << g.geoid_h
                                 << " name=" << g.name << " vertical=" << g.vertical);
  const bool wgs84 = g.a == WGS84_A && std::fabs(g.e2 - WGS84_E2) < 1e-12;
  bool shifted = false;
  for (const double p : g.H7) shifted = shifted || p != 0;
  g.samedat = same_datum || (wgs84 && !shifted);  // without seven parameters there is no step either
  if (wgs84)
    LOG_LINE("samedat=" << g.samedat << " DATUM WGS84");
  else
    LOG_LINE("samedat=" << g.samedat << " DATUM a=" << g.a << " e2=" << std::setprecision(14) << g.e2);
  if (g.Zone < -60 || g.Zone > 60) {
    ERROR_MSG("UTM zone " << g.Zone << " out of range 1 to 60");
    return false;
  }
  if (!g.geoid.empty()) {
    auto grid = std::make_shared<GeoidGrid>();
    if (!read_geoid(g.geoid, geodir, *grid)) return false;
    g.geoH = grid;
  }
  g.def = proj_definition(g);
  LOG_LINE("def=" << g.def);
  if (works_at_origin(g)) return true;
  ERROR_MSG(proj_word(g.kind) << " projection: inconsistent parameters");
  return false;
}
}  // namespace

const char* proj_word(ProjKind kind) {
  switch (kind) {
    case ProjKind::UTM:
      return "UTM";
    case ProjKind::TM:
      return "TM";
    case ProjKind::LCC:
      return "LCC";
    case ProjKind::AEAC:
      return "AEAC";
    case ProjKind::HOM:
      return "HOM";
    case ProjKind::OS:
      return "OS";
    case ProjKind::GEO:
      break;
  }
  return "GEO";
}

bool GeoRefParam::init(int zone, const std::string& text, double geoid_height, const std::string& geoid_name,
                       bool same_datum, const std::string& geodir) {
  *this = GeoRefParam();
  geoid_h = geoid_height;
  geoid = geoid_name;
  Zone = zone;
  const std::string string = zone == 0 ? wkt_normalise(text) : std::string();
  LOG_LINE("wkt.length()=" << string.length());
  if (zone != 0) {
    kind = ProjKind::UTM;
  } else if (!string.empty()) {
    std::string cause;
    wkt = true;
    if (is_plain_wkt(string)) {
      if (!scan_wkt(string, *this)) return false;
      name = get_WKT_name(text, "PROJCS");
      vertical = get_WKT_name(text, "VERT_CS");
      if (vertical.empty()) vertical = get_WKT_name(text, "VERTCS");
    } else if (!resolve_crs(text, *this, cause)) {
      ERROR_MSG("unsupported projection in WKT string (" << cause << ")");
      return false;
    }
  }
  return complete(*this, same_datum, geodir);
}

bool GeoRefParam::init(const GeoKeys& keys, double geoid_height, const std::string& geoid_name,
                       bool same_datum, const std::string& geodir) {
  *this = GeoRefParam();
  geoid_h = geoid_height;
  geoid = geoid_name;
  wkt = true;
  std::string cause;
  if (!resolve_geotiff(keys, *this, cause)) {
    ERROR_MSG("unsupported projection in GeoTIFF keys (" << cause << ")");
    return false;
  }
  return complete(*this, same_datum, geodir);
}
}  // namespace veld
