#include "prj/LiDAR/LmTQCsep/sep_cells.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "lib/DataStructure/nodata.h"
#include "prj/LiDAR/LmTinter/corr_field.h"

namespace veld {
namespace {
// The grid of a tile with a margin, at places between its pixels.
struct Heights {
  Image<float> Z;
  Image<uint8_t> S;
  int margin = 0;
  // x, y: pixels from the tile's lower left corner.
  float at(float x, float y) const {
    const float u = x + static_cast<float>(margin), v = y + static_cast<float>(margin);
    const int i = static_cast<int>(std::floor(u)), j = static_cast<int>(std::floor(v));
    if (i < 0 || j < 0 || i + 1 >= Z.xsize() || j + 1 >= Z.ysize()) return NODATA;
    const float fx = u - static_cast<float>(i), fy = v - static_cast<float>(j);
    const float z[4] = {Z(i, j), Z(i + 1, j), Z(i, j + 1), Z(i + 1, j + 1)};
    for (const float h : z)
      if (h == NODATA) return NODATA;
    return (z[0] * (1 - fx) + z[1] * fx) * (1 - fy) + (z[2] * (1 - fx) + z[3] * fx) * fy;
  }
};

// Height of a pixel with the correction; NODATA without.
float corrected(const Heights& h, const TileCorr& field, int x, int y, int dim, float GSD) {
  xyz c;
  const float px = static_cast<float>(x), py = static_cast<float>(y), mt = 1 / static_cast<float>(dim);
  if (!field.at(px * mt, py * mt, c)) return NODATA;
  const float z = h.at(px - c.x / GSD, py - c.y / GSD);
  return z == NODATA ? NODATA : z + c.z;
}
}  // namespace

bool SepCells::open(int x, int y, float cell) const {
  const int i = x + 1, j = y + 1;
  const float west = Z(i - 1, j), east = Z(i + 1, j), south = Z(i, j - 1), north = Z(i, j + 1);
  if (S(i, j) < 0 || S(i, j) > OPEN_ROUGHNESS || west == NODATA || east == NODATA || south == NODATA ||
      north == NODATA)
    return false;
  // Steps to each side count, so that the foot and the edge of a wall are not flat ground.
  const float most = MAX_SLOPE * cell, z = Z(i, j);
  return std::fabs(west - z) < most && std::fabs(east - z) < most && std::fabs(south - z) < most &&
         std::fabs(north - z) < most && std::hypot(east - west, north - south) < 2 * most;
}

int sep_margin(int sub, float shift, float GSD) {
  return sub + 2 + static_cast<int>(std::min(shift / GSD, 1e6f));
}

GridRead comp_cells(const SwGrid& grid, uint32_t XI, uint32_t YI, int sub, int margin, float GSD,
                    const SCorrTbl* corr, SepCells& cells) {
  const int dim = static_cast<int>(grid.hdr.dim), n = mTsub * dim, side = n / sub;
  Heights h;
  h.margin = std::min(margin, n);
  const GridRead state = read_gZ_tile_8nn(grid, XI, YI, h.margin, nullptr, GridLimits(), h.Z, &h.S);
  cells.Z.resize(side + 2, side + 2, NODATA);
  cells.S.resize(side + 2, side + 2, -1.0f);
  if (state != GridRead::heights) return state;
  std::unique_ptr<TileCorr> field;
  if (corr) field = std::make_unique<TileCorr>(grid, XI, YI, *corr);
  // One code is smooth, however coarse it is.
  const float unit = GSD / 16, finest = std::min(1.0f, 0.999f * OPEN_ROUGHNESS / unit);
  for (int cy = 0; cy < side + 2; cy++)
    for (int cx = 0; cx < side + 2; cx++) {
      float sum = 0, rough = 0;
      int count = 0;
      for (int y = (cy - 1) * sub; y < cy * sub; y++)
        for (int x = (cx - 1) * sub; x < cx * sub; x++) {
          const int i = x + h.margin, j = y + h.margin;
          const float z = field ? corrected(h, *field, x, y, dim, GSD) : h.Z(i, j);
          if (z == NODATA) continue;
          sum += z;
          rough += static_cast<float>(h.S(i, j)) * unit * finest;
          count++;
        }
      if (count == 0) continue;
      cells.Z(cx, cy) = sum / static_cast<float>(count);
      if (4 * count >= 3 * sub * sub) cells.S(cx, cy) = rough / static_cast<float>(count);
    }
  return GridRead::heights;
}
}  // namespace veld
