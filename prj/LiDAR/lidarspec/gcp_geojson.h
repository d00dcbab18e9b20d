// prj/LiDAR/lidarspec/gcp_geojson.h
// Private to lidarspec: control points of GeoJSON files as rows, like those of a text.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "geo/georef.h"

namespace veld {
// By the end of its name: ".geojson" or ".json".
bool is_geojson(const std::string& file);

// Calls row with the fields of each point feature, one a letter of the alphabet ref, "" for what it has not; false from
// row: it is no point. Positions come in the coordinates and units of georef, heights too: third coordinates of a
// geographic system count from the ellipsoid, a property that is named like a column of heights is taken as it stands.
// nfeature, nskip: features, and those that were no point. False after an ERROR line.
[[nodiscard]] bool read_geojson_rows(const std::string& file, const std::string& ref,
                                     const GeoRefParam& georef,
                                     const std::function<bool(const std::vector<std::string>&)>& row,
                                     uint64_t& nfeature, uint64_t& nskip);
}  // namespace veld
