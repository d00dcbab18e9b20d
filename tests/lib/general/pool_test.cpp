#include "lib/threads/pool.h"

#include <gtest/gtest.h>

#include <vector>

namespace veld {
TEST(Pool, EveryUnitRunsOnceWhateverTheThreads) {
  for (const int nthreads : {1, 2, 7}) {
    std::vector<int> runs(100, 0);
    EXPECT_EQ(run_units(100, nthreads,
                        [&runs](int64_t unit, int) { return ++runs[static_cast<size_t>(unit)] == 1; }),
              -1);
    EXPECT_EQ(runs, std::vector<int>(100, 1));
  }
  EXPECT_EQ(run_units(0, 4, [](int64_t, int) { return false; }), -1);
}

TEST(Pool, TheLowestFailureIsReported) {
  for (const int nthreads : {1, 2, 7})
    EXPECT_EQ(run_units(50, nthreads, [](int64_t unit, int) { return unit % 17 != 13; }), 13);
}
}  // namespace veld
