// The table of swaths: numbers stay whatever becomes of a row.
#include "prj/LiDAR/swath/swath_table.h"

#include <gtest/gtest.h>

#include "prj/LiDAR/tuning.h"

namespace veld {
TEST(SwathTable, NumbersStayAndRejectedRowsAreNotPresent) {
  SwathTable swaths;
  for (const char* const path : {"/d/a.las", "/d/b.las", "/d/r.las", "/d/s.las"})
    swaths.add({.cache = CacheName(path), .group = path[3] > 'b' ? 0 : 1, .fixed = path[3] > 'b'});
  const SwathId all = swaths.add({.cache = CacheName::of_union(swaths[SwathId(2)].cache),
                                  .group = 0,
                                  .fixed = true,
                                  .members = {SwathId(2), SwathId(3)}});
  for (const SwathId m : swaths[all].members) swaths.reject(m, SwathState::replaced, "part of a union");
  swaths.reject(SwathId(0), SwathState::untiled, "no points left");
  EXPECT_EQ(swaths.ids(), (std::vector<SwathId>{SwathId(1), all}));
  EXPECT_EQ(swaths.size(), 5);
  EXPECT_EQ(swaths[SwathId(0)].reason, "no points left");
  EXPECT_FALSE(swaths[SwathId(0)].mobile());
  EXPECT_TRUE(swaths[SwathId(1)].mobile());
  EXPECT_TRUE(swaths[SwathId(1)].is_main());
  EXPECT_EQ(swaths.name(all), "/d/r.las (union of 2 input reference swaths)");
  for (const SwathState s : {SwathState::no_grid, SwathState::no_track}) {
    swaths.reject(SwathId(1), s, "");
    EXPECT_TRUE(swaths[SwathId(1)].mobile()) << "it is still there";
    EXPECT_FALSE(swaths[SwathId(1)].has_track());
  }
}
}  // namespace veld
