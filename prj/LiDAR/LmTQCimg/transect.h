// prj/LiDAR/LmTQCimg/transect.h
// The points in a box, as text and seen from the side.
// Here:     export_points_bbox (-trans_x, -trans_y, -trans_z, -xzview, -yzview, -vgsd).
// Not here: maps from above (fast_QC.h, swath_maps.h).
#pragma once
#include <vector>

#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct TransectParam {
  std::vector<double> x, y, z;          // file units: two limits each in either order; empty: all
  bool xzview = false, yzview = false;  // views along y and along x
  float vgsd = 0;  // m, pixel of the views; 0: so that the longer side has 1000 pixels, at least 0.05
  bool any() const { return xzview || yzview || !x.empty() || !y.empty() || !z.empty(); }
};

// Writes the points of all swaths in the box as name + "_trans.txt", swath by swath, and the density views name +
// "_xzview", "_yzview" (points a pixel, heights upwards). An empty box is a WARNING. False after an ERROR line.
[[nodiscard]] bool export_points_bbox(const Project& prj, const TransectParam& par, const MapParam& map);
}  // namespace veld
