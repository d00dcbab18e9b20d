// prj/LiDAR/TNRreg/TNRreg.h
// Non-rigid registration of two gridded swaths over the tiles of their overlap.
// Here:     what a driver of pairs needs: the levels, a pair's images, the registration, the measurement.
// Not here: choice of pairs, grid files, DUT records (LmTinter, DUTio); the steps inside (TNRreg_internal.h).
#pragma once
#include <cstdint>
#include <string>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/nodata.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/TNRreg/dz_stat.h"

namespace veld {
constexpr float NR_NODATA = NODATA;   // a height without data; a vertex (its z) without estimate
constexpr float NR_NO_UNC = 1000.0f;  // uncertainty of a vertex without estimate
constexpr int MG_SKIP = 2;            // level J works on pyramid level max(J - MG_SKIP, 0)
constexpr int NR_JMAX = 5;            // coarsest level: 2 x 2 vertices a tile

// Levels of a registration and the margin that the moved images need for them.
struct RegLevels {
  int Jstart = 2;  // first level, NR_JMAX at most
  int Jend = 0;    // last level: vertices of a tile are 2^(5 - Jend) + 1 along its side
  int buf = 16;    // margin of the moved images on each side, in grid pixels; a multiple of 8
};

// The levels for the options -init (0..4) and -coarse (0..2); see docs of the body for the capture range.
RegLevels comp_reg_levels(int init, int coarse);
// Final level for the option -coarse and the pixels along a microtile: coarser where a vertex cell would hold
// too few pixels for three unknowns a vertex (the gridding kernel ties pixels over about 5 together).
int comp_Jend(int coarse, int dim);

// Vertices along the side of a tile at level J.
constexpr int comp_dxp(int J) { return (1 << (5 - J)) + 1; }
// Width in grid pixels of a pixel of Def, whose tiles have dxp vertices along their side: 2^max(J - MG_SKIP,
// 0).
constexpr int comp_pixel(int dxp) { return dxp > 9 ? 1 : 8 / (dxp - 1); }

// Bytes that the registration of nt tiles holds at its peak, images of the pair included.
uint64_t comp_reg_bytes(uint64_t nt, int dim, const RegLevels& levels);

// Coefficients of the cubic B-spline through heights whose holes have been closed.
struct CoefImage {
  Image<float> value;
};

struct NRpyramid {  // levels 1 and up of the images of a pair, by level - 1 and tile
  Vector<Vector<CoefImage>> C;
  Vector<Vector<Image<float>>> Z;
  Vector<Vector<Image<uint8_t>>> F;
};

// The images of a pair, one per tile; n = 32 * dim pixels along a tile's side. Row 0 is the southern edge,
// pixel (0, 0) is the tile's lower left corner, where vertex (0, 0) stands too.
struct NRpair {
  Image<int16_t> TI;          // tile number by tile cell of the pair's frame, -1 none; y upward
  Vector<Image<float>> img1;  // moved heights (first swath), n + 2 * buf square; NR_NODATA in holes
  Vector<Image<float>> img2;  // reference heights (second swath), n square
  // Roughness codes of the grids, of the size of the images, or none at all; rough_unit is a code's height, m.
  Vector<Image<uint8_t>> S1, S2;
  float rough_unit = 0;
  int smax = 31;     // largest code of the moved image that is compared; its spline needs the heights of all
  int buf = 0;       // margin of img1
  int dim = 0;       // pixels along the side of a microtile
  float mTsize = 0;  // m, side of a microtile

  // Filled by prepare_pair.
  Vector<Image<uint8_t>> F;  // where img1 had data: 1 + the roughness code
  Vector<CoefImage> C;       // of img1, of its size
  NRpyramid pyramid;         // of a pair that is registered on coarser levels first
};

struct NRparam {
  int Jstart = 2;  // levels, from comp_reg_levels
  int Jend = 0;
  int nthreads = 1;     // no result depends on it
  std::string cache;    // deformation cache of the pair (".rpc.d0"); empty: none is read or written
  bool cached = false;  // take the deformation from the cache instead of computing it
  // The moved images have been brought to the reference by a model: what is left is smoother, and the prior stiffer.
  bool about_model = false;
};

// Optional maps of the differences of a pair, one image a tile in the order of the pair's tiles: a cell holds the
// mean of the differences in it, NR_NODATA without one.
struct DZmap {
  int sub = 4;         // grid pixels along a cell; divides 32 dim
  bool want0 = false;  // dz0 is wanted
  bool want = false;   // dz is wanted
  // Before and after the deformation; filled by the measurement, 32 dim / sub square.
  Vector<Image<float>> dz0, dz;
};

// What a registration starts from: the deformation of the cache at the last level, or none at the first one.
struct NRstart {
  int J = 0;
  bool from_cache = false;
  Vector<Image<xyz>> Def;
  int depth() const { return J > MG_SKIP ? J - MG_SKIP : 0; }  // levels of the pyramid that it needs
};

struct NRresult {
  bool ok = false;             // converged at Jend, with at least one vertex left
  bool from_cache = false;     // Def was read from the cache
  bool cache_written = false;  // the cache was written, whole
  // Per tile, comp_dxp(Jend) square, raster order. Def: position in the first swath less position in the
  // second: x, y in grid pixels (times 2^max(Jend - 2, 0)), z in height units. A vertex shared by tiles
  // stands in one of them only; its copies on right and upper edges, and all vertices without estimate, have
  // z NR_NODATA.
  Vector<Image<xyz>> Def;
  Vector<Image<xyz>> Unc;   // standard deviations in the units of Def, NR_NO_UNC where Def has none
  Vector<Image<float>> Zv;  // mean reference height about the vertex, NR_NODATA without
  // Mean roughness (m) of the pixels about the vertex by their weights: what the displacement was taken from. Not part
  // of Unc. 0 without roughness codes.
  Vector<Image<float>> Rough;
  DZstat before, after;  // differences at displacement 0 and at Def
};

// Reads the cache of nt tiles when param.cached; a cache that cannot be read is none.
NRstart start_reg(uint64_t nt, const NRparam& param);

// Makes the images ready for registration and measurement: flags, pyramids of `depth` levels, coefficients. Uses up
// img1, whose memory the coefficients take.
void prepare_pair(NRpair& pair, int depth, int nthreads);
// Its pyramids, of moved heights without what F leaves out: levels 1 to depth.
void make_pyramid(NRpair& pair, const Vector<Image<float>>& moved, int depth, int nthreads);

// Registers a prepared pair from coarse to fine; start goes into the result. dzmap may be null. Returns
// result.ok; what failed stands in the log, a failed pair is no error of the run.
[[nodiscard]] bool mg_nr_reg_tiles(const NRpair& pair, const NRparam& param, NRstart&& start,
                                   NRresult& result, DZmap* dzmap = nullptr);

// Measures a prepared pair without solving: at displacement 0 when Def is null, else under that deformation (as
// returned by mg_nr_reg_tiles; copied, not changed). False when nothing could be compared. before: with a Def, both are measured on the pixels that either
// displacement leaves on data, and this gets the statistics at displacement 0.
[[nodiscard]] bool acc_qc_tiles(const NRpair& pair, const Vector<Image<xyz>>* Def, int nthreads, DZstat& stat,
                                DZmap* dzmap = nullptr, DZstat* before = nullptr);
}  // namespace veld
