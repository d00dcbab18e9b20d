#include "geo/wkt.h"

#include <cmath>
#include <cstdlib>
#include <string_view>

#include "lib/general/log.h"

namespace veld {
namespace {
bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Reads one finite number at pos and moves pos behind it.
bool number_at(const std::string& wkt, size_t& pos, double& value) {
  if (pos >= wkt.size()) return false;
  const char* start = wkt.c_str() + pos;
  char* end = nullptr;
  const double v = std::strtod(start, &end);
  if (end == start || !std::isfinite(v)) return false;
  pos += static_cast<size_t>(end - start);
  value = v;
  return true;
}

// The numbers behind the n-th comma that follows pos, comma separated.
bool numbers_behind_name(const std::string& wkt, size_t pos, double* values, int n) {
  pos = wkt.find(',', pos);
  for (int i = 0; i < n; i++) {
    if (pos >= wkt.size() || wkt[pos] != ',' || !number_at(wkt, ++pos, values[i])) return false;
  }
  return true;
}

bool starts_at(std::string_view text, size_t pos, std::string_view word) {
  return text.substr(pos, word.size()) == word;
}

// Position of keyword[ outside quotes, at bracket depth `depth` or any (-1); npos if there is none.
size_t find_entry(std::string_view wkt, std::string_view keyword, int depth) {
  bool quoted = false;
  int level = 0;
  for (size_t i = 0; i < wkt.size(); i++) {
    const char c = wkt[i];
    if (c == '"') quoted = !quoted;
    if (quoted) continue;
    const bool begins = i == 0 || wkt[i - 1] == ',' || wkt[i - 1] == '[';
    const bool here = begins && (depth < 0 || level == depth) && starts_at(wkt, i, keyword);
    if (here && starts_at(wkt, i + keyword.size(), "[")) return i;
    level += c == '[' ? 1 : c == ']' ? -1 : 0;
  }
  return std::string_view::npos;
}

// The entry that begins at pos, up to its closing bracket, or to the end when that is missing.
std::string_view entry_at(std::string_view wkt, size_t pos) {
  if (pos == std::string_view::npos) return {};
  bool quoted = false;
  int level = 0;
  for (size_t i = pos; i < wkt.size(); i++) {
    if (wkt[i] == '"') quoted = !quoted;
    if (quoted) continue;
    level += wkt[i] == '[' ? 1 : wkt[i] == ']' ? -1 : 0;
    if (wkt[i] == ']' && level == 0) return wkt.substr(pos, i + 1 - pos);
  }
  return wkt.substr(pos);
}

std::string_view element(std::string_view wkt, std::string_view keyword) {
  return entry_at(wkt, find_entry(wkt, keyword, -1));
}

// The UNIT entry of a system itself, not of the systems nested in it.
std::string_view own_unit(std::string_view system) { return entry_at(system, find_entry(system, "unit", 1)); }

struct UnitName {
  const char* name;
  const char* word;
  double metres;
};
constexpr UnitName UNIT_NAMES[] = {{"ussurveyfoot", "FEET_US", FEET_US},
                                   {"ussurveyfeet", "FEET_US", FEET_US},
                                   {"foot_us", "FEET_US", FEET_US},
                                   {"foot(international)", "FEET_INT", FEET_INT},
                                   {"feet(international)", "FEET_INT", FEET_INT},
                                   {"intl.foot", "FEET_INT", FEET_INT},
                                   {"intl.feet", "FEET_INT", FEET_INT},
                                   {"metres", "METERS", 1.0},
                                   {"meters", "METERS", 1.0},
                                   {"metre", "METERS", 1.0},
                                   {"meter", "METERS", 1.0}};
constexpr double RAD_PER_DEG = 0.0174532925199433;
constexpr double SAME_UNIT = 1e-7;  // numbers closer than this are one unit; the two feet differ by 2e-6

// Metres per unit of an entry unit["name",number].
bool read_unit(std::string_view entry, double& unit) {
  const std::string text(entry);
  double value = 0;
  if (!numbers_behind_name(text, 0, &value, 1) || !(value > 0)) {
    ERROR_MSG("WKT parser - could not parse unit " << text);
    return false;
  }
  unit = exact_unit(value);
  const char* word = "OTHER";
  for (const UnitName& row : UNIT_NAMES)
    if (unit == row.metres) word = row.word;
  for (const UnitName& row : UNIT_NAMES)
    if (starts_at(text, 6, std::string(row.name) + "\"") && row.metres != unit)
      WARNING_MSG("WKT parser - unit name and number disagree, using the number: " << text);
  LOG_LINE(word << " " << unit);
  return true;
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

double exact_unit(double metres) {
  for (const UnitName& row : UNIT_NAMES)
    if (std::fabs(metres / row.metres - 1) < SAME_UNIT) return row.metres;
  return metres;
}

bool is_plain_wkt(const std::string& wkt) {
  GeoRefParam ignored;
  if (!get_WKT_projection(wkt, ignored)) return false;
  double meridian = 0, degree = RAD_PER_DEG;
  const std::string_view geographic = element(wkt, "geogcs");
  const size_t primem = find_entry(geographic, "primem", 1);
  const std::string_view angle = own_unit(geographic);
  if (primem != std::string_view::npos)
    (void)numbers_behind_name(std::string(entry_at(geographic, primem)), 0, &meridian, 1);
  if (!angle.empty()) (void)numbers_behind_name(std::string(angle), 0, &degree, 1);
  return meridian == 0 && std::fabs(degree / RAD_PER_DEG - 1) < 0.01;
}

bool scan_wkt(const std::string& wkt, GeoRefParam& g) {
  if (!get_WKT_unit(wkt, g.unit) || !get_WKT_height_unit(wkt, g.unit, g.unit_z)) return false;
  g.unit_wkt = g.unit;
  if (!parse_projection(wkt, g)) return false;
  get_WKT_spheroid(wkt, g.a, g.e2);
  g.hasH7 = get_WKT_TOWGS84(wkt, g.H7);
  return true;
}

std::string get_WKT_name(const std::string& text, const std::string& keyword) {
  size_t at = text.find(keyword);
  if (at == std::string::npos) return {};
  at = text.find('"', at);
  const size_t end = at == std::string::npos ? at : text.find('"', at + 1);
  return end == std::string::npos ? std::string() : text.substr(at + 1, end - at - 1);
}

std::string wkt_normalise(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    if (is_blank(c) || c == '\0') continue;
    out += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return out;
}

bool get_WKT_param(double& value, const std::string& name, const std::string& wkt, bool alt) {
  const std::string key = "parameter[\"" + name + "\",";
  const size_t at = wkt.find(key);
  if (at == std::string::npos) {
    LOG_MSG("WKT parser - " << name << " parameter missing");
    return false;
  }
  size_t pos = at + key.size();
  if (!number_at(wkt, pos, value)) {
    LOG_MSG("WKT parser - " << name << " parameter value not found");
    return false;
  }
  if (alt) LOG_MSG("WKT parser - using " << name << " parameter instead");
  return true;
}

std::string get_WKT_authority(const std::string& wkt) {
  const std::string key = "authority[\"epsg\",\"";
  const size_t at = wkt.rfind(key);  // the entry of the outermost system stands last
  if (at == std::string::npos) return {};
  std::string code;
  for (size_t i = at + key.size(); i < wkt.size() && wkt[i] >= '0' && wkt[i] <= '9'; i++) code += wkt[i];
  return code;
}

void get_WKT_spheroid(const std::string& wkt, double& a, double& e2) {
  LOG_ENTER("get_WKT_spheroid " << wkt.length());
  const size_t at = wkt.find("spheroid[");
  double v[2];  // semi-major axis, inverse flattening (0 for a sphere)
  if (at != std::string::npos && numbers_behind_name(wkt, at, v, 2) && v[0] > 1e6 && v[0] < 1e7 &&
      (v[1] == 0 || v[1] > 2)) {
    const double f = v[1] == 0 ? 0 : 1 / v[1];
    a = v[0];
    e2 = f * (2 - f);
    return;
  }
  a = WGS84_A;
  e2 = WGS84_E2;
  WARNING_MSG("WKT parser - could not parse spheroid, using WGS84");
}

bool get_WKT_unit(const std::string& wkt, double& unit) {
  LOG_ENTER("get_WKT_unit " << wkt.length());
  unit = 1.0;
  const std::string_view system = element(wkt, "projcs");
  const std::string_view entry = own_unit(system.empty() ? std::string_view(wkt) : system);
  if (!entry.empty()) return read_unit(entry, unit);
  WARNING_MSG("WKT parser - unit missing, using default (metres)");
  return true;
}

bool get_WKT_height_unit(const std::string& wkt, double plane_unit, double& unit) {
  LOG_ENTER("get_WKT_height_unit " << wkt.length());
  unit = plane_unit;
  std::string_view system = element(wkt, "vert_cs");
  if (system.empty()) system = element(wkt, "vertcs");
  const std::string_view entry = own_unit(system);
  if (!entry.empty()) return read_unit(entry, unit);
  if (!system.empty())
    WARNING_MSG("WKT parser - unit of the vertical system missing, using the horizontal one");
  return true;
}

bool get_WKT_TOWGS84(const std::string& wkt, double H7[7]) {
  LOG_ENTER("get_WKT_TOWGS84 " << wkt.length());
  const std::string key = "towgs84[";
  size_t pos = wkt.find(key);
  if (pos == std::string::npos) {
    LOG_LINE("no TOWGS84");
    return false;
  }
  pos += key.size();
  double v[7] = {};
  for (int i = 0; i < 7; i++) {
    if ((i > 0 && (pos >= wkt.size() || wkt[pos++] != ',')) || !number_at(wkt, pos, v[i])) {
      WARNING_MSG("WKT parser - could not parse TOWGS84, ignoring 7 parameter transformation");
      return false;
    }
  }
  for (int i = 0; i < 7; i++) H7[i] = v[i];
  LOG_LINE("H7 " << v[0] << " " << v[1] << " " << v[2] << " " << v[3] << " " << v[4] << " " << v[5] << " ppm "
                 << v[6]);
  return true;
}

bool get_WKT_projection(const std::string& wkt, GeoRefParam& g) {
  const size_t at = wkt.find("projection[\"");
  if (at == std::string::npos) return false;
  const size_t name = at + 12;
  if (starts_at(wkt, name, "transverse_mercator_south_orient")) {
    g.kind = ProjKind::TM;
    g.south = true;
  } else if (starts_at(wkt, name, "transverse_mercator\"")) {
    g.kind = ProjKind::TM;
  } else if (starts_at(wkt, name, "lambert_conformal_conic_1sp\"")) {
    g.kind = ProjKind::LCC;
  } else if (starts_at(wkt, name, "lambert_conformal_conic_2sp\"")) {
    g.kind = ProjKind::LCC;
    g.SP2 = true;
  } else if (starts_at(wkt, name, "albers_conic_equal_area\"")) {
    g.kind = ProjKind::AEAC;
  } else if (starts_at(wkt, name, "hotine_oblique_mercator\"")) {
    g.kind = ProjKind::HOM;
  } else if (starts_at(wkt, name, "hotine_oblique_mercator_azimuth_center\"")) {
    g.kind = ProjKind::HOM;
    g.centre = true;
  } else if (starts_at(wkt, name, "oblique_stereographic\"")) {
    g.kind = ProjKind::OS;
  } else {
    return false;
  }
  return true;
}

bool parse_WKT_TM(const std::string& wkt, GeoRefParam& g) {
  const bool ok = get_WKT_param(g.lcm, "central_meridian", wkt) &&
                  get_WKT_param(g.lato, "latitude_of_origin", wkt) &&
                  get_WKT_param(g.ko, "scale_factor", wkt) && get_WKT_param(g.Eo, "false_easting", wkt) &&
                  get_WKT_param(g.No, "false_northing", wkt);
  LOG_LINE("TM lcm=" << g.lcm << " lato=" << g.lato << " ko=" << g.ko << " Eo=" << g.Eo << " No=" << g.No
                     << " south=" << g.south);
  return ok;
}

bool parse_WKT_LCC(const std::string& wkt, GeoRefParam& g) {
  bool ok = get_WKT_param(g.lcm, "central_meridian", wkt) && get_WKT_param(g.lato, "latitude_of_origin", wkt);
  if (g.SP2)
    ok = ok && get_WKT_param(g.lat1, "standard_parallel_1", wkt) &&
         get_WKT_param(g.lat2, "standard_parallel_2", wkt);
  else
    ok = ok && get_WKT_param(g.ko, "scale_factor", wkt);
  ok = ok && get_WKT_param(g.Eo, "false_easting", wkt) && get_WKT_param(g.No, "false_northing", wkt);
  // The one parallel of the 1SP form is the latitude of origin unless the string names another.
  if (!g.SP2) {
    g.lat1 = g.lato;
    if (ok && wkt.find("parameter[\"standard_parallel_1\",") != std::string::npos)
      ok = get_WKT_param(g.lat1, "standard_parallel_1", wkt);
  }
  LOG_LINE("LCC " << (g.SP2 ? "2SP " : "1SP ") << "lcm=" << g.lcm << " lato=" << g.lato << " lat1=" << g.lat1
                  << " lat2=" << g.lat2 << " ko=" << g.ko << " Eo=" << g.Eo << " No=" << g.No);
  return ok;
}

bool parse_WKT_AEAC(const std::string& wkt, GeoRefParam& g) {
  const bool ok = (get_WKT_param(g.lono, "longitude_of_center", wkt) ||
                   get_WKT_param(g.lono, "central_meridian", wkt, true)) &&
                  (get_WKT_param(g.lato, "latitude_of_center", wkt) ||
                   get_WKT_param(g.lato, "latitude_of_origin", wkt, true)) &&
                  get_WKT_param(g.lat1, "standard_parallel_1", wkt) &&
                  get_WKT_param(g.lat2, "standard_parallel_2", wkt) &&
                  get_WKT_param(g.Eo, "false_easting", wkt) && get_WKT_param(g.No, "false_northing", wkt);
  LOG_LINE("AEAC lono=" << g.lono << " lato=" << g.lato << " lat1=" << g.lat1 << " lat2=" << g.lat2
                        << " Eo=" << g.Eo << " No=" << g.No);
  return ok;
}

bool parse_WKT_HOM(const std::string& wkt, GeoRefParam& g) {
  const bool ok = get_WKT_param(g.lono, "longitude_of_center", wkt) &&
                  get_WKT_param(g.lato, "latitude_of_center", wkt) && get_WKT_param(g.az, "azimuth", wkt) &&
                  get_WKT_param(g.rga, "rectified_grid_angle", wkt) &&
                  get_WKT_param(g.ko, "scale_factor", wkt) && get_WKT_param(g.Eo, "false_easting", wkt) &&
                  get_WKT_param(g.No, "false_northing", wkt);
  LOG_LINE("HOM lono=" << g.lono << " lato=" << g.lato << " az=" << g.az << " rga=" << g.rga << " ko=" << g.ko
                       << " Eo=" << g.Eo << " No=" << g.No);
  return ok;
}

bool parse_WKT_OS(const std::string& wkt, GeoRefParam& g) {
  const bool ok = get_WKT_param(g.lato, "latitude_of_origin", wkt) &&
                  get_WKT_param(g.lono, "central_meridian", wkt) &&
                  get_WKT_param(g.ko, "scale_factor", wkt) && get_WKT_param(g.Eo, "false_easting", wkt) &&
                  get_WKT_param(g.No, "false_northing", wkt);
  LOG_LINE("OS lato=" << g.lato << " lono=" << g.lono << " ko=" << g.ko << " Eo=" << g.Eo << " No=" << g.No);
  return ok;
}
}  // namespace veld
