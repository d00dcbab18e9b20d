// prj/LiDAR/LmTQCimg/intensity_map.h
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
  // A row of tiles; NODATA without a point.
  [[nodiscard]] bool read_row(int ty, Image<float>& band) const;
  // Limits that 2 percent of the pixels lie below and above.
  float low() const { return low_; }
  float high() const { return high_; }
  // From 0 to 1 between the limits; 0.7 for files without intensities.
  float brightness(float intensity) const;
  bool is_open() const { return sums_.is_open(); }
  uint64_t nnoise() const { return nnoise_; }  // points of the noise classes 7 and 18, which are left out

 private:
  bool set_limits();
  TileMap<xyz> sums_;  // x: sum of intensities, y: points
  float low_ = 0, high_ = 0;
  uint64_t nnoise_ = 0;
};
}  // namespace veld
