// Time formats against a known instant.
#include "prj/LiDAR/POio/POtime.h"

#include <gtest/gtest.h>

namespace veld {
// The instant 14 February 2024, 12:46:40 UTC: Unix 1707914800, GPS week 2301, day 3, second 305218 of the
// week.
TEST(POtime, EveryFormatMeetsTheSameInstant) {
  constexpr double gps = 2301 * WEEK_S + 305218;
  struct Row {
    int time;
    double t;
    bool adj;
  };
  const Row rows[] = {
      {WKS_GPS_DEC, 305218, false},    {ADJ_GPS_DEC, gps - 1e9, true},   {STD_GPS_DEC, gps, true},
      {UNX_UTC_DEC, 1707914800, true}, {STD_UTC_DEC, gps - 18, true},    {ADJ_UTC_DEC, gps - 18 - 1e9, true},
      {DAY_UTC_DEC, 46000, false},     {DAY_UTC_HMS, 46000, false},      {DAY_GPS_DEC, 46018, false},
      {DAY_GPS_HMS, 46018, false},     {WKS_UTC_DEC, 305218 - 18, false}};
  for (const Row& r : rows) {
    double deltat = 0;
    bool adj = !r.adj;
    ASSERT_TRUE(deltat_time_format(r.t, r.time, 2301, 3, deltat, adj)) << PO_time_word(r.time);
    EXPECT_EQ(adj, r.adj) << PO_time_word(r.time);
    EXPECT_EQ(r.t + deltat, r.adj ? gps - 1e9 : 305218.0) << PO_time_word(r.time);
    EXPECT_EQ(deltat_time_format(r.t, r.time, 0, 0, deltat, adj), !PO_time_needs_date(r.time))
        << PO_time_word(r.time);
  }
  double deltat = 0;
  bool adj = false;
  EXPECT_FALSE(deltat_time_format(1e15, STD_GPS_DEC, 0, 0, deltat, adj));
  EXPECT_FALSE(deltat_time_format(0, N_PO_TIME, 2301, 3, deltat, adj));
}
}  // namespace veld
