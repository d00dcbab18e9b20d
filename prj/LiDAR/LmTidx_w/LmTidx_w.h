// prj/LiDAR/LmTidx_w/LmTidx_w.h
// Turns swaths into tile caches: one swath, and all swaths of a project on threads.
// Here:     tiling. A swath goes through two passes: points into temporary tile files, then tile after tile
//           into microtile order with heights and times.
// Not here: reading the caches (LmTidx_r), statistics over the project (swath_stat.h).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"

struct LmTswathResult {
  bool done = false;   // tiled now; false when a cache was reused
  float Mp = 0;        // points kept, millions
  float Mp0 = 0;       // points in the file, millions
  float MB = 0;        // size of the file, bytes x 1e-06
  std::string reason;  // why it failed, as in the ERROR line
};

// Tiles one swath into the cache family of its path under TMPDIR, or, with cache, reuses what is there.
// max_bytes bounds its memory: in the first pass a buffer of 0x40000 bytes for each open tile file (all are
// written out and given back when they would pass it), in the second the points of one tile, 21 bytes each.
// False after an ERROR line (or a WARNING when a drop map left no point).
[[nodiscard]] bool LmT_swath(const std::string& path, int sw, const TilingParam& par, bool cache,
                             uint64_t max_bytes, LmTswathResult& res);

struct LmTtileResult {
  int nswt = 0;                   // swaths that have a cache now
  int ncached = 0;                // of these, reused ones
  float Mp = 0, Mp0 = 0, MB = 0;  // totals of the swaths tiled now
};

// Tiles the swaths with used[i] set on up to nthreads threads; clears used[i] of those that fail and puts
// the reason into reason[i]. Never fails as a whole. No two threads read the same file: paths
// are distinct. Results do not depend on nthreads.
void LmT_tile(const std::vector<std::string>& paths, std::vector<bool>& used,
              std::vector<std::string>& reason, const TilingParam& par, bool cache, int nthreads,
              LmTtileResult& res);

// Threads for tiling: at most nthreads and -nthreads_io, the swaths to tile, and as many as -mem can serve.
int tiling_threads(int nthreads, int nswaths);
