// What tiling must keep: every point that passes the filters, its place, its height, and the time of the
// ground.
#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>
#include <tuple>

#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "tests/support/tiling_fixture.h"

namespace veld {
namespace {
using Units = std::array<int64_t, 3>;  // fixed-point coordinates, biased in x and y

// All points of a cache, absolute, sorted.
std::vector<Units> cached_points(const std::string& path) {
  SwTiles sw;
  EXPECT_TRUE(read_SwTiles(CacheName(path), sw));
  std::vector<Units> all;
  Vector<xyz> P;
  for (uint32_t k = 0; k < sw.TI.size(); k++) {
    uint64_t np, nmtr, nmtf;
    const double side = sw.geom.Tsize;
    EXPECT_TRUE(read_LmT_tile_bbox(sw, sw.TI[k].x, sw.TI[k].y, -1e-9, side - 1e-9, -1e-9, side - 1e-9, P, np,
                                   nmtr, nmtf));
    for (uint64_t i = 0; i < np; i++)
      all.push_back({std::lround(P[i].x * 512.0) + (int64_t{sw.TI[k].x} << sw.geom.shift),
                     std::lround(P[i].y * 512.0) + (int64_t{sw.TI[k].y} << sw.geom.shift),
                     std::lround(P[i].z * 512.0)});
  }
  std::sort(all.begin(), all.end());
  return all;
}

// The same from the points themselves: those that keep() takes, of microtiles with more than 4 of them.
template <typename Keep>
std::vector<Units> expected_points(const std::vector<TestPoint>& points, double mTsize, Keep keep) {
  std::map<std::pair<int64_t, int64_t>, std::vector<Units>> cells;
  const int64_t side = static_cast<int64_t>(mTsize * 512);
  for (const TestPoint& p : points) {
    if (!keep(p)) continue;
    const Units u{std::llround(p.x * 512) + GROUND_BIAS, std::llround(p.y * 512) + GROUND_BIAS,
                  std::llround(p.z * 512)};
    cells[{u[0] / side, u[1] / side}].push_back(u);
  }
  std::vector<Units> all;
  for (const auto& [cell, list] : cells)
    if (list.size() > 4) all.insert(all.end(), list.begin(), list.end());
  std::sort(all.begin(), all.end());
  return all;
}

// Coordinates that a scale of 1/512 m keeps exactly.
std::vector<TestPoint> exact_line(const TestLine& line) {
  std::vector<TestPoint> points = fly_line(line);
  for (TestPoint& p : points) {
    p.x = std::round(p.x * 512) / 512;
    p.y = std::round(p.y * 512) / 512;
    p.z = std::round(p.z * 512) / 512;
  }
  return points;
}
const TestLas exact_las{.scale = 1.0 / 512};
}  // namespace

TEST_F(TilingTest, EveryPointIsKeptAtItsPlaceOnEveryLevel) {
  const std::vector<TestPoint> points = exact_line({.heading = 37, .height = [](double x, double y) {
                                                      return -20 + 15 * std::sin(x / 9) * std::cos(y / 13);
                                                    }});
  const std::string path = make("a.las", points, exact_las);
  par.tproc = false;  // a time needs some 30 points a microtile
  for (const auto& [large, xlevel, mTsize] :
       {std::tuple{false, 0, 4.0}, {false, 1, 2.0}, {false, 2, 1.0}, {true, 0, 32.0}, {true, 2, 8.0}}) {
    par.large = large;
    par.xlevel = xlevel;
    ASSERT_TRUE(tile(path)) << res.reason;
    EXPECT_EQ(cached_points(path), expected_points(points, mTsize, [](const TestPoint&) { return true; }))
        << mTsize;
    EXPECT_FALSE(exists(CacheName(path).file(".TT*"))) << "temporary tiles are removed";
  }
}

TEST_F(TilingTest, FiltersTakeExactlyTheirPoints) {
  std::vector<TestPoint> points = exact_line({.length = 60, .width = 60, .density = 40});
  std::mt19937 random(7);
  for (TestPoint& p : points) {
    p.nr = static_cast<int>(random() % 4);  // 0 occurs in real files
    p.rn = static_cast<int>(random() % 4);
    p.cls = static_cast<int>(random() % 12);
    p.synthetic = random() % 9 == 0;
    p.withheld = random() % 11 == 0;
  }
  struct Case {
    const char* name;
    bool syn, all, last;
    std::vector<uint8_t> xcls;
    bool (*keep)(const TestPoint&);
  };
  const Case cases[] = {
      {"last",
       false,
       false,
       true,
       {},
       [](const TestPoint& p) { return !p.withheld && !p.synthetic && p.rn >= p.nr; }},
      {"first",
       false,
       false,
       false,
       {},
       [](const TestPoint& p) { return !p.withheld && !p.synthetic && p.rn <= 1; }},
      {"all", false, true, true, {}, [](const TestPoint& p) { return !p.withheld && !p.synthetic; }},
      {"all and synthetic", true, true, false, {}, [](const TestPoint& p) { return !p.withheld; }},
      {"classes", true, true, true, {7, 2, 3}, [](const TestPoint& p) {
         return !p.withheld && p.cls != 7 && p.cls != 2 && p.cls != 3;
       }}};
  for (const int format : {1, 3, 6, 7}) {
    TestLas how = exact_las;
    how.format = format;
    const std::string path = make("f.las", points, how);
    for (const Case& c : cases) {
      par.syn = c.syn;
      par.all = c.all;
      par.last = c.last;
      par.xcls = c.xcls;
      ASSERT_TRUE(tile(path)) << c.name << format << res.reason;
      EXPECT_EQ(cached_points(path), expected_points(points, 4, c.keep)) << c.name << " format " << format;
      LTidxInfo info;
      ASSERT_TRUE(read_LTidxInfo(CacheName(path), info));
      EXPECT_EQ(info.np, static_cast<uint64_t>(std::count_if(points.begin(), points.end(), c.keep)));
    }
  }
}

TEST_F(TilingTest, TimesOfTheGroundFollowTheFlight) {
  const TestLine line{.heading = 60, .density = 6};
  const std::string path = make("t.las", fly_line(line));
  ASSERT_TRUE(tile(path)) << res.reason;
  SwTiles sw;
  ASSERT_TRUE(read_SwTiles(CacheName(path), sw));
  const double fx = std::sin(60 * M_PI / 180), fy = std::cos(60 * M_PI / 180);
  const auto time_at = [&](double x, double y) {
    return line.tstart + ((x - line.x0) * fx + (y - line.y0) * fy) / line.speed;
  };
  int ncentre = 0, nvertex = 0;
  Image<int32_t> Ct, Vt;
  TileTables tables;
  ASSERT_TRUE(tables.open(CacheName(path), sw.info.nt, true));
  for (uint32_t k = 0; k < sw.TI.size(); k++) {
    ASSERT_TRUE(tables.read_Ct(k, Ct) && tables.read_Vt(k, Vt));
    const double x0 = tile_origin(sw.geom, sw.TI[k].x), y0 = tile_origin(sw.geom, sw.TI[k].y);
    for (int j = 0; j <= mTsub; j++)
      for (int i = 0; i <= mTsub; i++) {
        // A scan line takes 0.4 m / 40 m/s: within 20 ms where a whole microtile is covered, a little more
        // at its corners, where the plane is extrapolated.
        if (i < mTsub && j < mTsub && Ct(i, j) != NO_I32) {
          EXPECT_NEAR(sw.info.t0 + Ct(i, j) * TICK_S, time_at(x0 + (i + 0.5) * 4, y0 + (j + 0.5) * 4), 0.02);
          ncentre++;
        }
        if (Vt(i, j) != NO_I32) {
          EXPECT_NEAR(sw.info.t0 + Vt(i, j) * TICK_S, time_at(x0 + i * 4, y0 + j * 4), 0.06);
          nvertex++;
        }
      }
  }
  EXPECT_GT(ncentre, 300 * 120 / 16 * 9 / 10);
  EXPECT_GT(nvertex, ncentre);
  EXPECT_LT(sw.info.maxdev, 0.2f);
  EXPECT_NEAR(sw.info.mdt, 0.12, 0.03);  // 4 m of ground, crossed askew
}

TEST_F(TilingTest, SelfOverlapGetsNoTime) {
  std::vector<TestPoint> points = fly_line({});
  const std::vector<TestPoint> again = fly_line({.x0 = 500000.2, .y0 = 5000150, .tstart = 1000100});
  points.insert(points.end(), again.begin(), again.end());
  const std::string path = make("s.las", points);
  ASSERT_TRUE(tile(path)) << res.reason;
  SwTiles sw;
  ASSERT_TRUE(read_SwTiles(CacheName(path), sw));
  Image<int32_t> Ct;
  TileTables tables;
  ASSERT_TRUE(tables.open(CacheName(path), sw.info.nt, true));
  for (uint32_t k = 0; k < sw.TI.size(); k++) {
    ASSERT_TRUE(tables.read_Ct(k, Ct));
    for (int j = 0; j < mTsub; j++)
      for (int i = 0; i < mTsub; i++) {
        const double y = tile_origin(sw.geom, sw.TI[k].y) + j * 4;
        if (y > 5000154 && y < 5000290) {
          EXPECT_EQ(Ct(i, j), NO_I32) << "where both passes lie";
        }
      }
  }
}

TEST_F(TilingTest, HeightsFarFromTheMeanAreLeftOut) {
  std::vector<TestPoint> points = exact_line({.length = 40, .width = 40});
  const size_t n = points.size();
  points[n / 2].z += 5000;  // a bird, very high
  const std::string path = make("z.las", points, exact_las);
  ASSERT_TRUE(tile(path)) << res.reason;
  LTidxInfo info;
  ASSERT_TRUE(read_LTidxInfo(CacheName(path), info));
  EXPECT_EQ(info.np, n - 1);
}

TEST_F(TilingTest, BytesDependNeitherOnThreadsNorOnMemory) {
  SwathTable swaths;
  for (int i = 0; i < 3; i++)
    swaths.add({.cache = CacheName(
                    make("b" + std::to_string(i) + ".las", fly_line({.heading = 40.0 * i, .length = 900})))});
  const auto run = [&](int nthreads, int threads_io) {
    NTHREADSIO = threads_io;
    LmTtileResult total;
    EXPECT_TRUE(LmT_tile(swaths, swaths.ids(), par, false, nthreads, total));
    EXPECT_EQ(total.nswt, 3);
    std::string bytes;
    for (const Swath& swath : swaths)
      for (const char* e : {EXT_TIDX, EXT_MTIDX, EXT_MTZM, EXT_MTDT, EXT_MTXYZ})
        bytes += read_text(swath.cache.file(e));
    return bytes;
  };
  const std::string one = run(1, 1);
  EXPECT_GT(one.size(), 1000000u);
  EXPECT_TRUE(one == run(2, 2));
  // A single buffer for all open tiles: every change of tile writes it out.
  par.xlevel = 2;
  par.tproc = false;
  const std::string dense = make("dense.las", fly_line({.heading = 20, .density = 12}));
  std::string bytes[2];
  for (const int tight : {0, 1}) {
    ASSERT_TRUE(tile(dense, false, tight ? 300000 : 1 << 30)) << res.reason;
    for (const char* e : {EXT_TIDX, EXT_MTIDX, EXT_MTZM, EXT_MTXYZ})
      bytes[tight] += read_text(CacheName(dense).file(e));
  }
  EXPECT_TRUE(bytes[0] == bytes[1]);
  NTHREADSIO = 1;
}

TEST_F(TilingTest, RolloversAreCorrectedByTheirPeriod) {
  struct Case {
    const char* name;
    double tstart, period;  // of the points past the middle the period is taken off
    uint8_t flags;
  };
  for (const Case& c :
       {Case{"week", 604796, 604800, INFO_RO | INFO_WRO}, Case{"day", 86396, 86400, INFO_RO}}) {
    std::vector<TestPoint> points = fly_line({.tstart = c.tstart});
    for (TestPoint& p : points)
      if (p.t >= c.period) p.t -= c.period;
    const std::string path = make("r.las", points, {.adjusted = false});
    ASSERT_TRUE(tile(path)) << c.name << res.reason;
    LTidxInfo info;
    ASSERT_TRUE(read_LTidxInfo(CacheName(path), info));
    EXPECT_EQ(info.flags, c.flags) << c.name;
    EXPECT_NEAR(info.tmin, c.tstart, 0.1);
    EXPECT_NEAR(info.tmax, c.tstart + 7.5, 0.1);
  }
}

TEST_F(TilingTest, AdjustedTimeFlagIsCheckedBothWays) {
  const std::string looks = make("adj.las", fly_line({.tstart = 3e8}), {.adjusted = false});
  EXPECT_FALSE(tile(looks));
  EXPECT_NE(res.reason.find("timestamps are adjusted GPS but LAS GPS time type is 0"), std::string::npos);
  const std::string week = make("week.las", fly_line({.tstart = 3e5}), {.adjusted = true});
  LTidxInfo info;
  ASSERT_TRUE(tile(week));  // with a warning
  ASSERT_TRUE(read_LTidxInfo(CacheName(week), info));
  EXPECT_EQ(info.flags, INFO_ADJ);
  AUTO_ADJ = true;
  ASSERT_TRUE(tile(looks));
  ASSERT_TRUE(read_LTidxInfo(CacheName(looks), info));
  EXPECT_EQ(info.flags, INFO_ADJ);
  ASSERT_TRUE(tile(week));
  ASSERT_TRUE(read_LTidxInfo(CacheName(week), info));
  EXPECT_EQ(info.flags, 0);
}

TEST_F(TilingTest, FeetBecomeMetres) {
  std::vector<TestPoint> points = fly_line({.x0 = 500000, .y0 = 5000000});
  DATAUNIT = DATAUNIT_Z = 0.3048;
  par.xlevel = 2;
  const std::string path = make("feet.las", points);
  ASSERT_TRUE(tile(path)) << res.reason;
  LTidxInfo info;
  ASSERT_TRUE(read_LTidxInfo(CacheName(path), info));
  EXPECT_NEAR(info.bbmin[1], 5000000 * 0.3048, 0.2);
  EXPECT_NEAR(info.bbmax[1] - info.bbmin[1], 300 * 0.3048, 0.3);
}

TEST_F(TilingTest, ACacheIsReusedUntilSomethingChangesAndTakesItsGridAlong) {
  const std::string path = make("c.las", fly_line({}));
  ASSERT_TRUE(tile(path, true));
  EXPECT_TRUE(res.done);
  write_text(CacheName(path).file(EXT_GMTIDX), "grid");
  write_text(CacheName(path).file(EXT_GMTZDS), "grid");
  ASSERT_TRUE(tile(path, true));
  EXPECT_FALSE(res.done);
  EXPECT_TRUE(exists(CacheName(path).file(EXT_GMTIDX)));
  par.all = true;
  ASSERT_TRUE(tile(path, true));
  EXPECT_TRUE(res.done);
  EXPECT_FALSE(exists(CacheName(path).file(EXT_GMTIDX)));
  EXPECT_FALSE(exists(CacheName(path).file(EXT_GMTZDS)));
}
}  // namespace veld
