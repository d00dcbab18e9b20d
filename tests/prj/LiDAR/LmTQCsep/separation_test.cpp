// Planted differences come back in the tables, and go when the corrections take them out.
#include "prj/LiDAR/LmTQCsep/separation.h"

#include <gtest/gtest.h>

#include "lib/DataStructure/nodata.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTQCsep/ground_cells.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/LmTgrid_w/synth_swaths.h"

namespace veld {
namespace {
struct SepProject {
  TempDir dir;
  Project prj;
  TileInfo frame;
  MapParam map;
  explicit SepProject(const std::vector<SynthStrip>& strips) {
    prj = make_synth_project(dir, strips);
    const Tovr ovr = make_synth_Tovr(prj);
    frame = ovr.frame;
    GridResult grids;
    EXPECT_TRUE(LmT_grid(prj, ovr, false, 2, grids));
    map.img.OUTJPEG = false;
    map.img.OUTTIFF = true;
  }
  SeparationResult run(const SwathVector<SCorrTbl>* corr = nullptr, int nthreads = 2) {
    SeparationResult r;
    EXPECT_TRUE(save_separation(prj, frame, map, nthreads, corr, r));
    return r;
  }
};
}  // namespace

TEST(Separation, PlantedOffsetsComeBackAndGo) {
  SepProject p({{0, {0, 0, 0.05f}, 1000000}, {60, {0, 0, 0}, 1000500}, {90, {0.4f, 0, -0.2f}, 1001000}});
  const SeparationResult r = p.run();
  ASSERT_EQ(r.pairs.size(), 3u);
  EXPECT_NEAR(r.pairs.at({SwathId(0), SwathId(1)}).rms(), 0.05, 0.02);
  EXPECT_NEAR(r.pairs.at({SwathId(0), SwathId(2)}).rms(), 0.25, 0.03);
  EXPECT_LT(r.pairs.at({SwathId(0), SwathId(1)}).beyond(0.16f), 0.01);
  EXPECT_GT(r.pairs.at({SwathId(1), SwathId(2)}).beyond(0.16f), 0.8);
  for (const auto& [sw, s] : r.precision) {  // heights have a noise of 3 cm: of some 4 a cell, twice that
    EXPECT_GT(s.n, 500u);
    EXPECT_GT(s.mean(), 0.02);
    EXPECT_LT(s.mean(), 0.1);
  }
  const std::string image = read_text(p.prj.name + "_sep.tif"),
                    table = read_text(p.prj.name + "_sep_stat.log");
  EXPECT_GT(image.size(), 1000u);
  EXPECT_TRUE(table.starts_with("Swath#1 Swath#2 RMSDz"));
  (void)p.run(nullptr, 1);
  EXPECT_EQ(read_text(p.prj.name + "_sep.tif"), image);
  EXPECT_EQ(read_text(p.prj.name + "_sep_stat.log"), table);

  SwathVector<SCorrTbl> corr(p.prj.swaths);
  corr[SwathId(0)].T0 = {0, 0, -0.05f};
  corr[SwathId(2)].T0 = {-0.4f, 0, 0.2f};
  const SeparationResult after = p.run(&corr);
  for (const auto& [pair, sum] : after.pairs) EXPECT_LT(sum.rms(), 0.025) << pair.first << " " << pair.second;
  EXPECT_TRUE(exists(p.prj.name + "_sepcorr.tif"));
}

// A cell of 20 points on a plane with noise, and what else stands there.
TEST(GroundCells, OpenGroundCountsAndNothingElse) {
  const struct {
    const char* what;
    float slope;
    int ntrees, first;  // points that stand 1.5 m high, first point
    float low;          // m, of one point below
    bool open;
  } cases[] = {
      {"bare", 0.1f, 0, 0, 0, true},         {"a twig", 0.1f, 2, 0, 0, true},
      {"a bush", 0.1f, 5, 0, 0, false},      {"steep", 0.2f, 0, 0, 0, false},
      {"noise below", 0.1f, 0, 0, 2, false}, {"a quarter without points", 0.1f, 0, 5, 0, false},
      {"a roof", 0.05f, 20, 0, 0, true},
  };
  constexpr float CELL = 2;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Vector<xyz> P;
    P.resize(20);
    uint64_t np = 0;
    for (int i = c.first; i < 20;
         i++) {  // five in each quarter of the cell (3, 1), the first ones in the lower left
      const float u = 0.15f * static_cast<float>(i % 5 + 1), v = 0.8f - u;
      xyz p = {u + static_cast<float>(i / 5 % 2), v + static_cast<float>(i / 10), 0};
      p.z = 100 + c.slope * (p.x - CELL / 2) + 0.02f * static_cast<float>(i % 3 - 1);
      if (i - c.first < c.ntrees) p.z += 1.5f;
      if (i == 19) p.z -= c.low;
      P[np++] = p + xyz{3 * CELL, CELL, 0};
    }
    Image<float> Z;
    ground_cells(P, np, 4, CELL, Z);
    ASSERT_EQ(Z(3, 1) != NODATA, c.open);
    if (c.open) {
      EXPECT_NEAR(Z(3, 1), c.ntrees == 20 ? 101.5 : 100, 0.02);
    }
    EXPECT_EQ(Z(2, 1), NODATA);
  }
}

TEST(SepSum, CountsAgainstSortedValues) {
  SepSum s, half;
  for (int i = 0; i < 1000; i++) (i % 2 ? s : half).add(static_cast<float>(i) * 0.001f);
  s.add(half);
  EXPECT_EQ(s.n, 1000u);
  EXPECT_NEAR(s.percentile(0.95), 0.95, 0.005);
  EXPECT_NEAR(s.beyond(0.16f), 0.84, 0.002);
  EXPECT_FLOAT_EQ(s.largest, 0.999f);
  EXPECT_EQ(SepSum().rms(), 0);
}
}  // namespace veld
