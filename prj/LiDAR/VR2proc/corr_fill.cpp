#include "prj/LiDAR/VR2proc/corr_fill.h"

#include <algorithm>
#include <unordered_map>

#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"

namespace veld {
namespace {
constexpr int REACH = 16;     // microtiles, farthest correction that is used
constexpr int NEAREST = 8;    // corrections that a plane is put through, at least
constexpr double SPREAD = 2;  // microtiles2, second moment that they must have in every direction

struct PlaneSums {  // of corrections about a hole
  double n = 0, x = 0, y = 0, xx = 0, xy = 0, yy = 0;
  dxyz c{0, 0, 0}, xc{0, 0, 0}, yc{0, 0, 0};
  void add(double dx, double dy, const xyz& v) {
    const dxyz d = to_dxyz(v);
    n++, x += dx, y += dy, xx += dx * dx, xy += dx * dy, yy += dy * dy;
    c += d, xc += d * dx, yc += d * dy;
  }
  // Central second moments.
  double mxx() const { return xx - x * x / n; }
  double mxy() const { return xy - x * y / n; }
  double myy() const { return yy - y * y / n; }
  // The smaller moment is at least det / trace, and at most twice that.
  bool enough() const { return n >= NEAREST && mxx() * myy() - mxy() * mxy() >= SPREAD * (mxx() + myy()); }
};

// Value of the least-squares plane at (0, 0).
xyz plane_at_centre(const PlaneSums& s) {
  const double mx = s.x / s.n, my = s.y / s.n;
  const double a = s.mxx(), b = s.mxy(), d = s.myy();
  const double det = a * d - b * b;  // above 0: the points are spread
  const dxyz mean = s.c / s.n, px = s.xc - mean * s.x, py = s.yc - mean * s.y;
  const dxyz slope_x = (px * d - py * b) / det, slope_y = (py * a - px * b) / det;
  return to_xyz(mean - slope_x * mx - slope_y * my);
}

class TileFinder {
 public:
  explicit TileFinder(const Vector<TIsxy>& TI) {
    for (uint64_t k = 0; k < TI.size(); k++) index_[key(TI[k].x, TI[k].y)] = k;
  }
  // The corrections of the tile at (x, y); null without such a tile.
  const Image<xyz>* at(const SCorrTbl& table, int64_t x, int64_t y) const {
    const auto it = index_.find(key(x, y));
    return it == index_.end() ? nullptr : &table.C[it->second];
  }

 private:
  static uint64_t key(int64_t x, int64_t y) {
    return static_cast<uint64_t>(x) << 32 | static_cast<uint32_t>(y);
  }
  std::unordered_map<uint64_t, uint64_t> index_;
};

// The tile with REACH microtiles of its neighbours on each side.
void read_around(const TileFinder& tiles, const SCorrTbl& table, const TIsxy& ti, Image<xyz>& around) {
  const int side = mTsub + 2 * REACH;
  around.resize(side, side, NO_CORR);
  std::fill_n(around.val, around.size(), NO_CORR);
  for (int ny = -1; ny <= 1; ny++)
    for (int nx = -1; nx <= 1; nx++) {
      const Image<xyz>* tile = tiles.at(table, int64_t{ti.x} + nx, int64_t{ti.y} + ny);
      if (!tile) continue;
      const int x0 = REACH + nx * mTsub, y0 = REACH + ny * mTsub;
      for (int y = std::max(0, -y0); y < std::min<int>(mTsub, side - y0); y++)
        for (int x = std::max(0, -x0); x < std::min<int>(mTsub, side - x0); x++)
          around(x0 + x, y0 + y) = (*tile)(x, y);
    }
}

// Grows a square about the hole ring by ring until it holds enough corrections; none when it never does.
xyz fill_hole(const Image<xyz>& around, int cx, int cy) {
  PlaneSums sums;
  const auto add = [&](int dx, int dy) {
    const xyz& v = around(cx + dx, cy + dy);
    if (v.z != NODATA) sums.add(dx, dy, v);
  };
  for (int r = 1; r <= REACH && !sums.enough(); r++) {
    for (int d = -r; d <= r; d++) add(d, -r), add(d, r);
    for (int d = -r + 1; d < r; d++) add(-r, d), add(r, d);
  }
  return sums.enough() ? plane_at_centre(sums) : NO_CORR;
}
}  // namespace

uint64_t fill_SCorr(const Vector<TIsxy>& TI, const std::vector<uint32_t>& holes, int nthreads,
                    SCorrTbl& table) {
  const TileFinder tiles(TI);
  std::vector<size_t> first(TI.size() + 1, holes.size());  // of each tile; holes come tile by tile
  for (size_t i = holes.size(); i-- > 0;) first[holes[i] / mTn] = i;
  for (size_t k = TI.size(); k-- > 0;) first[k] = std::min(first[k], first[k + 1]);
  std::vector<xyz> value(holes.size(), NO_CORR);
  std::vector<Image<xyz>> around(static_cast<size_t>(nthreads));
  run_units(static_cast<int64_t>(TI.size()), nthreads, [&](int64_t k, int thread) {
    const size_t tile = static_cast<size_t>(k);
    if (first[tile] == first[tile + 1]) return true;
    Image<xyz>& a = around[static_cast<size_t>(thread)];
    read_around(tiles, table, TI[tile], a);
    for (size_t i = first[tile]; i < first[tile + 1]; i++) {
      const int m = static_cast<int>(holes[i] % mTn);
      value[i] = fill_hole(a, REACH + m % mTsub, REACH + m / mTsub);
    }
    return true;
  });
  uint64_t nfilled = 0;
  for (size_t i = 0; i < holes.size(); i++) {
    table.C[holes[i] / mTn][holes[i] % mTn] = value[i];
    nfilled += value[i].z != NODATA;
  }
  return nfilled;
}
}  // namespace veld
