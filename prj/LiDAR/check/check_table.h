// prj/LiDAR/check/check_table.h
// The table of -check: a line a swath, then the project.
#pragma once
#include <vector>

#include "prj/LiDAR/check/geometry_check.h"
#include "prj/LiDAR/check/project_check.h"

namespace veld {
// On the console and in the log. geometry: of check_geometry, or empty without trajectories.
void show_check_table(const Project& prj, const SwathVector<SwathProbe>& probes,
                      const GeometryCheck& geometry);
}  // namespace veld
