// prj/LiDAR/LmTQCimg/swath_text.h
// Microtiles of the swaths as text (-ascii).
#pragma once
#include "prj/LiDAR/LmTidx_w/swath_stat.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Writes prj.name + "_tnsg.txt", a line a microtile and swath with the height, time, time range, deviation and number of
// its points, and "_t.txt" with the times alone. X, Y: centre, whole metres. Time: s, of the swath's file behind
// rollovers; -1E10 where none could be fitted, which "_t.txt" leaves out. Microtiles without a time range have DT, Dev 0.
// False after an ERROR line.
[[nodiscard]] bool mtiles_zbounds_plot_tdnsg(const Project& prj, const ProjectStat& stat);
}  // namespace veld
