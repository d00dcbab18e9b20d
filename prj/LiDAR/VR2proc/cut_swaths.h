// prj/LiDAR/VR2proc/cut_swaths.h
// Point files that hold many flight lines, cut into a file per line.
// Here:     cutting by the lines of a trajectory, and once more at gaps in time.
// Not here: how the lines are found (POio/traj_cut.h).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/POio/traj_cut.h"
#include "prj/LiDAR/VR2proc/out_name.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct CutParam {
  OutputName out;    // name of the files but for "_c_" and the number of the line
  std::string odir;  // their directory, with its "/"
  std::string sid;   // record of the run in their headers
  double gap = 1;    // s, a longer time without points cuts again (-cut_gap); 0: such gaps are counted only
};

// Cuts the mobile swaths of a project. Points keep their bytes and their order and go to the line that holds their time,
// where two do (-cut_buf) to the later; points between lines are left out. Files "<name>_c_<line>", those cut at gaps
// "<name>_c_<line>_x_<part>". Threads over the swaths; a file that fails does not stop the others. False after an ERROR
// line: no point lies in a line, or a file failed.
[[nodiscard]] bool cut_swaths_las(const Project& prj, const TrajCut& lines, const CutParam& par);
}  // namespace veld
