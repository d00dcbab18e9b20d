// prj/LiDAR/LmTgrid_w/LKRgrid.h
// Local linear kernel regression of points on the pixels of a tile, and the 32-bit words of a grid.
// Here:     the kernel, the gridding of one tile in memory.
// Not here: where the points come from and where the words go (LmTgrid_w).
//
// The kernel is separable; along an axis it is 0.75 times the cubic B-spline at 0.75 d, d in pixels: its
// support is +-2.667 pixels and its integral 1, so that the sum of the weights is the density in points per
// pixel. At every pixel the plane z = Z + bx dx + by dy is fitted to the points around it with these weights,
// (dx, dy) being the pixel's position less the point's.
#pragma once
#include <cstdint>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/nodata.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"

namespace veld {
constexpr int KSIZE = 6;           // taps along an axis: pixels floor(p) - 2 to floor(p) + 3
constexpr int LKR_LANES = 8;       // taps as computed; those beyond KSIZE are 0
constexpr float LKR_WMIN = 1e-4f;  // taps of this weight or less are left out
constexpr float GZ_DMINF = 0.25f;  // densities of this or less give no height
constexpr float MAXZVAR = 4.0f;    // largest variance factor of the intercept, exclusive
constexpr int LKR_MTSUB = 32;      // microtiles along the side of a tile

struct alignas(32) LKRsums {  // the kernel sums of a pixel but for Syz: one vector of 8 floats
  float S0, Sx, Sxx, Sxy, Sy, Syy, Sz, Sxz;
};

// The pixels of the gridded microtiles of one tile. After LKRgrid_tile_nn Z holds the heights less z0,
// bx and by the slopes, S the roughness. A worker keeps one and uses it for tile after tile.
struct LKRtile {
  int dim = 0;                      // pixels along the side of a microtile
  float mTsize = 0;                 // m
  double z0 = 0;                    // m, taken off all heights while the tile is worked on
  uint64_t npix = 0;                // pixels of the block
  Vector<int32_t> gmofs;            // 32 x 32: first pixel of a gridded microtile in the block, -1 else
  Vector<LKRsums> sums;             // npix
  Vector<float> Syz, Z, bx, by, S;  // npix each; Z is -9999 where there is no height
  Vector<LKRsums> lsums;            // window of one microtile
  Vector<float> lSyz, lZ, lbx, lby, lS;
};

// What became of a tile.
enum class LKRstate { done, size0, empty, Zempty };

// Offsets of the gridded microtiles (gTocc: 32 x 32, bit value 1 = gridded). Returns the pixels of the block;
// more than 2^31 - 1 are none (0).
uint64_t init_gmofs(const Image<uint8_t>& gTocc, int dim, Vector<int32_t>& gmofs);

// Bytes that a tile of nmt gridded microtiles needs while it is worked on.
uint64_t comp_LKR_bytes(uint64_t nmt, int dim);

// Grids a tile. p: np points, metres from the tile's lower left corner (x, y) and heights; points outside the
// tile count on the pixels that they reach. The order of the points is free, but those of a microtile should
// stand together. z0: about the height of the tile, m; sums of heights less z0 keep their digits, and whole metres are
// taken off exactly. smaxf: largest roughness, in grid spacings; ppp: points per pixel of four density units.
// words: one a pixel of the block. Only with LKRstate::done is there a block to be written.
LKRstate LKRgrid_tile_nn(const xyz* p, uint64_t np, double z0, const Image<uint8_t>& gTocc, int dim,
                         float mTsize, float smaxf, float ppp, LKRtile& t, Vector<uint32_t>& words);

// The word of a pixel: height z in metres (nodata: without), roughness s and grid spacing in metres, density
// in points per pixel. over is set when the height does not fit (its field is then 0).
uint32_t encode_ZDS(double z, bool nodata, float s, float GSD, float density, float ppp, bool& over);
// Height of a word in metres, -9999 without one.
inline float decode_Z(uint32_t word) {
  const uint32_t z = word & 0xFFFFFF;
  return z == 0 ? NODATA : static_cast<float>((static_cast<int32_t>(z) - 0x753000) * (1.0 / 1024));
}
inline int decode_S(uint32_t word) { return static_cast<int>((word >> 24) & 31); }
inline int decode_D(uint32_t word) { return static_cast<int>(word >> 29); }
}  // namespace veld
