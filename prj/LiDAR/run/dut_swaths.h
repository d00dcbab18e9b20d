// prj/LiDAR/run/dut_swaths.h
// A correction of some of the swaths that a displacement file was made from.
#pragma once
#include <string>

#include "prj/LiDAR/project.h"

namespace veld {
// Brings the other swaths of the displacement file dut (its path without ending) into a project that has only
// some of them: their displacements determine the corrections too, but only the swaths that were there get
// corrected files (Swath::corr). A complete project stays as it is. False after an ERROR line.
[[nodiscard]] bool complete_DUT_swaths(const std::string& dut, Project& prj);
}  // namespace veld
