#include "prj/LiDAR/LmTQCsep/sep_cells.h"

#include <algorithm>
#include <cmath>

#include "lib/DataStructure/nodata.h"
#include "prj/LiDAR/LmTinter/corr_field.h"

namespace veld {
namespace {
// The grid of a tile with a margin, at places between its pixels.
struct Heights {
  Image<float> Z;
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

int sep_margin(float shift, float GSD) { return 2 + static_cast<int>(std::min(shift / GSD, 1e6f)); }

GridRead comp_cells(const SwGrid& grid, uint32_t XI, uint32_t YI, int sub, int margin, float GSD,
                    const TileCorr* field, Image<float>& Z) {
  const int dim = static_cast<int>(grid.hdr.dim), n = mTsub * dim, side = n / sub;
  Heights h;
  h.margin = std::min(margin, n);
  const GridRead state = read_gZ_tile_8nn(grid, XI, YI, h.margin, nullptr, GridLimits(), h.Z, nullptr);
  Z.resize(side, side, NODATA);
  if (state != GridRead::heights) return state;
  for (int cy = 0; cy < side; cy++)
    for (int cx = 0; cx < side; cx++) {
      float sum = 0;
      int count = 0;
      for (int y = cy * sub; y < (cy + 1) * sub; y++)
        for (int x = cx * sub; x < (cx + 1) * sub; x++) {
          const float z = field ? corrected(h, *field, x, y, dim, GSD) : h.Z(x + h.margin, y + h.margin);
          if (z == NODATA) continue;
          sum += z;
          count++;
        }
      if (count > 0) Z(cx, cy) = sum / static_cast<float>(count);
    }
  return GridRead::heights;
}
}  // namespace veld
