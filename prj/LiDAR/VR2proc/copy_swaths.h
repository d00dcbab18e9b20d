// prj/LiDAR/VR2proc/copy_swaths.h
// Swaths without a correction, copied beside the corrected ones (-corr_all).
#pragma once
#include <vector>

#include "prj/LiDAR/VR2proc/corr_param.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Copies the swaths under the names that corrected ones have: points unchanged, the header names the program, with
// spatial indexes as par says. One that fails does not stop the others; copied gets those that did not. False after an
// ERROR line when any failed.
[[nodiscard]] bool copy_swaths(const Project& prj, const CorrParam& par, const std::vector<SwathId>& swaths,
                               std::vector<SwathId>& copied);
}  // namespace veld
