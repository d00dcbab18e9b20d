// prj/LiDAR/LmTQCsep/intensity_map.h
// Mean intensity of the points of all swaths on the pixels of a map: the ground that pictures lay colours over.
#pragma once
#include "prj/LiDAR/LmTQCimg/tile_map.h"
#include "prj/LiDAR/project.h"

namespace veld {
class IntensityMap {
 public:
  // Reads the points of all swaths once, last returns that are neither withheld, of the classes xcls, nor noise.
  // side: pixels along a tile of frame. Memory: the tiles of a swath, up to a quarter of -mem. False after an ERROR line.
  [[nodiscard]] bool make(const Project& prj, const TileInfo& frame, int side,
                          const std::vector<uint8_t>& xcls);
  // A row of tiles as brightness from 0 to 1, 2 and 98 percent of the pixels being black and white; NODATA without a
  // point. Files without intensities give 0.7 everywhere.
  [[nodiscard]] bool read_row(int ty, Image<float>& band) const;
  uint64_t nnoise() const { return nnoise_; }  // points of the noise classes 7 and 18, which are left out

 private:
  bool set_limits();
  TileMap<xyz> sums_;  // x: sum of intensities, y: points
  float low_ = 0, high_ = 0;
  uint64_t nnoise_ = 0;
};
}  // namespace veld
