#include "prj/LiDAR/LmTidx_w/point_filter.h"

namespace veld {
PointFilter make_PointFilter(const TilingParam& par, bool extended) {
  std::array<bool, 256> keep;
  keep.fill(true);
  for (const uint8_t c : par.xcls) keep[c] = false;
  PointFilter f;
  for (uint32_t b = 0; b < 256; b++) {
    const bool withheld = extended ? b & 4 : b & 0x80;
    const bool synthetic = extended ? b & 1 : b & 0x20;
    const uint32_t cls = extended ? b : b & 31;
    uint8_t drop = withheld || (synthetic && !par.syn) ? DROP_FLAG : 0;
    if (extended)
      f.classes[b] = keep[cls] ? 0 : DROP_CLASS;
    else if (!keep[cls])
      drop |= DROP_CLASS;
    f.flags[b] = drop;
    const uint32_t rn = extended ? b & 15 : b & 7, nr = extended ? b >> 4 : (b >> 3) & 7;
    const bool kept = par.all || (par.last ? rn >= nr : rn <= 1);
    f.returns[b] = kept ? 0 : DROP_RETURN;
  }
  return f;
}
}  // namespace veld
