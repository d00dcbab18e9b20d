// prj/LiDAR/run/sequence_internal.h
// Steps of the scan sequence that have a source of their own.
#pragma once
#include <vector>

#include "prj/LiDAR/run/sequence.h"

namespace veld {
// Compares the boxes of the fixed swaths with the microtiles of the mobile ones (used: those with tiles).
// dropped: fixed swaths beside them. False after an ERROR line, also when no reference is left.
[[nodiscard]] bool select_references(const Project& prj, const std::vector<bool>& used,
                                     std::vector<bool>& dropped);

// Several references become one swath, their union (more than one only where a tile table cannot hold it).
// tiling: what they were tiled with. False after an ERROR line.
[[nodiscard]] bool unite_references(Project& prj, const TilingParam& tiling);
// The reverse: unions become the files that they were made of.
void split_references(Project& prj);
}  // namespace veld
