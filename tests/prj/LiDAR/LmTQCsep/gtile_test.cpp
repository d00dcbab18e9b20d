#include <gtest/gtest.h>

#include <filesystem>

#include "las/las_access.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTQCsep/gtile_export.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/LmTgrid_w/synth_swaths.h"

namespace veld {
namespace {
struct Sums {
  uint64_t n = 0;
  double x = 0, z = 0;
};

// Of the points of a swath in all tile files of the directory whose names hold the infix.
Sums sums_of(const std::string& dir, const std::string& infix, int source) {
  Sums s;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    const std::string path = entry.path().string();
    if (path.find(infix) == std::string::npos || !path.ends_with(".laz")) continue;
    const auto reader = las_read_open(path, "xyz", false);
    EXPECT_TRUE(reader);
    while (reader && reader->read_point()) {
      if (reader->point.point_source_id() != source) continue;
      s.n++;
      s.x += reader->point.x();
      s.z += reader->point.z();
    }
  }
  return s;
}
}  // namespace

TEST(GriddedTiles, PointsMoveByTheCorrectionsOfTheirSwaths) {
  TempDir dir;
  Project prj = make_synth_project(dir, {{0, {0, 0, 0}, 1000000}, {60, {0, 0, 0}, 1000500}});
  const Tovr ovr = make_synth_Tovr(prj);
  GridResult grids;
  ASSERT_TRUE(LmT_grid(prj, ovr, false, 2, grids));
  SwathVector<SCorrTbl> corr(prj.swaths);
  corr[SwathId(1)].T0 = {0.4f, 0, -0.2f};
  const GtileParam par{true, true, true, false};
  ASSERT_TRUE(export_tiles_corr(prj, ovr.frame, par, MapParam(), 1, nullptr));
  ASSERT_TRUE(export_tiles_corr(prj, ovr.frame, par, MapParam(), 2, &corr));
  const std::string name = base_name(prj.name);
  for (const int source : {1, 2}) {
    const Sums raw = sums_of(dir.path, name + "_vr_gtile_", source),
               moved = sums_of(dir.path, name + "_corr_vr_gtile_", source);
    ASSERT_GT(raw.n, 1000u);
    ASSERT_EQ(moved.n, raw.n);
    EXPECT_NEAR((moved.x - raw.x) / static_cast<double>(raw.n), source == 2 ? 0.4 : 0, 1e-3);
    EXPECT_NEAR((moved.z - raw.z) / static_cast<double>(raw.n), source == 2 ? -0.2 : 0, 1e-3);
  }
  for (Swath& s : prj.swaths) s.fixed = true;
  EXPECT_FALSE(export_tiles_corr(prj, ovr.frame, par, MapParam(), 1, nullptr));
}
}  // namespace veld
