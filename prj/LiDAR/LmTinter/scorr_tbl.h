// prj/LiDAR/LmTinter/scorr_tbl.h
// The table of corrections of a swath, from those who make it to those who measure under it.
#pragma once
#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"

namespace veld {
// The correction of a swath on the microtile grid: what is added to a point there. One image a tile of the
// swath's tile table (".0T.idx", same order), 32 x 32 microtile centres, z = -9999 where there is none.
struct SCorrTbl {
  Vector<Image<xyz>> C;  // m; empty: the swath is not corrected (fixed, or without a trajectory)
  xyz T0 = {0, 0, 0};    // m, added to the whole swath on top of C (global shifts)
};
}  // namespace veld
