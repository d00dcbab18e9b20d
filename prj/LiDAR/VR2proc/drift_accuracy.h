// prj/LiDAR/VR2proc/drift_accuracy.h
// How much drift the trajectories' accuracy files announce for each swath.
// Here:     their records as the inversion takes them.
// Not here: the files (POio/PO_accuracy.h), the priors made of them (VR2inv).
#pragma once
#include <vector>

#include "prj/LiDAR/VR2POsync/VR2POsync.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/project.h"

namespace veld {
// By swath, empty where its trajectory is no SBET or has no accuracy file. Reports the files that are used.
SwathVector<std::vector<DriftAccuracy>> read_drift_accuracy(const Project& prj, const POsync& sync);
}  // namespace veld
