// Operations on occupancy and overlap maps, against the same operation on sets of absolute microtiles.
#include "prj/LiDAR/LmTplot/LmTplot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <set>

#include "prj/LiDAR/LmTplot/swath_inter.h"

namespace veld {
namespace {
using Cells = std::set<std::pair<int64_t, int64_t>>;  // y, x of microtiles

Tocc to_Tocc(const Cells& cells) {
  std::map<std::pair<int64_t, int64_t>, Image<uint8_t>> tiles;
  for (const auto& [y, x] : cells) {
    Image<uint8_t>& t = tiles[{y / 32, x / 32}];
    if (t.empty()) t.resize(32, 32, 0);
    t(static_cast<int>(x % 32), static_cast<int>(y % 32)) = 1;
  }
  Tocc occ;
  for (auto& [place, img] : tiles)
    occ.push_back({static_cast<uint32_t>(place.second), static_cast<uint32_t>(place.first),
                   static_cast<uint32_t>(occ.size()), 0, std::move(img)});
  return occ;
}

Cells to_cells(const Tocc& occ) {
  Cells cells;
  for (const ToccTile& t : occ)
    for (int i = 0; i < mTn; i++)
      if (t.occ[i] & 1) cells.insert({int64_t{t.y} * 32 + i / 32, int64_t{t.x} * 32 + i % 32});
  return cells;
}

Cells region(const std::function<bool(int64_t x, int64_t y)>& in) {
  Cells cells;
  for (int64_t y = 320; y < 448; y++)
    for (int64_t x = 320; x < 448; x++)
      if (in(x, y)) cells.insert({y, x});
  return cells;
}

Cells disc(double cx, double cy, double r) {
  return region([=](int64_t x, int64_t y) { return std::hypot(x - cx, y - cy) < r; });
}

TileInfo frame_of(uint32_t XI, uint32_t YI, int nx, int ny) {
  TileInfo f;
  f.XI = XI;
  f.YI = YI;
  f.nx = nx;
  f.ny = ny;
  return f;
}

Vector<TIsxy> table_of(const TileInfo& f) {
  Vector<TIsxy> TI(static_cast<uint64_t>(f.nx * f.ny));
  for (int i = 0; i < f.nx * f.ny; i++)
    TI[i] = {f.XI + static_cast<uint32_t>(i % f.nx), f.YI + static_cast<uint32_t>(i / f.nx), 100};
  return TI;
}
}  // namespace

TEST(Overlap, CountsAndIntersectionsAreThoseOfSets) {
  const Cells a = disc(370, 370, 30), b = disc(400, 380, 25), c = disc(345, 360, 12);
  Tovr ovr = make_Tovr(frame_of(10, 10, 4, 4));
  for (const Cells& s : {a, b, c}) EXPECT_EQ(add_Tovr_Tocc(ovr, to_Tocc(s)), 0u);
  Cells one, two, in_a;
  mTbbox box;
  for (const auto& cell : region([](int64_t, int64_t) { return true; })) {
    const size_t n = a.count(cell) + b.count(cell) + c.count(cell);
    if (n >= 1) one.insert(cell);
    if (n >= 2) two.insert(cell);
    if (n >= 2 && a.count(cell)) in_a.insert(cell);
  }
  EXPECT_EQ(comp_mTbbox_Tovr(ovr, 1).n, one.size());
  box = comp_mTbbox_Tovr(ovr, 2);
  EXPECT_EQ(box.n, two.size());
  EXPECT_EQ(box.ymin, two.begin()->first);
  EXPECT_EQ(box.ymax, two.rbegin()->first);
  const Tocc cut = inter_TLocc_Tovr(to_Tocc(a), ovr);
  EXPECT_EQ(to_cells(cut), in_a);
  EXPECT_TRUE(inter_TLocc_Tovr(to_Tocc(disc(435, 435, 8)), ovr).empty()) << "no overlap: nothing to grid";

  Cells both;
  for (const auto& cell : a)
    if (b.count(cell)) both.insert(cell);
  const Tocc pair = inter_Tocc(to_Tocc(a), to_Tocc(b));
  EXPECT_EQ(to_cells(pair), both);
  for (const ToccTile& t : pair) {
    EXPECT_EQ(to_Tocc(a)[t.k].x, t.x);
    EXPECT_EQ(to_Tocc(b)[t.k2].y, t.y);
  }
  double f1, f2;
  count_fovr_12(to_Tocc(a), to_Tocc(b), f1, f2);
  EXPECT_DOUBLE_EQ(f1 * static_cast<double>(a.size()), static_cast<double>(both.size()));
  EXPECT_DOUBLE_EQ(f2 * static_cast<double>(b.size()), static_cast<double>(both.size()));
}

TEST(Overlap, TilesOutsideTheFrameAreCounted) {
  Tovr ovr = make_Tovr(frame_of(50, 50, 2, 2));
  const Tocc occ = to_Tocc(disc(370, 370, 30));
  EXPECT_EQ(add_Tovr_Tocc(ovr, occ), occ.size());
  EXPECT_TRUE(comp_mTbbox_Tovr(ovr, 1).empty());
  Image<uint8_t> img;
  const auto nout = std::count_if(occ.begin(), occ.end(), [](const ToccTile& t) { return t.x != 10; });
  EXPECT_EQ(img_Tocc(occ, frame_of(10, 10, 1, 4), img), static_cast<uint64_t>(nout));
}

TEST(Morphology, DilationAddsOneRingAcrossTilesAndNothingOutsideTheTable) {
  const TileInfo frame = frame_of(10, 10, 3, 3);
  for (const Cells& s : {disc(352, 352, 1), disc(383.5, 384, 9), disc(321, 340, 6), disc(415, 415, 2)}) {
    Cells expected;
    for (const auto& [y, x] : s)
      for (int64_t v = y - 1; v <= y + 1; v++)
        for (int64_t u = x - 1; u <= x + 1; u++)
          if (u >= 320 && v >= 320 && u < 416 && v < 416) expected.insert({v, u});
    const Tocc grown = dilate_Tocc(to_Tocc(s), table_of(frame));
    EXPECT_EQ(to_cells(grown), expected);
    for (const ToccTile& t : grown) EXPECT_EQ(t.k, (t.y - 10) * 3 + t.x - 10);
  }
}

TEST(Morphology, ErosionRemovesSliversAndKeepsTheRest) {
  const auto blocks = [](int64_t x0, int64_t y0, int64_t nx, int64_t ny) {
    return region([=](int64_t x, int64_t y) { return x >= x0 && y >= y0 && x < x0 + nx && y < y0 + ny; });
  };
  for (const auto& [nx, ny] : {std::pair{1, 40}, {40, 1}, {1, 1}})
    EXPECT_TRUE(erode_Tocc_2(to_Tocc(blocks(350, 350, nx, ny))).empty());
  for (const auto& [nx, ny] : {std::pair{2, 40}, {40, 2}, {2, 2}, {50, 60}})  // across the tile border at 352
    EXPECT_EQ(to_cells(erode_Tocc_2(to_Tocc(blocks(351, 351, nx, ny)))), blocks(351, 351, nx, ny));
  Cells bridge = blocks(330, 330, 10, 10);
  Cells whole = bridge;
  for (int64_t x = 340; x < 370; x++) whole.insert({335, x});  // a thread that hangs on
  EXPECT_EQ(to_cells(erode_Tocc_2(to_Tocc(whole))), bridge);
}

TEST(Morphology, GapsDoNotMakeAStripNarrow) {
  const auto strip = [](int64_t width) {  // across tile borders at 352 and 384
    return region([=](int64_t x, int64_t y) { return x >= 345 && x < 345 + width && y >= 330 && y < 400; });
  };
  const auto without = [](const Cells& from, auto gone) {
    Cells left;
    for (const auto& [y, x] : from)
      if (!gone(x, y)) left.insert({y, x});
    return left;
  };
  const Cells wide = strip(20), narrow = strip(7);
  const Cells scattered =
      without(wide, [](int64_t x, int64_t y) { return (7919 * x + 3571 * y + 31 * x * y) % 19 == 0; });
  const Cells pond =
      without(wide, [](int64_t x, int64_t y) { return x >= 350 && x < 354 && y >= 350 && y < 354; });
  EXPECT_LT(to_cells(erode_Tocc_2(to_Tocc(scattered), 8)).size(), wide.size() / 2)
      << "one in nineteen is missing";
  EXPECT_EQ(to_cells(erode_Tocc_closed(to_Tocc(scattered), 8, 2)), scattered);
  EXPECT_EQ(to_cells(erode_Tocc_closed(to_Tocc(pond), 8, 2)), pond);
  EXPECT_EQ(to_cells(erode_Tocc_closed(to_Tocc(wide), 8, 2)), wide) << "nothing is added";
  EXPECT_TRUE(erode_Tocc_closed(to_Tocc(narrow), 8, 2).empty());
}

TEST(PairBoxes, BoxesFirstThenRectangles) {
  // Strips of 1000 m x 100 m around a centre, as the statistics describe them.
  const auto strip = [](double cx, double cy, double angle) {
    LTidxInfo info{};
    const double c = std::cos(angle), s = std::sin(angle);
    const double r[4] = {-500, 500, 500, -500}, t[4] = {-50, -50, 50, 50};
    info.bbmin[0] = info.bbmin[1] = 1e9;
    info.bbmax[0] = info.bbmax[1] = -1e9;
    for (int i = 0; i < 4; i++) {
      info.mbr[i][0] = cx + r[i] * c - t[i] * s;
      info.mbr[i][1] = cy + r[i] * s + t[i] * c;
      for (int k = 0; k < 2; k++) {
        info.bbmin[k] = std::min(double{info.bbmin[k]}, double{info.mbr[i][k]});
        info.bbmax[k] = std::max(double{info.bbmax[k]}, double{info.mbr[i][k]});
      }
    }
    return info;
  };
  int nbb;
  const auto pairs = [&](const LTidxInfo& a, const LTidxInfo& b, bool fixed = false) {
    return check_BBOX_MBR_fx_inter({{SwathId(0), fixed, a}, {SwathId(1), fixed, b}}, 4, nbb).size();
  };
  EXPECT_EQ(pairs(strip(0, 0, 0.7), strip(0, 80, 0.7)), 1u);
  EXPECT_EQ(pairs(strip(0, 0, 0.7), strip(0, 0, 2.2)), 1u);
  EXPECT_EQ(pairs(strip(0, 0, 0.7), strip(0, 80, 0.7), true), 0u) << "two references";
  EXPECT_EQ(pairs(strip(0, 0, 0), strip(3000, 0, 0)), 0u);
  EXPECT_EQ(nbb, 0);
  EXPECT_EQ(pairs(strip(0, 0, 0.78), strip(150, -150, 0.78)), 0u) << "side by side, askew";
  EXPECT_EQ(nbb, 1);
  EXPECT_EQ(pairs(strip(0, 0, 0), strip(1000, 100, 0)), 1u) << "touching corners pass the boxes";
}

// The sweep against all pairs, in projects that are wide, high, and of one heap.
TEST(PairBoxes, SweepFindsEveryPair) {
  std::mt19937 gen(3);
  for (const auto& [width, height] :
       {std::pair{9000.0, 300.0}, std::pair{300.0, 9000.0}, std::pair{100.0, 100.0}}) {
    std::vector<SwathBox> swaths;
    std::uniform_real_distribution<double> u(0, 1);
    for (int i = 0; i < 120; i++) {
      LTidxInfo info{};
      const double x = u(gen) * width, y = u(gen) * height, w = u(gen) * 200, h = u(gen) * 200;
      info.bbmin[0] = x, info.bbmin[1] = y, info.bbmax[0] = x + w, info.bbmax[1] = y + h;
      const double corner[4][2] = {{x, y}, {x + w, y}, {x + w, y + h}, {x, y + h}};
      std::memcpy(info.mbr, corner, sizeof corner);
      swaths.push_back({SwathId(i), i % 5 == 0, info});
    }
    SwPairList expected;
    for (int i = 0; i < 120; i++)
      for (int j = i + 1; j < 120; j++) {
        const LTidxInfo &a = swaths[static_cast<size_t>(i)].info, &b = swaths[static_cast<size_t>(j)].info;
        if ((i % 5 || j % 5) && inter_BBOX(a, b) && inter_MBR(a, b, 4))
          expected.emplace_back(SwathId(i), SwathId(j));
      }
    int nbb = 0;
    EXPECT_EQ(check_BBOX_MBR_fx_inter(swaths, 4, nbb), expected);
    EXPECT_GT(expected.size(), 30u);
  }
}
}  // namespace veld
