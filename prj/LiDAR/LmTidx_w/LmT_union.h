// prj/LiDAR/LmTidx_w/LmT_union.h
// Several references as one swath: their tile tables, counts and heights merged. The points stay where they
// are, in the caches of the members (see read_LmT_tile_nn).
#pragma once
#include <cstddef>
#include <string>
#include <vector>

#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"

namespace veld {
// The first `used` of the names from sw0 on that fit into one tile table (65535 tiles, 1024 along an axis):
// their places. Nearly always all of them. False, silently, when a table cannot be read.
[[nodiscard]] bool choose_union(size_t sw0, const std::vector<CacheName>& names,
                                const std::vector<bool>& used, std::vector<size_t>& members);

// Merges the tiled swaths with used[i] set, sw0 being the first of them, into a union. swath: its names
// then. par: what they were tiled with. Counts of a microtile add up, its height is the mean over all
// points. The caches of the union (list, index, counts, heights) are kept when they were made of the same
// members as these are now, else made anew and the grid of the union removed. False after an ERROR line.
[[nodiscard]] bool LmT_union(size_t sw0, const std::vector<CacheName>& names, const std::vector<bool>& used,
                             const TilingParam& par, CacheName& swath);
}  // namespace veld
