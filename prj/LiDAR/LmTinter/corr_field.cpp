#include "prj/LiDAR/LmTinter/corr_field.h"

#include <algorithm>
#include <cmath>

namespace veld {
namespace {
// Correction of a swath at a microtile of its own tiles; the indices may run into the neighbouring tiles.
// False where the table has none.
bool corr_at(const InterSwath& s, const SCorrTbl& corr, int64_t XI, int64_t YI, int mx, int my, xyz& c) {
  if (corr.C.empty()) {
    c = corr.T0;
    return true;
  }
  if (mx < 0) mx += mTsub, XI--;
  if (my < 0) my += mTsub, YI--;
  if (mx >= mTsub) mx -= mTsub, XI++;
  if (my >= mTsub) my -= mTsub, YI++;
  const int k = s.grid.tile_at(XI, YI);
  if (k < 0 || corr.C(k).empty()) return false;
  c = corr.C(k)(mx, my);
  if (c.z == NODATA) return false;
  c += corr.T0;
  return true;
}

// Mean correction of the microtiles that meet at corner (i, j) of those of a tile.
bool corr_at_corner(const InterSwath& s, const SCorrTbl& corr, const ToccTile& tile, int i, int j,
                    xyz& mean) {
  int n = 0;
  mean = {0, 0, 0};
  for (int dy = -1; dy <= 0; dy++)
    for (int dx = -1; dx <= 0; dx++) {
      xyz c;
      if (!corr_at(s, corr, tile.x, tile.y, i + dx, j + dy, c)) continue;
      mean += c;
      n++;
    }
  if (n > 0) mean /= static_cast<float>(n);
  return n > 0;
}
// The corrections of a swath at the vertices of level J of a tile, m; z NR_NODATA where it has none.
Image<xyz> vertex_corr(const InterSwath& s, const SCorrTbl& corr, const ToccTile& tile, int J) {
  const int dxp = comp_dxp(J);
  Image<xyz> field(dxp, dxp, xyz{0, 0, NR_NODATA});
  for (int j = 0; j < dxp; j++)
    for (int i = 0; i < dxp; i++) {
      xyz c;
      if (corr_at_corner(s, corr, tile, i << J, j << J, c)) field(i, j) = c;
    }
  return field;
}
}  // namespace

void add_K_Def(float K, const Image<xyz>& Def, Image<xyz>& sum) {
  ASSERT(Def.xsize() == sum.xsize() && Def.ysize() == sum.ysize());
  for (uint64_t i = 0; i < sum.size(); i++)
    if (Def[i].z == NR_NODATA || sum[i].z == NR_NODATA)
      sum[i] = {0, 0, NR_NODATA};
    else
      sum[i] += K * Def[i];
}

Image<xyz> SCorr2Def(const InterSwath& s1, const InterSwath& s2, const SCorrTbl& c1, const SCorrTbl& c2,
                     const ToccTile& tile, float GSD, int J) {
  const float pixel = GSD * static_cast<float>(1 << std::max(J - MG_SKIP, 0));
  Image<xyz> Def = vertex_corr(s2, c2, tile, J);
  add_K_Def(-1, vertex_corr(s1, c1, tile, J), Def);
  for (uint64_t i = 0; i < Def.size(); i++)
    if (Def[i].z != NR_NODATA) Def[i].x /= pixel, Def[i].y /= pixel;
  return Def;
}

TileCorr::TileCorr(const SwGrid& grid, uint32_t XI, uint32_t YI, const SCorrTbl& corr)
    : C_(SIDE, SIDE, xyz{0, 0, NODATA}) {
  for (int y = 0; y < SIDE; y++)
    for (int x = 0; x < SIDE; x++) {
      const int64_t X = int64_t{XI} * mTsub + x - 1, Y = int64_t{YI} * mTsub + y - 1;
      const int k = corr.C.empty() ? -1 : grid.tile_at(X >> mT_SUB_LEVEL, Y >> mT_SUB_LEVEL);
      if (corr.C.empty()) C_(x, y) = corr.T0;
      if (k < 0 || corr.C(k).empty()) continue;
      const xyz& c = corr.C(k)(static_cast<int>(X & (mTsub - 1)), static_cast<int>(Y & (mTsub - 1)));
      if (c.z != NODATA) C_(x, y) = c + corr.T0;
    }
}

bool TileCorr::at(float x, float y, xyz& c) const {
  const float u = std::clamp(x + 0.5f, 0.0f, SIDE - 1.001f), v = std::clamp(y + 0.5f, 0.0f, SIDE - 1.001f);
  const int i = static_cast<int>(u), j = static_cast<int>(v);
  const float fx = u - static_cast<float>(i), fy = v - static_cast<float>(j);
  const float w[4] = {(1 - fx) * (1 - fy), fx * (1 - fy), (1 - fx) * fy, fx * fy};
  float sum = 0;
  c = {0, 0, 0};
  for (int k = 0; k < 4; k++) {
    const xyz& from = C_(i + (k & 1), j + (k >> 1));
    if (from.z == NODATA) continue;
    c += from * w[k];
    sum += w[k];
  }
  if (sum < 0.25f) return false;
  c /= sum;
  return true;
}

float max_corr(const SCorrTbl& corr) {
  float most = 0;
  for (const Image<xyz>& tile : corr.C)
    for (uint64_t k = 0; k < tile.size(); k++)
      if (tile[k].z != NODATA) most = std::max({most, std::fabs(tile[k].x), std::fabs(tile[k].y)});
  return most + std::max(std::fabs(corr.T0.x), std::fabs(corr.T0.y));
}

RegLevels levels_for(float metres, const TileScale& scale, int J) {
  const float pixels = metres / scale.GSD() + 4;
  RegLevels levels;
  levels.Jstart = levels.Jend = J;
  const int most = mTsub * scale.dim / 8 * 8;
  levels.buf = std::clamp(static_cast<int>(std::min(pixels, 1e6f) / 8 + 1) * 8, 16, std::max(16, most));
  return levels;
}
}  // namespace veld
