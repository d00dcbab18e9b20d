#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "prj/LiDAR/LmTQCGCP/XYZGCP.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "tests/support/tiling_fixture.h"

namespace veld {
namespace {
class XyzGcp : public TilingTest {
 protected:
  Project prj;
  void SetUp() override {
    TilingTest::SetUp();
    int group = 1;
    for (const char* const name : {"L1.las", "L10.las", "other.las"}) {
      Swath s;
      s.cache = CacheName(make(name, fly_line({})));
      s.group = group++ / 2 + 1;  // 1, 2, 2
      ASSERT_TRUE(tile(s.path()));
      prj.swaths.add(s);
    }
    prj.scale = make_tile_scale(false, 0);
    prj.name = file("out");
  }
  static std::vector<SwathId> ids(const std::vector<int>& numbers) {
    std::vector<SwathId> list;
    for (const int n : numbers) list.push_back(SwathId(n));
    return list;
  }
  // Lies 0.3, -0.2, 0.1 m off in its swath.
  static XYZGCP target(const char* name, const char* match, double x, bool control = true) {
    return {name, match, {x, 5000050, 100}, {x + 0.3, 5000049.8, 100.1}, 0.02, 0.02, control};
  }
};

TEST_F(XyzGcp, TargetsFindTheirOneSwath) {
  const std::vector<XYZGCP> gcp = {target("stem", "L1", 500010),       target("file", "L10.las", 500010),
                                   target("part", "the", 500010),      target("two", "L", 500010),
                                   target("none", "L2", 500010),       target("pattern", "o*", 500010),
                                   target("no pattern", "L*", 500010), target("case", "OTHER", 500010)};
  EXPECT_EQ(match_XYZGCP_swaths(prj, gcp), ids({0, 1, 2, -1, -1, 2, -1, -1}));
}

TEST_F(XyzGcp, DifferencesBeforeAndAfterAndBias) {
  XYZGCPresult r;
  r.gcp = {target("a", "L1", 500010), target("b", "L10", 500020), target("c", "other", 499990, false),
           target("off", "L1", 900000)};
  const std::vector<SwathId> swath = match_XYZGCP_swaths(prj, r.gcp);
  ASSERT_TRUE(QC_XYZGCP(prj, r.gcp, swath, nullptr, r.occ));
  ASSERT_EQ(r.occ.size(), 3u);
  XYZGCPparam how;
  how.json = true;
  ASSERT_TRUE(XYZGCP_stats(prj, how, false, r));
  EXPECT_NEAR(norm(XYZGCP_diff_mean(how, r) - dxyz{0.3, -0.2, 0.1}), 0, 1e-6);
  EXPECT_EQ(XYZGCP_diff_mean_grp(how, r, 7).z, NODATA);
  EXPECT_NEAR(r.control.rms_xy, std::sqrt((0.09 + 0.04) / 2), 1e-6);
  EXPECT_NEAR(r.check.rms_z, 0.1, 1e-6);
  const nlohmann::json j = nlohmann::json::parse(read_text(file("out_XYZGCP.json")));
  EXPECT_EQ(j["diff"], "LiDAR-GCP");
  EXPECT_TRUE(j["check"]["stddev_xy_r_z"].is_null());
  EXPECT_EQ(j["list"].size(), 3u);
  EXPECT_TRUE(holds(read_text(file("out_XYZGCP.log")), "CONTROL: GROUP STATISTICS\nGroup# NGCP"));

  SwathVector<SCorrTbl> corr(prj.swaths);  // the third swath is not corrected
  for (const SwathId sw : ids({0, 1})) {
    SwTiles tiles;
    ASSERT_TRUE(read_SwTiles(prj.swaths[sw].cache, tiles));
    corr[sw].C.resize(tiles.TI.size(), Image<xyz>(mTsub, mTsub, xyz{-0.25f, 0.25f, 0}));
    corr[sw].T0 = {0, 0, -0.125f};
  }
  ASSERT_TRUE(QC_XYZGCP(prj, r.gcp, swath, &corr, r.occ));
  ASSERT_EQ(r.occ.size(), 2u);
  comp_XYZGCP_stats(how, r);
  EXPECT_NEAR(norm(r.control.mean - dxyz{0.05, 0.05, -0.025}), 0, 1e-6);
}
}  // namespace
}  // namespace veld
