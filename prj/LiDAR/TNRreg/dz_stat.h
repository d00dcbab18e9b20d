// prj/LiDAR/TNRreg/dz_stat.h
// Height differences of two swaths, in numbers.
#pragma once
#include <cstdint>

namespace veld {
// Statistics of the height differences reference - moved, in height units.
struct DZstat {
  float m = 0;     // median
  float s = 0;     // robust scale about the median
  float rms = 0;   // hypot(m, s)
  float out = 1;   // fraction of outliers
  float ff = -1;   // fraction filtered as spikes; negative: no data
  uint64_t n = 0;  // pixels compared
};
}  // namespace veld
