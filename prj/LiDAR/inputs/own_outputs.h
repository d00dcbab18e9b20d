// prj/LiDAR/inputs/own_outputs.h
// Swaths that patterns match though they are corrected files of an earlier run.
#pragma once
#include <string>

#include "prj/LiDAR/VR2proc/out_name.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Takes mobile swaths out of the project that another listed swath's corrected file is: by the name that `out` gives
// it in odir, or by the program's record in the header, with the same number of points and a name that begins as the
// other's. One line names them.
void leave_out_own_outputs(const OutputName& out, const std::string& odir, Project& prj);
}  // namespace veld
