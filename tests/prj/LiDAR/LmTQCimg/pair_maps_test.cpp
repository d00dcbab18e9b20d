// Pictures that pairs fill: what stays of several pairs, and where it lies.
#include "prj/LiDAR/LmTQCimg/pair_maps.h"

#include <gtest/gtest.h>

#include <cmath>

#include "image/load_tiff.h"
#include "prj/LiDAR/tuning.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
struct Maps {
  TempDir dir;
  Project prj;
  MapParam par;
  TileInfo frame{80000, 120000, 3, 2};
  Maps() {
    TMPDIR = dir.path + "/";
    prj.name = dir.path + "/p";
    prj.scale = make_tile_scale(false, 0);
    prj.scale.dim = 4;
    par.img.OUTJPEG = false;
    par.img.OUTTIFF = true;
    par.DZ_mix = true;
    par.ascii = true;
  }
  Tocc tile(uint32_t x, uint32_t y) const { return {{frame.XI + x, frame.YI + y, 0, 0, {}}}; }
};
}  // namespace

TEST(TileMap, TilesComeBackInAnyOrder) {
  const Maps m;
  TileMap<float> map;
  ASSERT_TRUE(map.open(m.frame, 4, -1.0f));
  for (const uint32_t k : {5u, 0u, 3u}) {
    const Image<float> tile(4, 4, static_cast<float>(k));
    ASSERT_TRUE(map.write(m.frame.XI + k % 3, m.frame.YI + k / 3, tile));
  }
  Image<float> row;
  ASSERT_TRUE(map.read_row(1, row));
  EXPECT_EQ(row(0, 3), 3);
  EXPECT_EQ(row(4, 0), -1);
  EXPECT_EQ(row(11, 2), 5);
}

// Two pairs on one tile: the larger difference stays, with the sign of first less second; the picture has it in the
// right tile, counted from the north west.
TEST(DZpicture, LargestDifferenceAtItsPlace) {
  const Maps m;
  DZpicture picture;
  ASSERT_TRUE(picture.open(m.prj, m.frame, m.par));
  EXPECT_EQ(picture.sub(), 4);
  Vector<Image<float>> cells(1);
  cells(0).resize(32, 32, IMG_NODATA);
  cells(0)(5, 7) = 0.2f;  // second less first
  cells(0)(6, 7) = -0.1f;
  ASSERT_TRUE(picture.add(m.tile(2, 1), cells));
  cells(0)(5, 7) = -0.1f;
  cells(0)(6, 7) = -0.3f;
  ASSERT_TRUE(picture.add(m.tile(2, 1), cells));
  ASSERT_TRUE(picture.save(m.prj.name + "_DZ", "Z-difference"));
  Image<uint8_t> img;
  ASSERT_TRUE(load_TIFF_gray(m.prj.name + "_DZ.tif", img));
  ASSERT_EQ(img.xsize(), 96);
  ASSERT_EQ(img.ysize(), 64);
  const ImgScale scale = dz_scale(m.par);
  EXPECT_EQ(img(64 + 5, 31 - 7), code8(scale, -0.2f));
  EXPECT_EQ(img(64 + 6, 31 - 7), code8(scale, 0.3f));
  EXPECT_EQ(img(64 + 7, 31 - 7), 0);
  EXPECT_TRUE(exists(m.prj.name + "_DZ_hist.tif"));
  EXPECT_EQ(read_text(m.prj.name + "_DZ_hist.txt").substr(0, 9), "DZ Count\n");
}

// A pixel of a vector map has the vertex in its middle, on the upper edge of the frame too.
TEST(VecPicture, VerticesAreCentresOfPixels) {
  const Maps m;
  VecPicture picture;
  ASSERT_TRUE(picture.open(m.prj, m.frame, m.par, 8));
  const double X = m.frame.XI * 128.0 - 10240000 + 16, Y = (m.frame.YI + 2) * 128.0 - 10240000;
  ASSERT_TRUE(
      picture.add({{X, Y, {0.1f, -0.2f, 0.3f}}, {X, Y, {-0.2f, 0.1f, 0.1f}}, {X - 1e6, Y, {1, 1, 1}}}));
  ASSERT_TRUE(picture.save(m.prj.name + "_V", "vector", m.par.vectors));
  const std::string text = read_text(m.prj.name + "_V.img.txt");
  const std::string y = std::to_string(std::lround(Y));
  EXPECT_NE(text.find(std::to_string(std::lround(X)) + ' ' + y + "  -0.200 -0.200 0.300\n"), text.npos);
  EXPECT_NE(text.find(std::to_string(std::lround(X + 8)) + ' ' + y + "  -9999 -9999 -9999\n"), text.npos);
  Image<uint8_t> img;
  ImgScale scale;
  scale.range = scale.range16 = 0.5f, scale.mix = true;
  const struct {
    const char* suffix;
    float value;
  } components[] = {{"_x", -0.2f}, {"_y", -0.2f}, {"_z", 0.3f}};
  for (const auto& c : components) {
    ASSERT_TRUE(load_TIFF_gray(m.prj.name + "_V" + c.suffix + ".tif", img));
    ASSERT_EQ(img.ysize(), 3 * 16);
    EXPECT_EQ(img(2, 15), code8(scale, c.value)) << c.suffix;
  }
}
}  // namespace veld
