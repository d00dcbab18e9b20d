// prj/LiDAR/VR2proc/corr_log.h
// The corrections of trajectories as text: one line a node, by time and georeferenced, and their statistics.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Writes the lines of one swath into temporary files "tmp_sw_<n>.<host>-<process>_TA.log" and "_P_TA.log" in TMPDIR.
// S: m, shift of the swath, added to the translations. A swath without tables gives empty files.
[[nodiscard]] bool log_corr(const InvResult& res, SwathId sw, const xyz& S, const Vector<PO>& po);

// Joins the files of the swaths of swc, in that order, into prj.name + "_TA.log" and "_P_TA.log" with the
// number of each node in its swath, and deletes them. False after an ERROR line.
[[nodiscard]] bool merge_log_corr(const Project& prj, const std::vector<SwathId>& swc);

// Deletes the temporary files of swaths whose correction failed.
void remove_log_corr(const std::vector<SwathId>& swc);

// Writes prj.name + "_TA_stat.log": range, mean, slope and scatter of the drift of each swath, and the
// totals.
[[nodiscard]] bool drift_stat_output(const Project& prj, const InvResult& res,
                                     const std::vector<SwathId>& swc);
}  // namespace veld
