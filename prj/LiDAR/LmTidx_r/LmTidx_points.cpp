// Points of a tile with its ring, and of a rectangle.
#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

#include "lib/general/log.h"
#include "lib/general/posfile.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_internal.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"

namespace veld {
// Open point, count and height files of a swath. A union has counts only.
struct PointFiles {
  PosFileIn points, counts, heights;
  bool open(const SwTiles& sw) {
    if (!open_cache(sw.cache, EXT_MTIDX, counts)) return false;
    if (!sw.members.empty()) return true;
    if (!open_cache(sw.cache, EXT_MTXYZ, points) || !open_cache(sw.cache, EXT_MTZM, heights)) return false;
    if (points.size() == sw.info.np * sizeof(LmTpoint)) return true;
    ERROR_MSG("point file of " << points.size() << " bytes, expected " << sw.info.np * sizeof(LmTpoint)
                               << ", file='" << points.name() << "'");
    return false;
  }
};

namespace {
// The points of a swath, with the tables of the tile that is being read.
class TilePoints {
 public:
  explicit TilePoints(const SwTiles& sw) : sw_(sw) {}
  bool open() {
    files_ = sw_.files.get();
    if (files_) return true;
    files_ = &own_;
    return own_.open(sw_);
  }
  bool load_counts(uint32_t k) { return files_->counts.read(k * MT_IMG_BYTES, N, sizeof N); }
  // Loads the tables of tile k. False when they do not add up to the tile's count.
  bool load(uint32_t k) {
    if (!load_counts(k) || !files_->heights.read(k * MT_IMG_BYTES, Zm, sizeof Zm)) return false;
    uint64_t sum = 0;
    for (int i = 0; i < mTn; i++) {
      first_[i] = sw_.Pidx[k] + sum;
      sum += N[i];
    }
    return sum == sw_.TI[k].n;
  }
  // Raw points of the microtiles i0 to i1 (inclusive, flat indices) of the loaded tile, at the end of raw.
  bool read(int i0, int i1, std::vector<LmTpoint>& raw) {
    const uint64_t n = first_[i1] + N[i1] - first_[i0];
    const uint64_t at = raw.size();
    if (n == 0) return true;
    raw.resize(at + n);
    return files_->points.read(first_[i0] * sizeof(LmTpoint), raw.data() + at, n * sizeof(LmTpoint));
  }
  uint32_t N[mTn];
  int32_t Zm[mTn];

 private:
  const SwTiles& sw_;
  const PointFiles* files_ = nullptr;
  PointFiles own_;
  uint64_t first_[mTn] = {};
};

void reserve_points(Vector<xyz>& P, uint64_t np, uint64_t more) {
  if (np + more <= P.size()) return;
  Vector<xyz> larger(std::max(np + more, P.size() + P.size() / 2));
  std::copy_n(P.val, np, larger.val);
  P.swap(larger);
}

// Decodes the points of one microtile; x0, y0 is its corner in units, relative to the frame of the result.
void decode(const LmTpoint* raw, uint32_t n, int32_t x0, int32_t y0, int32_t zm, xyz* out) {
  constexpr float unit = static_cast<float>(M_PER_UNIT);
  const int32_t z0 = zm - 0x80000;
  for (uint32_t i = 0; i < n; i++) {
    const uint32_t w = raw[i].xyz;
    const int32_t h = static_cast<int32_t>(((w >> 28) << 16) | raw[i].zlow);
    out[i] = {static_cast<float>(x0 + static_cast<int32_t>(w & 0x3FFF)) * unit,
              static_cast<float>(y0 + static_cast<int32_t>((w >> 14) & 0x3FFF)) * unit,
              static_cast<float>(h + z0) * unit};
  }
}

// Reads the wanted microtiles of the loaded tile and appends their points. (dx, dy): the tile less the
// frame's tile. wanted: 1024 flags; only occupied microtiles may be set. Neighbouring microtiles share one
// read.
bool add_microtiles(TilePoints& files, const TileGeom& g, int dx, int dy, const uint8_t* wanted,
                    std::vector<LmTpoint>& raw, Vector<xyz>& P, uint64_t& np) {
  for (int i0 = 0; i0 < mTn; i0++) {
    if (!wanted[i0]) continue;
    int i1 = i0;
    while (i1 + 1 < mTn && wanted[i1 + 1]) i1++;
    raw.clear();
    if (!files.read(i0, i1, raw)) return false;
    reserve_points(P, np, raw.size());
    const LmTpoint* next = raw.data();
    for (int i = i0; i <= i1; i++) {
      const int32_t x0 = (dx * mTsub + i % mTsub) * (1 << g.mshift),
                    y0 = (dy * mTsub + i / mTsub) * (1 << g.mshift);
      decode(next, files.N[i], x0, y0, files.Zm[i], P.val + np);
      next += files.N[i];
      np += files.N[i];
    }
    i0 = i1;
  }
  return true;
}

// A 34 x 34 lattice (the tile and its ring): 1 within `reach` microtiles of a microtile to grid.
void spread(const Image<uint8_t>& gTocc, int reach, uint8_t* near_grid) {
  constexpr int side = mTsub + 2;
  std::fill_n(near_grid, side * side, uint8_t{0});
  for (int y = 0; y < mTsub; y++)
    for (int x = 0; x < mTsub; x++) {
      if (!(gTocc.row(y)[x] & 1)) continue;
      const int xa = std::max(x + 1 - reach, 0), xb = std::min(x + 1 + reach, side - 1);
      for (int v = std::max(y + 1 - reach, 0); v <= std::min(y + 1 + reach, side - 1); v++)
        std::fill(near_grid + v * side + xa, near_grid + v * side + xb + 1, uint8_t{1});
    }
}
// Tile and ring of one swath.
struct RingRead {
  const SwTiles& sw;
  uint32_t k;
  const uint8_t* near_grid;  // 34 x 34
  Image<uint8_t>& gTocc;
  Vector<xyz>& P;
  uint64_t &np, &np0;
  std::vector<LmTpoint> raw = {};
};

// Marks the microtiles to read of the tile at (dx, dy) from the middle one, by the counts N.
void choose_wanted(const RingRead& ring, int dx, int dy, const uint32_t* N, uint8_t* wanted) {
  constexpr int side = mTsub + 2;
  for (int i = 0; i < mTn; i++) {
    const int x = dx * mTsub + i % mTsub + 1, y = dy * mTsub + i / mTsub + 1;
    wanted[i] = x >= 0 && x < side && y >= 0 && y < side && ring.near_grid[y * side + x] && N[i] > NMT_MIN;
    if (dx == 0 && dy == 0 && wanted[i]) ring.gTocc[i] |= 4;
  }
}

// Calls add(dx, dy) for the tile itself, then for its neighbours row by row, until it fails or the tile itself
// has no point.
template <typename Add>
bool walk_ring(RingRead& ring, Add add) {
  for (int n = 0; n < 9; n++) {
    const int place = n == 0 ? 4 : n <= 4 ? n - 1 : n;
    if (!add(place % 3 - 1, place / 3 - 1)) return false;
    if (n == 0) ring.np0 = ring.np;
    if (ring.np0 > 0) continue;
    LOG_LINE("read_LmT_tile_nn <!> DROP TILE (np0=0)");
    ring.np = 0;
    return true;
  }
  return true;
}

int neighbour(const RingRead& ring, const SwTiles& sw, int dx, int dy) {
  const TIsxy& t = ring.sw.TI[ring.k];
  return sw.find(static_cast<int64_t>(t.x) + dx, static_cast<int64_t>(t.y) + dy);
}

bool read_ring(RingRead& ring) {
  TilePoints files(ring.sw);
  if (!files.open()) return false;
  return walk_ring(ring, [&](int dx, int dy) {
    uint8_t wanted[mTn];
    const int k = neighbour(ring, ring.sw, dx, dy);
    if (k < 0) return true;
    if (!files.load(static_cast<uint32_t>(k))) return false;
    choose_wanted(ring, dx, dy, files.N, wanted);
    return add_microtiles(files, ring.sw.geom, dx, dy, wanted, ring.raw, ring.P, ring.np);
  });
}

// The same for a union: each swath that has points there is opened once.
bool read_LmT_tile_nn_u(RingRead& ring) {
  const std::vector<SwTiles>& members = ring.sw.members;
  TilePoints all(ring.sw);
  if (!all.open()) return false;
  std::map<size_t, TilePoints> opened;
  return walk_ring(ring, [&](int dx, int dy) {
    uint8_t wanted[mTn], here[mTn];
    const int k = neighbour(ring, ring.sw, dx, dy);
    if (k < 0) return true;
    if (!all.load_counts(static_cast<uint32_t>(k))) return false;
    choose_wanted(ring, dx, dy, all.N, wanted);
    for (size_t m = 0; m < members.size(); m++) {
      const int km = neighbour(ring, members[m], dx, dy);
      if (km < 0) continue;
      const auto [at, fresh] = opened.try_emplace(m, members[m]);
      TilePoints& files = at->second;
      if ((fresh && !files.open()) || !files.load(static_cast<uint32_t>(km))) return false;
      for (int i = 0; i < mTn; i++) here[i] = wanted[i] && files.N[i] > 0;
      if (!add_microtiles(files, ring.sw.geom, dx, dy, here, ring.raw, ring.P, ring.np)) return false;
    }
    return true;
  });
}
}  // namespace

bool open_points(SwTiles& sw) {
  const auto files = std::make_shared<PointFiles>();
  if (!files->open(sw)) return false;
  sw.files = files;
  return true;
}

bool read_LmT_tile_nn(const SwTiles& sw, uint32_t k, Image<uint8_t>& gTocc, int reach, Vector<xyz>& P,
                      uint64_t& np, uint64_t& np0) {
  ASSERT(k < sw.TI.size() && gTocc.xsize() == mTsub && gTocc.ysize() == mTsub);
  constexpr int side = mTsub + 2;
  np = np0 = 0;
  if (std::none_of(gTocc.val, gTocc.val + mTn, [](uint8_t v) { return (v & 1) != 0; })) {
    LOG_LINE("read_LmT_tile_nn <!> DROP TILE (gTocc empty)");
    return true;
  }
  uint8_t near_grid[side * side];
  spread(gTocc, reach, near_grid);
  RingRead ring{sw, k, near_grid, gTocc, P, np, np0};
  return sw.members.empty() ? read_ring(ring) : read_LmT_tile_nn_u(ring);
}

bool read_LmT_tile_bbox(const SwTiles& sw, int64_t XI, int64_t YI, double x0, double x1, double y0, double y1,
                        Vector<xyz>& P, uint64_t& np, uint64_t& nmtr, uint64_t& nmtf) {
  np = nmtr = nmtf = 0;
  if (!(x0 < x1 && y0 < y1)) return true;
  // Microtile indices relative to the frame's tile, cut to what the swath has (and one microtile more, so
  // that a rectangle beyond it stays empty without a long walk).
  const auto cell = [&](double v, int64_t lo, int64_t hi) {
    return static_cast<int64_t>(
        std::floor(std::clamp(v / sw.geom.mTsize, static_cast<double>(lo), static_cast<double>(hi))));
  };
  const int64_t xlo = (int64_t{sw.info.XImin} - XI) * mTsub - 1,
                xhi = (int64_t{sw.info.XImax} - XI + 1) * mTsub;
  const int64_t ylo = (int64_t{sw.info.YImin} - YI) * mTsub - 1,
                yhi = (int64_t{sw.info.YImax} - YI + 1) * mTsub;
  const int64_t i0 = cell(x0, xlo, xhi), i1 = cell(x1, xlo, xhi), j0 = cell(y0, ylo, yhi),
                j1 = cell(y1, ylo, yhi);
  TilePoints files(sw);
  if (!files.open()) return false;
  std::vector<LmTpoint> raw;
  uint8_t wanted[mTn];
  for (int64_t ty = j0 >> mT_SUB_LEVEL; ty <= j1 >> mT_SUB_LEVEL; ty++)
    for (int64_t tx = i0 >> mT_SUB_LEVEL; tx <= i1 >> mT_SUB_LEVEL; tx++) {
      const int k = sw.find(XI + tx, YI + ty);
      if (k >= 0 && !files.load(static_cast<uint32_t>(k))) return false;
      std::fill_n(wanted, mTn, uint8_t{0});
      for (int64_t j = std::max(j0, ty * mTsub); j <= std::min(j1, ty * mTsub + mTsub - 1); j++)
        for (int64_t i = std::max(i0, tx * mTsub); i <= std::min(i1, tx * mTsub + mTsub - 1); i++) {
          const int64_t at = (j - ty * mTsub) * mTsub + i - tx * mTsub;
          wanted[at] = k >= 0 && files.N[at] > NMT_MIN;
          (wanted[at] ? nmtr : nmtf)++;
        }
      const uint64_t first = np;
      if (k >= 0 &&
          !add_microtiles(files, sw.geom, static_cast<int>(tx), static_cast<int>(ty), wanted, raw, P, np))
        return false;
      const auto outside = [&](const xyz& p) { return !(p.x > x0 && p.x < x1 && p.y > y0 && p.y < y1); };
      np = static_cast<uint64_t>(std::remove_if(P.val + first, P.val + np, outside) - P.val);
    }
  return true;
}
}  // namespace veld
