// prj/LiDAR/run/dut_swaths.h
// A correction of some of the swaths that a displacement file was made from.
#pragma once
#include <string>

#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/project.h"

namespace veld {
// A union of references, which the run makes anew behind the other rows.
bool is_union_line(const DUTswath& line);

// Gives the project the rows of the displacement file dut (its path without ending), in its order: names decide which
// swath is which, and one that the file lacks is an error. Swaths that only the file has come in too: their
// displacements determine the corrections, but they get no corrected files (Swath::corr). False after an ERROR line.
[[nodiscard]] bool complete_DUT_swaths(const std::string& dut, Project& prj);
}  // namespace veld
