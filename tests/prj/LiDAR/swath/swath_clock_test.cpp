// The clock of a swath: rollovers wherever they fall, and the way back to raw times.
#include "prj/LiDAR/swath/swath_clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace veld {
TEST(SwathClock, RolloverIsFoundByTheRangeOfTimes) {
  const struct {
    double tmin, tmax;
    Rollover rover;
  } cases[] = {{0, 32400, Rollover::none},       {1e9, 1e9 + 40000, Rollover::none},
               {10, 86390, Rollover::day},       {0, 300000, Rollover::day},
               {100, 604700, Rollover::week},    {2e307, -2e307, Rollover::none},
               {0, std::nan(""), Rollover::none}};
  for (const auto& c : cases) EXPECT_EQ(find_rollover(c.tmin, c.tmax), c.rover) << c.tmax;
}

// A flight of up to 9 hours over the end of a day or a week. The tiling knows one time before the rollover, any of
// them; the clock knows the first. Both must put every time back in order.
TEST(SwathClock, EveryTimeOfAFlightIsUnrolled) {
  for (const Rollover rover : {Rollover::day, Rollover::week}) {
    const double period = rollover_period(rover);
    for (double before = 1; before < 32400; before += 3239)
      for (double behind = 1; before + behind <= 32400; behind += 3239) {
        std::vector<double> truth;
        for (double t = period - before; t <= period + behind; t += 90) truth.push_back(t);
        truth.push_back(period + behind);
        SwathClock clock;
        clock.rover = rover;
        clock.tmin = truth.front();
        clock.tmax = truth.back();
        clock.shift = -1234.5;
        for (const double known : {truth.front(), std::nextafter(period, 0)}) {
          const Unroll unroll(rover, known);
          for (const double t : truth)
            ASSERT_EQ(unroll(t < period ? t : t - period), t) << before << ' ' << behind;
        }
        for (const double t : truth) {
          const double raw = t < period ? t : t - period;
          ASSERT_EQ(clock.sync(clock.unroll()(raw)), t + clock.shift);
        }
      }
  }
}

TEST(SwathClock, FallsOfTheTimeStamp) {
  for (const double period : {WEEK_S, DAY_S}) {
    EXPECT_EQ(rollover_period(period), period);
    EXPECT_EQ(rollover_period(period - 30000), period);
    EXPECT_EQ(rollover_period(period + 39999), period);
  }
  for (const double fall : {1.0, 40000.0, 300000.0, -DAY_S}) EXPECT_EQ(rollover_period(fall), 0) << fall;
}
}  // namespace veld
