// Dilation and erosion of an occupancy on the lattice of microtiles, across tile borders.
#include <algorithm>
#include <array>
#include <map>

#include "prj/LiDAR/LmTplot/LmTplot.h"

namespace veld {
namespace {
constexpr int SIDE = mTsub + 2;                    // a tile and its ring
using Lattice = std::array<uint8_t, SIDE * SIDE>;  // element (x + 1, y + 1) is microtile (x, y)

uint64_t tile_key(int64_t x, int64_t y) { return static_cast<uint64_t>(y) << 32 | static_cast<uint32_t>(x); }

using TileIndex = std::map<uint64_t, const Image<uint8_t>*>;

TileIndex index_tiles(const Tocc& occ) {
  TileIndex index;
  for (const ToccTile& t : occ) index.emplace_hint(index.end(), tile_key(t.x, t.y), &t.occ);
  return index;
}

// The occupancy of a tile and of the ring of microtiles around it.
Lattice gather(const TileIndex& index, uint32_t XI, uint32_t YI) {
  Lattice a{};
  for (int dy = -1; dy <= 1; dy++)
    for (int dx = -1; dx <= 1; dx++) {
      const auto found = index.find(tile_key(int64_t{XI} + dx, int64_t{YI} + dy));
      if (found == index.end()) continue;
      const Image<uint8_t>& occ = *found->second;
      for (int y = std::max(-1, dy * mTsub); y <= std::min(mTsub, dy * mTsub + mTsub - 1); y++)
        for (int x = std::max(-1, dx * mTsub); x <= std::min(mTsub, dx * mTsub + mTsub - 1); x++)
          a[static_cast<size_t>((y + 1) * SIDE + x + 1)] = occ.row(y - dy * mTsub)[x - dx * mTsub] & 1;
    }
  return a;
}

uint8_t at(const Lattice& a, int x, int y) { return a[static_cast<size_t>((y + 1) * SIDE + x + 1)]; }

bool any_near(const Lattice& a, int x, int y) {
  for (int v = y - 1; v <= y + 1; v++)
    for (int u = x - 1; u <= x + 1; u++)
      if (at(a, u, v)) return true;
  return false;
}

// A tile with its eight neighbours, and sums over rectangles of it.
constexpr int WIDE = 3 * mTsub;
struct Window {
  std::array<uint8_t, WIDE * WIDE> set;
  std::array<int, (WIDE + 1) * (WIDE + 1)> sum;  // entry (x, y): of all elements left of x and below y
};

template <typename Value>
void integrate(Window& w, Value value) {
  w.sum.fill(0);
  for (int y = 0; y < WIDE; y++)
    for (int x = 0; x < WIDE; x++) {
      const auto at_sum = [&](int u, int v) -> int& {
        return w.sum[static_cast<size_t>(v * (WIDE + 1) + u)];
      };
      at_sum(x + 1, y + 1) = value(x, y) + at_sum(x, y + 1) + at_sum(x + 1, y) - at_sum(x, y);
    }
}
// Sum over [x0, x1) x [y0, y1), cut to the window.
int sum_of(const Window& w, int x0, int y0, int x1, int y1) {
  x0 = std::max(x0, 0), y0 = std::max(y0, 0), x1 = std::min(x1, WIDE), y1 = std::min(y1, WIDE);
  if (x0 >= x1 || y0 >= y1) return 0;
  const auto at_sum = [&](int u, int v) { return w.sum[static_cast<size_t>(v * (WIDE + 1) + u)]; };
  return at_sum(x1, y1) - at_sum(x0, y1) - at_sum(x1, y0) + at_sum(x0, y0);
}

void gather_window(const TileIndex& index, uint32_t XI, uint32_t YI, Window& w) {
  w.set.fill(0);
  for (int dy = -1; dy <= 1; dy++)
    for (int dx = -1; dx <= 1; dx++) {
      const auto found = index.find(tile_key(int64_t{XI} + dx, int64_t{YI} + dy));
      if (found == index.end()) continue;
      for (int y = 0; y < mTsub; y++)
        for (int x = 0; x < mTsub; x++)
          w.set[static_cast<size_t>(((dy + 1) * mTsub + y) * WIDE + (dx + 1) * mTsub + x)] =
              found->second->row(y)[x] & 1;
    }
}

// Fills gaps of up to 2 r microtiles in the middle tile: what lies within r of the map, less what lies within
// r of a place that does not. Beyond the window nothing is known, so r is small against a tile.
void close_window(Window& w, int r, Image<uint8_t>& occ) {
  integrate(w, [&](int x, int y) { return static_cast<int>(w.set[static_cast<size_t>(y * WIDE + x)]); });
  std::array<uint8_t, WIDE * WIDE> wide;
  for (int y = 0; y < WIDE; y++)
    for (int x = 0; x < WIDE; x++)
      wide[static_cast<size_t>(y * WIDE + x)] = sum_of(w, x - r, y - r, x + r + 1, y + r + 1) > 0;
  integrate(w, [&](int x, int y) { return static_cast<int>(wide[static_cast<size_t>(y * WIDE + x)]); });
  const int all = (2 * r + 1) * (2 * r + 1);
  occ.resize(mTsub, mTsub);
  for (int y = 0; y < mTsub; y++)
    for (int x = 0; x < mTsub; x++) {
      const int u = x + mTsub, v = y + mTsub;
      occ.row(y)[x] = sum_of(w, u - r, v - r, u + r + 1, v + r + 1) == all;
    }
}

// Marks the microtiles of the middle tile that are part of a full k x k block. False when there is none.
bool open_window(Window& w, int k, Image<uint8_t>& occ) {
  integrate(w, [&](int x, int y) { return static_cast<int>(w.set[static_cast<size_t>(y * WIDE + x)]); });
  std::array<uint8_t, WIDE * WIDE> full;  // the block whose lower left element this is
  for (int y = 0; y < WIDE; y++)
    for (int x = 0; x < WIDE; x++)
      full[static_cast<size_t>(y * WIDE + x)] = sum_of(w, x, y, x + k, y + k) == k * k;
  integrate(w, [&](int x, int y) { return static_cast<int>(full[static_cast<size_t>(y * WIDE + x)]); });
  bool any = false;
  occ.resize(mTsub, mTsub);
  for (int y = 0; y < mTsub; y++)
    for (int x = 0; x < mTsub; x++) {
      const int u = x + mTsub, v = y + mTsub;
      const bool stays = sum_of(w, u - k + 1, v - k + 1, u + 1, v + 1) > 0;
      occ.row(y)[x] = stays;
      any = any || stays;
    }
  return any;
}

// Applies a rule to every microtile of a tile. False when nothing is left.
template <typename Rule>
bool apply(const Lattice& a, Image<uint8_t>& occ, Rule rule) {
  bool any = false;
  occ.resize(mTsub, mTsub);
  for (int y = 0; y < mTsub; y++)
    for (int x = 0; x < mTsub; x++) {
      const bool set = rule(a, x, y);
      occ.row(y)[x] = set;
      any = any || set;
    }
  return any;
}
}  // namespace

Tocc dilate_Tocc(const Tocc& occ, const Vector<TIsxy>& TI) {
  const TileIndex index = index_tiles(occ);
  Tocc result;
  for (uint64_t k = 0; k < TI.size(); k++) {
    ToccTile t;
    t.x = TI[k].x;
    t.y = TI[k].y;
    t.k = static_cast<uint32_t>(k);
    if (apply(gather(index, t.x, t.y), t.occ, any_near)) result.push_back(std::move(t));
  }
  return result;
}

Tocc erode_Tocc_2(const Tocc& occ, int k) {
  ASSERT(k >= 1 && k <= mTsub);
  const TileIndex index = index_tiles(occ);
  Tocc result;
  Window window;
  for (const ToccTile& from : occ) {
    gather_window(index, from.x, from.y, window);
    ToccTile t = from;
    if (open_window(window, k, t.occ)) result.push_back(std::move(t));
  }
  return result;
}

Tocc erode_Tocc_closed(const Tocc& occ, int k, int gap) {
  ASSERT(gap >= 0 && 4 * gap <= mTsub);
  const TileIndex index = index_tiles(occ);
  Tocc closed = occ;
  Window window;
  if (gap > 0)
    for (ToccTile& t : closed) {
      gather_window(index, t.x, t.y, window);
      close_window(window, gap, t.occ);
    }
  Tocc result;
  for (ToccTile& t : erode_Tocc_2(closed, k)) {
    const Image<uint8_t>& from = *index.at(tile_key(t.x, t.y));
    bool any = false;
    for (uint64_t i = 0; i < t.occ.size(); i++) {
      t.occ[i] = t.occ[i] && (from[i] & 1);
      any = any || t.occ[i];
    }
    if (any) result.push_back(std::move(t));
  }
  return result;
}
}  // namespace veld
