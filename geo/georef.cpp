#include "geo/georef.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iomanip>

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

bool parse_projection(const std::string& wkt, GeoRefParam& g) {
  if (!get_WKT_projection(wkt, g)) {
    ERROR_MSG("unsupported projection in WKT string");
    return false;
  }
  bool ok = false;
  switch (g.kind) {
    case ProjKind::TM:
      ok = parse_WKT_TM(wkt, g);
      break;
    case ProjKind::LCC:
      ok = parse_WKT_LCC(wkt, g);
      break;
    case ProjKind::AEAC:
      ok = parse_WKT_AEAC(wkt, g);
      break;
    case ProjKind::HOM:
      ok = parse_WKT_HOM(wkt, g);
      break;
    case ProjKind::OS:
      ok = parse_WKT_OS(wkt, g);
      break;
    default:
      break;
  }
  if (!ok) ERROR_MSG(proj_word(g.kind) << " projection: WKT string parse error");
  return ok;
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
                       bool same_datum) {
  *this = GeoRefParam();
  geoid_h = geoid_height;
  geoid = geoid_name;
  Zone = zone;
  const std::string string = zone == 0 ? wkt_normalise(text) : std::string();
  if (zone != 0) {
    kind = ProjKind::UTM;
  } else if (!string.empty()) {
    wkt = true;
    if (!get_WKT_unit(string, unit) || !get_WKT_height_unit(string, unit, unit_z)) return false;
    unit_wkt = unit;
    if (!parse_projection(string, *this)) return false;
    get_WKT_spheroid(string, a, e2);
    hasH7 = get_WKT_TOWGS84(string, H7);
  }
  LOG_ENTER("GeoRefParam::init " << proj_word(kind) << " Zone=" << Zone << " unit=" << unit
                                 << " unit_z=" << unit_z << " geoid=" << geoid << " geoH=" << geoid_h
                                 << " wkt.length()=" << string.length());
  const bool wgs84 = a == WGS84_A && std::fabs(e2 - WGS84_E2) < 1e-12;
  bool shifted = false;
  for (const double p : H7) shifted = shifted || p != 0;
  samedat = same_datum || (wgs84 && !shifted);
  if (wgs84)
    LOG_LINE("samedat=" << samedat << " DATUM WGS84");
  else
    LOG_LINE("samedat=" << samedat << " DATUM a=" << a << " e2=" << std::setprecision(14) << e2);
  if (Zone < -60 || Zone > 60) {
    ERROR_MSG("UTM zone " << Zone << " out of range 1 to 60");
    return false;
  }
  if (!geoid.empty()) {
    ERROR_MSG("geoid grids are not available yet (geoid " << geoid << ")");
    return false;
  }
  // Without TOWGS84 the datum of the trajectory is taken for that of the points. With zeros only the
  // spheroids differ: on GRS80 that is a tenth of a millimetre.
  const bool grs80 = a == WGS84_A && std::fabs(e2 - WGS84_E2) < 1e-10;
  if (!samedat && hasH7 && (shifted || !grs80)) {
    ERROR_MSG("datum shifts (TOWGS84) are not available yet, option -same_datum leaves them out");
    return false;
  }
  def = proj_definition(*this);
  LOG_LINE("def=" << def);
  // The projection must exist near its own origin.
  dxyz p;
  const bool meridian = kind == ProjKind::TM || kind == ProjKind::LCC;
  const double lon = kind == ProjKind::UTM ? 6 * std::abs(Zone) - 183 : meridian ? lcm : lono;
  double lat = kind == ProjKind::UTM ? 0 : lato;
  if (std::fabs(lat) > 89) lat = lat > 0 ? 89 : -89;
  if (kind != ProjKind::GEO && !geo_forward(*this, lon, lat, 0, p)) {
    ERROR_MSG(proj_word(kind) << " projection: inconsistent parameters");
    return false;
  }
  return true;
}
}  // namespace veld
