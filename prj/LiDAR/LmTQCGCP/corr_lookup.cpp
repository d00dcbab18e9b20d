#include "prj/LiDAR/LmTQCGCP/corr_lookup.h"

#include <cmath>

namespace veld {
bool corr_at_place(const SwTiles& sw, const SCorrTbl& corr, double x, double y, dxyz& c) {
  const double u = (x - GROUND_ORIGIN) / sw.geom.mTsize - 0.5, v = (y - GROUND_ORIGIN) / sw.geom.mTsize - 0.5;
  const int64_t i0 = static_cast<int64_t>(std::floor(u)), j0 = static_cast<int64_t>(std::floor(v));
  const double fu = u - static_cast<double>(i0), fv = v - static_cast<double>(j0);
  dxyz sum{0, 0, 0};
  double weight = 0;
  for (int n = 0; n < 4; n++) {
    const int64_t i = i0 + n % 2, j = j0 + n / 2;
    const int k = sw.find(i >> mT_SUB_LEVEL, j >> mT_SUB_LEVEL);
    if (k < 0 || static_cast<uint64_t>(k) >= corr.C.size() || corr.C(k).empty()) continue;
    const xyz& m = corr.C(k)(static_cast<int>(i & (mTsub - 1)), static_cast<int>(j & (mTsub - 1)));
    if (m.z == NODATA) continue;
    const double w = (n % 2 ? fu : 1 - fu) * (n / 2 ? fv : 1 - fv) + 1e-9;
    sum += to_dxyz(m) * w;
    weight += w;
  }
  if (weight <= 0) return false;
  c = sum / weight + to_dxyz(corr.T0);
  return true;
}
}  // namespace veld
