#include "prj/LiDAR/inputs/georef_setup.h"

#include <algorithm>
#include <iterator>

#include "geo/crs_resolve.h"
#include "geo/wkt.h"
#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/txtfile.h"
#include "lib/optparser/opttags.h"
#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr int64_t MAX_WKT_BYTES = 1 << 20;  // no coordinate system takes a megabyte

// A coordinate system as an option or a file gives it.
struct SystemSource {
  std::string text;  // of any kind; empty: by keys
  GeoKeys keys;
  bool empty() const { return text.empty() && keys.empty(); }
  const char* record() const { return text.empty() ? "GeoTIFF keys" : "WKT record"; }
};

// The WKT record of a point file, else its GeoTIFF keys. False when it cannot be read.
bool system_of_file(const std::string& file, SystemSource& source, dxyz& centre) {
  LASsystem system;
  source = SystemSource();
  if (!las_get_system(file, system)) return false;
  centre = system.centre;
  if (system.wkt.find_first_not_of(" \t\r\n") != std::string::npos)
    source.text = system.wkt;
  else if (!system.keys.empty() &&
           !parse_geotiff_keys(system.keys, system.doubles, system.ascii, source.keys))
    WARNING_MSG("GeoTIFF keys without meaning, file " << file);
  return true;
}

bool read_las_system(const std::string& file, SystemSource& source) {
  dxyz centre;
  const bool read = system_of_file(file, source, centre);
  LOG_LINE("las_get_wkt -> " << source.text);
  if (read && !source.empty()) return true;
  ERROR_MSG("WKT not found in LAS file " << file);
  return false;
}

// A value of -wkt that is the system itself and no name of a file.
bool is_system_text(const std::string& value) {
  const std::string text = wkt_normalise(value);
  return text.find("proj=") != std::string::npos || text.find('[') != std::string::npos ||
         text.rfind("epsg:", 0) == 0 || text.rfind("esri:", 0) == 0;
}

bool read_wkt_file(const std::string& file, std::string& text) {
  if (file_size(file) > MAX_WKT_BYTES) {
    ERROR_MSG("WKT file too large " << file);
    return false;
  }
  TxtFileIn in(true);
  if (!in.open(file)) return false;
  text.assign(std::istreambuf_iterator<char>(in.fs), std::istreambuf_iterator<char>());
  LOG_LINE("read_wkt -> " << text);
  if (text.find_first_not_of(" \t\r\n") != std::string::npos) return true;
  ERROR_MSG("empty WKT file " << file);
  return false;
}

// The system of -wkt; empty without the option.
bool get_wkt(const Options& o, const PathRules& rules, SystemSource& source) {
  if (o.wkt.empty()) return true;
  if (o.utm != 0) {
    WARNING_MSG("wkt ignored due to -utm option");
    return true;
  }
  if (is_system_text(o.wkt)) {
    source.text = o.wkt;
    return true;
  }
  std::string file = o.wkt;
  if (!update_check_file(file, rules)) return false;
  const std::string ext = get_extension(file);
  const bool las = equal_nocase(ext, ".las") || equal_nocase(ext, ".laz");
  return las ? read_las_system(file, source) : read_wkt_file(file, source.text);
}

// Whether a formula covers the system; the cause if none does.
bool is_supported(const SystemSource& source, std::string& cause) {
  GeoRefParam tried;
  if (source.text.empty()) return resolve_geotiff(source.keys, tried, cause);
  return is_plain_wkt(wkt_normalise(source.text)) || resolve_crs(source.text, tried, cause);
}

bool init_georef(const Options& o, int zone, const SystemSource& source, GeoRefParam& georef) {
  const double h = static_cast<double>(o.geoid_h);
  const bool same = o.same_datum != 0;
  return zone == 0 && !source.keys.empty() ? georef.init(source.keys, h, o.geoid, same, GEODIR)
                                           : georef.init(zone, source.text, h, o.geoid, same, GEODIR);
}

// Units: those of the options, else those of the system.
void set_units(const Options& o, bool has_system, GeoRefParam& georef) {
  if (o.metre || o.feet_us || o.feet) {
    if (has_system) LOG_MSG("unit option overrides wkt unit");
    georef.unit = georef.unit_z = o.feet_us ? FEET_US : o.feet ? FEET_INT : 1.0;
  }
  DATAUNIT = georef.unit;
  DATAUNIT_Z = georef.unit_z;
  OUTDATAUNIT = o.out_metre ? 1.0 : DATAUNIT;
  OUTDATAUNIT_Z = o.out_metre ? 1.0 : DATAUNIT_Z;
  LOG_LINE("DATAUNIT=" << DATAUNIT << " DATAUNIT_Z=" << DATAUNIT_Z << " OUTDATAUNIT=" << OUTDATAUNIT);
  if (DATAUNIT_Z != DATAUNIT)
    LOG_MSG("Units: " << DATAUNIT << " m horizontal, " << DATAUNIT_Z << " m vertical");
}

std::string name_text(const GeoRefParam& g) {
  const std::string name = g.kind == ProjKind::UTM ? "UTM zone " + std::to_string(g.Zone) : g.name;
  return "'" + (name.empty() ? proj_word(g.kind) : name) + "'" +
         (g.vertical.empty() ? "" : " + '" + g.vertical + "'");
}

// A system that some swaths hold.
struct SwathSystem {
  SystemSource source;
  std::string file;  // the first of them
  int nfiles = 0;
  bool mobile = false;  // one of them is
  dxyz centre;          // of that file
};

// The systems of all swaths, in the order of the swaths; nwithout: files without one.
std::vector<SwathSystem> swath_systems(const Project& prj, int& nwithout) {
  std::vector<SwathSystem> systems;
  nwithout = 0;
  for (const Swath& s : prj.swaths) {
    SwathSystem found;
    if (!system_of_file(s.path(), found.source, found.centre) || found.source.empty()) {
      nwithout++;
      continue;
    }
    const auto same = [&](const SwathSystem& other) {
      return other.source.text == found.source.text && other.source.keys.code == found.source.keys.code &&
             other.source.keys.numbers == found.source.keys.numbers;
    };
    auto at = std::find_if(systems.begin(), systems.end(), same);
    found.file = s.path();
    if (at == systems.end()) at = systems.insert(at, found);
    at->nfiles++;
    at->mobile = at->mobile || !s.fixed;
  }
  return systems;
}

bool has_geographic_trajectory(const Project& prj) {
  for (const POfile& file : prj.pofiles) {
    const int geo = prj.pogroups[static_cast<size_t>(file.group) - 1].geo;
    if (PO_file_coord(PO_format(file.path), geo) != PO_PROJ) return true;
  }
  return false;
}

// Says which systems of the swaths give other coordinates than that of the project.
void compare_systems(const Options& o, const std::vector<SwathSystem>& systems, const GeoRefParam& georef,
                     const std::string& what) {
  Options plain = o;  // geoid and datum are the options' alone
  plain.geoid.clear();
  for (const SwathSystem& s : systems) {
    GeoRefParam own;
    std::string cause;
    const bool known = is_supported(s.source, cause) && init_georef(plain, 0, s.source, own);
    if (o.metre || o.feet_us || o.feet) own.unit = georef.unit, own.unit_z = georef.unit_z;
    GeoRefParam used = georef;
    used.geoH = nullptr;
    if (known && same_system(used, own, s.centre)) continue;
    WARNING_MSG(what << ' ' << name_text(georef) << " differs from the coordinate system of " << s.nfiles
                     << " swaths, " << (known ? name_text(own) : cause) << " (" << s.source.record() << " of "
                     << s.file << ")");
  }
}

// What is done about the datum of geographic trajectories.
void show_datum(const GeoRefParam& g) {
  const double* const p = g.H7;
  const bool grs80 = g.a == WGS84_A && std::fabs(g.e2 - WGS84_E2) < 1e-10;  // 0.1 mm from WGS84
  bool shifted = false;
  for (int i = 0; i < 7; i++) shifted = shifted || p[i] != 0;
  if (!g.samedat && g.hasH7 && (shifted || !grs80))
    LOG_MSG("Datum shift " << p[0] << ' ' << p[1] << ' ' << p[2] << " m, " << p[3] << ' ' << p[4] << ' '
                           << p[5] << " arc seconds, " << p[6]
                           << " ppm from the system of the swaths to WGS84"
                           << (g.orthometric() ? "" : ", heights on its own spheroid"));
  if (!g.samedat && !grs80 && !g.hasH7)
    WARNING_MSG(
        "no seven-parameter shift is known for the datum of the swaths, the trajectory is taken to have the "
        "same");
}

void warn_heights(const GeoRefParam& g) {
  if (g.vertical.empty() || g.orthometric() || g.vertical.find("llips") != std::string::npos) return;
  WARNING_MSG("heights of the swaths are those of '"
              << g.vertical
              << "', heights of trajectories count from the ellipsoid: use "
                 "-geoid or -geoid_h unless these are the same");
}
}  // namespace

bool setup_georef(const Options& o, const PathRules& rules, GeoRefParam& georef) {
  LOG_ENTER("setup_georef utm=" << o.utm << " wkt='" << o.wkt << "'");
  SystemSource source;
  std::string cause;
  if (!get_wkt(o, rules, source)) return false;
  if (!source.empty() && !is_supported(source, cause)) {
    ERROR_MSG("unsupported projection, WKT file " << o.wkt << " (" << cause << ")");
    return false;
  }
  if (!init_georef(o, o.utm, source, georef)) return false;
  if (!source.empty()) LOG_MSG("Coordinate system " << name_text(georef) << " (option -wkt)");
  set_units(o, !source.empty(), georef);
  return true;
}

bool adopt_swath_system(const Options& o, Project& prj) {
  LOG_ENTER("adopt_swath_system nsw=" << prj.swaths.size());
  GeoRefParam& georef = prj.georef;
  int nwithout = 0;
  std::vector<SwathSystem> systems = swath_systems(prj, nwithout);
  std::stable_partition(systems.begin(), systems.end(), [](const SwathSystem& s) { return s.mobile; });
  for (const SwathSystem& s : systems)
    LOG_LINE(s.nfiles << " swaths with " << s.source.record() << ", first " << s.file);
  LOG_LINE(nwithout << " swaths without coordinate system");
  const bool needed = has_geographic_trajectory(prj);
  if (o.utm != 0 || !o.wkt.empty()) {
    compare_systems(o, systems, georef, o.utm != 0 ? "option -utm" : "option -wkt");
    if (needed) show_datum(georef), warn_heights(georef);
    return true;
  }
  if (systems.empty()) {
    if (needed)
      ERROR_MSG("no coordinate system for the trajectories, swaths hold none (check options -utm and -wkt)");
    return !needed;
  }
  const SwathSystem& first = systems[0];
  std::string cause;
  if (!is_supported(first.source, cause)) {
    if (needed)
      ERROR_MSG("unsupported projection in " << first.source.record() << " of " << first.file << " (" << cause
                                             << ")");
    else
      WARNING_MSG("coordinate system of the swaths is not used (" << cause << "), " << first.source.record()
                                                                  << " of " << first.file);
    return !needed;
  }
  if (!init_georef(o, 0, first.source, georef)) return false;
  LOG_MSG("Coordinate system " << name_text(georef) << " (" << first.source.record() << " of " << first.nfiles
                               << " swaths"
                               << (nwithout > 0 ? ", " + std::to_string(nwithout) + " have none" : "")
                               << ")");
  compare_systems(o, {systems.begin() + 1, systems.end()}, georef, "system of the first swath");
  set_units(o, true, georef);
  if (needed) show_datum(georef), warn_heights(georef);
  return true;
}

void test_proj(const GeoRefParam& georef, const std::vector<double>& values) {
  const double h = values.size() > 2 ? values[2] : 0.0;
  dxyz p = {0, 0, 0};
  double lon, lat, height;
  if (!geo_forward(georef, values[0], values[1], h, p)) {
    LOG_MSG("forward: out of range");
    return;
  }
  LOG_MSG("forward: " << p.x << " " << p.y << " " << p.z);
  if (geo_inverse(georef, p, lon, lat, height))
    LOG_MSG("inverse: " << lon << " " << lat << " " << height);
  else
    LOG_MSG("inverse: out of range");
}
}  // namespace veld
