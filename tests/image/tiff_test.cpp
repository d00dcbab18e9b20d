// TIFF files: every pixel read back, by our reader and by GDAL where it is installed, and their layout.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "image/load_tiff.h"
#include "image/tiff_out.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
std::string output_of(const std::string& command) {
  std::string text;
  std::FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return text;
  char buffer[4096];
  while (const size_t n = std::fread(buffer, 1, sizeof(buffer), pipe)) text.append(buffer, n);
  pclose(pipe);
  return text;
}
bool has_gdal() { return std::system("gdalinfo --version >/dev/null 2>&1") == 0; }

// Pixels with structure of every scale, and areas without a value.
std::vector<uint8_t> make_pixels(Pixel pixel, int xsize, int ysize) {
  std::vector<uint8_t> bytes;
  for (int y = 0; y < ysize; y++)
    for (int x = 0; x < xsize; x++) {
      const bool none = (x / 50 + y / 70) % 3 == 0;
      const uint32_t v = none ? 0 : static_cast<uint32_t>(x * 7 + y * 131) % 60000 + 1;
      const float f = none ? -9999.0f : static_cast<float>(v) * 0.25f;
      if (pixel == Pixel::u8) bytes.push_back(static_cast<uint8_t>(v));
      if (pixel == Pixel::rgb)
        for (const int shift : {0, 3, 6}) bytes.push_back(static_cast<uint8_t>(v >> shift));
      const auto* p =
          pixel == Pixel::f32 ? reinterpret_cast<const uint8_t*>(&f) : reinterpret_cast<const uint8_t*>(&v);
      if (pixel == Pixel::u16 || pixel == Pixel::f32) bytes.insert(bytes.end(), p, p + pixel_bytes(pixel));
    }
  return bytes;
}

bool write_tiff(const std::string& name, const TiffSpec& spec, const std::vector<uint8_t>& bytes) {
  TiffOut out;
  return out.open(name, spec) && out.put_rows(bytes.data(), spec.ysize) && out.close();
}

uint32_t u32_at(const std::string& file, size_t at) {
  uint32_t v = 0;
  if (at + 4 <= file.size()) std::memcpy(&v, file.data() + at, 4);
  return v;
}
uint16_t u16_at(const std::string& file, size_t at) { return static_cast<uint16_t>(u32_at(file, at)); }

// Value of a field of the directory at `ifd` of a classic file: its first number, or the offset of its values.
uint32_t field(const std::string& file, size_t ifd, uint16_t tag, uint32_t* count = nullptr) {
  for (size_t i = 0; i < u16_at(file, ifd); i++) {
    const size_t at = ifd + 2 + 12 * i;
    if (u16_at(file, at) != tag) continue;
    if (count) *count = u32_at(file, at + 4);
    return u32_at(file, at + 8);
  }
  return 0;
}
}  // namespace

TEST(TiffOut, PixelsComeBack) {
  const struct {
    Pixel pixel;
    int xsize, ysize;
    bool cog;
  } cases[] = {{Pixel::u8, 3, 2, true},      {Pixel::u8, 256, 256, true},   {Pixel::u8, 257, 511, true},
               {Pixel::u8, 1030, 700, true}, {Pixel::u8, 1030, 130, false}, {Pixel::u16, 600, 300, true},
               {Pixel::f32, 600, 300, true}, {Pixel::f32, 70, 300, false},  {Pixel::rgb, 300, 600, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(c.pixel) << " " << c.xsize << "x" << c.ysize << " "
                                    << c.cog);
    TempDir dir;
    TiffSpec spec;
    spec.pixel = c.pixel;
    spec.xsize = c.xsize, spec.ysize = c.ysize;
    spec.cog = c.cog;
    spec.place = {400000, 5200000, 0.5};
    spec.crs.kind = CrsKind::utm;
    spec.crs.zone = 32;
    const std::vector<uint8_t> bytes = make_pixels(c.pixel, c.xsize, c.ysize);
    const std::string name = dir.path + "/a.tif", again = dir.path + "/b.tif";
    ASSERT_TRUE(write_tiff(name, spec, bytes));
    spec.nthreads = 4;
    ASSERT_TRUE(write_tiff(again, spec, bytes));
    EXPECT_EQ(read_text(name), read_text(again));
    if (c.pixel == Pixel::u8) {
      Image<uint8_t> img;
      ASSERT_TRUE(load_TIFF_gray(name, img));
      ASSERT_EQ(img.size(), bytes.size());
      EXPECT_EQ(std::memcmp(img.val, bytes.data(), bytes.size()), 0);
    }
    if (!has_gdal()) continue;
    ASSERT_EQ(
        std::system(
            ("gdal_translate -q -of ENVI -co INTERLEAVE=BIP " + name + " " + dir.path + "/raw").c_str()),
        0);
    EXPECT_EQ(read_text(dir.path + "/raw"), std::string(bytes.begin(), bytes.end()));
  }
}

// The directories stand in front, the image's first; the blocks of the smallest overview come next, those of the
// image last.
TEST(TiffOut, CloudOptimizedLayout) {
  TempDir dir;
  TiffSpec spec;
  spec.xsize = 1100, spec.ysize = 600;
  ASSERT_TRUE(write_tiff(dir.path + "/a.tif", spec, make_pixels(Pixel::u8, 1100, 600)));
  const std::string file = read_text(dir.path + "/a.tif");
  std::vector<uint32_t> widths, first;
  size_t last_directory = 0;
  for (uint32_t ifd = u32_at(file, 4); ifd != 0;) {
    uint32_t count = 0;
    const uint32_t at = field(file, ifd, 324, &count);
    widths.push_back(field(file, ifd, 256));
    first.push_back(count == 1 ? at : u32_at(file, at));
    last_directory = ifd;
    ifd = u32_at(file, ifd + 2 + 12 * size_t{u16_at(file, ifd)});
  }
  EXPECT_EQ(u32_at(file, 4), 8u);
  EXPECT_EQ(widths, (std::vector<uint32_t>{1100, 550, 275, 138}));
  for (size_t i = 0; i < first.size(); i++) {
    EXPECT_GT(first[i], last_directory);
    EXPECT_LT(first[i], i > 0 ? first[i - 1] : UINT32_MAX);
  }
}

TEST(TiffOut, GdalAgreesOnPlaceSystemAndValues) {
  if (!has_gdal()) GTEST_SKIP() << "gdalinfo is not installed";
  TempDir dir;
  ImgCRS utm, albers, lcc, tm, omerc;
  utm.kind = CrsKind::utm, utm.zone = -33;
  albers.kind = CrsKind::albers, albers.e2 = 0.0066943800229;
  albers.lon0 = -126, albers.lat0 = 45, albers.lat1 = 50, albers.lat2 = 58.5, albers.E0 = 1e6;
  lcc.kind = CrsKind::lcc2, lcc.unit = 1200.0 / 3937.0, lcc.e2 = 0.0066943800229;
  lcc.lon0 = -100, lcc.lat0 = 30, lcc.lat1 = 31, lcc.lat2 = 33, lcc.E0 = 2296583.333, lcc.N0 = 9842500;
  tm.kind = CrsKind::tm, tm.lon0 = 9, tm.k0 = 0.9999, tm.E0 = 3500000, tm.a = 6377397.155,
  tm.e2 = 0.006674372230614;
  omerc.kind = CrsKind::omerc, omerc.lat0 = 57, omerc.lon0 = -133, omerc.azimuth = omerc.rectified = 323.13;
  omerc.k0 = 0.9999, omerc.E0 = 5e6, omerc.N0 = -5e6;
  const struct {
    const ImgCRS& crs;
    std::vector<const char*> words;
  } cases[] = {{utm, {"EPSG\",32733", "Origin = (400000.0", "Pixel Size = (0.5"}},
               {albers, {"Albers", "58.5", "-126"}},
               {lcc, {"Lambert Conic Conformal (2SP)", "survey foot", "Origin = (1312333.33", "699999.99"}},
               {tm, {"Transverse Mercator", "0.9999", "6377397.155"}},
               {omerc, {"Oblique Mercator", "323.13"}}};
  for (const auto& c : cases) {
    TiffSpec spec;
    spec.xsize = 600, spec.ysize = 300;
    spec.place = {400000, 5200000, 0.5};
    spec.crs = c.crs;
    spec.scale = 0.002, spec.offset = -0.5;
    spec.unit = "m";
    ASSERT_TRUE(write_tiff(dir.path + "/a.tif", spec, make_pixels(Pixel::u8, 600, 300)));
    const std::string info = output_of("gdalinfo " + dir.path + "/a.tif");
    for (const char* word : c.words) EXPECT_TRUE(holds(info, word)) << word << "\n" << info;
    for (const char* word :
         {"Size is 600, 300", "NoData Value=0", "Block=256x256", "Overviews: 300x150, 150x75", "Scale:0.002",
          "Offset: -0.5", "Unit Type: m", "COMPRESSION=DEFLATE"})
      EXPECT_TRUE(holds(info, word)) << word << "\n" << info;
    EXPECT_FALSE(holds(info, "Warning")) << info;
  }
}

TEST(LoadTiff, WhatItTakesAndRefuses) {
  TempDir dir;
  const std::string name = dir.path + "/a.tif";
  TiffSpec spec;
  spec.xsize = 300, spec.ysize = 90;
  Image<uint8_t> img;
  spec.pixel = Pixel::u16;  // 16 bits come down to 8, what is not 0 stays not 0
  std::vector<uint8_t> bytes(300 * 90 * 2, 0);
  bytes[2] = 7;
  bytes[4] = 0, bytes[5] = 9;
  ASSERT_TRUE(write_tiff(name, spec, bytes));
  ASSERT_TRUE(load_TIFF_gray(name, img));
  EXPECT_EQ(img(0, 0), 0);
  EXPECT_EQ(img(1, 0), 1);
  EXPECT_EQ(img(2, 0), 9);
  const std::string whole = read_text(name);
  for (const size_t n : {size_t{0}, size_t{7}, whole.size() / 2, whole.size() - 1}) {
    write_text(name, whole.substr(0, n));
    EXPECT_FALSE(load_TIFF_gray(name, img)) << n;
  }
  spec.pixel = Pixel::rgb;
  ASSERT_TRUE(write_tiff(name, spec, make_pixels(Pixel::rgb, 300, 90)));
  EXPECT_FALSE(load_TIFF_gray(name, img));
  EXPECT_FALSE(load_TIFF_gray(dir.path, img));
}
}  // namespace veld
