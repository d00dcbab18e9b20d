// prj/LiDAR/LmTplot/LmTplot.h
// Occupancy of single swaths and overlap maps of several, at microtile resolution.
// Here:     the maps and the operations on them, in memory.
// Not here: points and cache files (LmTidx_r), text plots (LmTplot_txt.h), choice of pairs (LmTinter).
//
// All operations are linear in the tiles of their inputs. A tile outside a frame is counted, never an error.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/DataStructure/image.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"

namespace veld {
struct ToccTile {         // one tile of an occupancy
  uint32_t x = 0, y = 0;  // tile indices
  uint32_t k = 0;         // index in the tile table of the swath (of the first one, for a pair)
  uint32_t k2 = 0;        // index in the tile table of the second swath, for a pair
  Image<uint8_t> occ;     // 32 x 32: bit value 1 occupied, 4 points were taken by a reader
};
using Tocc = std::vector<ToccTile>;  // by increasing y, then x

struct Tovr {  // overlap map of a frame of tiles
  TileInfo frame;
  Image<Image<uint8_t>> n;  // per tile: 32 x 32 counts of swaths, capped at 255; empty while untouched
};

struct mTbbox {  // box in microtiles of the whole valid range: tile index * 32 + microtile index
  int64_t xmin = 0, ymin = 0, xmax = -1, ymax = -1;  // inclusive; xmax < xmin when empty
  uint64_t n = 0;                                    // microtiles counted in it
  bool empty() const { return n == 0; }
};

// The smallest frame that holds all the given extents; an empty list gives an empty frame.
TileInfo comp_frame(const std::vector<const LTidxInfo*>& infos);
Tovr make_Tovr(const TileInfo& frame);

// Occupancy of a swath from its caches. Tiles without an occupied microtile are kept.
[[nodiscard]] bool read_Tocc(const CacheName& swath, Tocc& occ);

// Adds 1 on each occupied microtile of a swath. Returns the tiles outside the frame.
uint64_t add_Tovr_Tocc(Tovr& ovr, const Tocc& occ);
// Adds 1 on each occupied microtile of a reference where the map counts at least 1: ground of references only
// is nobody's overlap. Returns the microtiles that it was added on.
uint64_t add_Tovr_ref(Tovr& ovr, const Tocc& occ);

// How many of maps of one frame count at least 1 on each microtile: groups, of the maps of their swaths.
Tovr count_Tovr(const std::vector<Tovr>& maps);

// The map of the microtiles with at least 2 swaths: their counts, 0 elsewhere, empty tiles where none is
// left.
Tovr comp_Tovr2(const Tovr& ovr);

// Restricts an occupancy to the microtiles where the map counts at least vmin > 0; drops tiles left empty.
Tocc inter_TLocc_Tovr(const Tocc& occ, const Tovr& ovr, uint8_t vmin = 2);
// Microtiles that both swaths occupy; k and k2 index their tables. Tiles without one are dropped.
Tocc inter_Tocc(const Tocc& occ1, const Tocc& occ2);

// The microtiles where a map counts at least vmin > 0, as the occupancy of one swath; k and k2 are 0.
Tocc make_Tocc(const Tovr& ovr, uint8_t vmin);

// Box and number of the microtiles with a value of at least vmin.
mTbbox comp_mTbbox_Tovr(const Tovr& ovr, uint8_t vmin);
mTbbox comp_mTbbox_Tocc(const Tocc& occ);
uint64_t count_Tocc(const Tocc& occ);  // occupied microtiles

// Fractions of the microtiles of each of two maps of one frame, or of two swaths, that the other has too.
void count_fovr_12(const Tovr& a, const Tovr& b, double& f1, double& f2);
void count_fovr_12(const Tocc& a, const Tocc& b, double& f1, double& f2);

// Adds the ring of microtiles (8 neighbours) around the occupied ones, across tile borders, into tiles that
// stand in the swath's table TI; tiles that come in new are added, in order. Nothing is added elsewhere.
Tocc dilate_Tocc(const Tocc& occ, const Vector<TIsxy>& TI);
// Removes what is thinner than k microtiles (2 to 32): a microtile stays when it is part of a full block of
// k x k, which may lie across tile borders. Tiles left empty are dropped.
Tocc erode_Tocc_2(const Tocc& occ, int k = 2);
// The same of a map whose gaps of up to 2 gap microtiles (gap 0 to 8) count as filled: a pond or a roof without
// points doesn't make a strip narrow. What stays is part of the map; gaps stay gaps.
Tocc erode_Tocc_closed(const Tocc& occ, int k, int gap);

// One pixel a microtile; img has the size of the frame x 32 and is set to 0 first. Returns the tiles outside.
uint64_t img_Tocc(const Tocc& occ, const TileInfo& frame, Image<uint8_t>& img);
uint64_t img_Tocc(const Tocc& occ, const TileInfo& frame, Image<uint16_t>& img);
void img_Tovr_clip(const Tovr& ovr, uint8_t nmax, Image<uint8_t>& img);
}  // namespace veld
