// prj/LiDAR/VR2proc/corr_swaths.h
// The driver of the correction of swaths: order, names, threads, summary.
#pragma once
#include <vector>

#include "prj/LiDAR/VR2proc/corr_tables.h"
#include "prj/LiDAR/VR2proc/sequence_corr.h"

namespace veld {
// Mobile swaths with a trajectory, by trajectory file, then by time.
std::vector<SwathId> POsort_swc(const Project& prj);
// Swaths to correct without a single trajectory, in swath order.
std::vector<SwathId> POget_rej(const Project& prj);

// Corrects the swaths of swc whose correction is wanted (Swath::corr) on NTHREADS threads, writes the corrected files, "_TA.log", "_P_TA.log" and
// "_TA_stat.log". With par.nil only the logs. A swath that fails does not stop the others.
// False after an ERROR line when any failed.
[[nodiscard]] bool corr_swaths(Project& prj, const CorrParam& par, const InvResult& res,
                               const SwathVector<SwRot>& rot, const std::vector<SwathId>& swc,
                               const SwathVector<SCorrTbl>& tables, CorrResult& result);
}  // namespace veld
