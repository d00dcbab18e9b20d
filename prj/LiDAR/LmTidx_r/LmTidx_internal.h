// prj/LiDAR/LmTidx_r/LmTidx_internal.h
// Private to LmTidx_r and LmTidx_w: coded settings of a header.
#pragma once
#include <string>

#include "lib/general/binfile.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"

namespace veld {
constexpr uint64_t TILE_BUFFER = 0x40000;  // bytes, of a tile file

// The header that a cache made from the file at path with these settings carries; tstamp is left 0.
LTidxHdr make_LTidxHdr(const TilingParam& par);
}  // namespace veld
