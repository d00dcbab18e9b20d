// Dilation and erosion of an occupancy on the lattice of microtiles, across tile borders.
#include <algorithm>
#include <array>
#include <map>

#include "prj/LiDAR/LmTplot/LmTplot.h"

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

// Whether one of the four 2 x 2 blocks that hold (x, y) is full.
bool in_block(const Lattice& a, int x, int y) {
  for (int v = y - 1; v <= y; v++)
    for (int u = x - 1; u <= x; u++)
      if (at(a, u, v) && at(a, u + 1, v) && at(a, u, v + 1) && at(a, u + 1, v + 1)) return true;
  return false;
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
    t.x = TI.val[k].x;
    t.y = TI.val[k].y;
    t.k = static_cast<uint32_t>(k);
    if (apply(gather(index, t.x, t.y), t.occ, any_near)) result.push_back(std::move(t));
  }
  return result;
}

Tocc erode_Tocc_2(const Tocc& occ) {
  const TileIndex index = index_tiles(occ);
  Tocc result;
  for (const ToccTile& from : occ) {
    ToccTile t = from;
    if (apply(gather(index, t.x, t.y), t.occ, in_block)) result.push_back(std::move(t));
  }
  return result;
}
