// Systems of all kinds, the datum step and the geoid, against PROJ called on its own.
#include <gtest/gtest.h>
#include <proj.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>

#include "geo/georef.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
struct ProjEnd {
  void operator()(PJ* p) const { proj_destroy(p); }
};
using Pipeline = std::unique_ptr<PJ, ProjEnd>;

// From degrees, longitude first, of one system to another, as PROJ itself does it.
Pipeline pipeline(const char* from, const char* to) {
  Pipeline p(proj_create_crs_to_crs(PJ_DEFAULT_CTX, from, to, nullptr));
  return Pipeline(p ? proj_normalize_for_visualization(PJ_DEFAULT_CTX, p.get()) : nullptr);
}
Pipeline pipeline_text(const std::string& text) {
  return Pipeline(proj_create(PJ_DEFAULT_CTX, text.c_str()));
}

struct Near {
  double lon, lat;  // degrees, middle of the points
};

// Random points of 2 degrees around a place, both ways; the largest distance in metres.
double largest_difference(const GeoRefParam& g, PJ* oracle, const Near& near, bool radians) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> shift(-1, 1);
  double most = 0;
  for (int i = 0; i < 200; i++) {
    const double lon = near.lon + shift(random), lat = near.lat + shift(random);
    const double unit = radians ? M_PI / 180 : 1;
    const PJ_COORD out = proj_trans(oracle, PJ_FWD, proj_coord(lon * unit, lat * unit, 0, 0));
    dxyz p;
    double lon2 = 0, lat2 = 0, h = 0;
    if (!geo_forward(g, lon, lat, 0, p) || !geo_inverse(g, p, lon2, lat2, h)) return 1e9;
    most = std::max(most, std::hypot(p.x - out.xy.x, p.y - out.xy.y) * g.unit);
    most = std::max(most, std::hypot(lon2 - lon, lat2 - lat) * 111320);
  }
  return most;
}
}  // namespace

TEST(Crs, CodesAndStringsGiveProjsCoordinates) {
  const struct {
    const char *text, *base;  // base: the geographic system of the same datum
    Near near;
    ProjKind kind;
    double unit;
  } rows[] = {
      {"EPSG:25833", "EPSG:4258", {15, 48}, ProjKind::TM, 1},
      {"EPSG:32733", "EPSG:4326", {16, -30}, ProjKind::TM, 1},
      {"EPSG:31468", "EPSG:4314", {12, 48}, ProjKind::TM, 1},
      {"EPSG:2053", "EPSG:4148", {29, -26}, ProjKind::TM, 1},         // counts west and south
      {"EPSG:2278", "EPSG:4269", {-98, 29}, ProjKind::LCC, FEET_US},  // two parallels, US feet
      {"EPSG:2154", "EPSG:4171", {3, 46}, ProjKind::LCC, 1},
      {"EPSG:27572", "EPSG:4275", {3, 47}, ProjKind::LCC, 1},  // one parallel, grads from Paris
      {"EPSG:24200", "EPSG:4242", {-77, 18}, ProjKind::LCC, 1},
      {"EPSG:3174", "EPSG:4269", {-84, 45}, ProjKind::AEAC, 1},
      {"EPSG:29873", "EPSG:4298", {115, 5}, ProjKind::HOM, 1},
      {"EPSG:3375", "EPSG:4742", {102, 4}, ProjKind::HOM, 1},
      {"EPSG:28992", "EPSG:4289", {5.4, 52.2}, ProjKind::OS, 1},
      {"EPSG:2222", "EPSG:4269", {-110, 33}, ProjKind::TM, FEET_INT},
      {"EPSG:7415", "EPSG:4289", {5.4, 52.2}, ProjKind::OS, 1},  // compound
      {"+proj=lcc +lat_0=46 +lon_0=13 +lat_1=49 +lat_2=46 +x_0=4e5 +y_0=4e5 +ellps=bessel",
       "EPSG:4312",
       {13, 47},
       ProjKind::LCC,
       1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    GeoRefParam g;
    ASSERT_TRUE(g.init(0, row.text, 0, "", true));
    EXPECT_EQ(g.kind, row.kind);
    EXPECT_EQ(g.unit, row.unit);
    const bool code = std::string(row.text).rfind("EPSG", 0) == 0;
    const Pipeline oracle = code ? pipeline(row.base, row.text) : pipeline_text(row.text);
    ASSERT_TRUE(oracle);
    EXPECT_LT(largest_difference(g, oracle.get(), row.near, !code), 0.0005);
  }
}

TEST(Crs, EachFormOfWellKnownTextIsTheSameSystem) {
  for (const char* const code : {"EPSG:25833", "EPSG:2278", "EPSG:27572", "EPSG:29873", "EPSG:28992"}) {
    const Pipeline crs = pipeline_text(code);
    GeoRefParam g;
    ASSERT_TRUE(g.init(0, code, 0, "", true));
    for (const PJ_WKT_TYPE type : {PJ_WKT2_2019, PJ_WKT2_2015, PJ_WKT1_GDAL, PJ_WKT1_ESRI}) {
      const std::string text = proj_as_wkt(PJ_DEFAULT_CTX, crs.get(), type, nullptr);
      SCOPED_TRACE(text);
      GeoRefParam h;
      ASSERT_TRUE(h.init(0, text, 0, "", true));
      dxyz p;
      ASSERT_TRUE(geo_forward(g, g.lcm + g.lono + 0.5, g.lato + 0.5, 0, p));
      EXPECT_TRUE(same_system(g, h, p));
      EXPECT_EQ(h.unit, g.unit);
    }
  }
}

TEST(Crs, WhatNoFormulaCoversIsNamed) {
  const struct {
    const char *text, *said;
  } rows[] = {{"EPSG:3857", "Popular Visualisation Pseudo Mercator"},
              {"EPSG:5514", "Krovak"},
              {"EPSG:3031", "Polar Stereographic"},
              {"EPSG:4326", "WGS 84: a geographic system"},
              {"EPSG:4978", "earth-centred"},
              {"EPSG:99999", "not understood"},
              {"+proj=nonsense", "not understood"}};
  for (const auto& row : rows) {
    GeoRefParam g;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(g.init(0, row.text, 0, "", false)) << row.text;
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(holds(said, row.said)) << said;
  }
}

TEST(Crs, DatumStepIsThatOfProj) {
  GeoRefParam g;
  ASSERT_TRUE(g.init(0, "EPSG:31468", 0, "", false));
  EXPECT_FALSE(g.samedat);
  const Pipeline oracle = pipeline("EPSG:4326",
                                   "+proj=tmerc +lat_0=0 +lon_0=12 +k=1 +x_0=4500000 +y_0=0 +ellps=bessel "
                                   "+towgs84=598.1,73.7,418.2,0.202,0.045,-2.455,6.7 +type=crs");
  EXPECT_LT(largest_difference(g, oracle.get(), {12, 48}, false), 0.001);
  // EPSG Guidance Note 7-2, method 1033: WGS 72 to WGS 84, printed in centimetres.
  const double H7[7] = {0, 0, 4.5, 0, 0, 0.554, 0.219};
  const dxyz q = helmert_to_wgs84(H7, {3657660.66, 255768.55, 5201382.11});
  EXPECT_NEAR(q.x, 3657660.78, 0.006);
  EXPECT_NEAR(q.y, 255778.43, 0.006);
  EXPECT_NEAR(q.z, 5201387.75, 0.006);
  const double large[7] = {-582, -105, -414, 20, -30, 40, -9};
  const dxyz p = {3657660.66, 255768.55, 5201382.11};
  EXPECT_LT(norm(helmert_from_wgs84(large, helmert_to_wgs84(large, p)) - p), 1e-6);
}

namespace {
struct KeyList {
  std::vector<uint16_t> shorts = {1, 1, 0, 0};
  std::vector<double> doubles;
  std::string ascii;
  KeyList& code(int key, int value) { return entry(key, 0, 1, value); }
  KeyList& number(int key, double value) {
    doubles.push_back(value);
    return entry(key, 34736, 1, static_cast<int>(doubles.size()) - 1);
  }
  KeyList& entry(int key, int where, int count, int value) {
    for (const int v : {key, where, count, value}) shorts.push_back(static_cast<uint16_t>(v));
    shorts[3]++;
    return *this;
  }
  GeoKeys keys() const {
    std::vector<uint8_t> a(2 * shorts.size()), b(8 * doubles.size());
    std::memcpy(a.data(), shorts.data(), a.size());
    if (!b.empty()) std::memcpy(b.data(), doubles.data(), b.size());
    GeoKeys k;
    EXPECT_TRUE(parse_geotiff_keys(a, b, {}, k));
    return k;
  }
};
}  // namespace

TEST(Crs, GeotiffKeysAreTheSystemOfTheirCode) {
  const auto user = [](int method) {
    return KeyList().code(1024, 1).code(3072, 32767).code(3074, 32767).code(3075, method).code(2048, 4269);
  };
  const struct {
    const char* what;
    GeoKeys keys;
    const char* same;  // as this code
    double unit, unit_z;
  } rows[] = {
      {"code", KeyList().code(1024, 1).code(3072, 25833).keys(), "EPSG:25833", 1, 1},
      {"metre code in feet", KeyList().code(3072, 26910).code(3076, 9003).keys(), "EPSG:26910", FEET_US,
       FEET_US},
      {"feet, heights in metres", KeyList().code(3072, 2278).code(4099, 9001).keys(), "EPSG:2278", FEET_US,
       1},
      {"vertical code", KeyList().code(3072, 2278).code(4096, 6360).keys(), "EPSG:2278", FEET_US, FEET_US},
      {"projection code", KeyList().code(1024, 1).code(3072, 32767).code(3074, 16033).code(2048, 4258).keys(),
       "EPSG:25833", 1, 1},
      {"parameters of LCC 2SP",
       user(8)
           .number(3085, 27.0 + 50.0 / 60)
           .number(3084, -99)
           .number(3078, 30.0 + 17.0 / 60)
           .number(3079, 28.0 + 23.0 / 60)
           .number(3086, 600000)
           .number(3087, 4000000)
           .keys(),
       "EPSG:32140", 1, 1},
      {"parameters of TM",
       user(1).number(3080, -123).number(3081, 0).number(3092, 0.9996).number(3082, 500000).keys(),
       "EPSG:26910", 1, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    GeoRefParam g, code;
    ASSERT_TRUE(g.init(row.keys, 0, "", true));
    ASSERT_TRUE(code.init(0, row.same, 0, "", true));
    EXPECT_EQ(g.unit, row.unit);
    EXPECT_EQ(g.unit_z, row.unit_z);
    code.unit = g.unit, code.unit_z = g.unit_z;
    dxyz p;
    ASSERT_TRUE(geo_forward(code, code.lcm + 0.5, code.lato + 1, 0, p));
    EXPECT_TRUE(same_system(code, g, p));
  }
  GeoRefParam g;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(g.init(KeyList().code(1024, 2).code(2048, 4326).keys(), 0, "", false));
  EXPECT_FALSE(g.init(user(15).keys(), 0, "", false));
  EXPECT_FALSE(g.init(user(8).keys(), 0, "", false));
  const std::string said = testing::internal::GetCapturedStderr();
  for (const char* const words :
       {"geographic system", "transformation 15", "keys without latitude_of_origin"})
    EXPECT_TRUE(holds(said, words)) << said;
  GeoKeys none;
  for (size_t n = 0; n < 24; n++)  // a directory that stops or points anywhere
    (void)parse_geotiff_keys(std::vector<uint8_t>(n, 1), std::vector<uint8_t>(n), std::vector<uint8_t>(n),
                             none);
}

namespace {
double undulation(double lon, double lat) {  // m, a geoid of gentle slopes
  return 46 + 2 * std::sin(0.9 * lon) + 1.5 * std::cos(1.1 * lat);
}

void put(std::string& bytes, const void* value, size_t n, bool swapped) {
  std::string part(static_cast<const char*>(value), n);
  bytes += swapped ? std::string(part.rbegin(), part.rend()) : part;
}

// The same heights as the system's own grid, or as GTX, whose values are big-endian.
std::string grid_bytes(bool gtx, double lon0, double lat0, double step, int n) {
  std::string bytes;
  for (const double v : {lat0, lon0, step, step}) put(bytes, &v, 8, gtx);
  const int32_t count = n, kind = 1;
  put(bytes, &count, 4, gtx), put(bytes, &count, 4, gtx);
  if (!gtx) put(bytes, &kind, 4, false);
  for (int j = 0; j < n; j++)
    for (int i = 0; i < n; i++) {
      const float h = static_cast<float>(undulation(lon0 + i * step, lat0 + j * step));
      put(bytes, &h, 4, gtx);
    }
  return bytes;
}
}  // namespace

TEST(Geoid, BinaryGridsAndGridsOfProj) {
  TempDir dir;
  const std::string gdir = dir.path + "/";
  write_text(gdir + "own.bin", grid_bytes(false, 14, 47, 0.05, 41));
  write_text(gdir + "gtx.gtx", grid_bytes(true, 14, 47, 0.05, 41));
  write_text(gdir + "west.bin", grid_bytes(false, 300, 47, 0.05, 41));
  for (const char* const name : {"own", "gtx", "gtx.gtx"}) {
    SCOPED_TRACE(name);
    GeoidGrid grid;
    testing::internal::CaptureStdout();
    ASSERT_TRUE(read_geoid(name, gdir, grid));
    testing::internal::GetCapturedStdout();
    double h = 0, most = 0;
    for (double lon = 14.1; lon < 15.9; lon += 0.037)
      for (double lat = 47.1; lat < 48.9; lat += 0.041) {
        ASSERT_TRUE(geoid_height(grid, lon, lat, h)) << lon << ' ' << lat;
        most = std::max(most, std::fabs(h - undulation(lon, lat)));
      }
    EXPECT_LT(most, std::string(name) == "own" ? 0.0002 : 0.002);  // cubic against bilinear
    ASSERT_TRUE(geoid_height(grid, 14.5 - 360, 47.5, h));
    EXPECT_NEAR(h, undulation(14.5, 47.5), 0.002);
    for (const Near& p : {Near{13.9, 48}, {16.1, 48}, {15, 46.9}, {15, 49.1}, {NAN, 48}})
      EXPECT_FALSE(geoid_height(grid, p.lon, p.lat, h)) << p.lon << ' ' << p.lat;
  }
  GeoidGrid west;
  double h = 0;
  ASSERT_TRUE(read_geoid("west", gdir, west));
  EXPECT_TRUE(geoid_height(west, -59.5, 48, h));
  EXPECT_NEAR(h, undulation(300.5, 48), 0.001);
  // Heights of the whole conversion, and the way back.
  GeoRefParam g;
  ASSERT_TRUE(g.init(33, "", 0, "own", false, gdir));
  dxyz p;
  double lon = 0, lat = 0;
  ASSERT_TRUE(geo_forward(g, 15.2, 48, 400, p));
  EXPECT_NEAR(p.z, 400 - undulation(15.2, 48), 0.0002);
  ASSERT_TRUE(geo_inverse(g, p, lon, lat, h));
  EXPECT_NEAR(h, 400, 1e-6);
  EXPECT_FALSE(geo_forward(g, 12, 48, 400, p));
  // With a datum step the height above the geoid stays that of WGS84.
  ASSERT_TRUE(g.init(0, "EPSG:31469", 0, "own", false, gdir));
  ASSERT_TRUE(geo_forward(g, 15.2, 48, 400, p));
  EXPECT_NEAR(p.z, 400 - undulation(15.2, 48), 0.0002);
  ASSERT_TRUE(geo_inverse(g, p, lon, lat, h));
  EXPECT_NEAR(lon, 15.2, 1e-9);
  EXPECT_NEAR(h, 400, 1e-6);
}

TEST(Geoid, WrongFilesAreRefused) {
  TempDir dir;
  const std::string gdir = dir.path + "/", good = grid_bytes(false, 14, 47, 0.05, 4);
  GeoidGrid grid;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(read_geoid("absent", gdir, grid));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: missing bin file for geoid absent\n");
  std::string lying = good;
  const int32_t many = 60000;
  lying.replace(32, 4, reinterpret_cast<const char*>(&many), 4);
  std::string flat = good;
  flat.replace(16, 8, std::string(8, '\0'));
  for (const std::string& bytes : {good.substr(0, 40), good.substr(0, 60), good + "x", lying, flat}) {
    write_text(gdir + "bad.bin", bytes);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(read_geoid("bad", gdir, grid));
    EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), "wrong header or size"));
  }
  write_text(gdir + "bad.gtx", "no grid");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(read_geoid("bad.gtx", gdir, grid));
  EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), "not a geoid grid"));
}
}  // namespace veld
