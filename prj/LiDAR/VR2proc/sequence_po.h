// prj/LiDAR/VR2proc/sequence_po.h
// The sequence that brings swaths and trajectories together without an inversion: a scan, or a correction by hand.
// Here:     clocks, matches, check of the geometry, the corrections given by the user in the place of found ones.
// Not here: registration data and what follows from them (sequence_corr.h), tables, check and files (corr_run.h).
#pragma once
#include "prj/LiDAR/LmTplot/swath_inter.h"
#include "prj/LiDAR/VR2proc/corr_param.h"
#include "prj/LiDAR/VR2proc/corr_result.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Synchronises the trajectories of the project with the swaths of an index and checks the geometry; reports go beside
// prj.name. With par.manual.on the swaths are then corrected by the shifts and calibrations of the project and of par.
// overlap: pairs for the check of the correction. False after an ERROR line; the caller adds "manual correction or scan
// failed".
[[nodiscard]] bool DUT_PO_QC_CORR(Project& prj, const DUTidx& idx, const SwPairList& overlap,
                                  const CorrParam& par, CorrResult& result);
}  // namespace veld
