// Colour tables, codes, parts, plots: what a picture shows of the values put in.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <vector>

#include "image/colormap.h"
#include "image/load_tiff.h"
#include "image/save_image.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
std::set<std::string> files_in(const TempDir& dir) {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir.path))
    names.insert(e.path().filename().string());
  return names;
}

ImgParam tiff_only() {
  ImgParam par;
  par.OUTJPEG = false;
  par.OUTTIFF = true;
  return par;
}
}  // namespace

TEST(ColorMap, EntriesOfTheTables) {
  const struct {
    int number, entry;
    RGBchar color;
  } cases[] = {
      {1, 0, {0, 128, 255}},   {1, 127, {0, 1, 1}},       {1, 255, {254, 63, 63}},   {2, 64, {0, 0, 255}},
      {2, 128, {0, 0, 0}},     {2, 255, {255, 252, 252}}, {3, 1, {0, 192, 0}},       {3, 44, {0, 192, 255}},
      {3, 85, {0, 8, 255}},    {3, 253, {255, 253, 246}}, {3, 255, {255, 255, 255}}, {4, 0, {255, 0, 0}},
      {4, 100, {0, 255, 0}},   {4, 128, {0, 0, 0}},       {5, 31, {0, 0, 0}},        {5, 255, {255, 0, 0}},
      {6, 127, {252, 64, 3}},  {7, 64, {0, 128, 255}},    {7, 255, {255, 252, 252}}, {8, 95, {0, 254, 255}},
      {8, 160, {255, 255, 0}}, {9, 0, {0, 0, 0}},         {9, 200, {255, 0, 0}},     {0, 77, {77, 77, 77}}};
  for (const auto& c : cases)
    EXPECT_EQ(make_colormap(c.number, false)[c.entry], c.color) << c.number << " " << c.entry;
  const RGBchar white{255, 255, 255};
  EXPECT_EQ(make_colormap(4, true)[128], white);
  EXPECT_EQ(make_colormap(9, true)[0], white);
  EXPECT_EQ(make_colormap(7, true)[0], RGBchar());
}

// Lightness tells order and sign without hue: it rises along the counts, and falls from the middle to both ends of
// the vectors.
TEST(ColorMap, OpenTablesWorkByLightness) {
  const auto light = [](const RGBchar& c) { return 0.2126 * c.r + 0.7152 * c.g + 0.0722 * c.b; };
  const Vector<RGBchar> counts = make_colormap(COLOR_SEQUENTIAL, false);
  for (int i = 2; i < 256; i++) EXPECT_GE(light(counts[i]) + 1, light(counts[i - 1])) << i;
  for (int number = 1; number <= 3; number++) {
    const Vector<RGBchar> v = make_colormap(COLOR_VECTOR + number, false);
    for (int i = 2; i < 128; i++) EXPECT_GE(light(v[i]) + 1, light(v[i - 1])) << number << " " << i;
    for (int i = 129; i < 256; i++) EXPECT_LE(light(v[i]) - 1, light(v[i - 1])) << number << " " << i;
  }
}

// Ground that was not compared is not taken for ground that agrees.
TEST(ColorMap, HolesHaveAColourOfTheirOwn) {
  for (const int number : {1, 2, 3, 5, 6, 7, 8, COLOR_SEQUENTIAL, COLOR_VECTOR + 1, COLOR_VECTOR + 2,
                           COLOR_VECTOR + 3, COLOR_VECTOR + 4}) {
    const Vector<RGBchar> table = make_colormap(number, false);
    const RGBchar none = no_data_color(number, false);
    int nearest = 765;
    for (int i = 1; i < 256; i++)
      nearest = std::min(nearest, std::abs(table[i].r - none.r) + std::abs(table[i].g - none.g) +
                                      std::abs(table[i].b - none.b));
    EXPECT_GT(nearest, 50) << number;
  }
}

TEST(RasterOut, CodesOfValues) {
  ImgScale plain, mix, cyclic;
  plain.z0 = 10, plain.range = 2, plain.range16 = 4;
  mix.range = 0.5f, mix.range16 = 4, mix.mix = true;
  cyclic.range = 10, cyclic.range16 = 10, cyclic.cyclic = true;
  const struct {
    const ImgScale& scale;
    float value;
    int c8, c16;
  } cases[] = {{plain, IMG_NODATA, 0, 0}, {plain, 10, 1, 1},       {plain, 12, 255, 32768},
               {plain, 99, 255, 65535},   {plain, 3, 1, 1},        {mix, 0, 128, 32768},
               {mix, -0.5f, 1, 28672},    {mix, 0.5f, 255, 36864}, {mix, IMG_NODATA, 0, 0},
               {cyclic, 25, 128, 32768}};
  for (const auto& c : cases) {
    EXPECT_EQ(code8(c.scale, c.value), c.c8) << c.value;
    EXPECT_EQ(code16(c.scale, c.value), c.c16) << c.value;
  }
}

// A map with one value far in the north east: the parts that hold nothing are not there, and the value lies where
// it was put, counted from the north.
TEST(RasterOut, PartsAndOrientation) {
  TempDir dir;
  ImgParam par = tiff_only();
  par.maxsize = 40;
  ImgScale scale;
  Image<float> img(100, 70, IMG_NODATA);  // 3 x 2 parts of at most 34 x 35
  img(95, 66) = 1;                        // row 0 is the south
  ASSERT_TRUE(save_XXimg(dir.path + "/a", "test", par, scale, {1000, 2000, 2}, img));
  EXPECT_EQ(files_in(dir), std::set<std::string>{"a_r0_c2.tif"});
  Image<uint8_t> back;
  ASSERT_TRUE(load_TIFF_gray(dir.path + "/a_r0_c2.tif", back));
  EXPECT_EQ(back.xsize(), 32);
  EXPECT_EQ(back.ysize(), 35);
  EXPECT_EQ(back(95 - 68, 69 - 66), 255);
}

TEST(RasterOut, ConstantMapsAreWrittenOnDemandOnly) {
  TempDir dir;
  ImgParam par = tiff_only();
  par.OUTWF = true;
  const Image<float> img(20, 10, IMG_NODATA);
  ASSERT_TRUE(save_XXimg(dir.path + "/a", "test", par, ImgScale(), {0, 0, 1}, img));
  EXPECT_TRUE(files_in(dir).empty());
  par.empty = true;
  ASSERT_TRUE(save_XXimg(dir.path + "/a", "test", par, ImgScale(), {0, 0, 1}, img));
  EXPECT_EQ(files_in(dir), (std::set<std::string>{"a.tif", "a.tfw"}));
}

TEST(RasterOut, FailureLeavesNothing) {
  TempDir dir;
  Image<float> img(20, 10, 1.0f);
  img(0, 0) = 0;
  ImgParam par = tiff_only();
  EXPECT_FALSE(save_XXimg(dir.path + "/absent/a", "test", par, ImgScale(), {0, 0, 1}, img));
  par.OUTTIFF = false, par.OUTJPEG = true;
  EXPECT_FALSE(save_XXimg(dir.path + "/absent/a", "test", par, ImgScale(), {0, 0, 1}, img));
  {
    RasterOut half;
    par.OUTTIFF = true;
    ASSERT_TRUE(half.open(dir.path + "/b", "test", par, ImgScale(), {0, 0, 1}, 20, 10));
    ASSERT_TRUE(half.put_rows(img.val, 5));
  }
  EXPECT_TRUE(files_in(dir).empty());
}

TEST(SaveImage, VectorsScatterHistogram) {
  TempDir dir;
  ImgParam par;
  VectorStyle style;
  style.rgb = style.max = true;
  Image<xyz> v(30, 20, xyz{0, 0, IMG_NODATA});
  v(3, 4) = {0.1f, -0.4f, 0.2f};
  ASSERT_TRUE(save_img_Def(dir.path + "/v", "vector", par, style, {0, 0, 1}, 30, 20,
                           [&](int y) { return v.row(y); }));
  ScatterPlanes planes = make_scatter(100, 0.5f);
  for (const float x : {0.0f, 0.499f, -0.499f, 0.51f}) update_XY_YZ_XZ_img(planes, {x, 0, 0});
  EXPECT_EQ(planes.XY(50, 50), 1u);
  EXPECT_EQ(planes.XY(100, 50), 1u);
  EXPECT_EQ(planes.XY(0, 50), 1u);
  EXPECT_EQ(planes.YZ(50, 50), 3u);
  ASSERT_TRUE(save_XY_YZ_XZ_img(dir.path + "/s", par, planes));
  DZHistogram h;
  h.count = {0, 3, 10, 2};
  ASSERT_TRUE(save_DZH_img(dir.path + "/h", par, h, 0.02f, false, 100));
  for (const char* name : {"v_rgb.jpg", "v_max.jpg", "v_x.jpg", "v_y.jpg", "v_z.jpg", "v_x_cmap_-0.5_0.5.jpg",
                           "s_XY.jpg", "s_YZ.jpg", "s_XZ.jpg", "h_hist.jpg"})
    EXPECT_TRUE(exists(dir.path + "/" + name)) << name;
}

TEST(WorldFile, ComesBack) {
  TempDir dir;
  const ImgPlace place = {500000.25, 5100000.75, 0.125};
  for (const double unit : {1.0, 0.3048}) {
    ASSERT_TRUE(save_worldfile(dir.path + "/a.tif", place, unit));
    ImgPlace back;
    ASSERT_TRUE(load_worldfile(dir.path + "/a.tif", unit, back));
    EXPECT_NEAR(back.x0, place.x0, 1e-6);
    EXPECT_NEAR(back.y0, place.y0, 1e-6);
    EXPECT_NEAR(back.GSD, place.GSD, 1e-9);
  }
  EXPECT_EQ(read_text(dir.path + "/a.tfw").substr(0, 11), "0.410104987");
  ImgPlace back;
  for (const char* text :
       {"", "1\n0\n0\n-1\n5\n", "1\n0.1\n0\n-1\n5\n5\n", "1\n0\n0\n-2\n5\n5\n", "x\n0\n0\n-1\n5\n5\n"}) {
    write_text(dir.path + "/a.tfw", text);
    EXPECT_FALSE(load_worldfile(dir.path + "/a.tif", 1, back)) << text;
  }
}
}  // namespace veld
