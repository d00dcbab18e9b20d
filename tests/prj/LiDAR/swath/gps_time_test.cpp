// Leap seconds and dates against known instants.
#include "prj/LiDAR/swath/gps_time.h"

#include <gtest/gtest.h>

namespace veld {
TEST(GpsTime, LeapSeconds) {
  struct Row {
    double gps, leaps;
  };
  // 1 January 2017, 00:00:00 UTC is GPS second 1167264018; the leap second before it is 1167264017.
  for (const Row& r : {Row{0, 0}, Row{46828799, 0}, Row{46828800, 0.5}, Row{46828801, 1}, Row{1167264016, 17},
                       Row{1167264017, 17.5}, Row{1167264018, 18}, Row{1391949907, 18}})
    EXPECT_EQ(leaps_GPS(r.gps), r.leaps) << r.gps;
  for (const Row& r : {Row{46828799, 0}, Row{46828800, 1}, Row{1167263999, 17}, Row{1167264000, 18}})
    EXPECT_EQ(leaps_UTC(r.gps), r.leaps) << r.gps;
  for (double gps = 1e7; gps < 1.4e9; gps += 12345678)
    EXPECT_EQ(leaps_UTC(gps - leaps_GPS(gps)), leaps_GPS(gps));
}

TEST(GpsTime, Dates) {
  struct Row {
    double t;
    bool adj;
    const char* text;
  };
  const Row rows[] = {{2301 * WEEK_S + 305218 - 1e9, true, "2024-02-14 12:46:40"},
                      {2301 * WEEK_S + 305217.6 - 1e9, true, "2024-02-14 12:46:40"},
                      {-1e9, true, "1980-01-06 00:00:00"},
                      {1167264018 - 1e9, true, "2017-01-01 00:00:00"},
                      {1167264017 - 1e9, true, "2016-12-31 23:59:59"},
                      {951782400 - 315964800 + 13 - 1e9, true, "2000-02-29 00:00:00"},
                      {305218, false, "GPS D 3 WS 12:46:58"},
                      {604799.7, false, "GPS D 7 WS 00:00:00"},
                      {2e307, true, "-"}};
  for (const Row& r : rows) EXPECT_EQ(date_text(r.t, r.adj), r.text) << r.t;
}
}  // namespace veld
