#include "prj/LiDAR/inputs/inputs.h"

#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/options/read_support.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
struct InputsTest : testing::Test {
  TempDir dir;
  Project prj;
  InputsTest() {
    for (const char* const name : {"/t.out", "/m1.txt", "/m2.txt"})
      write_text(dir.path + name, "1 2 3\n4 5 6\n");
  }
  // Reads the options, then the lists; gives what went to standard error.
  template <typename F>
  std::string run(const Args& args, F&& step) {
    ReadResult r;
    read_into(r, args);
    EXPECT_TRUE(r.ok) << r.errors;
    r.cl.in.rules.idir = dir.path;
    return errors_of([&] { ok = step(r); });
  }
  std::string mounts(const Args& args) {
    return run(args, [this](ReadResult& r) {
      return get_PO_files(r.cl.in, true, prj) && get_mount_files(r.cl.o, r.cl.in.rules, prj);
    });
  }
  bool ok = false;
};
}  // namespace

// 6 January 1980 is day 0 of week 0; each day is the next one, through leap years.
TEST(InputsDate, DaysCountOnFromTheEpoch) {
  static const int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  uint32_t week, day;
  EXPECT_FALSE(date2gweekday(1980, 1, 5, week, day));
  int n = -5;
  for (int y = 1980; y < 2105; y++)
    for (int m = 1; m <= 12; m++) {
      const bool leap = m == 2 && y % 4 == 0 && (y % 100 != 0 || y % 400 == 0);
      for (int d = 1; d <= lengths[m - 1] + (leap ? 1 : 0); d++, n++)
        if (n >= 0) {
          ASSERT_TRUE(date2gweekday(y, m, d, week, day));
          ASSERT_EQ(static_cast<int>(7 * week + day), n) << y << ' ' << m << ' ' << d;
        }
    }
}

TEST_F(InputsTest, MountsByFilesOrAngles) {
  EXPECT_EQ(mounts("-po t.out"), "");
  EXPECT_TRUE(ok);
  EXPECT_EQ(mounts("-po t.out -mount m1.txt"), "");
  ASSERT_TRUE(ok);
  ASSERT_GE(prj.mounts.size(), 1u);
  EXPECT_EQ(prj.mounts[0].IMU.y, 2);
  EXPECT_EQ(prj.mounts[0].Bore.z, 6);
  EXPECT_EQ(mounts("-po t.out -imu 1 2 3 -bore -0.5 0 7"), "");
  ASSERT_TRUE(ok);
  EXPECT_EQ(prj.mounts[0].IMU.z, 3);
  EXPECT_EQ(prj.mounts[0].Bore.x, -0.5f);
}

// Mounts belong to groups of swaths, however many trajectory groups there are; or to the sensor's channels.
TEST_F(InputsTest, MountsOfGroupsAndChannels) {
  prj.nmgrp = 4;
  prj.chgrp = {0, 1, 0, 1};
  const struct {
    Args args;
    std::vector<float> pitch;  // of the boresight, by group; empty: refused
    std::string said;
  } cases[] = {
      {"-bore 0 7 0 0 -7 0", {7, -7, 7, -7}, ""},
      {"-bore 0 1 0 0 2 0 0 3 0 0 4 0", {1, 2, 3, 4}, ""},
      {"-bore 0 5 0", {5, 5, 5, 5}, ""},
      {"-mount m1.txt m2.txt", {5, -5, 5, -5}, ""},
      {"-bore 0 1 0 0 2 0 0 3 0",
       {},
       "ERROR: 3 Bore rot angle triplets provided, expected 1 or 4 (1 per group) or 2 (1 per channel)\n"},
      {"-mount m1.txt m2.txt m1.txt",
       {},
       "ERROR: 3 mount files provided, expected 1 or 4 (1 per group) or 2 (1 per channel)\n"},
  };
  write_text(dir.path + "/m2.txt", "1 2 3\n4 -5 6\n");
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    testing::internal::CaptureStdout();
    EXPECT_EQ(mounts(Args("-po t.out") + c.args), c.said);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(ok, !c.pitch.empty());
    for (size_t g = 0; g < c.pitch.size(); g++) EXPECT_EQ(prj.mounts.at(g).Bore.y, c.pitch[g]) << g;
  }
}

TEST_F(InputsTest, ManualCorrectionsOfEachGroup) {
  write_text(dir.path + "/s1.txt", "0.1 0.2 0.3");
  write_text(dir.path + "/c.txt", "1 2 3\n0.5 1 -1\n1 2 3 4 5 6 7\n");
  const auto manual = [this](const Args& args) {
    return run(args, [this](ReadResult& r) {
      prj.nmgrp = 2;
      return get_shift_calib_files(r.cl.o, r.cl.in.rules, prj);
    });
  };
  EXPECT_EQ(manual("-shift_corr s1.txt -calib_corr c.txt c.txt"),
            "WARNING: using shift file s1.txt for all groups\n");
  ASSERT_TRUE(ok);
  ASSERT_EQ(prj.shifts.size(), 2u);
  EXPECT_EQ(prj.shifts[1].S.z, 0.3f);
  ASSERT_EQ(prj.calibs.size(), 2u);
  EXPECT_EQ(prj.calibs[1].L.y, 2);
  EXPECT_FLOAT_EQ(prj.calibs[1].B.z, -0.01745329f);
  EXPECT_EQ(prj.calibs[1].I(6), 7);
  EXPECT_EQ(manual("-utm 3"), "");
  EXPECT_TRUE(ok && prj.shifts.empty() && prj.calibs.empty());
}

TEST(InputsClasses, DropKeepAndGround) {
  Options o;
  std::vector<uint8_t> xcls;
  o.drop_class = {7, 18};
  EXPECT_TRUE(xclsf2xcls(o, xcls));
  EXPECT_EQ(xcls, (std::vector<uint8_t>{7, 18}));
  o.keep_class = {2};
  EXPECT_EQ(errors_of([&] { EXPECT_FALSE(xclsf2xcls(o, xcls)); }),
            "ERROR: options -keep_class and -drop_class are exclusive\n");
  o.drop_class.clear();
  EXPECT_TRUE(xclsf2xcls(o, xcls));
  EXPECT_EQ(xcls.size(), 255u);
  o.ground_class = 1;
  EXPECT_EQ(errors_of([&] { set_xcls_gnd(o, xcls); }),
            "WARNING: option -keep_class or -drop_class overrides option -ground_filter\n");
  o.keep_class.clear();
  set_xcls_gnd(o, xcls);
  EXPECT_EQ(xcls, (std::vector<uint8_t>{3, 4, 5, 7, 18}));
}
}  // namespace veld
