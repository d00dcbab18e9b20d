#include "prj/LiDAR/inputs/georef_setup.h"

#include <iterator>

#include "geo/wkt.h"
#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/txtfile.h"
#include "lib/optparser/opttags.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr int64_t MAX_WKT_BYTES = 1 << 20;  // no coordinate system takes a megabyte

bool read_las_wkt(const std::string& file, std::string& text) {
  text = las_get_wkt(file);
  LOG_LINE("las_get_wkt -> " << text);
  if (text.empty()) ERROR_MSG("WKT not found in LAS file " << file);
  return !text.empty();
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

// The text of -wkt; empty without the option.
bool get_wkt(const Options& o, const PathRules& rules, std::string& text) {
  if (o.wkt.empty()) return true;
  if (o.utm != 0) {
    WARNING_MSG("wkt ignored due to -utm option");
    return true;
  }
  std::string file = o.wkt;
  if (!update_check_file(file, rules)) return false;
  const std::string ext = get_extension(file);
  const bool las = equal_nocase(ext, ".las") || equal_nocase(ext, ".laz");
  if (!(las ? read_las_wkt(file, text) : read_wkt_file(file, text))) return false;
  GeoRefParam tried;
  if (get_WKT_projection(wkt_normalise(text), tried)) return true;
  ERROR_MSG("unsupported projection, WKT file " << file);
  return false;
}
}  // namespace

bool setup_georef(const Options& o, const PathRules& rules, GeoRefParam& georef) {
  LOG_ENTER("setup_georef utm=" << o.utm << " wkt='" << o.wkt << "'");
  std::string text;
  if (!get_wkt(o, rules, text)) return false;
  if (!georef.init(o.utm, text, static_cast<double>(o.geoid_h), o.geoid, o.same_datum != 0)) return false;

  const bool unit_option = o.metre || o.feet_us || o.feet;
  if (unit_option) {
    if (!text.empty()) LOG_MSG("unit option overrides wkt unit");
    georef.unit = georef.unit_z = o.feet_us ? FEET_US : o.feet ? FEET_INT : 1.0;
  }
  DATAUNIT = georef.unit;
  DATAUNIT_Z = georef.unit_z;
  OUTDATAUNIT = o.out_metre ? 1.0 : DATAUNIT;
  LOG_LINE("DATAUNIT=" << DATAUNIT << " DATAUNIT_Z=" << DATAUNIT_Z << " OUTDATAUNIT=" << OUTDATAUNIT);
  if (DATAUNIT_Z != DATAUNIT)
    LOG_MSG("Units: " << DATAUNIT << " m horizontal, " << DATAUNIT_Z << " m vertical");
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
