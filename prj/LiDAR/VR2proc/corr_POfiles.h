// prj/LiDAR/VR2proc/corr_POfiles.h
// Corrected trajectories of a run: whole files, and the part of each swath as text.
#pragma once
#include <vector>

#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/VR2POsync/VR2POsync.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/VR2proc/corr_param.h"
#include "prj/LiDAR/VR2proc/track_corr.h"

namespace veld {
// Writes prj.name + "_PO_sw_<n>.txt" (-oposeg) and "_P_TA_sw_<n>.txt" (-ocorr) of a swath: every par.po_sub-th record of
// its cache, as the inversion saw it, with the shift S and the drift of corr. False after an ERROR line.
[[nodiscard]] bool corr_traj_out(const Project& prj, const CorrParam& par, const SwathCorr& corr, SwathId sw);

// Writes prj.name + "_po_<n>.out" or ".txt" for each trajectory file that one of the swaths of swc lies in. A file that
// fails does not stop the others. False after an ERROR line.
[[nodiscard]] bool corr_POfiles(const Project& prj, const CorrParam& par, const POsync& sync,
                                const InvResult& res, const std::vector<SwathId>& swc,
                                const SwathVector<SCorrTbl>& tables);
}  // namespace veld
