// prj/LiDAR/LmTinter/inter_tiles.h
// The overlap tiles of two swaths and the height images on them.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/TNRreg/TNRreg.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct InterSwath {  // what the pairs of a swath share; read when the swath comes up
  SwathId sw;
  CacheName cache;
  LTidxInfo info{};
  Tocc occ;
  SwGrid grid;
  TileTables tables;  // open for the times of a mobile swath; see open_times
  bool ok = false;    // tiles and grid could be read
};
// Reads the tables of swath sw unless they stand in s already. False, after a log line, when a cache is
// missing or does not fit.
[[nodiscard]] bool read_InterSwath(const Project& prj, SwathId sw, InterSwath& s);
// Opens the time tables of a mobile swath unless they are open already. False after an ERROR line.
[[nodiscard]] bool open_times(const Project& prj, InterSwath& s);

struct InterTiles {  // the tiles of a pair
  Tocc tiles;        // occ: microtiles of the overlap; k, k2: indices in the tables of the two swaths
  Tocc moved;        // what the first swath occupies of the whole overlap and of the microtiles around it
  uint32_t XI0 = 0;  // lower left tile of the frame
  uint32_t YI0 = 0;
  uint64_t nfpix1 = 0, nfpix2 = 0;  // pixels with a height, moved (with margin) and reference
};

enum class InterState {
  ok,
  none,    // nothing to compare
  narrow,  // no part of the overlap is as wide as min_overlap_width
  memory,  // after a WARNING: the pair needs more than MEM_MB
  failed   // after an ERROR line: a cache could not be read
};

// Narrowest overlap that is registered, in microtiles.
int min_overlap_width(const RegLevels& levels);
// Chooses the overlap tiles: microtiles that both swaths occupy, less what is narrower than that, in tiles with
// at least nmTmin left. ok, none, narrow or memory.
InterState choose_inter_tiles(const Project& prj, const InterSwath& s1, const InterSwath& s2, int nmTmin,
                              const RegLevels& levels, InterTiles& inter);
// Reads the heights of the chosen tiles into the pair's images: the moved ones (first swath) with the margin, the
// reference ones on the microtiles of the overlap. none when either swath has no height there.
[[nodiscard]] InterState read_inter_tiles(const Project& prj, const InterSwath& s1, const InterSwath& s2,
                                          const RegLevels& levels, int nthreads, InterTiles& inter,
                                          NRpair& pair);
// Both.
[[nodiscard]] InterState inter_TZ1_TZ2(const Project& prj, const InterSwath& s1, const InterSwath& s2,
                                       int nmTmin, const RegLevels& levels, int nthreads, InterTiles& inter,
                                       NRpair& pair);
}  // namespace veld
