// The scan sequence called as a whole, where a run of the program would take too much data.
#include "prj/LiDAR/run/sequence.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/tuning.h"
#include "tests/support/swath_writer.h"
#include "tests/support/temp_dir.h"

namespace veld {
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
  void add(const TestLine& line, bool fixed = false) {
    Swath s;
    s.fixed = fixed;
    s.group = !fixed;
    s.cache = CacheName(dir.path + "/s" + std::to_string(prj.swaths.size()) + ".las");
    write_test_las(s.path(), fly_line(line));
    prj.swaths.add(s);
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

// Two mobile strips of 6 points/m2, three references of 40 that reach far beyond them: one reference at the end,
// no pair among references, the grid of the mobile data, nothing gridded beside them.
TEST_F(Sequence, ReferencesAreOneAndCountWhereMobileDataLie) {
  par.FULL = true;
  for (int i = 0; i < 2; i++)
    add({.x0 = 500000.0 + 60 * i, .length = 150, .density = 6, .tstart = 1e6 + 500 * i, .height = relief});
  ASSERT_TRUE(run()) << errors;
  const int dim = prj.scale.dim, nreg = res.inter.nreg;
  const double overlap = res.overlap;
  EXPECT_EQ(nreg, 1);
  for (int i = 0; i < 3; i++)
    add({.x0 = 500000.0 + 40 * i, .y0 = 4999700, .length = 700, .width = 60, .density = 20, .height = relief},
        true);
  ASSERT_TRUE(run()) << errors;
  const SwathId all(5);  // behind the three that it replaces
  ASSERT_EQ(prj.swaths.ids(), (std::vector<SwathId>{SwathId(0), SwathId(1), all}));
  EXPECT_EQ(prj.swaths.name(all), dir.path + "/s2.las (union of 3 input reference swaths)");
  EXPECT_EQ(prj.scale.dim, dim);
  EXPECT_EQ(res.inter.nint0, 3);
  EXPECT_EQ(res.inter.nreg, 3);
  EXPECT_GT(res.overlap, overlap);
  EXPECT_LE(res.overlap, 180.0 * 150 * 1.2) << "the ground of the mobile strips";
  EXPECT_GT(res.area, 140.0 * 700) << "references and all";
  EXPECT_NE(read_text(prj.name + "_idx.log").find("s2.las (union of 3 input reference swaths)\n"),
            std::string::npos);
  EXPECT_NE(read_text(prj.name + "_QC.log").find("2 mob, "), std::string::npos);
  SwGrid grid;
  ASSERT_TRUE(read_gZDSidx_tiles_idx(prj.swaths[all].cache, grid));
  for (size_t k = 0; k < grid.TI.size(); k++) {
    const double y = tile_origin(make_tile_geom(prj.scale.level), grid.TI(static_cast<int64_t>(k)).y);
    EXPECT_EQ(grid.gTocc[k].empty(), y > 5000154 + 4 || y + 128 < 5000000 - 4) << y;
  }
  // Again, with the project as it stands after a run: the files come back, and the union with its grid is kept.
  const std::string index = prj.swaths[all].cache.file(EXT_GMTIDX);
  const auto time = std::filesystem::last_write_time(index);
  ASSERT_TRUE(run()) << errors;
  EXPECT_EQ(prj.swaths.size(), 6) << "the same row stands for them again";
  EXPECT_EQ(res.inter.ncached, 3);
  EXPECT_EQ(std::filesystem::last_write_time(index), time);
}
}  // namespace veld
