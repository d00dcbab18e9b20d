// prj/LiDAR/VR2proc/corr_run.h
// What travels between the steps of a correction, and the tail that corrections by inversion and by hand share.
// Here:     tables, global shifts, check, files, trajectories.
// Not here: where the correction comes from (sequence_corr.h, sequence_po.h).
#pragma once
#include <vector>

#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/VR2POsync/VR2POsync.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/VR2proc/control_shift.h"
#include "prj/LiDAR/VR2proc/corr_param.h"
#include "prj/LiDAR/VR2proc/corr_result.h"
#include "prj/LiDAR/VR2proc/global_shift.h"
#include "prj/LiDAR/VR2proc/swath_geometry.h"

namespace veld {
struct CorrRun : SwathGeometry {
  POsync sync;
  CorrParam par;       // inv: after the options have been reconciled with the data
  GroupShifts groups;  // to control points, known before the inversion of all pairs (-gcp_grp)
  SwathVector<std::vector<DriftAccuracy>> accuracy;  // of the trajectories, with par.accuracy
  InvResult res;
  std::vector<SwPair> qc_pairs;
  SwathVector<SCorrTbl> tables;
};

// What cancels global means, as the options say.
GlobalShiftParam global_shift(const CorrRun& run);
// Shifts to control points, as far as there are any.
ControlShift control_shift(const CorrParam& par);

// Pairs of the check after the correction: of the index, both swaths with a correction or fixed.
void choose_qc_pairs(const Project& prj, CorrRun& run);

// Corrections, corrected swaths or tiles, copies of the swaths without a correction, trajectories. What fails does not
// stop what does not need it. False after an ERROR line.
[[nodiscard]] bool QC_OUT_CORR(Project& prj, CorrRun& run, CorrResult& result);
}  // namespace veld
