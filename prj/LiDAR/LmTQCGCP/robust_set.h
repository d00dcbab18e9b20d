// prj/LiDAR/LmTQCGCP/robust_set.h
// The rule by which differences to control points are outliers.
#pragma once
#include <vector>

namespace veld {
constexpr double GCP_OUT = 3.5;         // robust deviations beyond which a difference is an outlier
constexpr double GCP_OUT_FLOOR = 0.01;  // m, least robust deviation
constexpr int GCP_OUT_MIN = 4;          // points below which none is rejected

struct RobustItem {
  double d;        // m, difference
  double w;        // weight in the mean
  int point;       // which control point: its occurrences count once together
  bool in = true;  // result
};

// Flags the outliers: those further from the centre than GCP_OUT robust deviations (1.4826 times the median of the
// absolute differences to it, each point counting once). The centre starts as the median and becomes the weighted
// mean of those that are in, until these stay the same. With fewer than GCP_OUT_MIN points all are in.
void comp_robust_set(std::vector<RobustItem>& items);
}  // namespace veld
