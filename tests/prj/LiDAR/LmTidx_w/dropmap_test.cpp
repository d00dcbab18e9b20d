// A drop map takes out the points of its microtiles and no others, and the cache knows which map it was.
#include "prj/LiDAR/LmTidx_w/dropmap.h"

#include <gtest/gtest.h>

#include "image/save_image.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "tests/support/tiling_fixture.h"

namespace veld {
namespace {
class DropMapTest : public TilingTest {
 protected:
  // Writes a map of n x n pixels of GSD metres over the microtiles from (x0, y0) on, 0 but for a square.
  std::string map(const std::string& name, double x0, double y0, double GSD, int n, int from, int to,
                  uint8_t value) {
    Image<uint8_t> img(n, n, uint8_t{0});
    for (int y = from; y < to; y++)
      for (int x = from; x < to; x++) img(x, y) = value;
    ImgParam out;
    out.OUTJPEG = false, out.OUTTIFF = out.OUTWF = out.empty = true;
    ImgScale scale;
    scale.range = scale.range16 = 255;
    EXPECT_TRUE(save_XXimg(file(name), "drop", out, scale, {x0, y0 + n * GSD, GSD}, img));
    return file(name + ".tif");
  }
};
}  // namespace

TEST_F(DropMapTest, PointsOfItsMicrotilesGo) {
  TestLine line;
  line.density = 6;
  const std::string swath = make("s.las", fly_line(line));
  ASSERT_TRUE(tile(swath));
  Vector<TIsxy> TI;
  Vector<Image<uint32_t>> before, after;
  ASSERT_TRUE(read_LTidx_TI(CacheName(swath), TI));
  ASSERT_TRUE(read_LmTidx_tiles_TN(CacheName(swath), static_cast<uint32_t>(TI.size()), before));
  // 2 m pixels, a hole of 40 x 40 m about the middle of the line.
  ASSERT_TRUE(load_dropmap(map("d", 499960, 5000100, 2, 60, 20, 40, 7), par));
  ASSERT_TRUE(tile(swath));
  ASSERT_TRUE(read_LmTidx_tiles_TN(CacheName(swath), static_cast<uint32_t>(TI.size()), after));
  int ndropped = 0;
  for (uint64_t k = 0; k < TI.size(); k++)
    for (int m = 0; m < mTn; m++) {
      const double x = (TI[k].x * 32.0 + m % 32) * 4 + GROUND_ORIGIN,
                   y = (TI[k].y * 32.0 + m / 32) * 4 + GROUND_ORIGIN;
      const bool drop = x >= 500000 && x < 500040 && y >= 5000140 && y < 5000180;
      EXPECT_EQ(after(static_cast<int64_t>(k))[m], drop ? 0 : before(static_cast<int64_t>(k))[m])
          << x << " " << y;
      ndropped += drop && before(static_cast<int64_t>(k))[m] > 0;
    }
  EXPECT_GT(ndropped, 50);
  EXPECT_TRUE(check_TidxHdr(CacheName(swath), SwathId(0), par));
  TilingParam other = par;
  ASSERT_TRUE(load_dropmap(map("e", 499960, 5000100, 2, 60, 20, 42, 7), other));
  EXPECT_FALSE(check_TidxHdr(CacheName(swath), SwathId(0), other));
  EXPECT_FALSE(check_TidxHdr(CacheName(swath), SwathId(0), TilingParam()));
}

TEST_F(DropMapTest, WhatIsRefusedOrIgnored) {
  EXPECT_FALSE(load_dropmap(file("absent.tif"), par));
  EXPECT_FALSE(load_dropmap(map("coarse", 500000, 5000000, 5, 8, 2, 4, 1), par));
  ASSERT_TRUE(load_dropmap(map("none", 500000, 5000000, 2, 8, 0, 0, 1), par));
  EXPECT_EQ(par.TIO.nx, 0);
  const std::string far = map("far", 500000, 5000000, 2, 8, 2, 4, 1);
  write_text(file("far.tfw"), "2\n0\n0\n-2\n-2e7\n5\n");
  EXPECT_FALSE(load_dropmap(far, par));
  ASSERT_TRUE(load_dropmap(map("whole", 499000, 4999000, 4, 900, 0, 900, 1), par));
  EXPECT_FALSE(tile(make("s.las", fly_line(TestLine()))));  // nothing is left
}
}  // namespace veld
