// prj/LiDAR/LmTidx_w/dropmap.h
// The map of ground whose points are left out (-drop_map).
// Here:     load_dropmap.
// Not here: the pass that drops them (tile_sort.cpp), reading of TIFF (image/load_tiff.h).
#pragma once
#include <string>

#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"

namespace veld {
// Reads a grey TIFF and its world file (in OUTDATAUNIT) and sets what tiling needs of it: par.Tdrop, par.TIO, par.chk.
// A microtile is dropped when the centre of a pixel that is not 0 lies in it; pixels must not be larger than
// microtiles. A map without such pixels is ignored, with a WARNING. False after an ERROR line.
[[nodiscard]] bool load_dropmap(const std::string& file, TilingParam& par);
}  // namespace veld
