#include "prj/LiDAR/VR2proc/corr_maps.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "prj/LiDAR/LmTQCimg/pair_maps.h"
#include "prj/LiDAR/LmTQCimg/tile_map.h"
#include "prj/LiDAR/stat_xyz.h"

namespace veld {
namespace {
struct TilePart {  // a swath on a tile
  SwathId sw;
  uint64_t k;  // place of the tile in its tables
};
using TileParts = std::map<std::pair<uint32_t, uint32_t>, std::vector<TilePart>>;  // by tile indices x, y

TileParts parts_by_tile(const std::vector<SwathId>& swc, const SwathVector<SampleIndex>& index) {
  TileParts parts;
  for (const SwathId sw : swc) {
    const Vector<TIsxy>& TI = index[sw].TI;
    for (uint64_t k = 0; k < TI.size(); k++) parts[{TI[k].x, TI[k].y}].push_back({sw, k});
  }
  return parts;
}

TileInfo frame_of(const TileParts& parts) {
  uint32_t xmin = UINT32_MAX, ymin = UINT32_MAX, xmax = 0, ymax = 0;
  for (const auto& [at, list] : parts) {
    xmin = std::min(xmin, at.first), xmax = std::max(xmax, at.first);
    ymin = std::min(ymin, at.second), ymax = std::max(ymax, at.second);
  }
  return {xmin, ymin, static_cast<int>(xmax - xmin) + 1, static_cast<int>(ymax - ymin) + 1};
}

struct CorrTile {  // of one tile, per microtile
  Image<xyz> Cmax, Cm;
  Image<int> Cn;  // swaths
};

void comp_tile(const std::vector<TilePart>& list, const SwathVector<SCorrTbl>& tables, ScatterPlanes& planes,
               CorrTile& tile) {
  const xyz none = {0, 0, IMG_NODATA};
  tile.Cmax.resize(mTsub, mTsub, none);
  tile.Cm.resize(mTsub, mTsub, none);
  tile.Cn.resize(mTsub, mTsub, 0);
  for (const TilePart& part : list) {
    const SCorrTbl& table = tables[part.sw];
    const Image<xyz>& C = table.C[part.k];
    for (uint64_t m = 0; m < C.size(); m++) {
      if (C[m].z == NODATA) continue;
      const xyz v = C[m] + table.T0;
      update_mix_XYZ(tile.Cmax[m], v);
      tile.Cm[m] = tile.Cn[m] == 0 ? v : tile.Cm[m] + v;
      tile.Cn[m]++;
      update_XY_YZ_XZ_img(planes, v);
    }
  }
  for (uint64_t m = 0; m < tile.Cn.size(); m++)
    if (tile.Cn[m] > 1) tile.Cm[m] = tile.Cm[m] / static_cast<float>(tile.Cn[m]);
}

// Range of the pictures: doubled until it holds twice the RMS of each axis, so that a large boresight does not saturate all.
float corr_range(const std::vector<SwathId>& swc, const SwathVector<SCorrTbl>& tables, float range) {
  StatXYZ stat;
  for (const SwathId sw : swc)
    for (const Image<xyz>& tile : tables[sw].C)
      for (uint64_t m = 0; m < tile.size(); m++)
        if (tile[m].z != NODATA) stat.add(to_dxyz(tile[m] + tables[sw].T0));
  const dxyz rms = stat.rms();
  const double most = 2 * std::max({rms.x, rms.y, rms.z});
  constexpr double LARGEST = 1e4;  // m
  while (static_cast<double>(range) < std::min(most, LARGEST)) range *= 2;
  return range;
}
}  // namespace

bool save_corr_maps(const Project& prj, const MapParam& map, const std::vector<SwathId>& swc,
                    const SwathVector<SampleIndex>& index, const SwathVector<SCorrTbl>& tables) {
  const bool maps = draws_maps(map), plots = draws_plots(map);
  const TileParts parts = parts_by_tile(swc, index);
  if (parts.empty() || (!maps && !plots)) return true;
  VectorStyle style = map.vectors;
  style.range = corr_range(swc, tables, style.range);
  ScatterPlanes planes = make_scatter(map.p_size, map.p_range > 0 ? map.p_range : style.range);
  const TileInfo frame = frame_of(parts);
  const xyz none = {0, 0, IMG_NODATA};
  TileMap<xyz> most, mean;
  if (maps && (!most.open(frame, mTsub, none) || !mean.open(frame, mTsub, none))) return false;
  CorrTile tile;
  for (const auto& [at, list] : parts) {
    comp_tile(list, tables, planes, tile);
    if (maps && (!most.write(at.first, at.second, tile.Cmax) || !mean.write(at.first, at.second, tile.Cm)))
      return false;
  }
  const ImgPlace place =
      frame_place(frame, static_cast<double>(prj.scale.Tsize), static_cast<double>(prj.scale.mTsize));
  VectorStyle magnitudes = style;
  magnitudes.is_signed = false;
  magnitudes.color = COLOR_SEQUENTIAL;
  return (!maps || (save_TileMap_Def(prj.name + "_max_abs_corr", "max abs correction", map.img, magnitudes,
                                     place, most, true) &&
                    save_TileMap_Def(prj.name + "_mean_corr", "mean correction", map.img, style, place, mean,
                                     false))) &&
         (!plots || save_XY_YZ_XZ_img(prj.name + "_corr", map.img, planes));
}
}  // namespace veld
