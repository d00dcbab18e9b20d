// Points of a tile with its ring, and of a rectangle, against a search through all points.
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>

#include "tests/support/tiling_fixture.h"

namespace veld {
namespace {
using Units = std::array<int64_t, 3>;  // biased x, y; z

struct Oracle {  // all points of occupied microtiles, by absolute microtile
  std::map<std::pair<int64_t, int64_t>, std::vector<Units>> cells;
};

Oracle make_oracle(const std::vector<TestPoint>& points) {
  Oracle o;
  for (const TestPoint& p : points) {
    const Units u{std::llround(p.x * 512) + GROUND_BIAS, std::llround(p.y * 512) + GROUND_BIAS,
                  std::llround(p.z * 512)};
    o.cells[{u[0] / 2048, u[1] / 2048}].push_back(u);
  }
  std::erase_if(o.cells, [](const auto& c) { return c.second.size() <= 4; });
  return o;
}

std::vector<Units> to_units(const Vector<xyz>& P, uint64_t np, int64_t XI, int64_t YI, int shift) {
  std::vector<Units> all;
  for (uint64_t i = 0; i < np; i++)
    all.push_back({std::lround(P[i].x * 512.0f) + (XI << shift), std::lround(P[i].y * 512.0f) + (YI << shift),
                   std::lround(P[i].z * 512.0f)});
  std::sort(all.begin(), all.end());
  return all;
}

class ReaderTest : public TilingTest {
 protected:
  SwTiles sw;
  Oracle oracle;
  void SetUp() override {
    TilingTest::SetUp();
    // Thin enough that some microtiles hold too few points.
    std::vector<TestPoint> points = fly_line({.heading = 50, .density = 0.6});
    for (TestPoint& p : points) {
      p.x = std::round(p.x * 512) / 512;
      p.y = std::round(p.y * 512) / 512;
    }
    par.tproc = false;
    const std::string path = make("a.las", points, {.scale = 1.0 / 512});
    ASSERT_TRUE(tile(path)) << res.reason;
    ASSERT_TRUE(read_SwTiles(CacheName(path), sw));
    oracle = make_oracle(points);
  }
};
}  // namespace

TEST(TileGeometry, FollowsFromTheLevel) {
  const std::tuple<bool, int, int, double> rows[] = {{false, 0, 7, 128}, {false, 1, 6, 64},
                                                     {false, 2, 5, 32},  {true, 0, 10, 1024},
                                                     {true, 1, 9, 512},  {true, 2, 8, 256}};
  for (const auto& [large, xlevel, level, Tsize] : rows) {
    EXPECT_EQ(tile_level(large, xlevel), level);
    const TileGeom g = make_tile_geom(level);
    EXPECT_EQ(g.Tsize, Tsize);
    EXPECT_EQ(g.mTsize, Tsize / 32);
    EXPECT_EQ(int64_t{g.mask} + 1, static_cast<int64_t>(Tsize * 512));
    EXPECT_EQ(g.mmask + 1, (g.mask + 1) / 32);
    EXPECT_EQ(tile_origin(g, 70000), 70000 * Tsize - 10240000);
  }
}

TEST_F(ReaderTest, ATileComesWithItsRing) {
  Vector<xyz> P;
  uint64_t np, np0;
  for (uint32_t k = 0; k < sw.TI.size(); k++) {
    Image<uint8_t> gTocc(mTsub, mTsub, 1);
    ASSERT_TRUE(read_LmT_tile_nn(sw, k, gTocc, 32, P, np, np0));
    const int64_t X = int64_t{sw.TI[k].x} * 32, Y = int64_t{sw.TI[k].y} * 32;
    std::vector<Units> expected;
    uint64_t inside = 0;
    for (const auto& [cell, list] : oracle.cells) {
      const int64_t i = cell.first - X, j = cell.second - Y;
      if (i < -1 || j < -1 || i > 32 || j > 32) continue;
      expected.insert(expected.end(), list.begin(), list.end());
      if (i >= 0 && j >= 0 && i < 32 && j < 32) {
        inside += list.size();
        EXPECT_EQ(gTocc(static_cast<int>(i), static_cast<int>(j)), 5);
      }
    }
    if (inside == 0) expected.clear();
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(np0, inside);
    EXPECT_EQ(to_units(P, np, sw.TI[k].x, sw.TI[k].y, sw.geom.shift), expected) << k;
  }
}

TEST_F(ReaderTest, OnlyTheNeighbourhoodOfTheGridIsRead) {
  const auto most =
      std::max_element(sw.TI.begin(), sw.TI.end(), [](const TIsxy& a, const TIsxy& b) { return a.n < b.n; });
  const uint32_t k = static_cast<uint32_t>(most - sw.TI.begin());
  Vector<xyz> P;
  uint64_t np, np0;
  Image<uint8_t> gTocc(mTsub, mTsub, 0);
  ASSERT_TRUE(read_LmT_tile_nn(sw, k, gTocc, 32, P, np, np0));
  EXPECT_EQ(np, 0u) << "nothing to grid";
  gTocc(0, 16) = 1;
  ASSERT_TRUE(read_LmT_tile_nn(sw, k, gTocc, 2, P, np, np0));
  uint64_t expected = 0;
  for (const auto& [cell, list] : oracle.cells) {
    const int64_t i = cell.first - int64_t{most->x} * 32, j = cell.second - int64_t{most->y} * 32;
    if (i >= -1 && i <= 2 && j >= 14 && j <= 18) expected += list.size();
  }
  EXPECT_EQ(np, np0 == 0 ? 0 : expected);
}

TEST_F(ReaderTest, ARectangleExcludesItsSides) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> place(-150, 300), size(0.5, 200);
  Vector<xyz> P;
  const TIsxy t = sw.TI[0];
  for (int n = 0; n < 60; n++) {
    double x0 = place(random), y0 = place(random), x1 = x0 + size(random), y1 = y0 + size(random);
    const Units& on = std::next(oracle.cells.begin(), n)->second[0];  // a point that lies on the left side
    if (n % 2) x0 = static_cast<double>(on[0] - (int64_t{t.x} << sw.geom.shift)) / 512;
    std::vector<Units> expected;
    for (const auto& [cell, list] : oracle.cells)
      for (const Units& u : list) {
        const double x = static_cast<double>(u[0] - (int64_t{t.x} << sw.geom.shift)) / 512;
        const double y = static_cast<double>(u[1] - (int64_t{t.y} << sw.geom.shift)) / 512;
        if (x > x0 && x < x1 && y > y0 && y < y1) expected.push_back(u);
      }
    std::sort(expected.begin(), expected.end());
    uint64_t np, nmtr, nmtf;
    ASSERT_TRUE(read_LmT_tile_bbox(sw, t.x, t.y, x0, x1, y0, y1, P, np, nmtr, nmtf));
    EXPECT_EQ(to_units(P, np, t.x, t.y, sw.geom.shift), expected);
  }
  uint64_t np, nmtr, nmtf;
  for (const double far : {1e5, 1e12, -1e300}) {
    ASSERT_TRUE(read_LmT_tile_bbox(sw, t.x, t.y, far, far + 50, 0, 50, P, np, nmtr, nmtf));
    EXPECT_EQ(np, 0u);
  }
}
}  // namespace veld
