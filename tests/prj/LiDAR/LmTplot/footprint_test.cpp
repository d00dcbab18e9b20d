// Outlines of random maps: their area is that of the map, their length the number of border edges.
#include "prj/LiDAR/LmTplot/footprint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>

namespace veld {
namespace {
Tocc random_map(uint32_t seed, uint32_t percent) {
  Tocc occ;
  for (uint32_t ty = 0; ty < 2; ty++)
    for (uint32_t tx = 0; tx < 2; tx++) {
      ToccTile t;
      t.x = 70000 + tx, t.y = 90000 + ty;
      t.occ.resize(mTsub, mTsub);
      for (int m = 0; m < mTn; m++) {
        seed = seed * 1664525u + 1013904223u;
        t.occ[m] = (seed >> 16) % 100 < percent;
      }
      occ.push_back(std::move(t));
    }
  return occ;
}

int64_t area2(const Ring& r) {
  int64_t sum = 0;
  for (size_t i = 0; i < r.size(); i++) {
    const EdgePoint &p = r[i], &q = r[(i + 1) % r.size()];
    sum += (p.x - r[0].x) * (q.y - r[0].y) - (q.x - r[0].x) * (p.y - r[0].y);
  }
  return sum;
}
// Whether the box of a ring holds that of another.
bool encloses(const Ring& outer, const Ring& inner) {
  const auto by_y = [](const EdgePoint& a, const EdgePoint& b) { return a.y < b.y; };
  return *std::min_element(outer.begin(), outer.end()) <= *std::min_element(inner.begin(), inner.end()) &&
         std::max_element(outer.begin(), outer.end())->x >= std::max_element(inner.begin(), inner.end())->x &&
         std::min_element(outer.begin(), outer.end(), by_y)->y <=
             std::min_element(inner.begin(), inner.end(), by_y)->y;
}
int64_t length(const Ring& r) {
  int64_t sum = 0;
  for (size_t i = 0; i < r.size(); i++)
    sum += std::abs(r[i].x - r[(i + 1) % r.size()].x) + std::abs(r[i].y - r[(i + 1) % r.size()].y);
  return sum;
}
}  // namespace

TEST(Footprint, AreaAndLengthOfTheRings) {
  for (const uint32_t percent : {0u, 5u, 40u, 60u, 95u, 100u}) {
    const Tocc occ = random_map(percent + 1, percent);
    const std::vector<BorderEdge> edges = border_edges(occ);
    const std::vector<Outline> outlines = trace_outlines(edges);
    int64_t area = 0, border = 0;
    for (const Outline& o : outlines) {
      EXPECT_GT(area2(o.outer), 0);
      area += area2(o.outer), border += length(o.outer);
      std::set<EdgePoint> corners(o.outer.begin(), o.outer.end());
      EXPECT_EQ(corners.size(), o.outer.size()) << "touches itself";
      for (const Ring& h : o.holes) {
        EXPECT_LT(area2(h), 0);
        EXPECT_TRUE(encloses(o.outer, h)) << percent;
        area += area2(h), border += length(h);
      }
    }
    EXPECT_EQ(area, 2 * static_cast<int64_t>(count_Tocc(occ))) << percent;
    EXPECT_EQ(border, static_cast<int64_t>(edges.size())) << percent;
    if (percent == 100) {
      ASSERT_EQ(outlines.size(), 1u);
      EXPECT_EQ(outlines[0].outer.size(), 4u);
    }
  }
}
}  // namespace veld
