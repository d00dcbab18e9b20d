// prj/LiDAR/stat_xyz.h
// Running statistics of vectors, per axis: mean, standard deviation, RMS, extremes, as the logs print them.
#pragma once
#include <cmath>
#include <cstdint>
#include <ostream>

#include "lib/Geometry/xyz.h"

namespace veld {
struct StatXYZ {
  uint64_t n = 0;
  dxyz sum = {0, 0, 0};
  dxyz sum2 = {0, 0, 0};
  dxyz vmin = {2e+307, 2e+307, 2e+307};
  dxyz vmax = {-2e+307, -2e+307, -2e+307};

  void add(const dxyz& v) {
    n++;
    sum += v;
    sum2 += {v.x * v.x, v.y * v.y, v.z * v.z};
    vmin = {std::fmin(vmin.x, v.x), std::fmin(vmin.y, v.y), std::fmin(vmin.z, v.z)};
    vmax = {std::fmax(vmax.x, v.x), std::fmax(vmax.y, v.y), std::fmax(vmax.z, v.z)};
  }
  void add(const StatXYZ& o) {
    n += o.n;
    sum += o.sum;
    sum2 += o.sum2;
    vmin = {std::fmin(vmin.x, o.vmin.x), std::fmin(vmin.y, o.vmin.y), std::fmin(vmin.z, o.vmin.z)};
    vmax = {std::fmax(vmax.x, o.vmax.x), std::fmax(vmax.y, o.vmax.y), std::fmax(vmax.z, o.vmax.z)};
  }
  dxyz mean() const { return n ? sum / static_cast<double>(n) : dxyz{0, 0, 0}; }
  dxyz rms() const {
    if (n == 0) return {0, 0, 0};
    const dxyz m2 = sum2 / static_cast<double>(n);
    return {std::sqrt(m2.x), std::sqrt(m2.y), std::sqrt(m2.z)};
  }
  dxyz stddev() const {  // about the mean, over n
    if (n == 0) return {0, 0, 0};
    const dxyz m = mean(), m2 = sum2 / static_cast<double>(n);
    return {std::sqrt(std::fmax(0., m2.x - m.x * m.x)), std::sqrt(std::fmax(0., m2.y - m.y * m.y)),
            std::sqrt(std::fmax(0., m2.z - m.z * m.z))};
  }
};

// "%7.3f %7.3f %7.3f" of a vector. The stream must be fixed with 3 decimals.
inline void put_xyz(std::ostream& os, const dxyz& v) {
  os.width(7), os << v.x << ' ';
  os.width(7), os << v.y << ' ';
  os.width(7), os << v.z;
}
}  // namespace veld
