// prj/LiDAR/VR2proc/corr_swaths.h
// The driver of the correction of swaths: order, names, threads, summary.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/VR2proc/corr_run.h"

namespace veld {
// Mobile swaths with a trajectory, by trajectory file, then by time.
std::vector<SwathId> POsort_swc(const Project& prj);
// Swaths to correct without a single trajectory, in swath order.
std::vector<SwathId> POget_rej(const Project& prj);
// All files that the run reads and must never overwrite.
std::vector<std::string> source_files(const Project& prj);

// Corrects the swaths of run.swc whose correction is wanted (Swath::corr) on NTHREADS threads, writes the corrected
// files or tiles and the logs of the drift. With par.nil only the logs. A swath that fails does not stop the others.
// False after an ERROR line when any failed.
[[nodiscard]] bool corr_swaths(Project& prj, const CorrRun& run, CorrResult& result);
}  // namespace veld
