// prj/LiDAR/LmTidx_r/LmTidx_r.h
// Reading of the tile caches of a swath: tables, occupancy, heights, times and points.
// Here:     every reader, by the names of the swath's cache files.
// Not here: writing (LmTidx_w), maps over several swaths (LmTplot), grids (LmTgrid_w).
//
// Readers return false when a file is missing, short or does not fit its header, without an ERROR line: the
// caller names the consequence. Counts are compared with file sizes before they are used. All readers may
// run on several threads at once; each call opens its own files.
// Per-tile images are 32 x 32, element (column, row), in the order of the tile table.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"
#include "lib/general/posfile.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"

namespace veld {
[[nodiscard]] bool read_LTidxHdr(const CacheName& swath, LTidxHdr& hdr);
int header_level(const LTidxHdr& hdr);  // of the tiles, 5 to 10
[[nodiscard]] bool read_LTidxInfo(const CacheName& swath, LTidxInfo& info);
// The tile table, by increasing y, then x.
[[nodiscard]] bool read_LTidx_TI(const CacheName& swath, Vector<TIsxy>& TI);

// Tile map: index into the table, 65535 where the swath has no tile. From the extent of the header, or from
// an extent of the caller's (tiles outside it are left out).
constexpr uint16_t NO_TILE = 65535;
void build_tile_map(const LTidxInfo& info, const Vector<TIsxy>& TI, Image<uint16_t>& timg);
void build_tile_map(const TileInfo& frame, const Vector<TIsxy>& TI, Image<uint16_t>& timg);

TileInfo extent_of(const Vector<TIsxy>& TI);  // of a table that is not empty

struct PointFiles;  // the open files that points are read from

// What every reader of points needs of a swath, 14 bytes or so a tile; read-only once filled.
struct SwTiles {
  CacheName cache;
  TileGeom geom;
  LTidxInfo info;
  Vector<TIsxy> TI;
  Vector<uint64_t> Pidx;                    // per tile, index of its first point in the point file
  Image<uint16_t> timg;                     // tile map of the header's extent
  std::vector<SwTiles> members;             // of a union, whose points stand in theirs; else empty
  std::shared_ptr<const PointFiles> files;  // see open_points; null: opened for each tile
  // Index of the tile (XI, YI) in the table, -1 when the swath has none there.
  int find(int64_t XI, int64_t YI) const {
    const int64_t x = XI - info.XImin, y = YI - info.YImin;
    if (x < 0 || y < 0 || x >= timg.xsize() || y >= timg.ysize()) return -1;
    const uint16_t k = timg.row(static_cast<int>(y))[x];
    return k == NO_TILE ? -1 : k;
  }
};
[[nodiscard]] bool read_SwTiles(const CacheName& swath, SwTiles& sw);
// Keeps the swath's files open for all tiles to come (three descriptors). The files of a union's members are
// opened when a tile needs them. False after an ERROR line.
[[nodiscard]] bool open_points(SwTiles& sw);
// The paths of a union's swaths, from its list. False, silently, when that is missing or its numbers are not
// 0, 1, 2 ...
[[nodiscard]] bool read_LTidx_uswaths(const CacheName& swath, std::vector<std::string>& members);

// Tables of all tiles of a swath; nt is the length of its tile table.
[[nodiscard]] bool read_LmTidx_tiles_TN(const CacheName& swath, uint32_t nt, Vector<Image<uint32_t>>& TN);
// 1 where a microtile is occupied (more than 4 points), else 0.
[[nodiscard]] bool read_LmTidx_tiles_mocc(const CacheName& swath, uint32_t nt, Vector<Image<uint8_t>>& mocc);

// The same tables one tile at a time, in any order and from any thread: the files stay open. k is the index in
// the tile table. False, after an ERROR line, when a file cannot be read.
class TileTables {
 public:
  // Opens the tables of a swath; times: those of the times, too. nt: the length of its tile table, which the
  // sizes of the files are compared with.
  [[nodiscard]] bool open(const CacheName& swath, uint32_t nt, bool times);
  bool is_open() const { return counts_.is_open(); }
  [[nodiscard]] bool read_N(uint32_t k, Image<uint32_t>& N) const;
  [[nodiscard]] bool read_Zm(uint32_t k, Image<int32_t>& Zm) const;
  // Time of one tile at the microtile corners (33 x 33) or centres (32 x 32), ticks relative to info.t0.
  [[nodiscard]] bool read_Vt(uint32_t k, Image<int32_t>& Vt) const;
  [[nodiscard]] bool read_Ct(uint32_t k, Image<int32_t>& Ct) const;

 private:
  PosFileIn counts_, heights_, times_;
};

// Centre times and mean heights: one sample a microtile.
[[nodiscard]] bool read_sw_CZt_tiles(const CacheName& swath, uint32_t nt, Vector<Image<int32_t>>& Ct,
                                     Vector<Image<int32_t>>& Zm);
// Centre times with the coded time range and deviation.
[[nodiscard]] bool read_sw_t_tiles(const CacheName& swath, uint32_t nt, Vector<Image<int32_t>>& Ct,
                                   Vector<Image<uint8_t>>& dt, Vector<Image<uint8_t>>& dev);

// Points of tile k and of the ring of microtiles, one microtile wide, that adjoins it in the 8 tiles around.
// gTocc: 32 x 32 of the tile, bit value 1 on the microtiles to grid; bit value 4 is set on those of this tile
// from which points were taken. Only occupied microtiles that lie within `reach` microtiles of one to grid
// are read (32: all of them). P: metres relative to the tile's lower left corner, Z the height; it is
// enlarged when too small, np of its elements are filled. np0: how many of them lie in the tile itself.
// np = 0 with success: the tile is left out (nothing to grid, or no point in the tile itself).
// Of a union, the counts of its swaths together decide what is occupied, and the points of all are read.
[[nodiscard]] bool read_LmT_tile_nn(const SwTiles& sw, uint32_t k, Image<uint8_t>& gTocc, int reach,
                                    Vector<xyz>& P, uint64_t& np, uint64_t& np0);

// Points strictly inside the rectangle (x0, x1) x (y0, y1), metres relative to the lower left corner of tile
// (XI, YI), which may reach into other tiles and need not exist. Coordinates as above.
// nmtr, nmtf: microtiles read and refused (4 points or fewer, or no tile).
[[nodiscard]] bool read_LmT_tile_bbox(const SwTiles& sw, int64_t XI, int64_t YI, double x0, double x1,
                                      double y0, double y1, Vector<xyz>& P, uint64_t& np, uint64_t& nmtr,
                                      uint64_t& nmtf);
}  // namespace veld
