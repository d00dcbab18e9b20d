// prj/LiDAR/LmTQCGCP/corr_lookup.h
// The correction of a swath at any place, between the microtiles of its table.
#pragma once
#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"

namespace veld {
// Interpolates between the microtile centres around (x, y), metres on the ground; T0 is contained. False where none
// of them has a correction.
bool corr_at_place(const SwTiles& sw, const SCorrTbl& corr, double x, double y, dxyz& c);
}  // namespace veld
