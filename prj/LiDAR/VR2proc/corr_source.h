// prj/LiDAR/VR2proc/corr_source.h
// Where the corrections of swaths come from: an inversion, or values given by hand in the place of its result.
#pragma once
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/VR2proc/corr_param.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
struct CorrSource {
  const InvResult& res;  // by hand: the calibration sets, no drift
  const InvParam& inv;
  const ManualParam& manual;
  const SwathVector<SwRot>& rot;
};
}  // namespace veld
