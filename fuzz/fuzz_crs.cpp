// fuzz/fuzz_crs.cpp
// Texts of coordinate systems and GeoTIFF keys. The first byte says which (or FUZZ_KIND, for one of them alone). A system
// that is accepted must convert places without trouble, and back to where they were where it says that it can.
#include <cmath>
#include <cstdlib>

#include "fuzz/fuzz_file.h"
#include "geo/georef.h"
#include "lib/general/logfiles.h"

namespace veld {
namespace {
void try_system(const GeoRefParam& g) {
  for (const double lon : {-179.0, -3.0, 0.0, 15.0, 117.0})
    for (const double lat : {-89.0, -33.0, 0.0, 48.0, 90.0}) {
      dxyz p;
      double north = 0, x = 0, y = 0, h = 0;
      if (!geo_forward_north(g, lon, lat, 100, p, north)) continue;
      if (!std::isfinite(p.x + p.y + p.z + north)) std::abort();
      if (geo_inverse(g, p, x, y, h) && !std::isfinite(x + y + h)) std::abort();
    }
}

// Directory, doubles and text of keys from one run of bytes: its first two say how long the first two parts are.
void try_keys(const uint8_t* bytes, size_t nbytes) {
  if (nbytes < 2) return;
  const size_t ndirectory = std::min<size_t>(nbytes - 2, size_t{bytes[0]} * 8);
  const size_t ndoubles = std::min<size_t>(nbytes - 2 - ndirectory, size_t{bytes[1]} * 8);
  const uint8_t* const at = bytes + 2;
  GeoKeys keys;
  GeoRefParam g;
  if (parse_geotiff_keys({at, at + ndirectory}, {at + ndirectory, at + ndirectory + ndoubles},
                         {at + ndirectory + ndoubles, bytes + nbytes}, keys) &&
      g.init(keys, 0, "", false))
    try_system(g);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  if (nbytes < 1) return 0;
  set_console(false);
  static const char* const only = std::getenv("FUZZ_KIND");
  if ((only ? std::atoi(only) : bytes[0]) % 2 == 1) {
    try_keys(bytes + 1, nbytes - 1);
    return 0;
  }
  GeoRefParam g;
  if (g.init(0, std::string(reinterpret_cast<const char*>(bytes) + 1, nbytes - 1), 0, "", false))
    try_system(g);
  return 0;
}
}  // namespace veld
