// prj/LiDAR/LmTidx_r/tile_geom.h
// Geometry of tiles and microtiles: fixed-point ground coordinates, tile indices, positions in a tile.
// Here:     the constants and the splits of a coordinate, all inline.
// Not here: the records of the cache files (LmTidx_rec.h), reading them (LmTidx_r.h).
//
// One fixed-point unit is 1/512 m. Planimetric coordinates carry a bias of 10,240,000 m and heights one of
// 10,000 m, so that valid values are never negative. A tile is 2^level m wide and always 32 x 32 microtiles.
#pragma once
#include <cstdint>

namespace veld {
constexpr int mT_SUB_LEVEL = 5;
constexpr int mTsub = 1 << mT_SUB_LEVEL;       // microtiles along the side of a tile
constexpr int mTn = mTsub * mTsub;             // microtiles of a tile; flat index = row * 32 + column
constexpr uint32_t NMT_MIN = 4;                // a microtile is occupied when it holds more points than this
constexpr int64_t GROUND_BIAS = 0x138800000;   // 10,240,000 m in units
constexpr int64_t GROUND_END = 0x61A800000;    // biased X and Y lie in [0, this)
constexpr int64_t HEIGHT_BIAS = 0x4E2000;      // 10,000 m in units
constexpr int64_t HEIGHT_END = 0x9C4000;       // biased Z lies in [0, this)
constexpr double GROUND_ORIGIN = -10240000.0;  // m, ground position of tile index 0
constexpr double UNITS_PER_M = 512.0;
constexpr double M_PER_UNIT = 0.001953125;
constexpr int32_t NO_I32 = INT32_MIN;     // 0x80000000: no value in an i32 table
constexpr double TICK_S = 0.0009765625;   // s, one tick of a stored time
constexpr uint32_t MAX_TILES = 65535;     // tiles of a swath; 65535 itself marks an empty cell
constexpr uint32_t MAX_TILE_SPAN = 1024;  // tiles along an axis of a swath, at most

struct TileGeom {
  int level;       // 5 to 10
  int shift;       // biased coordinate >> shift = tile index
  uint32_t mask;   // biased coordinate & mask = position in the tile, units (at most 19 bits)
  int mshift;      // position in the tile >> mshift = microtile index
  uint32_t mmask;  // position in the microtile, units (at most 14 bits)
  double Tsize;    // m
  double mTsize;   // m
};

inline int tile_level(bool large, int xlevel) {
  const int level = 3 * (large ? 1 : 0) + 7 - xlevel;
  return level < 5 ? 5 : level;
}

inline TileGeom make_tile_geom(int level) {
  TileGeom g;
  g.level = level;
  g.shift = level + 9;
  g.mask = (1u << g.shift) - 1;
  g.mshift = level + 4;
  g.mmask = ((1u << g.mshift) - 1) & 0x3FFF;
  g.Tsize = static_cast<double>(1 << level);
  g.mTsize = g.Tsize / mTsub;
  return g;
}

// Ground position (m) of the lower or left side of the tile with this index.
inline double tile_origin(const TileGeom& g, uint32_t index) { return index * g.Tsize + GROUND_ORIGIN; }
}  // namespace veld
