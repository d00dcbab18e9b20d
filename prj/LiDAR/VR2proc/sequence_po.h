// prj/LiDAR/VR2proc/sequence_po.h
// The sequence that brings swaths and trajectories together without an inversion.
// Here:     the scan of trajectories: clocks, matches, reports, check of the geometry.
// Not here: registration data and what follows from them (sequence_corr.h).
#pragma once
#include "prj/LiDAR/VR2POsync/VR2POsync.h"
#include "prj/LiDAR/VR2proc/swath_geometry.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct POscanParam {
  POsyncParam sync;        // matching of swaths and trajectories
  GeometryParam geometry;  // check of the geometry
};

// Synchronises the trajectories of the project with the swaths of an index and checks the geometry. Reports go
// beside prj.name. False after an ERROR line; the caller adds "manual correction or scan failed".
[[nodiscard]] bool DUT_PO_QC_CORR(Project& prj, const DUTidx& idx, const POscanParam& par);
}  // namespace veld
