// prj/LiDAR/TNRreg/reg_cache.h
// The deformation cache of a pair: the raw xyz of each tile's vertices in raster order, tiles in order, no
// header. Under which parameters a file is valid is the matter of the pair's index (LmTinter).
#pragma once
#include <string>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"

namespace veld {
constexpr char EXT_RPCIDX[] = ".rpc.idx";
constexpr char EXT_RPCD0[] = ".rpc.d0";
constexpr char EXT_RPCSUM[] =
    ".rpc.sum";  // checksums of deformation and index; without them it is read as it is

// Fills Def, whose images have their sizes already. False, without a word on the console and with Def
// undefined, when the file is absent, of another size, or holds values that no registration writes.
[[nodiscard]] bool read_reg_cache(const std::string& path, Vector<Image<xyz>>& Def);

// Writes beside the name and renames when whole. False after an ERROR line of the file class or the renaming.
[[nodiscard]] bool write_reg_cache(const std::string& path, const Vector<Image<xyz>>& Def);
}  // namespace veld
