#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <set>

#include "prj/LiDAR/LmTQCGCP/LmTQCGCP.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "tests/support/tiling_fixture.h"

namespace veld {
namespace {
// Ground with a gentle slope, a steep bank at x = 500100 .. 500120, a pond without echoes around (500200, 5000030).
double ground(double x, double y) {
  const double bank = std::clamp(x - 500100, 0.0, 20.0);
  return 100 + 0.02 * (x - 500000) + 0.01 * (y - 5000000) + bank;
}
bool in_pond(const TestPoint& p) { return std::hypot(p.x - 500200, p.y - 5000030) < 8; }

class GcpSearch : public TilingTest {
 protected:
  Project prj;
  GCPparam param;

  // Two lines to the east, the second 0.25 m too high, and one of group 2 that is far away.
  void SetUp() override {
    TilingTest::SetUp();
    add("L1.las", 5000000, 0.0, 1);
    add("L2.las", 5000060, 0.25, 1);
    add("L3.las", 5003000, 0.0, 2);
    prj.scale = make_tile_scale(false, 0);
    prj.scale.dim = 6;
    prj.name = file("out");
  }
  void add(const std::string& name, double y0, double up, int group) {
    TestLine line;
    line.y0 = y0;
    line.heading = 90;
    line.height = [up](double x, double y) { return ground(x, y) + up; };
    std::vector<TestPoint> points = fly_line(line);
    std::erase_if(points, in_pond);
    Swath s;
    s.cache = CacheName(make(name, points));
    s.group = group;
    ASSERT_TRUE(tile(s.path()));
    prj.swaths.add(s);
  }
  static GCP point(const char* name, double x, double y, bool control = true) {
    return {name, {x, y, ground(x, y)}, 0.005, control, true};
  }
  std::vector<GCP> points() {
    return {point("open", 500050, 5000030),           point("edge", 500050, 5000119.3),
            point("beyond", 500050, 5000121),         point("steep", 500110, 5000030),
            point("pond", 500200, 5000030),           point("elsewhere", 700000, 5000030),
            point("far line", 500050, 5003000),       point("check", 500250, 5000010, false),
            {"nowhere", {1e300, 0, 0}, 0, true, true}};
  }
};

TEST_F(GcpSearch, HeightsAreThoseOfTheGroundWhereItIsSampled) {
  GCPresult r;
  r.gcp = points();
  param.tin = true;
  ASSERT_TRUE(robust_QC_GCP(prj, r.gcp, param, nullptr, 1, r.occ, r.counts));
  EXPECT_EQ(r.counts.nGCP, 7);
  EXPECT_EQ(r.counts.nscan, 3);
  std::set<std::string> refused;  // in the pond there are no points at all
  for (const GCPrefused& f : r.counts.refused) refused.insert(r.gcp[static_cast<size_t>(f.gcp)].name);
  EXPECT_TRUE(refused.count("beyond") && !refused.count("open"));
  std::map<std::string, int> seen;
  for (const GCPoccur& o : r.occ) {
    const std::string& name = r.gcp[static_cast<size_t>(o.gcp)].name;
    SCOPED_TRACE(name);
    seen[name]++;
    EXPECT_NEAR(o.dz, o.sw == SwathId(1) ? 0.25 : 0, 0.003);
    EXPECT_NEAR(o.density, 4, 1.5);
    EXPECT_NEAR(o.slope_x, name == "steep" ? 1.02 : 0.02, 0.01);
    EXPECT_LT(o.unc, 0.003);
    ASSERT_TRUE(o.tin.ok);
    EXPECT_NEAR(o.tin.z_tin, o.z_lidar, 0.005);
  }
  EXPECT_EQ(seen["open"], 2);
  EXPECT_EQ(seen["edge"], 1);
  EXPECT_EQ(seen["steep"], 2);
  EXPECT_EQ(seen["far line"], 1);
  EXPECT_EQ(seen["check"], 2);
  EXPECT_EQ(seen.size(), 5u);

  GCPresult threaded;
  ASSERT_TRUE(robust_QC_GCP(prj, r.gcp, param, nullptr, 3, threaded.occ, threaded.counts));
  ASSERT_EQ(threaded.occ.size(), r.occ.size());
  for (size_t i = 0; i < r.occ.size(); i++) {
    EXPECT_EQ(threaded.occ[i].dz, r.occ[i].dz);
    EXPECT_EQ(threaded.occ[i].gcp, r.occ[i].gcp);
  }
}

TEST_F(GcpSearch, CorrectionsMoveTheGroundUnderThePoint) {
  SwathVector<SCorrTbl> corr(prj.swaths);
  for (const SwathId sw :
       {SwathId(0), SwathId(1)}) {  // 2 m to the east, and the true height; the third has no table
    SwTiles tiles;
    ASSERT_TRUE(read_SwTiles(prj.swaths[sw].cache, tiles));
    corr[sw].C.resize(tiles.TI.size(), Image<xyz>(mTsub, mTsub, xyz{2, 0, 0.5f}));
    corr[sw].T0 = {0, 0, sw == SwathId(1) ? -0.75f : -0.5f};
  }
  GCPresult r;
  r.gcp = points();
  ASSERT_TRUE(robust_QC_GCP(prj, r.gcp, param, &corr, 1, r.occ, r.counts));
  int steep = 0;
  for (const GCPoccur& o : r.occ) {
    const bool on_bank = r.gcp[static_cast<size_t>(o.gcp)].name == "steep";
    steep += on_bank;
    EXPECT_NE(o.sw, SwathId(2));
    EXPECT_NEAR(o.dz, on_bank ? -2.04 : -0.04, 0.003);  // the ground that came from 2 m further west
    EXPECT_NEAR(o.corr.z, o.sw == SwathId(1) ? -0.25 : 0, 1e-6);
  }
  EXPECT_EQ(steep, 2);
}

TEST_F(GcpSearch, BiasOfAllAndOfGroups) {
  GCPresult r;
  r.gcp = {point("a", 500020, 5000010), point("b", 500080, 5000010), point("c", 500250, 5003000),
           point("check", 500280, 5000010, false)};
  for (GCP& g : r.gcp) g.pos.z -= 0.1;
  r.gcp[2].pos.z -= 0.3;
  ASSERT_TRUE(robust_QC_GCP(prj, r.gcp, param, nullptr, 2, r.occ, r.counts));
  ASSERT_TRUE(robust_GCP_stats(prj, param, false, r));
  EXPECT_EQ(r.control.npoint, 3);
  EXPECT_EQ(r.check.npoint, 1);
  param.EQ = 1;
  EXPECT_NEAR(GCP_dz_mean_grp(param, r, 1), 0.225, 0.003);  // half of it from the high line
  EXPECT_NEAR(GCP_dz_mean_grp(param, r, 2), 0.4, 0.003);
  EXPECT_EQ(GCP_dz_mean_grp(param, r, 3), NO_BIAS);
  EXPECT_NEAR(GCP_dz_mean(param, r), (2 * 0.1 + 2 * 0.35 + 0.4) / 5, 0.003);
  for (GCPoccur& o : r.occ) o.in = false;
  EXPECT_EQ(GCP_dz_mean(param, r), NO_BIAS);
}

TEST_F(GcpSearch, ReportsInTheUnitOfTheFilesAndAsJson) {
  GCPresult r;
  r.gcp = points();
  r.gcp[0].name = "open \"field\" \xFF";
  param.tin = param.json = param.obj = true;
  param.file = "points.txt";
  std::vector<GCPexport> around;
  ASSERT_TRUE(robust_QC_GCP(prj, r.gcp, param, nullptr, 1, r.occ, r.counts, &around));
  DATAUNIT = DATAUNIT_Z = 0.3048;
  ASSERT_TRUE(robust_GCP_stats(prj, param, false, r));
  ASSERT_TRUE(export_GCP_PC(prj, around, r));
  const std::string text = read_text(file("out_GCP.log"));
  for (const char* const part :
       {"Unit               foot\n", "CHECK: SUMMARY STATISTICS (robust)\nMean      0.41",
        "CONTROL: GROUP STATISTICS ", "open_\"field\"", "GCP LIST (ASPRS TIN)"})
    EXPECT_TRUE(holds(text, part)) << part << "\n" << text;
  const nlohmann::json j = nlohmann::json::parse(read_text(file("out_GCP.json")));
  EXPECT_NEAR(j["check"]["mean_dz"].get<double>(), 0.125 / 0.3048, 0.01);
  EXPECT_EQ(j["list"].size(), r.occ.size());
  EXPECT_EQ(j["outlier_rejection"], "enabled (global and groups)");
  DATAUNIT = DATAUNIT_Z = 1;
  ASSERT_TRUE(export_GCP_PC(prj, around, r));
  SwathVector<SCorrTbl> corr(prj.swaths);
  SwTiles tiles;
  ASSERT_TRUE(read_SwTiles(prj.swaths[SwathId(0)].cache, tiles));
  corr[SwathId(0)].C.resize(tiles.TI.size(), Image<xyz>(mTsub, mTsub, xyz{0, 0, 50}));
  ASSERT_TRUE(corr_exp_gcp_pc(prj, prj.name, corr));
  const std::string before = read_text(file("out_GCP_sw.txt")),
                    after = read_text(file("out_GCP_sw_corr.txt"));
  EXPECT_TRUE(holds(before, "edge_sw_1 500050.00 5000119.30 102.443 1 1\n")) << before;
  EXPECT_TRUE(holds(after, "check_sw_0 500250.00 5000010.00 175.100 0 1\n")) << after;
  EXPECT_FALSE(holds(after, "_sw_1 "));  // without a correction
  EXPECT_GT(read_text(file("out_GCP_PC_corr.txt")).size(), 1000u);
  EXPECT_TRUE(exists(file("out_GCP_tin.txt")) && exists(file("out_GCP_tin.obj")));
}

TEST_F(GcpSearch, WhatCannotBeMeasuredIsSaid) {
  std::vector<GCPoccur> occ;
  GCPcounts counts;
  EXPECT_FALSE(robust_QC_GCP(prj, {point("elsewhere", 700000, 5000030)}, param, nullptr, 1, occ, counts));
  GCP bare = point("bare", 500150, 5001500);  // within the frame, no swath there
  ASSERT_TRUE(robust_QC_GCP(prj, {bare}, param, nullptr, 1, occ, counts));
  EXPECT_TRUE(occ.empty());
  param.GCP_MIND = 9;
  ASSERT_TRUE(robust_QC_GCP(prj, points(), param, nullptr, 1, occ, counts));
  EXPECT_TRUE(occ.empty());
  EXPECT_GT(counts.refused.size(), 5u);
  EXPECT_EQ(counts.refused[0].why, Refusal::density);
  prj.swaths[SwathId(0)].cache = CacheName(file("absent.las"));
  EXPECT_FALSE(robust_QC_GCP(prj, points(), param, nullptr, 1, occ, counts));
}
}  // namespace
}  // namespace veld
