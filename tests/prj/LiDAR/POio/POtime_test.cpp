// Time scales and dates against known instants.
#include "prj/LiDAR/POio/POtime.h"

#include <gtest/gtest.h>

namespace veld {
TEST(POtime, LeapSeconds) {
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

TEST(POtime, Dates) {
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
