// prj/LiDAR/LmTgrid_w/LmTgrid_internal.h
// Private to LmTgrid_w: the swaths that are to be gridded, and the steps of one.
#pragma once
#include <cstdint>
#include <mutex>
#include <string>

#include "lib/general/file_lock.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTgrid_w/LKRgrid.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"

namespace veld {
// What is to be done with a swath.
enum class GridTask {
  none,    // nothing: not used, or no overlap
  cached,  // its grid can be taken as it stands
  grid,
  beyond,  // one of its tiles needs more than -mem
  failed   // after an ERROR line
};

struct GridPlan {
  GridTask task = GridTask::none;
  size_t ntiles = 0;  // to grid
  FileStamp index;    // of the grid that was found not to do
  uint64_t need = 0;  // bytes, of the largest of them
};

struct GridScope {  // what is wanted of all swaths
  const Tovr& ovr;  // mobile swaths, and references where mobile ones lie
  bool full;        // everything, not only the overlaps
  int dim;          // pixels along the side of a microtile
  float mTsize;     // m
};

// Compares what is wanted of a swath with its cache.
GridPlan plan_grid(const Swath& swath, const GridScope& scope);

// Whether the points of a swath match their checksums. If not, a WARNING says so, and the tiles are given up.
bool sound_points(const SwathTable& swaths, const Swath& swath);

enum class UnitState {
  work,
  busy,   // another run grids it
  cached  // another run has gridded it
};

// One swath to grid, shared by the threads. Its tables stand in memory from its first tile to its last; each
// tile has its own slots.
struct USGDstr {
  const Swath* swath = nullptr;
  size_t ntiles = 0;
  FileStamp index;   // as in GridPlan
  FileLock lock;     // while the grid is made
  std::mutex mutex;  // guards the next four
  size_t ngt_w = 0;  // tiles done
  bool loaded = false;
  bool failed = false;
  UnitState state = UnitState::work;
  SwTiles tiles;
  TileTables tables;
  Tocc want;            // tiles and microtiles to grid
  Vector<uint16_t> gT;  // by tile of the table: gridded microtiles in the file
};

struct GridWorker {  // buffers of one thread
  LKRtile tile;
  Vector<xyz> points;
  Vector<uint32_t> words;
};

// Locks the grid of a swath for this run, without waiting. False after an ERROR line.
bool lock_grid(USGDstr& u, const GridScope& scope);
// Reads what the tile threads need and removes an older grid, so that a half-done run leaves none behind.
// False after an ERROR line.
bool sw_grid_pre(USGDstr& u, const GridScope& scope);
// Grids one tile into its block file. np, npix: points read, words written. False after an ERROR line.
bool sw_grid_tile(USGDstr& u, size_t tile, const GridScope& scope, GridWorker& w, uint64_t& np,
                  uint64_t& npix);
// After the last tile of a swath: index and merged grid under temporary names, then renamed, the index last.
// Gives the tables back. False, and no grid, when a step of the swath failed.
bool sw_grid_post(USGDstr& u, const GridScope& scope);
}  // namespace veld
