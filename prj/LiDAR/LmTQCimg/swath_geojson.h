// prj/LiDAR/LmTQCimg/swath_geojson.h
// Boxes and footprints of swaths and of their overlaps as GeoJSON, for maps and programs.
// Here:     the files in the project's coordinates and in longitude, latitude; the properties of a swath.
// Not here: the outlines (footprint.h), text plots (LmTplot_txt.h), the properties of a pair (pair_footprints.h).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/LmTidx_w/swath_stat.h"
#include "prj/LiDAR/LmTplot/footprint.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct MapShape {
  std::string what;                                      // for messages: "swath 3"
  std::string properties;                                // a JSON object
  std::vector<std::vector<std::vector<dxyz>>> polygons;  // m: polygons of rings, the outer one first
};

// The polygons of outlines in metres.
std::vector<std::vector<std::vector<dxyz>>> make_polygons(const std::vector<Outline>& outlines,
                                                          double mTsize);
// A swath with what is known of it: number, group, channel, file, state, points, density, area, times, heights.
MapShape make_shape(const Project& prj, const ProjectStat& stat, SwathId sw);

// Writes name + ".geojson" with longitude and latitude (WGS 84) when the project has a coordinate system, and
// name + "_prj.geojson" with the project's own coordinates. A feature a shape. Without longitudes and latitudes there is a
// WARNING and no first file. False after an ERROR line.
[[nodiscard]] bool write_geojson(const std::string& name, const Project& prj,
                                 const std::vector<MapShape>& shapes);
}  // namespace veld
