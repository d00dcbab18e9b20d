// prj/LiDAR/LmTQCimg/shade_dz.h
// Shaded relief of a height map, row by row.
#pragma once
#include <functional>
#include <vector>

namespace veld {
struct SunParam {
  float SH_az = 315;  // degrees clockwise from north, where the light comes from
  float SH_in = 45;   // degrees above the horizon
};

// Takes the rows of a map from the north and gives as many rows of shades, one row later: 1 lit at a right angle, 0
// away from the sun, -9999 where there is no height.
class ShadeRows {
 public:
  // emit: is called with each shaded row; its false ends the work.
  using Emit = std::function<bool(const float* row)>;
  ShadeRows(int xsize, float GSD, const SunParam& sun);
  [[nodiscard]] bool put(const float* heights, const Emit& emit);
  [[nodiscard]] bool finish(const Emit& emit);  // the last row

 private:
  bool shade(const std::vector<float>& north, const std::vector<float>& row, const std::vector<float>& south,
             const Emit& emit);
  int xsize_;
  float GSD_;
  float light_[3];                             // towards the sun: east, north, up
  std::vector<float> before_, last_, shades_;  // the two rows that came last
  int nrows_ = 0;
};
}  // namespace veld
