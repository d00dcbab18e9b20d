// geo/geotiff_keys.h
// GeoTIFF keys, as records 34735 to 34737 of point files hold them.
// Here:     the directory taken apart; the well-known text of a system that is given by its parameters.
// Not here: reading the records (las/), what codes mean (crs_resolve.h).
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace veld {
enum GeoKeyId : uint16_t {
  KEY_MODEL_TYPE = 1024,  // 1 projected, 2 geographic, 3 earth-centred
  KEY_GEOGRAPHIC = 2048,
  KEY_DATUM = 2050,
  KEY_ANGULAR_UNIT = 2054,
  KEY_ELLIPSOID = 2056,
  KEY_SEMI_MAJOR = 2057,
  KEY_SEMI_MINOR = 2058,
  KEY_INV_FLATTENING = 2059,
  KEY_PRIME_MERIDIAN = 2061,
  KEY_TOWGS84 = 2062,
  KEY_PROJECTED = 3072,
  KEY_PROJECTION = 3074,
  KEY_COORD_TRANS = 3075,
  KEY_LINEAR_UNIT = 3076,
  KEY_LINEAR_UNIT_SIZE = 3077,
  KEY_VERTICAL = 4096,
  KEY_VERTICAL_UNIT = 4099
};
constexpr int USER_DEFINED = 32767;

struct GeoKeys {
  std::map<int, int> code;                     // keys whose value is a short
  std::map<int, std::vector<double>> numbers;  // keys whose values are doubles
  std::map<int, std::string> text;             // keys whose value is text

  bool empty() const { return code.empty() && numbers.empty(); }
  int get(int key, int otherwise = 0) const;  // a short
  bool number(int key, double& value) const;  // the first double
  std::string citation() const;               // the system's own name, if any
};

// Takes the records apart: directory (shorts), doubles, text, as bytes of a little-endian file. Entries that point out
// of the records are left out. False, with no keys, when the directory is none.
[[nodiscard]] bool parse_geotiff_keys(const std::vector<uint8_t>& directory,
                                      const std::vector<uint8_t>& doubles, const std::vector<uint8_t>& ascii,
                                      GeoKeys& keys);

// Well-known text of a projected system that is defined by its parameters, on a spheroid and with a unit in metres.
// Empty with the cause when the method has none of our formulas or a parameter is missing.
std::string geotiff_wkt(const GeoKeys& keys, double a, double inverse_flattening, double unit,
                        std::string& cause);
}  // namespace veld
