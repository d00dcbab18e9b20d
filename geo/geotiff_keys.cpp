#include "geo/geotiff_keys.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace veld {
namespace {
constexpr int DOUBLES = 34736, ASCII = 34737;
constexpr size_t ENTRY = 4;  // shorts: key, where its value lies, count, value or offset

uint16_t short_at(const std::vector<uint8_t>& bytes, size_t i) {
  return static_cast<uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
}

struct Parameter {
  const char* name;      // in the text
  std::vector<int> key;  // the first that is there counts
  bool length = false;   // m, else degrees or a ratio
  double otherwise = NAN;
};
struct Method {
  int code;  // of the transformation, key 3075
  const char* name;
  std::vector<Parameter> parameters;
};

const std::vector<Method>& methods() {
  const std::vector<int> east = {3082, 3086, 3090}, north = {3083, 3087, 3091}, lat = {3081, 3085, 3089},
                         lon = {3080, 3084, 3088}, scale = {3092, 3093};
  const Parameter FE{"false_easting", east, true, 0}, FN{"false_northing", north, true, 0};
  const Parameter LAT{"latitude_of_origin", lat}, LON{"central_meridian", lon},
      K{"scale_factor", scale, false, 1};
  const Parameter P1{"standard_parallel_1", {3078}}, P2{"standard_parallel_2", {3079}};
  const Parameter CLON{"longitude_of_center", lon}, CLAT{"latitude_of_center", lat};
  static const std::vector<Method> list = {
      {1, "Transverse_Mercator", {LAT, LON, K, FE, FN}},
      {27, "Transverse_Mercator_South_Orientated", {LAT, LON, K, FE, FN}},
      {8, "Lambert_Conformal_Conic_2SP", {LAT, LON, P1, P2, FE, FN}},
      {9, "Lambert_Conformal_Conic_1SP", {LAT, LON, K, FE, FN}},
      {11, "Albers_Conic_Equal_Area", {CLAT, CLON, P1, P2, FE, FN}},
      {3,
       "Hotine_Oblique_Mercator",
       {CLAT, CLON, {"azimuth", {3094}}, {"rectified_grid_angle", {3096, 3094}}, K, FE, FN}},
      {16, "Oblique_Stereographic", {LAT, LON, K, FE, FN}}};
  return list;
}

std::string number_text(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

// Degrees per unit of the keys' angles.
double angular_unit(const GeoKeys& keys) {
  switch (keys.get(KEY_ANGULAR_UNIT, 9102)) {
    case 9101:
      return 57.29577951308232;
    case 9105:
      return 0.9;
    default:
      return 1;
  }
}
}  // namespace

int GeoKeys::get(int key, int otherwise) const {
  const auto at = code.find(key);
  return at == code.end() ? otherwise : at->second;
}

bool GeoKeys::number(int key, double& value) const {
  const auto at = numbers.find(key);
  if (at == numbers.end() || at->second.empty()) return false;
  value = at->second[0];
  return true;
}

std::string GeoKeys::citation() const {
  for (const int key : {3073, 1026, 2049})
    if (const auto at = text.find(key); at != text.end() && !at->second.empty()) return at->second;
  return {};
}

bool parse_geotiff_keys(const std::vector<uint8_t>& directory, const std::vector<uint8_t>& doubles,
                        const std::vector<uint8_t>& ascii, GeoKeys& keys) {
  keys = GeoKeys();
  const size_t nshort = directory.size() / 2;
  if (nshort < ENTRY || short_at(directory, 0) != 1) return false;
  const size_t n = short_at(directory, 3);
  for (size_t i = 1; i <= n && (i + 1) * ENTRY <= nshort; i++) {
    const int key = short_at(directory, i * ENTRY), where = short_at(directory, i * ENTRY + 1);
    const size_t count = short_at(directory, i * ENTRY + 2), value = short_at(directory, i * ENTRY + 3);
    if (where == 0) {
      keys.code[key] = static_cast<int>(value);
    } else if (where == DOUBLES && count > 0 && (value + count) * sizeof(double) <= doubles.size()) {
      std::vector<double> list(count);
      std::memcpy(list.data(), doubles.data() + value * sizeof(double), count * sizeof(double));
      bool finite = true;
      for (const double v : list) finite = finite && std::isfinite(v);
      if (finite) keys.numbers[key] = list;
    } else if (where == ASCII && value + count <= ascii.size()) {
      std::string words(ascii.begin() + static_cast<int64_t>(value),
                        ascii.begin() + static_cast<int64_t>(value + count));
      while (!words.empty() && (words.back() == '|' || words.back() == '\0')) words.pop_back();
      keys.text[key] = words;
    }
  }
  return !keys.empty();
}

std::string geotiff_wkt(const GeoKeys& keys, double a, double inverse_flattening, double unit,
                        std::string& cause) {
  const Method* method = nullptr;
  const int code = keys.get(KEY_COORD_TRANS);
  for (const Method& row : methods())
    if (row.code == code) method = &row;
  if (!method) {
    cause = "transformation " + std::to_string(code) + " of the GeoTIFF keys is not supported";
    return {};
  }
  std::string wkt = "PROJCS[\"GeoTIFF keys\",GEOGCS[\"g\",DATUM[\"d\",SPHEROID[\"s\"," + number_text(a) +
                    "," + number_text(inverse_flattening) + "]";
  const auto shift = keys.numbers.find(KEY_TOWGS84);
  if (shift != keys.numbers.end() && (shift->second.size() == 3 || shift->second.size() == 7)) {
    wkt += ",TOWGS84[";
    for (size_t i = 0; i < 7; i++)
      wkt += (i ? "," : "") + number_text(i < shift->second.size() ? shift->second[i] : 0);
    wkt += "]";
  }
  wkt += "],PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"" +
         std::string(method->name) + "\"]";
  for (const Parameter& p : method->parameters) {
    double value = p.otherwise;
    bool found = !std::isnan(value);
    for (size_t i = p.key.size(); i-- > 0;) found = keys.number(p.key[i], value) || found;
    if (!found) {
      cause = std::string("GeoTIFF keys without ") + p.name;
      return {};
    }
    const bool ratio = std::string(p.name) == "scale_factor";
    wkt += ",PARAMETER[\"" + std::string(p.name) + "\"," +
           number_text(value * (p.length || ratio ? 1 : angular_unit(keys))) + "]";
  }
  return wkt + ",UNIT[\"unit\"," + number_text(unit) + "]]";
}
}  // namespace veld
