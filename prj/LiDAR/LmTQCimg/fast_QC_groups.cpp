#include "prj/LiDAR/LmTQCimg/fast_QC_groups.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTgrid_w/LKRgrid.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"

namespace veld {
std::string group_text(const GroupDZ& g) {
  if (g.g1 == g.g2) return LOG_STR("Group " << g.g1 << ": Zmax-Zmin mean=" << g.mean << " RMS=" << g.rms);
  return LOG_STR("Groups " << g.g1 << '-' << g.g2 << ": Z-difference mean=" << g.mean << " RMS=" << g.rms);
}

void GroupSums::add(int g1, int g2, const Sum& from) {
  if (from.n == 0) return;
  Sum& s = sums_[{g1, g2}];
  s.n += from.n, s.sum += from.sum, s.sum2 += from.sum2;
}

void GroupSums::add(const GroupSums& o) {
  for (const auto& [key, from] : o.sums_) add(key.first, key.second, from);
}

std::vector<GroupDZ> GroupSums::result() const {
  std::vector<GroupDZ> list;
  for (const auto& [key, s] : sums_) {
    const double n = static_cast<double>(s.n);
    list.push_back({key.first, key.second, s.n, s.sum / n, std::sqrt(s.sum2 / n)});
  }
  return list;
}

void TileGroups::add(int group, const Image<uint32_t>& words, uint32_t smax) {
  Layer& l = layers_[group];
  if (l.n.empty()) {
    const int nx = words.xsize(), ny = words.ysize();
    l.low.resize(nx, ny, 2e37f);
    l.high.resize(nx, ny, -2e37f);
    l.sum.resize(nx, ny, 0.0f);
    l.n.resize(nx, ny, uint16_t{0});
  }
  for (uint64_t i = 0; i < words.size(); i++) {
    const uint32_t w = words[i];
    if ((w & GRID_ZMASK) == 0 || (w & 0x1F000000) > smax) continue;
    const float z = decode_Z(w);
    l.low[i] = std::min(l.low[i], z);
    l.high[i] = std::max(l.high[i], z);
    l.sum[i] += z;
    l.n[i]++;
  }
}

void TileGroups::put(GroupSums& sums) const {
  for (auto a = layers_.begin(); a != layers_.end(); ++a) {
    const auto& [g1, l1] = *a;
    GroupSums::Sum within;
    for (uint64_t i = 0; i < l1.n.size(); i++)
      if (l1.n[i] > 1) within.add(static_cast<double>(l1.high[i] - l1.low[i]));
    sums.add(g1, g1, within);
    for (auto b = std::next(a); b != layers_.end(); ++b) {
      const auto& [g2, l2] = *b;
      GroupSums::Sum between;
      for (uint64_t i = 0; i < l1.n.size(); i++)
        if (l1.n[i] > 0 && l2.n[i] > 0)
          between.add(static_cast<double>(l1.sum[i] / static_cast<float>(l1.n[i]) -
                                          l2.sum[i] / static_cast<float>(l2.n[i])));
      sums.add(g1, g2, between);
    }
  }
}
}  // namespace veld
