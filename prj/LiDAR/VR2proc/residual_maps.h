// prj/LiDAR/VR2proc/residual_maps.h
// Pictures of what the inversion leaves: the residuals of the vectors.
#pragma once
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/project.h"

namespace veld {
// The frame of tiles that holds a box of microtiles.
TileInfo frame_of(const mTbox& area);

// Writes prj.name + "_max_abs_res" (largest magnitudes of all pairs), "_mix_res" (with sign), the scatter plots
// "_res" and, with -ascii, "_res.txt". False after an ERROR line.
[[nodiscard]] bool save_residual_maps(const Project& prj, const DUTidx& idx, const MapParam& map,
                                      const InvInput& in, const InvResult& res);
}  // namespace veld
