// prj/LiDAR/check/geometry_check.h
// Every swath against its trajectory, before anything is computed from both.
// Here:     the check of a project, its messages and results.
// Not here: the search for the cause (traj_fault.h), the statistics on microtiles behind the tiling (corr_stat.h).
#pragma once
#include <vector>

#include "prj/LiDAR/VR2POsync/VR2POsync.h"
#include "prj/LiDAR/check/swath_probe.h"
#include "prj/LiDAR/check/traj_fault.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct GeometryCheckParam {
  POsyncParam sync;
  bool error = true;  // a fault is an ERROR (-ics_err 1), else a WARNING
};

struct SwathGeometryCheck {  // of a swath
  int file = -1;             // trajectory file, below 0 none
  bool checked = false;      // beams and trajectory were there
  TrajFault fault;           // kind none also where nothing could be checked
};

struct GeometryCheck {
  SwathVector<SwathGeometryCheck> swaths;
  bool ok = true;  // false after an ERROR line: the trajectories cannot be used
};

// probes: of the mobile swaths. Swaths without a time, and those that could not be probed, are not
// checked. What is read of the trajectories stays in par.sync.tracks. One line a trajectory and fault, with the swaths.
GeometryCheck check_geometry(const Project& prj, const SwathVector<SwathProbe>& probes,
                             const GeometryCheckParam& par);

// "a, b and 3 more".
std::string list_text(const std::vector<std::string>& names);
}  // namespace veld
