// prj/LiDAR/inputs/own_outputs.h
// Swaths that patterns match though they are corrected files of an earlier run.
#pragma once
#include <string>

#include "prj/LiDAR/VR2proc/out_name.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Takes undo data (-oundo) out of the project, which patterns match beside the corrected files. False after an ERROR line
// when nothing is left.
[[nodiscard]] bool leave_out_undo_data(Project& prj);

// Takes swaths without undo data out of the project that no program record says to be corrected: the patterns of an
// undo match the sources too. Keeps all when none has undo data. One line names them.
void leave_out_uncorrected(Project& prj);

// Takes mobile swaths out of the project that another listed swath's corrected file is: by the name that `out` gives
// it in odir, or by the program's record in the header, with the same number of points and a name that begins as the
// other's. One line names them.
void leave_out_own_outputs(const OutputName& out, const std::string& odir, Project& prj);
}  // namespace veld
