// prj/LiDAR/run/sequence_internal.h
// Steps of the scan sequence that have a source of their own.
#pragma once
#include <vector>

#include "prj/LiDAR/run/sequence.h"

namespace veld {
// Compares the boxes of the fixed swaths with the microtiles of the mobile ones and rejects those beside them. False
// after an ERROR line, also when no reference is left.
[[nodiscard]] bool select_references(SwathTable& swaths, double mTsize);

// Rejects the swaths whose header's box lies beside that of the options; without these nothing. False after an ERROR
// line, also when no mobile swath is left.
[[nodiscard]] bool bbox_rej_lim(Project& prj, const ScanParam& par);

// Several references become one swath, their union (more than one only where a tile table cannot hold it), which
// replaces them. tiling: what they were tiled with. False after an ERROR line.
[[nodiscard]] bool unite_references(SwathTable& swaths, const TilingParam& tiling);
// The reverse, and all that is present is used again: the start of a scan.
void split_references(SwathTable& swaths);

// Maps and files straight from the grids, all false after an ERROR line. near: pairs whose boxes meet; with -dz_all off
// the maps are of those that the filters of QC keep.
[[nodiscard]] bool fast_QC(const Project& prj, const ScanParam& par, const SwPairList& near, ScanResult& res);
[[nodiscard]] bool export_tiles(const Project& prj, const ScanParam& par, const ScanResult& res);
[[nodiscard]] bool separate_swaths(const Project& prj, const ScanParam& par, ScanResult& res);
}  // namespace veld
