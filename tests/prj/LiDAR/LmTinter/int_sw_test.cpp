// Which pairs the filters keep.
#include <gtest/gtest.h>

#include "prj/LiDAR/LmTinter/LmTinter.h"

namespace veld {
namespace {
// Swaths 0, 1: two channels of one line, group 1; 2: a later line of group 2; 3: a second channel without its
// main channel, group 1; 4, 5: references.
SwathTable six_swaths() {
  SwathTable swaths;
  const struct {
    int group, ch, mainch;
    bool fixed;
    double tmin, tmax;
  } rows[] = {{1, 0, 0, false, 0, 100},   {1, 1, 0, false, 0, 100}, {2, 0, 2, false, 200, 300},
              {1, 1, 0, false, 400, 500}, {0, 0, 4, true, 50, 60},  {0, 0, 5, true, 50, 60}};
  for (const auto& r : rows) {
    Swath s{.group = r.group, .channel = r.ch, .fixed = r.fixed, .mainch = SwathId(r.mainch)};
    s.clock.tmin = r.tmin, s.clock.tmax = r.tmax;
    swaths.add(s);
  }
  return swaths;
}
}  // namespace

TEST(comp_int_sw, FiltersKeepWhatTheySay) {
  const SwathTable swaths = six_swaths();
  SwPairList overlap;
  for (int i = 0; i < 6; i++)
    for (int j = i + 1; j < 6; j++)
      if (i != 0 || j != 3) overlap.emplace_back(SwathId(i), SwathId(j));
  // RDIM, GRP, REF, CH, filter, ALLDZ; pairs registered as "ij". The times of the references lie in those of
  // swaths 0 and 1, and mean nothing.
  const struct {
    PairFilter f;
    std::string kept;
  } cases[] = {
      {{0, 1, 1, 1, true, false}, "01 02 04 05 12 13 14 15 23 24 25 34 35 "},
      {{0, 0, 0, 0, false, true}, "01 02 04 05 12 13 14 15 23 24 25 34 35 "},  // filters off
      {{1, 1, 1, 1, true, false}, "01 02 04 05 13 24 25 "},
      {{2, 1, 1, 1, true, false}, "01 02 04 05 24 25 "},
      {{2, 1, 1, 1, true, true}, "01 02 04 05 24 25 "},
      {{0, 0, 1, 1, true, false}, "01 13 "},
      {{0, 2, 0, 1, true, false}, "02 12 23 "},
      {{0, 1, 2, 1, true, false}, "04 05 14 15 24 25 34 35 "},
      {{0, 1, 0, 0, true, false}, "02 13 "},
      {{0, 1, 0, 2, true, false}, "01 12 23 "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kept);
    int n0 = 0, n1 = 0;
    std::string kept;
    int number = 0;
    for (const SwPair& p : comp_int_sw(swaths, overlap, c.f, true, n0, n1)) {
      if (p.reg) kept += to_string(p.sw1) + to_string(p.sw2) + " ";
      EXPECT_EQ(p.number, number++);
    }
    EXPECT_EQ(kept, c.kept);
    EXPECT_EQ(n0, 13);  // without 45, a pair of references
    EXPECT_EQ(n1, static_cast<int>(c.kept.size() / 3));
    EXPECT_EQ(number, c.f.ALLDZ ? n0 : n1);
  }
}
}  // namespace veld
