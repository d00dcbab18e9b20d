// Statistics of swaths, grid scale, groups and channels.
#include "prj/LiDAR/LmTidx_w/swath_stat.h"

#include <cmath>

#include "tests/support/tiling_fixture.h"

namespace veld {
namespace {
CountHist hist_of(const std::vector<std::pair<uint32_t, uint64_t>>& counts) {
  CountHist h;
  for (const auto& [n, nmt] : counts) {
    if (h.nmt_of.size() <= n) h.nmt_of.resize(n + 1);
    h.nmt_of[n] = nmt;
    h.np += n * nmt;
    h.nmt += nmt;
  }
  return h;
}
}  // namespace

TEST_F(TilingTest, StatisticsTellLengthWidthHeadingAndDensity) {
  for (const double heading : {10.0, 100.0, 190.0, 300.0}) {
    const std::string path = make(
        "h.las",
        fly_line(
            {.heading = heading, .length = 600, .width = 150, .density = 5, .height = [](double x, double y) {
               return 200 + 0.02 * (x - 500000) + 0.01 * (y - 5000000);
             }}));
    ASSERT_TRUE(tile(path)) << res.reason;
    SwathStat s;
    ASSERT_TRUE(comp_swath_stat(CacheName(path), true, true, s));
    EXPECT_NEAR(s.length, 600, 8);  // two microtiles
    EXPECT_NEAR(s.width, 150, 8);
    EXPECT_NEAR(s.heading, heading, 1.0);
    EXPECT_NEAR(s.grid.D0, 5, 0.3) << "the median microtile is full";
    EXPECT_LT(s.density, s.grid.D0) << "those at the border are not";
    const double h = heading * M_PI / 180;  // the surface rises 2 cm a metre to the east, 1 cm to the north
    const double relief = std::abs(0.02 * std::sin(h) + 0.01 * std::cos(h)) * 600 +
                          std::abs(0.02 * std::cos(h) - 0.01 * std::sin(h)) * 150;
    EXPECT_LT(s.Zmax - s.Zmin, relief);
    EXPECT_GT(s.Zmax - s.Zmin, relief * 0.8) << "percentiles 1 and 99";
    EXPECT_GT(s.cache_bytes, s.info.np * 6);
  }
}

TEST(GridScale, SpacingGivesTheTargetPointsAPixel) {
  struct Case {
    std::vector<std::pair<uint32_t, uint64_t>> counts;
    double mTsize;
    bool median;
    int dim;
  };
  // 1 point a pixel: dim = sqrt(points of a microtile).
  const Case cases[] = {
      {{{64, 1000}}, 4, true, 8},
      {{{64, 1000}}, 4, false, 8},
      {{{16, 1000}}, 1, true, 4},
      {{{64, 1000}, {2, 300}}, 4, true, 8},   // thin borders do not pull the median down
      {{{100, 600}, {4, 400}}, 4, false, 8},  // but the mean: 61.6 points
      {{{1, 5}}, 4, true, 1},                 // never below one pixel
      {{}, 4, true, 1},
  };
  for (const Case& c : cases) EXPECT_EQ(comp_GGSD_dim(hist_of(c.counts), c.mTsize, c.median).dim, c.dim);
  GGSD_OPT = 0.25f;
  EXPECT_EQ(comp_GGSD_dim(hist_of({{64, 1000}}), 4, true).dim, 16);
  EXPECT_DOUBLE_EQ(comp_GGSD_dim(hist_of({{64, 1000}}), 4, true).GGSD, 0.25);
  GGSD_OPT = -1.0f;
}

TEST(Groups, AnEmptyGroupIsAnError) {
  Project prj;
  prj.nmgrp = prj.ngrp = 2;
  prj.chgrp = {0, 1};
  for (const int group : {1, 2}) prj.swaths.add({.group = group});
  EXPECT_TRUE(check_nonempty_groups(prj));
  prj.swaths.reject(SwathId(1), SwathState::untiled, "");
  EXPECT_FALSE(check_nonempty_groups(prj));
}

TEST(Groups, ChannelsFindTheMainChannelOfTheirLine) {
  SwathTable swaths;
  // Two lines with channel 0 and 1, a channel 1 alone, and one beside a line that another sensor flies.
  const struct {
    int group, channel;
    double tmin, tmax;
    int main;
  } rows[] = {{1, 0, 0, 50, 0},    {1, 0, 100, 150, 1}, {2, 1, 1, 51, 0},
              {2, 1, 101, 151, 1}, {2, 1, 500, 550, 4}, {4, 1, 100, 150, 5}};
  for (const auto& r : rows) {
    Swath s{.group = r.group, .channel = r.channel};
    s.clock.tmin = r.tmin;
    s.clock.tmax = r.tmax;
    swaths.add(s);
  }
  EXPECT_TRUE(comp_mainch_swaths(swaths, false));
  for (const Swath& s : swaths) EXPECT_EQ(s.mainch.number, rows[s.id.number].main) << s.id;
  EXPECT_FALSE(comp_mainch_swaths(swaths, true));
  swaths.reject(SwathId(0), SwathState::untiled, "");
  EXPECT_TRUE(comp_mainch_swaths(swaths, false));
  EXPECT_TRUE(swaths[SwathId(2)].is_main()) << "what is rejected is no main channel";
}

TEST_F(TilingTest, TheProjectGetsItsScaleAndItsLog) {
  Project prj;
  prj.name = file("prj");
  prj.scale = make_tile_scale(false, 0);
  prj.nmgrp = prj.ngrp = 1;
  prj.chgrp = {0};
  for (int i = 0; i < 2; i++) {
    Swath s;
    const std::string path =
        make("p" + std::to_string(i) + ".las", fly_line({.x0 = 500000 + 60.0 * i, .tstart = 3e8 + 60 * i}));
    ASSERT_TRUE(tile(path)) << res.reason;
    s.cache = CacheName(path);
    prj.swaths.add(s);
  }
  ProjectStat stat;
  ASSERT_TRUE(InfoTI_swstat(prj, {}, stat));
  EXPECT_EQ(prj.scale.dim, 8);
  EXPECT_NEAR(prj.time_res, 0.1, 0.03);
  const std::string log = read_text(prj.name + "_sw_stat.log");
  EXPECT_EQ(
      log.rfind("Swath# Group# Ch# MainCh MPts NTiles NmTiles Length:m Width:m Area:m2 Heading Density", 0),
      0u);
  EXPECT_TRUE(holds(log, "\n1 1 0 1 "));
  EXPECT_TRUE(holds(log, "\nNSwaths NGrp MPts NTiles NmTiles BBox_DX:m"));
  // GPS time 1.3e9 s after 1980-01-06, 18 leap seconds less.
  EXPECT_TRUE(holds(log, " 2021-03-17T07:06:22 "));
  prj.swaths[SwathId(1)].cache = CacheName(make("far.las", fly_line({.x0 = 900000})));
  ASSERT_TRUE(tile(prj.swaths[SwathId(1)].path()));
  EXPECT_FALSE(InfoTI_swstat(prj, {}, stat)) << "400 km apart";
}
}  // namespace veld
