// prj/LiDAR/VR2proc/sequence_corr.h
// The sequences after registration: synchronise, invert, tables, global shifts, post-correction QC, output.
// Here:     the one call.
// Not here: parameters and result (corr_param.h), the steps (VR2POsync, VR2inv, corr_run.h).
#pragma once
#include "prj/LiDAR/VR2proc/corr_param.h"
#include "prj/LiDAR/VR2proc/corr_result.h"
#include "prj/LiDAR/project.h"

namespace veld {
// The automatic path, from the DUT files and the trajectories to corrected swaths. Logs and tables go beside
// prj.name, and the second displacements as prj.name + "_2". False after an ERROR line; the caller adds "correction failed".
[[nodiscard]] bool DUT_PO_INV_QC_CORR(Project& prj, const CorrParam& par, CorrResult& result);
}  // namespace veld
