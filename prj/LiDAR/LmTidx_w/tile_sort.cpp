// One tile of the second pass: counts and mean heights of its microtiles, its points in microtile order.
#include <algorithm>
#include <cstring>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"

namespace veld {
namespace {
struct TTpoint {
  uint32_t x, y, z;  // units: position in the tile, biased height
  int32_t tick;
};

// One record; 12 bytes are read, so the buffer needs a byte of slack.
inline TTpoint load_point(const uint8_t* rec) {
  uint64_t word;
  uint32_t z;
  std::memcpy(&word, rec, 8);
  std::memcpy(&z, rec + 8, 4);
  return {static_cast<uint32_t>(word & 0x7FFFF), static_cast<uint32_t>((word >> 19) & 0x7FFFF), z & 0xFFFFFF,
          static_cast<int32_t>(static_cast<uint32_t>(word >> 38) + 0xFE000000u)};
}

inline uint32_t microtile(const TTpoint& p, int mshift) { return (p.y >> mshift) * mTsub + (p.x >> mshift); }
}  // namespace

bool comp_LmT_LNZm(TileWork& w, uint32_t n, const TileGeom& g, const Image<uint8_t>* mask, TileCounts& c) {
  std::fill_n(w.N, mTn, 0u);
  std::fill_n(w.sum, mTn, int64_t{0});
  uint32_t outside = 0;
  const uint8_t* rec = w.raw.data();
  if (!mask) {
    for (uint32_t i = 0; i < n; i++, rec += TT_REC_BYTES) {
      const TTpoint p = load_point(rec);
      const uint32_t mt = microtile(p, g.mshift);
      outside |= p.x | p.y;
      w.N[mt & (mTn - 1)]++;
      w.sum[mt & (mTn - 1)] += static_cast<int64_t>(p.z) - HEIGHT_BIAS;
    }
  } else {
    for (uint32_t i = 0; i < n; i++, rec += TT_REC_BYTES) {
      const TTpoint p = load_point(rec);
      const uint32_t mt = microtile(p, g.mshift) & (mTn - 1);
      outside |= p.x | p.y;
      if ((*mask)[mt]) {
        w.sum[mt] = -1;
        c.nptsdrop++;
      } else {
        w.N[mt]++;
        w.sum[mt] += static_cast<int64_t>(p.z) - HEIGHT_BIAS;
      }
    }
  }
  if (outside > g.mask) {
    LOG_LINE("comp_LmT_LNZm <!> BOUNDS " << outside);
    return false;
  }
  for (int mt = 0; mt < mTn; mt++) {
    const bool dropped = mask && (*mask)[mt];
    c.nmtdrop += dropped && w.sum[mt] < 0;
    c.nmt += w.N[mt] > 0;
    w.Zm[mt] = w.N[mt] > 0 ? static_cast<int32_t>(w.sum[mt] / static_cast<int64_t>(w.N[mt])) : NO_I32;
  }
  if (mask)
    LOG_LINE("comp_LmT_LNZm -> nmt=" << c.nmt << " nmtdrop=" << c.nmtdrop << " nptsdrop=" << c.nptsdrop);
  else
    LOG_LINE("comp_LmT_LNZm -> nmt=" << c.nmt);
  return true;
}

bool sort_LmT_XYZT(TileWork& w, uint32_t n, const TileGeom& g, TileCounts& c) {
  uint32_t next[mTn], end[mTn];
  uint32_t first = 0;
  for (int mt = 0; mt < mTn; mt++) {
    w.offset[mt] = next[mt] = first;
    first += w.N[mt];
    end[mt] = first;
  }
  if (w.points.size() < first) {
    w.points.resize(first);
    w.ticks.resize(first);
  }
  const uint8_t* rec = w.raw.data();
  LmTpoint* points = w.points.data();
  int32_t* ticks = w.ticks.data();
  for (uint32_t i = 0; i < n; i++, rec += TT_REC_BYTES) {
    const TTpoint p = load_point(rec);
    const uint32_t mt = microtile(p, g.mshift);
    // An empty (masked) microtile has the height NO_I32: its points fail the test of the relative height.
    const uint32_t h = p.z - static_cast<uint32_t>(w.Zm[mt]) - 0x462000u;
    if (h >= 0x100000u) [[unlikely]] {
      (w.N[mt] == 0 ? c.ndrop : c.nZout)++;
      continue;
    }
    const uint32_t at = next[mt]++;
    if (at >= end[mt]) [[unlikely]] {
      LOG_LINE("sort_LmT_XYZT <!> inc " << mt);
      return false;
    }
    points[at] = {((h << 12) & 0xF0000000u) | (p.y & g.mmask) << 14 | (p.x & g.mmask),
                  static_cast<uint16_t>(h)};
    ticks[at] = p.tick;
  }
  c.np = c.nmt = 0;
  for (int mt = 0; mt < mTn; mt++) {
    w.N[mt] = next[mt] - w.offset[mt];
    c.np += w.N[mt];
    c.nmt += w.N[mt] > 0;
  }
  LOG_LINE("sort_LmT_XYZT -> nTP=" << n << " np=" << c.np << " nmt=" << c.nmt << " mmask=" << g.mmask
                                   << " ndrop=" << c.ndrop << " nZout=" << c.nZout);
  if (c.nZout > 0) LOG_LINE("<!> LOSS");
  return true;
}
}  // namespace veld
