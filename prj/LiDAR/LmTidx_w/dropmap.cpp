#include "prj/LiDAR/LmTidx_w/dropmap.h"

#include <algorithm>
#include <cmath>

#include "image/geo_place.h"
#include "image/load_tiff.h"
#include "lib/general/hash.h"
#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_w/swath_stat.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Of the frame and the masks.
uint64_t checksum(const DropMap& map, const TileInfo& frame) {
  const uint32_t place[4] = {frame.XI, frame.YI, static_cast<uint32_t>(frame.nx),
                             static_cast<uint32_t>(frame.ny)};
  uint64_t h = fnv1a(place, sizeof place);
  for (uint64_t k = 0; k < map.size(); k++) {
    const uint8_t any = map[k].empty() ? 0 : 1;
    h = fnv1a(map[k].val, map[k].size(), fnv1a(&any, 1, h));
  }
  return h;
}

struct Place {         // of a map in microtiles of the whole valid range
  double GSD, x0, y0;  // microtiles: pixel, left side, upper side
  int64_t column(int x) const { return static_cast<int64_t>(std::floor(x0 + (x + 0.5) * GSD)); }
  int64_t row(int y) const { return static_cast<int64_t>(std::floor(y0 - (y + 0.5) * GSD)); }
};

bool set_frame(const std::string& file, const Place& place, const Image<uint8_t>& img, TileInfo& frame) {
  const int64_t x0 = place.column(0) >> mT_SUB_LEVEL, x1 = place.column(img.xsize() - 1) >> mT_SUB_LEVEL;
  const int64_t y0 = place.row(img.ysize() - 1) >> mT_SUB_LEVEL, y1 = place.row(0) >> mT_SUB_LEVEL;
  if (x0 < 0 || y0 < 0 || x1 - x0 >= MAX_FRAME || y1 - y0 >= MAX_FRAME || x1 > UINT32_MAX ||
      y1 > UINT32_MAX) {
    ERROR_MSG("drop map covers " << x1 - x0 + 1 << " x " << y1 - y0 + 1 << " tiles, file " << file
                                 << " - check its world file");
    return false;
  }
  frame = {static_cast<uint32_t>(x0), static_cast<uint32_t>(y0), static_cast<int>(x1 - x0) + 1,
           static_cast<int>(y1 - y0) + 1};
  return true;
}

uint64_t fill_masks(const Place& place, const Image<uint8_t>& img, const TileInfo& frame, DropMap& map) {
  uint64_t nset = 0;
  for (int y = 0; y < img.ysize(); y++)
    for (int x = 0; x < img.xsize(); x++) {
      if (img.row(y)[x] == 0) continue;
      nset++;
      const int64_t X = place.column(x), Y = place.row(y);
      Image<uint8_t>& mask = map(static_cast<int>((X >> mT_SUB_LEVEL) - frame.XI),
                                 static_cast<int>((Y >> mT_SUB_LEVEL) - frame.YI));
      if (mask.empty()) mask.resize(mTsub, mTsub, uint8_t{0});
      mask(static_cast<int>(X & (mTsub - 1)), static_cast<int>(Y & (mTsub - 1))) = 1;
    }
  return nset;
}
}  // namespace

bool load_dropmap(const std::string& file, TilingParam& par) {
  const TileGeom geom = make_tile_geom(tile_level(par.large, par.xlevel));
  LOG_ENTER("load_dropmap dropmap='" << file << "' Tsize=" << geom.Tsize << " mTsize=" << geom.mTsize);
  Image<uint8_t> img;
  ImgPlace world;
  if (!load_TIFF_gray(file, img) || !load_worldfile(file, OUTDATAUNIT, world)) return false;
  if (world.GSD > geom.mTsize * (1 + 1e-9)) {
    ERROR_MSG("drop map GSD (" << world.GSD << ") larger than microtile size (" << geom.mTsize << ")");
    return false;
  }
  const Place place{world.GSD / geom.mTsize, (world.x0 - GROUND_ORIGIN) / geom.mTsize,
                    (world.y0 - GROUND_ORIGIN) / geom.mTsize};
  TileInfo frame;
  if (!set_frame(file, place, img, frame)) return false;
  auto map = std::make_shared<DropMap>(frame.nx, frame.ny);
  const uint64_t nset = fill_masks(place, img, frame, *map);
  if (nset == 0) {
    WARNING_MSG("no drop data found, ignoring drop map " << file);
    return true;
  }
  if (nset == img.size()) WARNING_MSG("all pixels are non-zero, full area dropped for drop map " << file);
  par.TIO = frame;
  par.chk = checksum(*map, frame);
  par.Tdrop = map;
  LOG_LINE("TIO X:" << frame.XI << " Y:" << frame.YI << " " << frame.nx << " x " << frame.ny
                    << " chk=" << par.chk);
  return true;
}
}  // namespace veld
