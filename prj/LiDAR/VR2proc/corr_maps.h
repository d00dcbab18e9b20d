// prj/LiDAR/VR2proc/corr_maps.h
// Pictures of the corrections on the microtile grid.
#pragma once
#include <vector>

#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/VR2proc/corr_tables.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Draws the corrections of the swaths of swc, shifts of the swaths included, a pixel a microtile: prj.name + "_mean_corr" the
// mean over the swaths that lie there, "_max_abs_corr" the largest magnitude of each axis, and the scatter plots "_corr".
// Their range is that of the other maps of vectors, or more where corrections are larger. False after an ERROR line.
[[nodiscard]] bool save_corr_maps(const Project& prj, const MapParam& map, const std::vector<SwathId>& swc,
                                  const SwathVector<SampleIndex>& index, const SwathVector<SCorrTbl>& tables);
}  // namespace veld
