#include "prj/LiDAR/LmTinter/warp_pair.h"

#include <algorithm>
#include <cmath>

#include "lib/ImgProc/bspline3.h"
#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/TNRreg/Reg_Coef.h"

namespace veld {
namespace {
constexpr int NODES =
    4;  // of the model's lattice along a microtile: attitudes are straight between two of them
constexpr int STEPS = 2;  // the place in the first swath depends on the displacement itself

struct Lattice {  // displacements about a tile, m; z is NR_NODATA without one
  Image<xyz> d;
  float step = 1;   // grid pixels between nodes
  float first = 0;  // of the first node, grid pixels from the tile's corner
};

bool displacement(const CorrAt& c1, const CorrAt& c2, double x, double y, xyz& d) {
  xyz a, b;
  if (!c2.at(x, y, b)) return false;
  d = {0, 0, 0};
  for (int k = 0; k <= STEPS; k++) {
    if (!c1.at(x + static_cast<double>(d.x), y + static_cast<double>(d.y), a)) return false;
    d = b - a;
  }
  return true;
}

Lattice make_lattice(const ToccTile& tile, const TileGeom& geom, const NRpair& pair, const CorrAt& c1,
                     const CorrAt& c2) {
  Lattice l;
  l.step = static_cast<float>(pair.dim) / NODES;
  const int margin = static_cast<int>(std::ceil(WARP_BUF / static_cast<double>(l.step))) + 1;
  const int side = mTsub * NODES + 2 * margin + 1;
  l.first = -static_cast<float>(margin) * l.step;
  l.d.resize(side, side, xyz{0, 0, NR_NODATA});
  const double metres = static_cast<double>(pair.mTsize) / NODES;
  const double x0 = tile_origin(geom, tile.x), y0 = tile_origin(geom, tile.y);
  for (int j = 0; j < side; j++)
    for (int i = 0; i < side; i++) {
      xyz d;
      if (displacement(c1, c2, x0 + (i - margin) * metres, y0 + (j - margin) * metres, d)) l.d.row(j)[i] = d;
    }
  return l;
}

// Between the four nodes about a pixel, all of which must have a displacement.
bool at_pixel(const Lattice& l, int x, int y, xyz& d) {
  const float u = (static_cast<float>(x) - l.first) / l.step, v = (static_cast<float>(y) - l.first) / l.step;
  const int i = static_cast<int>(u), j = static_cast<int>(v);
  const float fx = u - static_cast<float>(i), fy = v - static_cast<float>(j);
  const xyz* const lower = l.d.row(j) + i;
  const xyz* const upper = l.d.row(j + 1) + i;
  if (lower[0].z == NR_NODATA || lower[1].z == NR_NODATA || upper[0].z == NR_NODATA ||
      upper[1].z == NR_NODATA)
    return false;
  d = (1 - fy) * ((1 - fx) * lower[0] + fx * lower[1]) + fy * ((1 - fx) * upper[0] + fx * upper[1]);
  return true;
}

// Height of the spline at a place whose 4 x 4 coefficients lie inside.
float spline_at(const Image<float>& C, int ix, int iy, float tx, float ty) {
  float wx[4], wy[4], sum = 0;
  bspline3_weights(tx, wx);
  bspline3_weights(ty, wy);
  for (int b = 0; b < 4; b++) {
    const float* const c = C.row(iy - 1 + b) + ix - 1;
    sum += wy[b] * (wx[0] * c[0] + wx[1] * c[1] + wx[2] * c[2] + wx[3] * c[3]);
  }
  return sum;
}

void warp_tile(const Lattice& l, const NRpair& pair, const Image<float>& C, const Image<uint8_t>& F,
               Image<float>& Z, Image<uint8_t>& flags) {
  const int n = mTsub * pair.dim, side = n + 2 * WARP_BUF;
  const float GSD = pair.mTsize / static_cast<float>(pair.dim);
  Z.resize(side, side, NR_NODATA);
  flags.resize(side, side, 0);
  for (int y = 0; y < side; y++)
    for (int x = 0; x < side; x++) {
      xyz d;
      if (!at_pixel(l, x - WARP_BUF, y - WARP_BUF, d)) continue;
      const float u = static_cast<float>(x - WARP_BUF + pair.buf) + d.x / GSD;
      const float v = static_cast<float>(y - WARP_BUF + pair.buf) + d.y / GSD;
      if (!(u >= 1 && v >= 1 && u < static_cast<float>(C.xsize() - 2) &&
            v < static_cast<float>(C.ysize() - 2)))
        continue;
      const int ix = static_cast<int>(u), iy = static_cast<int>(v);
      const float tx = u - static_cast<float>(ix), ty = v - static_cast<float>(iy);
      Z.row(y)[x] = spline_at(C, ix, iy, tx, ty) - d.z;
      const uint8_t* const f0 = F.row(iy) + ix;
      const uint8_t* const f1 = F.row(iy + 1) + ix;
      if (f0[0] && f0[1] && f1[0] && f1[1]) flags.row(y)[x] = (ty < 0.5f ? f0 : f1)[tx < 0.5f ? 0 : 1];
    }
}
}  // namespace

void warp_moved(const InterTiles& inter, const ModelOfPair& model, int depth, int nthreads, NRpair& pair) {
  LOG_ENTER("warp_moved nt=" << inter.tiles.size() << " buf=" << pair.buf);
  const Stopwatch time;
  const TileGeom geom = make_tile_geom(model.level);
  run_units(static_cast<int64_t>(inter.tiles.size()), nthreads, [&](int64_t t, int) {
    const CorrAt own1 = model.c1, own2 = model.c2;  // with a memory of their own
    const Lattice l = make_lattice(inter.tiles[static_cast<size_t>(t)], geom, pair, own1, own2);
    Image<float> Z;
    Image<uint8_t> flags;
    warp_tile(l, pair, pair.C[t].value, pair.F[t], Z, flags);
    pair.C[t].value.swap(Z);
    pair.F[t].swap(flags);
    return true;
  });
  pair.buf = WARP_BUF;
  Vector<Image<float>> heights(inter.tiles.size());
  for (uint64_t t = 0; t < heights.size(); t++) heights[t].swap(pair.C[t].value);
  make_pyramid(pair, heights, depth, nthreads);
  Reg_Coef(heights, nthreads, pair.C);
  LOG_LINE("/// INTER_WARP_TIME=" << time.text());
}

void add_model(const ModelOfPair& model, std::vector<DUTstr>& rec) {
  std::erase_if(rec, [&](DUTstr& r) {
    const dxyz P = {static_cast<double>(r.X), static_cast<double>(r.Y), static_cast<double>(r.Z)};
    xyz a, b, d = {0, 0, 0};
    if (!DUT_valid(r)) {
      if (!displacement(model.c1, model.c2, P.x, P.y, d)) return true;
    } else {
      if (!model.c2.at_time(P, r.Time2, {0, 0, 0}, b)) return true;
      for (int k = 0; k <= STEPS; k++) {
        if (!model.c1.at_time(P, r.Time1, d + r.Disp, a)) return true;
        d = b - a;
      }
    }
    r.Disp += d;
    return false;
  });
}
}  // namespace veld
