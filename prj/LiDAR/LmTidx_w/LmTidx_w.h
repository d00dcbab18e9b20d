// prj/LiDAR/LmTidx_w/LmTidx_w.h
// Turns swaths into tile caches: one swath, and all swaths of a project on threads.
// Here:     tiling. A swath goes through two passes: points into temporary tile files, then tile after tile
//           into microtile order with heights and times.
// Not here: reading the caches (LmTidx_r), statistics over the project (swath_stat.h).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/threads/memory_budget.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
// What kept a swath from being tiled.
enum class SwathFault {
  none,
  input,   // its file cannot be used: the swath leaves the project
  memory,  // it needs more than -mem: the run goes on without it and fails at its end
  own      // a file of the program's own could not be written or read: the run ends
};

struct SwathFailure {
  SwathFault fault = SwathFault::none;
  std::string reason;  // as in the ERROR line
};

// Memory of all threads that tile. Each has a share for the buffers of the first pass; the second waits until
// there is room for its largest tile. So the number of threads never decides which swaths can be tiled.
struct TilingMemory {
  MemoryBudget budget;
  uint64_t share;
  TilingMemory(uint64_t bytes, int nthreads)
      : budget(bytes), share(bytes / static_cast<uint64_t>(nthreads)) {}
};

struct LmTswathResult : SwathFailure {
  bool busy = false;  // another run is making this cache
  bool done = false;  // tiled now; false when a cache was reused
  float Mp = 0;       // points kept, millions
  float Mp0 = 0;      // points in the file, millions
  float MB = 0;       // size of the file, bytes x 1e-06
};

// Tiles one swath into its cache family, or, with cache, reuses what is there.
// Memory: in the first pass a buffer of 0x40000 bytes for each open tile file (all are written out and given
// back when they would pass the share), in the second the points of one tile, 21 bytes each.
// The family is locked meanwhile. When another run has the lock: waits for its end, or (wait off) gives up with
// res.busy set and nothing done.
// False after an ERROR line (or a WARNING when a drop map left no point).
[[nodiscard]] bool LmT_swath(const CacheName& swath, SwathId sw, const TilingParam& par, bool cache,
                             TilingMemory& memory, LmTswathResult& res, bool wait = true);

struct LmTtileResult {
  int nswt = 0;                   // swaths that have a cache now
  int ncached = 0;                // of these, reused ones
  int nmemory = 0;                // swaths that need more than -mem
  float Mp = 0, Mp0 = 0, MB = 0;  // totals of the swaths tiled now
};

// Tiles the swaths of todo on up to nthreads threads; rejects those that fail, with the reason. False, after ERROR
// lines, only when a file of the program's own failed: no further swath is begun then. No two threads read the same
// file: the swaths are distinct. Results do not depend on nthreads.
[[nodiscard]] bool LmT_tile(SwathTable& swaths, const std::vector<SwathId>& todo, const TilingParam& par,
                            bool cache, int nthreads, LmTtileResult& res);

// Threads for tiling: at most nthreads and -nthreads_io, the swaths to tile, and as many as -mem can serve.
int tiling_threads(int nthreads, int nswaths);
}  // namespace veld
