// prj/LiDAR/VR2proc/corr_fill.h
// Corrections of microtiles that have points but no time of their own.
#pragma once
#include <cstdint>
#include <vector>

#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"

namespace veld {
// Gives each microtile of holes (microtile % 1024 of tile / 1024) the value at its centre of a plane through
// the nearest corrections of the same table, at most 16 microtiles away; a hole without enough of them stays.
// TI: the tiles of the table, in its order. Filled values are not filled from. Returns how many were filled.
uint64_t fill_SCorr(const Vector<TIsxy>& TI, const std::vector<uint32_t>& holes, int nthreads,
                    SCorrTbl& table);
}  // namespace veld
