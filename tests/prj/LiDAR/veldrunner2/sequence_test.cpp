// The scan sequence called as a whole, where a run of the program would take too much data.
#include "prj/LiDAR/veldrunner2/sequence.h"

#include <gtest/gtest.h>

#include <cmath>

#include "prj/LiDAR/tuning.h"
#include "tests/support/swath_writer.h"
#include "tests/support/temp_dir.h"

namespace {
double relief(double x, double y) {
  return 100 + 4 * std::sin(x / 17) * std::cos(y / 23) + std::sin(y / 3.1);
}

struct Sequence : testing::Test {
  TempDir dir;
  Project prj;
  ScanParam par;
  ScanResult res;
  const int mem = MEM_MB;

  void SetUp() override {
    TMPDIR = dir.path + "/";
    prj.name = dir.path + "/out";
    prj.scale = make_tile_scale(false, 0);
    par.REG = true;
  }
  void TearDown() override { MEM_MB = mem; }
  void add(const TestLine& line) {
    Swath s;
    s.path = dir.path + "/s" + std::to_string(prj.swaths.size()) + ".las";
    s.mainch = static_cast<int>(prj.swaths.size());
    write_test_las(s.path, fly_line(line));
    prj.swaths.push_back(s);
    prj.nmgrp = prj.ngrp = 1;
  }
  bool run() {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const bool ok = SCAN_REG_QC(prj, par, res);
    testing::internal::GetCapturedStdout();
    errors = testing::internal::GetCapturedStderr();
    return ok;
  }
  std::string errors;
};
}  // namespace

// A swath that -mem is too small for is left out with an error, the others are finished.
TEST_F(Sequence, MemoryTakesOneSwathAndLeavesTheOthers) {
  for (const bool tiles : {true, false}) {
    MEM_MB = tiles ? 14 : 16;
    prj.swaths.clear();
    for (int i = 0; i < 3; i++)
      add({.x0 = 500000.0 + 50 * i,
           .length = 200,
           .density = i < 2 ? 6.0 : 90.0,
           .tstart = 1e6 + 500 * i,
           .height = relief});
    ASSERT_TRUE(run()) << errors;
    EXPECT_EQ(res.nmemory, 1);
    EXPECT_NE(errors.find(tiles ? "ERROR: LAS tiling: a tile requires " : "ERROR: gridding requires "),
              std::string::npos);
    EXPECT_NE(errors.find(" reserved (use option -mem), "), std::string::npos) << errors;
    EXPECT_EQ(
        read_text(prj.name + "_rej.log").find("** S 2 g 1 " + dir.path + "/s2.las") != std::string::npos,
        tiles);
    EXPECT_EQ(res.inter.nreg, 1) << errors;
    EXPECT_EQ(res.inter.nint0, 1);
  }
}
