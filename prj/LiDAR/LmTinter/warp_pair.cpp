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
constexpr int MIN_NODES = 2, MAX_NODES = 4;  // of the model's lattice along a microtile
constexpr double NODE_TIME = 0.2;            // s, between nodes: attitudes are straight meanwhile
constexpr int STEPS = 2;         // the place in the first swath depends on the displacement itself
constexpr int HEIGHT_STEPS = 2;  // and the displacement on the height there

// Displacements about a tile, m: d + z per_m at height z. The z of d is NR_NODATA without one.
struct Lattice {
  Image<xyz> d, per_m;
  float ground = 0;  // m, mean height
  float step = 1;    // grid pixels between nodes
  float first = 0;   // of the first node, grid pixels from the tile's corner
};

struct Displacement {
  xyz ground = {0, 0, 0};   // m, of the ground at height z
  xyz at_zero = {0, 0, 0};  // m, at height 0
  xyz per_m = {0, 0, 0};    // its growth a metre upwards
  float z = 0;              // m
};

// The displacement at a place. near: d is that of a place near by.
bool displacement(const CorrAt& c1, const CorrAt& c2, double x, double y, bool near, Displacement& d) {
  GroundCorr a, b;
  if (!c2.at(x, y, b)) return false;
  if (!near) d = {};
  for (int k = near ? 1 : 0; k <= STEPS; k++) {
    if (!c1.at(x + static_cast<double>(d.ground.x), y + static_cast<double>(d.ground.y), a)) return false;
    d.ground = b.c - a.c;
  }
  d.at_zero = b.at_zero() - a.at_zero();
  d.per_m = b.per_m - a.per_m;
  d.z = b.per_m == xyz{0, 0, 0} ? a.z : b.z;
  return true;
}

// Gives nodes without a displacement the mean of those of their neighbours: pixels at the edge of a swath lie between nodes
// in it and nodes beyond.
void widen(Lattice& l) {
  const int side = l.d.xsize();
  const Image<xyz> d = l.d, per_m = l.per_m;
  for (int j = 0; j < side; j++)
    for (int i = 0; i < side; i++) {
      if (d.row(j)[i].z != NR_NODATA) continue;
      xyz sum = {0, 0, 0}, sum_m = {0, 0, 0};
      float n = 0;
      for (int y = std::max(j - 1, 0); y <= std::min(j + 1, side - 1); y++)
        for (int x = std::max(i - 1, 0); x <= std::min(i + 1, side - 1); x++) {
          if (d.row(y)[x].z == NR_NODATA) continue;
          sum += d.row(y)[x];
          sum_m += per_m.row(y)[x];
          n++;
        }
      if (n > 0) l.d.row(j)[i] = sum / n, l.per_m.row(j)[i] = sum_m / n;
    }
}

Lattice make_lattice(const ToccTile& tile, const TileGeom& geom, const NRpair& pair, int nodes,
                     const CorrAt& c1, const CorrAt& c2) {
  Lattice l;
  l.step = static_cast<float>(pair.dim) / static_cast<float>(nodes);
  const int margin = static_cast<int>(std::ceil(WARP_BUF / static_cast<double>(l.step))) + 1;
  const int side = mTsub * nodes + 2 * margin + 1;
  l.first = -static_cast<float>(margin) * l.step;
  l.d.resize(side, side, xyz{0, 0, NR_NODATA});
  l.per_m.resize(side, side, xyz{0, 0, 0});
  const double metres = static_cast<double>(pair.mTsize) / nodes;
  const double x0 = tile_origin(geom, tile.x), y0 = tile_origin(geom, tile.y);
  double sum = 0;
  int n = 0;
  for (int j = 0; j < side; j++) {
    Displacement d;
    bool known = false;  // d, of the node before
    for (int i = 0; i < side; i++) {
      known = displacement(c1, c2, x0 + (i - margin) * metres, y0 + (j - margin) * metres, known, d);
      if (!known) continue;
      l.d.row(j)[i] = d.at_zero;
      l.per_m.row(j)[i] = d.per_m;
      sum += static_cast<double>(d.z);
      n++;
    }
  }
  l.ground = n > 0 ? static_cast<float>(sum / n) : 0.0f;
  widen(l);
  return l;
}

// Between the four nodes about a pixel, all of which must have a displacement.
bool at_pixel(const Lattice& l, int x, int y, xyz& d, xyz& per_m) {
  const float u = (static_cast<float>(x) - l.first) / l.step, v = (static_cast<float>(y) - l.first) / l.step;
  const int i = static_cast<int>(u), j = static_cast<int>(v);
  const float fx = u - static_cast<float>(i), fy = v - static_cast<float>(j);
  const xyz* const lower = l.d.row(j) + i;
  const xyz* const upper = l.d.row(j + 1) + i;
  if (lower[0].z == NR_NODATA || lower[1].z == NR_NODATA || upper[0].z == NR_NODATA ||
      upper[1].z == NR_NODATA)
    return false;
  const xyz *const lower_m = l.per_m.row(j) + i, *const upper_m = l.per_m.row(j + 1) + i;
  const float w[4] = {(1 - fy) * (1 - fx), (1 - fy) * fx, fy * (1 - fx), fy * fx};
  d = w[0] * lower[0] + w[1] * lower[1] + w[2] * upper[0] + w[3] * upper[1];
  per_m = w[0] * lower_m[0] + w[1] * lower_m[1] + w[2] * upper_m[0] + w[3] * upper_m[1];
  return true;
}

struct SplinePlace {
  int ix, iy;
  float tx, ty;
};

// False when the 4 x 4 coefficients about (u, v) do not all lie inside.
bool spline_place(const Image<float>& C, float u, float v, SplinePlace& p) {
  if (!(u >= 1 && v >= 1 && u < static_cast<float>(C.xsize() - 2) && v < static_cast<float>(C.ysize() - 2)))
    return false;
  p.ix = static_cast<int>(u), p.iy = static_cast<int>(v);
  p.tx = u - static_cast<float>(p.ix), p.ty = v - static_cast<float>(p.iy);
  return true;
}

float spline_at(const Image<float>& C, const SplinePlace& p) {
  float wx[4], wy[4], sum = 0;
  bspline3_weights(p.tx, wx);
  bspline3_weights(p.ty, wy);
  for (int b = 0; b < 4; b++) {
    const float* const c = C.row(p.iy - 1 + b) + p.ix - 1;
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
  for (int y = 0; y < side; y++) {
    float z = l.ground;  // of the pixel before
    for (int x = 0; x < side; x++) {
      xyz at_zero, per_m, d;
      if (!at_pixel(l, x - WARP_BUF, y - WARP_BUF, at_zero, per_m)) continue;
      SplinePlace p;
      bool inside = true;
      for (int k = 0; inside && k < HEIGHT_STEPS; k++) {
        d = at_zero + per_m * z;
        inside = spline_place(C, static_cast<float>(x - WARP_BUF + pair.buf) + d.x / GSD,
                              static_cast<float>(y - WARP_BUF + pair.buf) + d.y / GSD, p);
        if (inside) z = spline_at(C, p);
      }
      if (!inside) {
        z = l.ground;
        continue;
      }
      Z.row(y)[x] = z - d.z;
      flags.row(y)[x] = F.row(p.iy + (p.ty < 0.5f ? 0 : 1))[p.ix + (p.tx < 0.5f ? 0 : 1)];
    }
  }
}
}  // namespace

void warp_moved(const InterTiles& inter, const ModelOfPair& model, int depth, int nthreads, NRpair& pair) {
  LOG_ENTER("warp_moved nt=" << inter.tiles.size() << " buf=" << pair.buf);
  const Stopwatch time;
  const TileGeom geom = make_tile_geom(model.level);
  const int nodes = model.time_res > 0 ? std::clamp(static_cast<int>(std::ceil(model.time_res / NODE_TIME)),
                                                    MIN_NODES, MAX_NODES)
                                       : MAX_NODES;
  run_units(static_cast<int64_t>(inter.tiles.size()), nthreads, [&](int64_t t, int) {
    const CorrAt own1 = model.c1, own2 = model.c2;  // with a memory of their own
    const Lattice l = make_lattice(inter.tiles[static_cast<size_t>(t)], geom, pair, nodes, own1, own2);
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
      Displacement there;
      if (!displacement(model.c1, model.c2, P.x, P.y, false, there)) return true;
      d = there.ground;
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
