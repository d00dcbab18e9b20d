// prj/LiDAR/LmTgrid_w/LmTgrid_w.h
// Grids of swaths: height, density and roughness (ZDS) at every pixel, by local linear kernel regression.
// Here:     the driver over swaths and tiles, the grid cache (index and words), reading of height images.
// Not here: the kernel itself (LKRgrid.h), tiles and points (LmTidx_r), overlap maps (LmTplot).
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/nodata.h"
#include "lib/DataStructure/vector.h"
#include "lib/general/posfile.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/project.h"

namespace veld {
constexpr uint32_t GridMagic = 0xCACACACA;
constexpr uint32_t GridVersion = 0x30E1C;
constexpr int32_t GRID_ZBIAS = 0x753000;   // 7500 m in 1/1024 m
constexpr uint32_t GRID_ZMASK = 0xFFFFFF;  // bits 0-23: height; 24-28: roughness; 29-31: density

struct [[gnu::packed]] GridHdr {  // start of ".gmT.idx"; the u16 table gT follows, then a flag byte and 1024
                                  // bytes a tile
  uint32_t magic = GridMagic;
  uint32_t version = GridVersion;
  int64_t tstamp = 0;  // modification time of the swath's file, s
  float smaxf = 0;     // GZ_SMAXF
  uint32_t dim = 0;    // pixels along the side of a microtile
  uint8_t full = 0;    // 1: gridded everywhere, 0: in the overlaps only
};
static_assert(sizeof(GridHdr) == 25);

// The grid of one swath as described by its index; tile numbers are those of the tile table.
struct SwGrid {
  std::shared_ptr<const PosFileIn> words;  // ".gmT.ZDS", open
  GridHdr hdr;
  Vector<TIsxy> TI;               // the swath's tile table
  Image<uint16_t> timg;           // tile map of the table's extent
  uint32_t XImin = 0, YImin = 0;  // its lower left tile
  Vector<uint16_t> gT;            // gridded microtiles of each tile
  Vector<Image<uint8_t>> gTocc;  // 32 x 32 per tile, 1 = gridded; empty where gridding was not wanted. A tile
                                 // that was gridded without any height has its map here but a gT of 0.
  Vector<uint64_t> ofs;          // first word of each tile's block in the file
  // Number of the tile with these absolute indices, -1 when the swath has none.
  int tile_at(int64_t XI, int64_t YI) const;
};

// What a height must be to be taken.
struct GridLimits {
  int smax = 31;          // largest roughness code (units of GSD/16)
  float zmin = -10000.f;  // m
  float zmax = 10000.f;   // m
};

struct GridResult {  // of LmT_grid
  int ncached = 0;   // swaths whose grid was taken as it stood
  int nskipped = 0;  // swaths without overlap
  int ngridded = 0;  // swaths gridded now
  std::vector<SwathId>
      beyond;  // swaths that -mem is too small for, after an ERROR line each: they have no grid
  std::vector<SwathId> damaged;  // swaths whose points are damaged, after a WARNING each: nothing was gridded
  uint64_t nblocks = 0;
  uint64_t npoints = 0;  // points read (those on the ring of a tile count again)
  uint64_t npixels = 0;  // words written
};

// Grids all used swaths of the project, in the overlaps (ovr: mobile swaths, and references where mobile ones
// lie) or everywhere (full; references only where mobile swaths lie). A grid in the cache that fits and covers
// what is wanted is kept. Writes ".gmT.idx" and ".gmT.ZDS" beside each swath's tiles. The bytes do not depend
// on nthreads. Memory: the tables of the swaths in work, about one a thread, and a tile a thread; fewer threads
// are used when -mem cannot hold these. When points are damaged, nothing is gridded and their swaths are listed:
// they are to be tiled again. False after an ERROR line when a swath failed; the others are finished
// first.
[[nodiscard]] bool LmT_grid(const Project& prj, const Tovr& ovr, bool full, int nthreads, GridResult& result);

// Tests the cached grid of a swath against the source's time, GZ_SMAXF and (with check_dim_full) dim and
// full; a mismatch is logged behind "<!> ". No ERROR but for a source whose time cannot be read.
[[nodiscard]] bool check_gZDSidx(const CacheName& swath, SwathId sw, int dim, bool full, bool check_dim_full);

// Reads ".gmT.idx" for the tile table that stands in grid.TI; all sizes are checked against those of the two
// files. False, silently, when it is missing or does not fit.
[[nodiscard]] bool read_gZDSidx_tiles(const CacheName& swath, SwGrid& grid);
// The same after reading the tile table from ".0T.idx".
[[nodiscard]] bool read_gZDSidx_tiles_idx(const CacheName& swath, SwGrid& grid);
// Whether a cached grid holds all wanted microtiles; the first that it lacks is logged.
[[nodiscard]] bool check_gZDSidx_gTocc(const SwGrid& grid, const Tocc& wanted);

enum class GridRead {
  heights,  // at least one pixel has a height
  none,     // no grid there, or no height within the limits: no fault
  failed    // an ERROR line says why; the image must not be used
};

// Heights of a tile: an image of (32 dim) x (32 dim), pixel (x, y) at (x, y) x GSD from the lower left
// corner, NODATA where there is none. mask: 32 x 32, only microtiles that are not 0 there are taken; null for
// all. S, unless null, gets the roughness codes (units of GSD/16) of these pixels, 0 elsewhere.
[[nodiscard]] GridRead read_gZ_tile(const SwGrid& grid, int tile, const Image<uint8_t>* mask,
                                    const GridLimits& limits, Image<float>& Z, Image<uint8_t>* S = nullptr);
// Heights of the tile at absolute indices (XI, YI) with a margin of buf <= 32 dim pixels on every side, which
// comes from the eight neighbours: an image of side 32 dim + 2 buf. The tile itself may be missing. mask: tiles of
// the swath, in the order of its table; only their microtiles that are not 0 are taken; null for all.
[[nodiscard]] GridRead read_gZ_tile_8nn(const SwGrid& grid, int64_t XI, int64_t YI, int buf, const Tocc* mask,
                                        const GridLimits& limits, Image<float>& Z,
                                        Image<uint8_t>* S = nullptr);

// The words of every sub-th pixel of a tile, (32 dim / sub) a side, 0 where there is none: element X is pixel
// X sub + sub/2. sub divides 32 dim (asserted). For maps: heights, roughness and density come from one word without an image of the whole tile.
[[nodiscard]] GridRead read_gZ_tile_sub(const SwGrid& grid, int tile, int sub, Image<uint32_t>& words);

// Largest roughness code that is compared: lroundf(16 x smax / GSD), both in metres.
int grid_smax_code(float smax, float GSD);
// Largest roughness code that is registered: the smaller of that code and of smax in grid spacings. Below a
// spacing of half a metre the first masks nothing, as codes end at two spacings.
int reg_smax_code(float smax, float GSD);
}  // namespace veld
