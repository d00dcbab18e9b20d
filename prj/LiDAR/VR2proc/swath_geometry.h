// prj/LiDAR/VR2proc/swath_geometry.h
// Swaths against their trajectories: mounts, order, samples of the microtiles with position and attitude, check
// of the geometry.
// Here:     what every sequence needs behind the synchronisation, and the table of -ics.
// Not here: the samples themselves (corr_tables.h), the statistics of the check (corr_stat.h).
#pragma once
#include <vector>

#include "prj/LiDAR/VR2POsync/VR2POsync.h"
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

struct GeometryParam {
  bool AROT = false;   // attitudes are rotated by the IMU angles of the mount (-att_imu)
  bool ICS = true;     // swaths that do not fit their trajectory are an ERROR, else a WARNING (-ics_err)
  bool ICS_r = false;  // the table of the statistics too (-ics)
};

// Fills g for the swaths that have a trajectory. Logs go beside prj.name. False after an ERROR line.
[[nodiscard]] bool comp_swath_geometry(const Project& prj, const GeometryParam& par, SwathGeometry& g);
}  // namespace veld
