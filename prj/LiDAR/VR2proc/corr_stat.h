// prj/LiDAR/VR2proc/corr_stat.h
// Statistics of the correction tables and the sanity check of the geometry.
#pragma once
#include <vector>

#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/VR2proc/corr_tables.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Writes prj.name + "_DXYZcorr_stat.log": mean, deviation, RMS and extremes of the correction (shift T0
// included) per swath and in total; the totals also on the console. False after an ERROR line.
[[nodiscard]] bool Cimg_stat_swaths(const Project& prj, const std::vector<SwathId>& swc,
                                    const SwathVector<SCorrTbl>& tables);

// Writes prj.name + "_corr.txt": the correction of each microtile of each swath, shift of the swath included. False
// after an ERROR line.
[[nodiscard]] bool Cimg_stat_corrtbl(const Project& prj, const std::vector<SwathId>& swc,
                                     const SwathVector<SampleIndex>& index,
                                     const SwathVector<SCorrTbl>& tables);

struct ICSresult {
  double AGL = 0;    // m, mean height above ground of the swaths
  double width = 0;  // m, mean swath width
  int nerr = 0;      // swaths whose geometry is not consistent with the trajectory
  int nwarn = 0;     // swaths of a suspicious height or width
};
// Compares points and trajectory in the internal coordinates: writes prj.name + "_BF_ICS_stat.log".
// False after an ERROR line.
[[nodiscard]] bool ICS_stat_swaths(const Project& prj, const SwathVector<SwRot>& rot,
                                   const std::vector<SwathId>& swc, const SwathVector<InvSamples>& samples,
                                   ICSresult& result);
}  // namespace veld
