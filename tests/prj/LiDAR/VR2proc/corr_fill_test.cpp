// Holes in a correction table: a plane comes back, across tiles, and nothing comes from nowhere.
#include "prj/LiDAR/VR2proc/corr_fill.h"

#include <gtest/gtest.h>

#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"

namespace veld {
namespace {
xyz plane(int x, int y) {
  return {0.2f + 0.003f * static_cast<float>(x), -0.1f - 0.002f * static_cast<float>(y),
          0.001f * static_cast<float>(x + y)};
}

// Two tiles side by side and one far away, filled with the plane.
struct Table {
  Vector<TIsxy> TI{3};
  SCorrTbl table;
  Table() {
    const uint32_t at[3][2] = {{100, 70}, {101, 70}, {400, 7}};
    table.C.resize(3, Image<xyz>(mTsub, mTsub, NO_CORR));
    for (int k = 0; k < 3; k++) {
      TI(k).x = at[k][0];
      TI(k).y = at[k][1];
      for (int m = 0; m < mTn; m++) table.C(k)[m] = value(k, m);
    }
  }
  static xyz value(int k, int m) { return plane(k * mTsub + m % mTsub, m / mTsub); }
};
}  // namespace

TEST(FillSCorr, HolesGetThePlaneOfTheirSurroundings) {
  const struct {
    const char* what;
    bool (*hole)(int k, int x, int y);
    size_t nlost;  // holes out of reach
  } cases[] = {
      {"four of five", [](int, int x, int y) { return (3 * x + 7 * y) % 5 != 0; }, 0},
      {"the seam of two tiles", [](int k, int x, int) { return k < 2 && (k == 0 ? x > 27 : x < 4); }, 0},
      {"a whole tile: two columns of its neighbour are in reach", [](int k, int, int) { return k == 1; },
       17 * mTsub},
      {"a tile without neighbours", [](int k, int, int) { return k == 2; }, mTn},
  };
  for (const auto& c : cases)
    for (const int nthreads : {1, 2}) {
      SCOPED_TRACE(c.what);
      Table t;
      std::vector<uint32_t> holes;
      for (int k = 0; k < 3; k++)
        for (int m = 0; m < mTn; m++)
          if (c.hole(k, m % mTsub, m / mTsub)) {
            holes.push_back(static_cast<uint32_t>(k * mTn + m));
            t.table.C(k)[m] = NO_CORR;
          }
      EXPECT_EQ(fill_SCorr(t.TI, holes, nthreads, t.table), holes.size() - c.nlost);
      for (int k = 0; k < 3; k++)
        for (int m = 0; m < mTn; m++) {
          const xyz found = t.table.C(k)[m], want = Table::value(k, m);
          if (found.z == NODATA) continue;
          ASSERT_LT(norm(found - want), 1e-5) << k << ' ' << m;
        }
    }
}
}  // namespace veld
