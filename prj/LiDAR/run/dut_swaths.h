// prj/LiDAR/run/dut_swaths.h
// A correction of some of the swaths that a displacement file was made from.
#pragma once
#include <string>

#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/project.h"

namespace veld {
// A union of references, which the run makes anew of those that the project has.
bool is_union_line(const DUTswath& line);

// Puts the swaths of a project into the order of the displacement file dut (its path without ending): names decide
// which is which, whatever order they were given in. Swaths that only the file has come in too: their displacements
// determine the corrections, but they get no corrected files (Swath::corr). A swath that the file lacks keeps its place
// behind the others when all of the file's are there, and is an error otherwise. False after an ERROR line.
[[nodiscard]] bool complete_DUT_swaths(const std::string& dut, Project& prj);
}  // namespace veld
