// Text trajectories as users have them: header lines, separators, decimal commas, missing values.
#include <gtest/gtest.h>

#include "prj/LiDAR/POio/POio.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
struct Read {
  bool ok;
  Vector<PO> po;
  POscan scan;
  std::string said;  // warnings and errors of both
};

Read read_text_PO(const std::string& text, const POread& par) {
  TempDir dir;
  const std::string path = dir.path + "/t.txt";
  write_text(path, text);
  Read r;
  bool tadj = false;
  testing::internal::CaptureStderr();
  r.ok = scan_PO(path, par, r.scan) && read_PO(path, par, r.po, tadj);
  r.said = testing::internal::GetCapturedStderr();
  return r;
}
}  // namespace

TEST(TxtLayout, ColumnsByNamesAndSeparators) {
  const struct {
    const char* what;
    const char* text;
    int coord;
    double t, x, y, z, roll, pitch, yaw;  // of the second row
  } cases[] = {{"names in another order, blanks and units",
                "Time(s) Heading(deg) Pitch (deg) Roll Easting Northing Height\n"
                "10 90 2 1 500000 5000000 300\n11 91 2 1 500001 5000000 301\n",
                PO_PROJ, 11, 500001, 5e6, 301, 1, 2, 91},
               {"longitude and latitude, semicolons, quotes, a comment sign",
                "# some recorder\n#\"GPS "
                "Time\";\"Latitude\";\"Longitude\";\"H-Ell\";\"Quality\";\"Roll\";\"Pitch\";\"Yaw\"\n"
                "10;48.0;15.0;300;1;1;2;3\n11;48.0;15.00001;301;1;1;2;3\n",
                PO_GEO, 11, 15.00001, 48, 301, 1, 2, 3},
               {"radians by their unit, tabs",
                "time\tlon [rad]\tlat [rad]\talt\troll [rad]\tpitch [rad]\theading [rad]\n"
                "10\t0.26\t0.84\t300\t0.1\t0.2\t0.3\n11\t0.26\t0.84\t301\t0.1\t0.2\t0.3\n",
                PO_GEO, 11, 14.896903, 48.128455, 301, 5.729578, 11.459156, 17.188734},
               {"decimal commas behind semicolons",
                "time;x;y;z;roll;pitch;yaw\n10,5;500000,25;5000000,5;300,5;1,5;2,5;3,5\n"
                "11,5;500000,75;5000000,5;301,5;1,5;2,5;3,5\n",
                PO_PROJ, 11.5, 500000.75, 5000000.5, 301.5, 1.5, 2.5, 3.5},
               {"decimal commas between blanks",
                "10,5 500000,25 5000000,5 300,5 1,5 2,5 3,5\n"
                "11,5 500000,75 5000000,5 301,5 1,5 2,5 3,5\n",
                PO_PROJ, 11.5, 500000.75, 5000000.5, 301.5, 1.5, 2.5, 3.5},
               {"week and seconds",
                "GPSWeek GPSTime X Y Z Roll Pitch Yaw\n2300 10 500000 5e6 300 1 2 3\n"
                "2300 11 500001 5e6 301 1 2 3\n",
                PO_PROJ, 2300 * 604800.0 + 11 - 1e9, 500001, 5e6, 301, 1, 2, 3},
               {"microseconds, down",
                "time(us),north,east,down,roll,pitch,yaw\n10000000,5000000,500000,-300,1,2,3\n"
                "11000000,5000000,500001,-301,1,2,3\n",
                PO_PROJ, 11, 500001, 5e6, 301, 1, 2, 3},
               {"earth-centred, no angles",
                "t,X-ECEF,Y-ECEF,Z-ECEF\n10,3771793.9,140253.3,5124304.3\n"
                "11,3771794.9,140253.3,5124304.3\n",
                PO_ECEF, 11, 3771794.9, 140253.3, 5124304.3, 0, 0, 0},
               {"tabs that align columns",
                "10\t\t500000\t5000000\t\t300\t1\t2\t3\n11\t\t500001\t5000000\t\t301\t1\t2\t3\n", PO_PROJ, 11,
                500001, 5e6, 301, 1, 2, 3},
               {"no header", "10,500000,5000000,300,1,2,3\r\n11,500001,5000000,301,1,2,3\r\n", PO_PROJ, 11,
                500001, 5e6, 301, 1, 2, 3}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const Read r = read_text_PO(c.text, POread());
    ASSERT_TRUE(r.ok) << r.said;
    ASSERT_EQ(r.po.size(), 2u) << r.said;
    EXPECT_EQ(r.scan.coord, c.coord);
    EXPECT_FALSE(holds(r.said, "ERROR")) << r.said;
    const PO& p = r.po(1);
    EXPECT_NEAR(p.t, c.t, 1e-6);
    EXPECT_NEAR(p.x, c.x, 1e-6);
    EXPECT_NEAR(p.y, c.y, 1e-6);
    EXPECT_NEAR(p.z, c.z, 1e-9);
    EXPECT_NEAR(p.roll, c.roll, 1e-5);
    EXPECT_NEAR(p.pitch, c.pitch, 1e-5);
    EXPECT_NEAR(p.yaw, c.yaw, 1e-5);
    EXPECT_EQ(r.scan.yaw, c.yaw != 0);
  }
  // Columns of the option stand against the names.
  POread own;
  own.col = "txyzkpw";
  EXPECT_NEAR(
      read_text_PO("time x y z roll pitch yaw\n1 500000 5e6 3 1 2 3\n2 500001 5e6 3 1 2 3\n", own).po(1).yaw,
      1, 1e-6);
}

// A missing value never lets those behind it take its place.
TEST(TxtLayout, MissingValuesAreRefused) {
  for (const char* const separator : {",", ";", "\t", " "})
    for (const int missing : {1, 3, 4, 6}) {
      std::string text;
      for (int i = 0; i < 100; i++)
        for (int k = 0; k < 8; k++) {
          const double value[] = {1000.0 + i, 500000.0 + i, 5e6, 300, 1, 2, 3, 7};
          if (i % 30 != 5 || k != missing) text += std::to_string(value[k]);
          text += k < 7 ? separator : "\n";
        }
      const Read r = read_text_PO(text, POread());
      ASSERT_TRUE(r.ok) << r.said;
      EXPECT_EQ(r.po.size(), 96u) << separator << missing;
      EXPECT_TRUE(holds(r.said, "4 rows with missing or unreadable values skipped")) << r.said;
      for (const PO& p : r.po) {
        ASSERT_EQ(p.x - 500000, p.t - 1000);
        ASSERT_EQ(p.yaw, 3);
      }
    }
}

TEST(TxtLayout, RepeatedAndSwappedRows) {
  std::string twice, swapped;
  for (int i = 0; i < 2000; i++) {
    const int k = i % 500 == 7 ? i + 1 : i % 500 == 8 ? i - 1 : i;
    const std::string row = " 500000 5000000 300 1 2 3\n";
    twice += std::to_string(1000 + i * 0.1) + row + std::to_string(1000 + i * 0.1) + row;
    swapped += std::to_string(1000 + k * 0.1) + row;
  }
  const Read a = read_text_PO(twice, POread()), b = read_text_PO(swapped, POread());
  ASSERT_TRUE(a.ok && b.ok) << a.said << b.said;
  EXPECT_EQ(a.po.size(), 2000u) << a.said;
  EXPECT_TRUE(a.said.empty()) << a.said;
  EXPECT_EQ(b.po.size(), 1996u) << b.said;
  EXPECT_TRUE(holds(b.said, "4 invalid records skipped")) << b.said;
}

TEST(TxtLayout, WhatCannotBeReadIsReported) {
  const struct {
    const char* text;
    bool ok;
    const char* said;
  } cases[] = {{"1,5,500000,2,5000000,3,300,1,1,2,2,5,3,5\n2,5,500000,2,5000000,3,300,1,1,2,2,5,3,5\n", false,
                "commas separate numbers and stand in them"},
               {"time x y z roll pitch\n1 500000 5e6 3 1 2\n2 500001 5e6 3 1 2\n", false,
                "roll or pitch without heading"},
               {"GPS Time X Y Z Roll Pitch Yaw Q S\n1 500000 5e6 3 1 2 3 4\n2 500001 5e6 3 1 2 3 4\n", true,
                "rows have 8: the names are not used"},
               {"time lon lat h roll pitch yaw\n1 500000 5e6 3 1 2 3\n2 500001 5e6 3 1 2 3\n", true, ""}};
  for (const auto& c : cases) {
    const Read r = read_text_PO(c.text, POread());
    EXPECT_EQ(r.ok, c.ok) << c.text << r.said;
    EXPECT_TRUE(holds(r.said, c.said)) << c.text << r.said;
    EXPECT_TRUE(*c.said || r.said.empty()) << r.said;
  }
}
}  // namespace veld
