// Published examples of each projection, round trips, and the direction of north.
#include "geo/georef.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

namespace veld {
namespace {
double dms(double d, double m, double s) { return d < 0 ? d - m / 60 - s / 3600 : d + m / 60 + s / 3600; }

std::string param(const char* name, double value) {
  char text[100];
  std::snprintf(text, sizeof(text), ",PARAMETER[\"%s\",%.12f]", name, value);
  return text;
}

std::string wkt(const std::string& spheroid, const std::string& projection, const std::string& parameters) {
  return "PROJCS[\"Example\",GEOGCS[\"G\",DATUM[\"D\",SPHEROID[\"S\"," + spheroid +
         "]],UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"" + projection + "\"]" + parameters +
         ",UNIT[\"metres\",1]]";
}

struct Example {
  const char* name;
  std::string text;
  double lon, lat;  // degrees
  double x, y;      // in the system's unit
  double
      tol;  // half a unit of the last published digit and 1 mm; the first source rounds intermediate values
};

// Worked examples of EPSG Guidance Note 7-2; more systems are compared with the library in crs_test.cpp.
std::vector<Example> examples() {
  std::vector<Example> rows;
  rows.push_back({"TM British National Grid",
                  wkt("6377563.396,299.32496", "Transverse_Mercator",
                      param("latitude_of_origin", 49) + param("central_meridian", -2) +
                          param("scale_factor", 0.9996012717) + param("false_easting", 400000) +
                          param("false_northing", -100000)),
                  0.5, 50.5, 577274.99, 69740.50, 0.009});
  rows.push_back({"TM South Hartebeesthoek94 Lo29",
                  wkt("6378137,298.257223563", "Transverse_Mercator_South_Orientated",
                      param("latitude_of_origin", 0) + param("central_meridian", 29) +
                          param("scale_factor", 1) + param("false_easting", 0) + param("false_northing", 0)),
                  dms(28, 16, 57.479), dms(-25, 43, 55.302), 71984.48, 2847342.74, 0.006});
  rows.push_back({"AEAC Great Lakes",
                  wkt("6378137,298.257222101", "Albers_Conic_Equal_Area",
                      param("longitude_of_center", dms(-84, 27, 21.4380)) +
                          param("latitude_of_center", dms(45, 34, 8.3172)) +
                          param("standard_parallel_1", dms(42, 7, 21.9864)) +
                          param("standard_parallel_2", dms(49, 0, 54.6480)) +
                          param("false_easting", 1000000) + param("false_northing", 1000000)),
                  -78.75, 42.75, 1466493.492, 702903.006, 0.002});
  const std::string timbalai = param("longitude_of_center", 115) + param("latitude_of_center", 4) +
                               param("azimuth", dms(53, 18, 56.9537)) +
                               param("rectified_grid_angle", dms(53, 7, 48.3685)) +
                               param("scale_factor", 0.99984);
  rows.push_back({"HOM Borneo, natural origin",
                  wkt("6377298.556,300.8017", "Hotine_Oblique_Mercator",
                      timbalai + param("false_easting", 0) + param("false_northing", 0)),
                  dms(115, 48, 19.8196), dms(5, 23, 14.1129), 679245.73, 596562.78, 0.006});
  rows.push_back({"HOM Borneo, projection centre",
                  wkt("6377298.556,300.8017", "Hotine_Oblique_Mercator_Azimuth_Center",
                      timbalai + param("false_easting", 590476.87) + param("false_northing", 442857.65)),
                  dms(115, 48, 19.8196), dms(5, 23, 14.1129), 679245.73, 596562.78, 0.006});
  constexpr double US = 1200.0 / 3937.0;
  rows.push_back(
      {"LCC Jamaica, one parallel",
       wkt("6378206.4,294.97870", "Lambert_Conformal_Conic_1SP",
           param("latitude_of_origin", 18) + param("central_meridian", -77) + param("scale_factor", 1) +
               param("false_easting", 250000) + param("false_northing", 150000)),
       -dms(76, 56, 37.26), dms(17, 55, 55.80), 255966.58, 142493.51, 0.006});
  rows.push_back(
      {"LCC Texas South Central, two parallels",
       wkt("6378206.4,294.97870", "Lambert_Conformal_Conic_2SP",
           param("standard_parallel_1", dms(28, 23, 0)) + param("standard_parallel_2", dms(30, 17, 0)) +
               param("latitude_of_origin", dms(27, 50, 0)) + param("central_meridian", -99) +
               param("false_easting", 2000000 * US) + param("false_northing", 0)),
       -96, 28.5, 2963503.91 * US, 254759.80 * US, 0.0025});
  rows.push_back({"OS Amersfoort",
                  wkt("6377397.155,299.15281", "Oblique_Stereographic",
                      param("latitude_of_origin", dms(52, 9, 22.178)) +
                          param("central_meridian", dms(5, 23, 15.5)) + param("scale_factor", 0.9999079) +
                          param("false_easting", 155000) + param("false_northing", 463000)),
                  6, 53, 196105.283, 557057.739, 0.0015});
  return rows;
}

GeoRefParam utm(int zone) {
  GeoRefParam g;
  EXPECT_TRUE(g.init(zone, "", 0, "", false));
  return g;
}
}  // namespace

TEST(GeoRef, PublishedExamplesForwardAndBack) {
  for (const Example& e : examples()) {
    SCOPED_TRACE(e.name);
    GeoRefParam g;
    ASSERT_TRUE(g.init(0, e.text, 0, "", false));
    dxyz p;
    ASSERT_TRUE(geo_forward(g, e.lon, e.lat, 123, p));
    EXPECT_NEAR(p.x, e.x, e.tol);
    EXPECT_NEAR(p.y, e.y, e.tol);
    EXPECT_NEAR(p.z * g.unit, 123, 1e-9);
    double lon = 0, lat = 0, h = 0;
    ASSERT_TRUE(geo_inverse(g, p, lon, lat, h));
    EXPECT_NEAR(lon, e.lon, 1e-9);  // 0.1 mm
    EXPECT_NEAR(lat, e.lat, 1e-9);
    EXPECT_NEAR(h, 123, 1e-9);
    // From the printed coordinates back to the printed place.
    ASSERT_TRUE(geo_inverse(g, {e.x, e.y, p.z}, lon, lat, h));
    const double degree = 111400 / g.unit, cos_lat = std::cos(e.lat * M_PI / 180);
    EXPECT_LT(std::fabs(lat - e.lat) * degree, 1.5 * e.tol);
    EXPECT_LT(std::fabs(lon - e.lon) * cos_lat * degree, 1.5 * e.tol);
  }
}

TEST(GeoRef, Utm) {
  dxyz p;
  // 4984944.378 m is the length of the WGS84 meridian from the equator to 45 degrees.
  ASSERT_TRUE(geo_forward(utm(33), 15, 45, 10, p));
  EXPECT_NEAR(p.x, 500000, 1e-6);
  EXPECT_NEAR(p.y, 4984944.378 * 0.9996, 1e-3);
  EXPECT_EQ(p.z, 10);
  ASSERT_TRUE(geo_forward(utm(-33), 15, -45, 10, p));
  EXPECT_NEAR(p.y, 1e7 - 4984944.378 * 0.9996, 1e-3);
  // A constant geoid height comes off.
  GeoRefParam g;
  ASSERT_TRUE(g.init(33, "", 46.5, "", false));
  ASSERT_TRUE(geo_forward(g, 15, 45, 100, p));
  EXPECT_NEAR(p.z, 53.5, 1e-12);
  double lon = 0, lat = 0, h = 0;
  ASSERT_TRUE(geo_inverse(g, p, lon, lat, h));
  EXPECT_NEAR(h, 100, 1e-12);
}

TEST(GeoRef, NoProjectionKeepsDegrees) {
  GeoRefParam g;
  ASSERT_TRUE(g.init(0, "", 0, "", false));
  EXPECT_EQ(g.kind, ProjKind::GEO);
  dxyz p;
  double north = 1;
  ASSERT_TRUE(geo_forward_north(g, 15.5, 47.25, 300, p, north));
  EXPECT_EQ(p, (dxyz{15.5, 47.25, 300}));
  EXPECT_EQ(north, 0);
}

// The meridian convergence of a transverse Mercator grid is near dlon sin(lat), grid north lying east of true
// north on the east side of the central meridian; so true north lies to the left there.
TEST(GeoRef, TrueNorthInTheGrid) {
  struct Row {
    int zone;
    double lon, lat, north;
  };
  const Row rows[] = {{33, 15, 48, 0},        {33, 18, 48, -2.2305}, {33, 12, 48, 2.2305},
                      {-33, 18, -33, 1.6347}, {33, 27, 70, -11.3},   {33, 15.01, 48, -0.0074314}};
  for (const Row& row : rows) {
    dxyz p;
    double north = 99;
    ASSERT_TRUE(geo_forward_north(utm(row.zone), row.lon, row.lat, 0, p, north));
    EXPECT_NEAR(north, row.north, std::fabs(row.north) * 0.003 + 1e-6) << row.lon << " " << row.lat;
    // The projected end of a true-north line of 1 km lies in that direction.
    dxyz far;
    ASSERT_TRUE(geo_forward(utm(row.zone), row.lon, row.lat + 0.009, 0, far));
    EXPECT_NEAR(std::atan2(far.x - p.x, far.y - p.y) * 57.29577951308232, north, 1e-3);
  }
  // A south-orientated grid looks the other way.
  GeoRefParam g;
  ASSERT_TRUE(g.init(0, examples()[1].text, 0, "", false));
  dxyz p;
  double north = 0;
  ASSERT_TRUE(geo_forward_north(g, 29, -26, 0, p, north));
  EXPECT_NEAR(std::fabs(north), 180, 1e-9);
}

TEST(GeoRef, RefusesNonsensePositions) {
  const GeoRefParam g = utm(33);
  dxyz p = {1, 2, 3};
  double north = 0;
  for (const double lat : {90.1, -1000.0, std::nan(""), double(INFINITY)})
    EXPECT_FALSE(geo_forward_north(g, 15, lat, 0, p, north)) << lat;
  EXPECT_FALSE(geo_forward(g, std::nan(""), 48, 0, p));
  double lon = 0, lat = 0, h = 0;
  EXPECT_FALSE(geo_inverse(g, {std::nan(""), 0, 0}, lon, lat, h));
  EXPECT_FALSE(geo_inverse(g, {1e300, 1e300, 0}, lon, lat, h));
  EXPECT_EQ(p, (dxyz{1, 2, 3}));
  EXPECT_TRUE(geo_forward(g, 15, 48, 0, p));  // a refusal leaves nothing behind
}

// Threads with different systems at the same time, each through copies of one value.
TEST(GeoRef, ManyThreads) {
  const std::vector<Example> rows = examples();
  std::vector<GeoRefParam> systems(rows.size());
  for (size_t i = 0; i < rows.size(); i++) ASSERT_TRUE(systems[i].init(0, rows[i].text, 0, "", false));
  std::vector<int> bad(4, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([&, t] {
      for (size_t k = 0; k < 40; k++) {
        const size_t i = (k / 5 + static_cast<size_t>(t)) % rows.size();
        const GeoRefParam copy = systems[i];
        dxyz p;
        if (!geo_forward(copy, rows[i].lon, rows[i].lat, 0, p) || std::fabs(p.x - rows[i].x) > rows[i].tol)
          bad[static_cast<size_t>(t)]++;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(bad, std::vector<int>(4, 0));
}

TEST(GeoRef, EarthCentred) {
  // EPSG Guidance Note 7-2, method 9602.
  const dxyz p = geodetic_to_ecef(dms(2, 7, 46.380), dms(53, 48, 33.820), 73.0);
  EXPECT_NEAR(p.x, 3771793.968, 2e-3);
  EXPECT_NEAR(p.y, 140253.342, 2e-3);
  EXPECT_NEAR(p.z, 5124304.349, 2e-3);
  for (const double lat : {-90.0, -89.9999, -45.0, 0.0, 1e-6, 60.0, 90.0}) {
    for (const double h0 : {-400.0, 0.0, 9000.0}) {
      double lon = 0, la = 0, h = 0;
      ecef_to_geodetic(geodetic_to_ecef(-120, lat, h0), lon, la, h);
      EXPECT_NEAR(la, lat, 1e-9);
      EXPECT_NEAR(h, h0, 1e-4);  // the polar radius of the source is rounded to 0.1 mm
    }
  }
}
}  // namespace veld
