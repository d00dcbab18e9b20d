// prj/LiDAR/LmTQCimg/swath_geojson.h
// Boxes and footprints of swaths as GeoJSON, for maps and programs.
// Here:     the features with their properties, in the project's coordinates and in longitude, latitude.
// Not here: the outlines (footprint.h), text plots (LmTplot_txt.h).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/LmTidx_w/swath_stat.h"
#include "prj/LiDAR/LmTplot/footprint.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct SwathShape {
  SwathId sw;
  std::vector<std::vector<std::vector<dxyz>>> polygons;  // m: polygons of rings, the outer one first
};

// The polygons of outlines in metres.
SwathShape make_shape(SwathId sw, const std::vector<Outline>& outlines, double mTsize);
// The rectangle along the swath (four corners).
SwathShape make_shape(SwathId sw, const LTidxInfo& info);

// Writes name + ".geojson" with longitude and latitude (WGS 84) when the project has a coordinate system, and
// name + "_prj.geojson" with the project's own coordinates. A feature a swath: number, group, channel, file, state,
// points, density, area, times, heights. Without longitudes and latitudes there is a WARNING and no first file. False
// after an ERROR line.
[[nodiscard]] bool write_geojson(const std::string& name, const Project& prj, const ProjectStat& stat,
                                 const std::vector<SwathShape>& shapes);
}  // namespace veld
