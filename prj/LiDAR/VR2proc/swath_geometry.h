// prj/LiDAR/VR2proc/swath_geometry.h
// Swaths against their trajectories: mounts, order, samples of the microtiles with position and attitude, check
// of the geometry.
// Here:     what every sequence needs behind the synchronisation, and the table of -ics.
// Not here: the samples themselves (corr_tables.h), the statistics of the check (corr_stat.h).
#pragma once
#include <vector>

#include "prj/LiDAR/VR2POsync/VR2POsync.h"
#include "prj/LiDAR/VR2proc/corr_param.h"
#include "prj/LiDAR/VR2proc/corr_stat.h"
#include "prj/LiDAR/VR2proc/corr_tables.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct SwathGeometry {
  SwathVector<SwRot> rot;    // rotations of the mount
  std::vector<SwathId> swc;  // swaths with a trajectory, by trajectory file
  SwathVector<InvSamples> samples;
  SwathVector<SampleIndex> index;
  ICSresult ics;  // of the check
};

// Fills g for the swaths that have a trajectory. Logs go beside prj.name. False after an ERROR line.
[[nodiscard]] bool comp_swath_geometry(const Project& prj, const GeometryParam& par, SwathGeometry& g);
}  // namespace veld
