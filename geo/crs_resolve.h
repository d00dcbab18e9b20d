// geo/crs_resolve.h
// Coordinate systems of any kind, resolved by PROJ into the constants that GeoRefParam holds.
// Here:     EPSG codes, WKT 1 and 2, ESRI's WKT, PROJ strings, GeoTIFF keys.
// Not here: the scanner for plain WKT (wkt.h), the conversion itself (convert.cpp).
#pragma once
#include <string>

#include "geo/georef.h"
#include "geo/geotiff_keys.h"

namespace veld {
// Sets kind, constants, spheroid, units, datum shift and names of g from a text that PROJ understands. False with the
// cause (no message): not understood, no projected system, or a method that none of the formulas covers, with the names of
// the system and its method.
[[nodiscard]] bool resolve_crs(const std::string& text, GeoRefParam& g, std::string& cause);

// The same from GeoTIFF keys: by the code of the system, or its parameters one by one; units of their own hold, with a
// WARNING when they differ from those of the system.
[[nodiscard]] bool resolve_geotiff(const GeoKeys& keys, GeoRefParam& g, std::string& cause);
}  // namespace veld
