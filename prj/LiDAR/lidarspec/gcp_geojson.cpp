#include "prj/LiDAR/lidarspec/gcp_geojson.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/lidarspec/gcp_columns.h"

namespace veld {
namespace {
using Json = nlohmann::json;
constexpr int64_t MAX_BYTES = 1 << 28;  // of a file

struct System {            // of the coordinates of a file
  bool geographic = true;  // longitude, latitude and height on WGS 84
  bool same = false;       // those of the project, or taken for them
  GeoRefParam projected;   // else
};

// Whether a member "type" is this word. Files may hold anything in its place.
bool is_type(const Json& object, const char* word) {
  const auto type = object.find("type");
  return type != object.end() && type->is_string() && type->get<std::string>() == word;
}

// "urn:ogc:def:crs:EPSG::32633" and its kin as "EPSG:32633"; other texts as they are.
std::string crs_text(const std::string& name) {
  const size_t epsg = name.find("EPSG:"), last = name.rfind(':');
  if (epsg == std::string::npos || last == std::string::npos) return name;
  return "EPSG:" + name.substr(last + 1);
}

// The "crs" member, else that of the format: longitude and latitude. False after an ERROR line.
bool find_system(const std::string& file, const Json& root, const GeoRefParam& georef, System& s) {
  std::string name;
  if (const auto crs = root.find("crs"); crs != root.end() && crs->is_object())
    if (const auto p = crs->find("properties"); p != crs->end() && p->is_object())
      if (const auto n = p->find("name"); n != p->end() && n->is_string())
        name = crs_text(n->get<std::string>());
  s.geographic =
      name.empty() || name.find("CRS84") != std::string::npos || name == "EPSG:4326" || name == "EPSG:4979";
  if (s.geographic) {
    if (georef.kind != ProjKind::GEO) return true;
    ERROR_MSG("longitudes and latitudes need a coordinate system of the project (-utm, -wkt), file " << file);
    return false;
  }
  if (georef.kind == ProjKind::GEO) {
    WARNING_MSG("the project has no coordinate system, coordinates in "
                << name << " are taken as they are, file " << file);
    s.same = true;
    return true;
  }
  if (s.projected.init(0, name, 0, "", georef.samedat)) return true;
  ERROR_MSG("unknown coordinate system " << name << ", file " << file);
  return false;
}

// A position in the coordinates of the project.
bool convert(const System& s, const GeoRefParam& georef, dxyz& p) {
  if (s.same) return true;
  if (s.geographic) {
    const dxyz q = p;
    return geo_forward(georef, q.x, q.y, q.z, p);
  }
  if (same_system(s.projected, georef, p)) {
    p.z *= s.projected.unit_z / georef.unit_z;
    return true;
  }
  double lon = 0, lat = 0, h = 0;
  const double z = p.z * s.projected.unit_z / georef.unit_z;  // heights keep what they count from
  if (!geo_inverse(s.projected, {p.x, p.y, 0}, lon, lat, h) || !geo_forward(georef, lon, lat, 0, p))
    return false;
  p.z = z;
  return true;
}

std::string text_of(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  if (value.is_null() || !value.is_number()) return "";
  char text[40];
  std::snprintf(text, sizeof text, "%.12g", value.get<double>());
  return text;
}

// The fields of a feature. False when it is no point with a height.
bool fields_of(const Json& feature, const System& s, const GeoRefParam& georef, const std::string& letters,
               bool target, std::vector<std::string>& fields) {
  fields.assign(letters.size(), "");
  if (!feature.is_object()) return false;
  const auto geometry = feature.find("geometry");
  if (geometry == feature.end() || !geometry->is_object() || !is_type(*geometry, "Point")) return false;
  const auto at = geometry->find("coordinates");
  if (at == geometry->end() || !at->is_array() || at->size() < 2) return false;
  for (const Json& c : *at)
    if (!c.is_number()) return false;
  dxyz p{(*at)[0].get<double>(), (*at)[1].get<double>(), at->size() > 2 ? (*at)[2].get<double>() : 0};
  if (const auto id = feature.find("id"); id != feature.end()) fields[letters.find('i')] = text_of(*id);
  if (const auto properties = feature.find("properties");
      properties != feature.end() && properties->is_object())
    for (const auto& [name, value] : properties->items())
      if (const size_t k = letters.find(column_letter(name, target)); k != std::string::npos)
        if (const std::string text = text_of(value); !text.empty()) fields[k] = text;
  if (!convert(s, georef, p)) return false;
  std::string& z = fields[letters.find('z')];
  if (z.empty() && at->size() < 3) return false;
  const auto number = [](double v) {
    char text[40];
    std::snprintf(text, sizeof text, "%.5f", v);
    return std::string(text);
  };
  fields[letters.find('x')] = number(p.x);
  fields[letters.find('y')] = number(p.y);
  if (z.empty()) z = number(p.z);
  return true;
}
}  // namespace

bool is_geojson(const std::string& file) {
  const size_t dot = file.rfind('.');
  if (dot == std::string::npos) return false;
  std::string end = file.substr(dot);
  for (char& c : end)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return end == ".geojson" || end == ".json";
}

bool read_geojson_rows(const std::string& file, const std::string& ref, const GeoRefParam& georef,
                       const std::function<bool(const std::vector<std::string>&)>& row, uint64_t& nfeature,
                       uint64_t& nskip) {
  LOG_ENTER("read_geojson_rows file='" << file << "'");
  nfeature = nskip = 0;
  const int64_t size = file_size(file);
  if (size < 0 || size > MAX_BYTES) {
    ERROR_MSG((size < 0 ? "could not read file " : "file is too large for GeoJSON, ") << file);
    return false;
  }
  std::ifstream in(file, std::ios::binary);
  const Json root = Json::parse(in, nullptr, false);
  const bool whole = root.is_object() && is_type(root, "FeatureCollection");
  const auto features = whole ? root.find("features") : root.end();
  if (!whole || features == root.end() || !features->is_array()) {
    ERROR_MSG("no GeoJSON feature collection, file " << file);
    return false;
  }
  System system;
  if (!find_system(file, root, georef, system)) return false;
  std::string letters = ref;
  std::erase_if(letters, [](char c) { return c == '[' || c == ']'; });
  const bool target = letters.find('X') != std::string::npos;
  std::vector<std::string> fields;
  for (const Json& feature : *features) {
    nfeature++;
    if (!fields_of(feature, system, georef, letters, target, fields) || !row(fields)) nskip++;
  }
  return true;
}
}  // namespace veld
