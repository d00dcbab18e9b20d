// prj/LiDAR/VR2POsync/traj_commands.h
// What is done with one trajectory file alone: its export as text, its flight lines.
// Here:     plot_PO, cut_PO_smooth.
// Not here: reading (POio), the scan for lines (POio/traj_cut.h), synchronisation with swaths (VR2POsync.h).
//
// Geographic trajectories of a project without a coordinate system are projected in the UTM zone of their first place.
#pragma once
#include <string>

#include "prj/LiDAR/POio/traj_cut.h"
#include "prj/LiDAR/VR2POsync/VR2POsync.h"

namespace veld {
// Writes every sub-th record of the project's first trajectory as text to `name` + ".txt": time, the position of the file if
// it is not projected, the projected one in output units, roll, pitch and yaw from grid north. Files of records are read
// in parts, so that memory does not grow with them. False after an ERROR line.
[[nodiscard]] bool plot_PO(const Project& prj, const POsyncParam& par, int sub, const std::string& name);

// Flight lines of the project's first trajectory, and the table "pos_cut.txt" in `dir`. False after an ERROR line, also
// when there is no line.
[[nodiscard]] bool cut_PO_smooth(const Project& prj, const POsyncParam& par, const TrajCutParam& cut,
                                 const std::string& dir, TrajCut& lines);
}  // namespace veld
