#include "prj/LiDAR/lidarspec/lidarspec.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"

namespace veld {
namespace {
struct ReadCase {
  const char* what;
  const char* text;
  const char* fmt;
  const char* used;  // columns taken
  size_t n;          // points, 0: refused
};

TEST(Lidarspec, ReadsFilesOfAllShapes) {
  TempDir dir;
  const std::string file = dir.path + "/g.txt";
  const ReadCase cases[] = {
      {"blanks, all columns", "A 1 2 3 0.01 0 1\nB 4 5 6 0.02 1 0\n", "ixyzscf", "ixyzscf", 2},
      {"columns in another order", "3 2 1 A\n", "zyxi", "zyxi", 1},
      {"header line skipped", "Point X Y Z\nA 1 2 3\n", "ixyz", "ixyz", 1},
      {"too few columns", "1 2 3\n4 5 6\n", "ixyz", "", 0},
      {"no mandatory letter", "1 2 3\n", "iyz", "", 0},
      {"unknown letter", "1 2 3 4\n", "xyzq", "", 0},
      {"letter twice", "1 2 3 4\n", "xyzx", "", 0},
      {"empty file", "", "xyz", "", 0},
      {"names with a header, other columns between", "name;code;north;east;height\n\"P 1\";nva;2;1;3,0\n", "",
       "i yxz", 1},
      {"comma separated, quoted name", "\"a, b\",1,2,3\n", "", "ixyz", 1},
      {"header with units", "id,X [m],Y [m],Z [m],sigma\n7,1,2,3,\n", "", "ixyzs", 1},
      {"a title", "Control points of spring\nA 1 2 3\n", "", "ixyz", 1},
      {"no names", "1.0 2.0 3.0\n", "", "xyz", 1},
      {"numbers as names", "17 1.0 2.0 3.0\n", "", "ixyz", 1},
      {"sigma and flag", "G1 1 2 3 0.005 1\n", "", "ixyzsc", 1},
      {"remark behind the height", "G1 1 2 3 manhole\n", "", "ixyz", 1},
      {"not a number, infinite, hexadecimal", "A nan 2 3\nB 1 inf 3\nC 0x10 2 3\nD 1 2 3\n", "ixyz", "ixyz",
       1},
      {"negative sigma", "A 1 2 3 -1\nB 1 2 3 1\n", "ixyzs", "ixyzs", 1},
      {"comments, blank lines, carriage returns, BOM", "\xEF\xBB\xBF# x\r\n\r\nA 1 2 3\r\n", "", "ixyz", 1},
      {"zero bytes", "A 1 2 3\nB \x01\x02 2 3\n", "ixyz", "ixyz", 1},
      {"one endless line", nullptr, "ixyz", "", 0},
  };
  for (const ReadCase& c : cases) {
    SCOPED_TRACE(c.what);
    write_text(file, c.text ? c.text : std::string(3000000, 'x'));
    std::vector<GCP> gcp;
    std::string used;
    ASSERT_EQ(read_txt_GCP(file, c.fmt, {}, gcp, used), c.n > 0);
    if (c.n == 0) continue;
    ASSERT_EQ(gcp.size(), c.n);
    EXPECT_EQ(used, c.used);
    EXPECT_EQ(gcp[0].pos, (dxyz{1, 2, 3}));
  }
  std::vector<GCP> gcp;
  std::string used;
  EXPECT_FALSE(read_txt_GCP(dir.path + "/absent", "xyz", {}, gcp, used));
}

TEST(Lidarspec, WhatIsMissingTakesTheDefaults) {
  TempDir dir;
  const std::string file = dir.path + "/g.csv";
  write_text(file, "1,2,3,,\n4,5,6,0.25,check\n7,8,9,0,1\n");
  std::vector<GCP> gcp;
  std::string used;
  ASSERT_TRUE(read_txt_GCP(file, "xyzsc", {true, false, 0.5}, gcp, used));
  ASSERT_EQ(gcp.size(), 3u);
  EXPECT_EQ(gcp[0].name, "GCP_1");
  EXPECT_EQ(gcp[2].name, "GCP_3");
  EXPECT_EQ(gcp[0].sigma, 0.5);
  EXPECT_EQ(gcp[1].sigma, 0.25);
  EXPECT_EQ(gcp[2].sigma, 0);
  EXPECT_TRUE(gcp[0].control);
  EXPECT_FALSE(gcp[1].control);
  EXPECT_TRUE(gcp[2].control);
  EXPECT_FALSE(gcp[0].last);
}

TEST(Lidarspec, GeoJsonComesIntoTheSystemOfTheProject) {
  TempDir dir;
  const std::string file = dir.path + "/g.GeoJSON";
  GeoRefParam utm, other;
  ASSERT_TRUE(utm.init(33, "", 40, "", false) && other.init(32, "", 0, "", false));
  dxyz at, beside;
  ASSERT_TRUE(geo_forward(utm, 15, 48, 340, at) && geo_forward(other, 15, 48, 0, beside));
  EXPECT_NEAR(at.z, 300, 1e-9);
  const auto feature = [](const dxyz& p, const char* properties) {
    char text[300];
    std::snprintf(text, sizeof text,
                  "{\"type\":\"Feature\",\"properties\":{%s},\"geometry\":{\"type\":\"Point\","
                  "\"coordinates\":[%.9f,%.9f,%.6f]}}",
                  properties, p.x, p.y, p.z);
    return std::string(text);
  };
  const std::string line =
      "{\"type\":\"Feature\",\"properties\":{},\"geometry\":{\"type\":\"LineString\",\"coordinates\":[]}}";
  const struct {
    const char *what, *crs;
    dxyz p;
    const char* properties;
    bool ok;
  } cases[] = {
      {"longitude, latitude, ellipsoid",
       "",
       {15, 48, 340},
       "\"name\":\"A\",\"sigma\":0.01,\"control\":false",
       true},
      {"height as a property",
       "",
       {15, 48, 0},
       "\"id\":\"A\",\"Height\":\"300\",\"s\":0.01,\"use\":\"check\"",
       true},
      {"the project's own",
       "urn:ogc:def:crs:EPSG::32633",
       {at.x, at.y, 300},
       "\"name\":\"A\",\"s\":0.01,\"c\":0",
       true},
      {"another zone", "EPSG:32632", {beside.x, beside.y, 300}, "\"name\":\"A\",\"s\":0.01,\"c\":0", true},
      {"no such system", "EPSG:1", {at.x, at.y, 300}, "", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string crs =
        *c.crs ? std::string("\"crs\":{\"properties\":{\"name\":\"") + c.crs + "\"}}," : "";
    write_text(file, "{\"type\":\"FeatureCollection\"," + crs + "\"features\":[" + line + "," +
                         feature(c.p, c.properties) + "]}");
    std::vector<GCP> gcp;
    std::string used;
    ASSERT_EQ(read_GCP(file, "", utm, {}, gcp, used), c.ok);
    if (!c.ok) continue;
    ASSERT_EQ(gcp.size(), 1u);
    EXPECT_EQ(gcp[0].name, "A");
    EXPECT_NEAR(gcp[0].pos.x, at.x, 1e-3);
    EXPECT_NEAR(gcp[0].pos.y, at.y, 1e-3);
    EXPECT_NEAR(gcp[0].pos.z, 300, 1e-3);
    EXPECT_EQ(gcp[0].sigma, 0.01);
    EXPECT_FALSE(gcp[0].control);
    EXPECT_FALSE(read_GCP(file, "xyz", utm, {}, gcp, used));
  }
  for (const char* const bad :
       {"", "{", "[]", "{\"type\":5}", "{\"type\":\"FeatureCollection\",\"features\":[{},3,null]}",
        "{\"type\":\"FeatureCollection\",\"features\":[{\"geometry\":{\"type\":[],\"coordinates\":[1,2,3]}}]"
        "}"}) {
    std::vector<GCP> gcp;
    std::string used;
    write_text(file, bad);
    EXPECT_FALSE(read_GCP(file, "", utm, {}, gcp, used)) << bad;
  }
}

TEST(Lidarspec, TargetsHaveTwoPositions) {
  TempDir dir;
  const std::string file = dir.path + "/t.txt";
  const struct {
    const char *text, *fmt, *used;
  } cases[] = {
      {"T1 L01 1 2 3 1.1 2.2 3.3\n", "ifxyzXYZ", "ifxyzXYZ"},
      {"T1 L01 1 2 3 1.1 2.2 3.3 0.01 0.02 0\n", "", "ifxyzXYZhvc"},
      {"L01 1 2 3 1.1 2.2 3.3\n", "", "fxyzXYZ"},
      {"swath,name,x,y,z,x_lidar,y_lidar,z_lidar\nL01,T1,1,2,3,1.1,2.2,3.3\n", "", "fixyzXYZ"},
      {"1.1 2.2 3.3 1 2 3 L01\n", "XYZxyzf", "XYZxyzf"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    write_text(file, c.text);
    std::vector<XYZGCP> gcp;
    std::string used;
    ASSERT_TRUE(read_txt_XYZGCP(file, c.fmt, {true, 0.5, 0.6}, gcp, used));
    ASSERT_EQ(gcp.size(), 1u);
    EXPECT_EQ(used, c.used);
    EXPECT_EQ(gcp[0].match, "L01");
    EXPECT_EQ(gcp[0].pos, (dxyz{1, 2, 3}));
    EXPECT_EQ(gcp[0].lidar, (dxyz{1.1, 2.2, 3.3}));
    const bool sigmas = used.find('h') != std::string::npos;
    EXPECT_EQ(gcp[0].sigma_z, sigmas ? 0.02 : 0.6);
    EXPECT_EQ(gcp[0].control, !sigmas);
  }
  std::vector<XYZGCP> gcp;
  std::string used;
  write_text(file, "1 2 3 4 5 6 L\n");
  EXPECT_FALSE(read_txt_XYZGCP(file, "xyz", {}, gcp, used));
  EXPECT_FALSE(read_txt_XYZGCP(file, "fxyzXYZ", {}, gcp, used));
}
}  // namespace
}  // namespace veld
