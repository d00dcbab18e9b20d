// Several references as one: the union of the parts of a flight is the flight.
#include <algorithm>
#include <array>
#include <filesystem>

#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/LmTidx_w/LmT_union.h"
#include "tests/support/tiling_fixture.h"

namespace veld {
namespace {
using Points = std::vector<std::array<float, 3>>;

Points points_of(const SwTiles& sw, uint32_t k, bool whole) {
  Image<uint8_t> gTocc(mTsub, mTsub, 1);
  if (!whole)
    for (int m = 0; m < mTn; m++) gTocc[m] = m % mTsub > 20;
  Vector<xyz> P;
  uint64_t np = 0, np0 = 0;
  EXPECT_TRUE(read_LmT_tile_nn(sw, k, gTocc, 2, P, np, np0));
  Points all;
  for (uint64_t i = 0; i < np; i++) all.push_back({P[i].x, P[i].y, P[i].z});
  std::sort(all.begin(), all.end());
  return all;
}

class UnionTest : public TilingTest {
 protected:
  std::vector<TestPoint> points = fly_line({.heading = 30, .density = 2, .height = [](double x, double y) {
                                              return 100 + (x - 500000) / 9 + (y - 5000000) / 40;
                                            }});
  std::vector<CacheName> parts;
  std::vector<bool> used = {true, true, true};
  std::string whole;
  CacheName all_parts;

  void SetUp() override {
    TilingTest::SetUp();
    par.tproc = false;
    whole = make("whole.las", points);
    ASSERT_TRUE(tile(whole));
    // Interleaved: every third point, so that all parts have all tiles and no microtile of their own; the last
    // one lacks the start of the line.
    for (size_t part = 0; part < 3; part++) {
      std::vector<TestPoint> some;
      for (size_t i = part; i < points.size(); i += 3)
        if (part != 2 || i > points.size() / 2) some.push_back(points[i]);
      if (part == 1)
        for (size_t i = 2; i <= points.size() / 2; i += 3) some.push_back(points[i]);
      parts.emplace_back(make("part" + std::to_string(part) + ".las", some));
      ASSERT_TRUE(tile(parts.back().source()));
    }
  }
  bool unite() { return LmT_union(0, parts, used, par, all_parts); }
};
}  // namespace

TEST_F(UnionTest, TablesAndPointsAreThoseOfTheWhole) {
  ASSERT_TRUE(unite());
  EXPECT_EQ(all_parts.source(), real_path(parts[0].source()) + ".union");
  SwTiles all, one;
  ASSERT_TRUE(read_SwTiles(all_parts, all));
  ASSERT_TRUE(read_SwTiles(CacheName(whole), one));
  EXPECT_EQ(all.members.size(), 3u);
  EXPECT_EQ(all.info.np, one.info.np);
  EXPECT_EQ(all.info.nmt, one.info.nmt);
  ASSERT_EQ(all.TI.size(), one.TI.size());
  for (int c = 0; c < 4; c++) EXPECT_NEAR(all.info.mbr[c][0], one.info.mbr[c][0], 1e-6);
  TileTables tables, expected;
  ASSERT_TRUE(tables.open(all_parts, all.info.nt, false) &&
              expected.open(CacheName(whole), one.info.nt, false));
  Image<uint32_t> N, N1;
  Image<int32_t> Zm, Zm1;
  for (uint32_t k = 0; k < all.info.nt; k++) {
    ASSERT_TRUE(tables.read_N(k, N) && expected.read_N(k, N1) && tables.read_Zm(k, Zm) &&
                expected.read_Zm(k, Zm1));
    for (int m = 0; m < mTn; m++) {
      ASSERT_EQ(N[m], N1[m]);
      if (N[m] > 0)
        ASSERT_NEAR(Zm[m], Zm1[m], 1);  // each part's mean is truncated
      else
        ASSERT_EQ(Zm[m], NO_I32);
    }
    for (const bool full : {true, false}) {
      const Points a = points_of(all, k, full), b = points_of(one, k, full);
      ASSERT_EQ(a.size(), b.size());
      for (size_t i = 0; i < a.size(); i++) ASSERT_EQ(a[i], b[i]);
    }
  }
}

TEST_F(UnionTest, IsKeptUntilAMemberChanges) {
  ASSERT_TRUE(unite());
  const std::string index = all_parts.file(EXT_TIDX), grid = all_parts.file(EXT_GMTIDX);
  write_text(grid, "x");
  const auto first = std::filesystem::last_write_time(index);
  const int64_t stamp = source_tstamp(all_parts);
  ASSERT_TRUE(unite());
  EXPECT_EQ(std::filesystem::last_write_time(index), first);
  EXPECT_TRUE(exists(grid));
  std::filesystem::last_write_time(
      parts[1].source(), std::filesystem::last_write_time(parts[1].source()) + std::chrono::seconds(7));
  ASSERT_TRUE(tile(parts[1].source()));
  ASSERT_TRUE(unite());
  EXPECT_NE(source_tstamp(all_parts), stamp);
  EXPECT_FALSE(exists(grid)) << "a grid of other points";
  for (const char* const suffix : {EXT_TIDX, EXT_MTIDX, EXT_MTZM, EXT_ULIDX}) {
    const std::string good = read_text(all_parts.file(suffix));
    write_text(all_parts.file(suffix), good.substr(0, good.size() / 2));
    ASSERT_TRUE(unite());
    EXPECT_EQ(read_text(all_parts.file(suffix)), good) << suffix;
  }
  used[2] = false;
  ASSERT_TRUE(unite());
  std::vector<std::string> members;
  ASSERT_TRUE(read_LTidx_uswaths(all_parts, members));
  EXPECT_EQ(members, (std::vector<std::string>{real_path(parts[0].source()), real_path(parts[1].source())}));
  used[1] = false;
  ASSERT_TRUE(unite());
  ASSERT_TRUE(read_LTidx_uswaths(all_parts, members));
  EXPECT_EQ(members.size(), 1u);
  write_text(all_parts.file(EXT_ULIDX), "1 " + parts[0].source() + "\n");
  EXPECT_FALSE(read_LTidx_uswaths(all_parts, members));
  remove_file(parts[0].file(EXT_MTIDX));
  EXPECT_FALSE(unite());
}

// A table holds 1024 tiles along an axis: a part farther away starts a union of its own.
TEST_F(UnionTest, WhatATableCannotHoldIsLeftForTheNext) {
  std::vector<TestPoint> far = points;
  for (TestPoint& p : far) p.y += 1024 * 128;
  parts.insert(parts.begin() + 1, CacheName(make("far.las", far)));
  used.push_back(true);
  ASSERT_TRUE(tile(parts[1].source()));
  std::vector<size_t> members;
  ASSERT_TRUE(choose_union(0, parts, used, members));
  EXPECT_EQ(members, (std::vector<size_t>{0, 2, 3}));
  used = {false, true, false, false};
  ASSERT_TRUE(choose_union(1, parts, used, members));
  EXPECT_EQ(members, (std::vector<size_t>{1}));
}
}  // namespace veld
