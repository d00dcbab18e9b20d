// prj/LiDAR/LmTQCsep/gtile_export.h
// The gridded heights as files, a tile each, for work with them elsewhere.
// Here:     export_tiles_corr (-ogtile, -ogtile_corr, -ogtile_tiff, -ogtile_ref).
// Not here: grids (LmTgrid_w), maps (LmTQCimg), tiles of corrected points (VR2proc/tile_writer.h).
#pragma once
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"
#include "prj/LiDAR/LmTinter/scorr_tbl.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Writes each tile of the frame with heights as name + "_vr_gtile_" X "_" Y ".laz", X and Y the coordinates of its lower
// left corner in whole units of the swaths: a point per pixel and swath, in the unit and the coordinate system of the
// swaths, with the swath's number + 1 as point source ID, the roughness code (16ths of the grid spacing) as user data and
// the density code as intensity. -ogtile_tiff: ".tif" with its world file too, 32-bit metres, the mean of the swaths at a
// pixel. corr: points with the corrections of the swaths, in name + "_corr_vr_gtile_"; null: as the swaths are. Memory: a
// tile a thread and the indices of the grids that a row of tiles crosses. False after an ERROR line.
[[nodiscard]] bool export_tiles_corr(const Project& prj, const TileInfo& frame, const GtileParam& par,
                                     const MapParam& map, int nthreads, const SwathVector<SCorrTbl>* corr);
}  // namespace veld
