// The access layer: identity records, coordinates in and out, text, messages.
#include "las/las_access.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/las/las_builder.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
std::string data_text(const LASvlr* vlr) {
  return vlr ? std::string(vlr->data.begin(), vlr->data.end()).c_str() : "-";
}
}  // namespace

TEST(LasAccess, StampingAgainReplacesTheRecords) {
  LASheader header;
  set_las_text(header.generating_software, "first tool");
  ASSERT_TRUE(set_las_header_sid(header, "Auto Geom Corr: LB", "OURS 1"));
  EXPECT_EQ(header.offset_to_point_data, 227U + 2 * (54 + 32));
  ASSERT_TRUE(set_las_header_sid(header, "Auto Geom Corr: T", "OURS 2"));
  EXPECT_EQ(header.vlrs.size(), 2U);
  EXPECT_EQ(header.offset_to_point_data, 227U + 2 * (54 + 32));
  EXPECT_EQ(data_text(header.find_vlr("Tarnwick", 4001)), "Auto Geom Corr: T");
  EXPECT_EQ(data_text(header.find_vlr("Tarnwick", 3002)), "OURS 1");
  EXPECT_EQ(las_text(header.find_vlr("Tarnwick", 3002)->description), "PREVIOUS GENERATING SOFTWARE");
  EXPECT_EQ(las_text(header.generating_software), "OURS 2");
  ASSERT_TRUE(set_las_header_sid(header, "", "OURS 3", true));  // a copy says nothing of processing
  EXPECT_EQ(data_text(header.find_vlr("Tarnwick", 4001)), "Auto Geom Corr: T");

  ASSERT_TRUE(header.add_vlr("Tarnwick", 3002, "shorter", 7));  // the offset follows the data's length
  EXPECT_EQ(header.offset_to_point_data, 227U + 2 * 54 + 32 + 7);
  ASSERT_TRUE(header.add_vlr("x", 1, "", 0, std::string(50, 'd')));
  EXPECT_EQ(las_text(header.vlrs.back().description), std::string(31, 'd'));
  ASSERT_TRUE(header.add_vlr("y", 1, "", 0));
  EXPECT_EQ(las_text(header.vlrs.back().description), "by LAStools of rapidlasso GmbH");
}

TEST(LasAccess, CoordinatesComeBack) {
  const TempDir dir;
  Vector<dxyz> P(1000), back;
  for (int64_t i = 0; i < 1000; i++)
    P(i) = {4e6 + 0.001 * std::round(1e6 * std::sin(0.1 * static_cast<double>(i))),
            -7e6 + 0.125 * static_cast<double>(i), 0.5 - static_cast<double>(i)};
  for (const char* name : {"/p.las", "/p.laz", "/p.txt"}) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(write_las_xyz(dir.path + name, P, "xyz", "SOFT"));
    ASSERT_TRUE(read_las_dxyz(dir.path + name, back, "xyz"));
    ASSERT_EQ(back.size(), P.size());
    double worst = 0;
    for (int64_t i = 0; i < 1000; i++)
      worst = std::max(
          {worst, std::abs(back(i).x - P(i).x), std::abs(back(i).y - P(i).y), std::abs(back(i).z - P(i).z)});
    EXPECT_LT(worst, 0.00051);  // half a step
  }
  Vector<xyz> small{{10.F, 45.F, 3.F}}, none, bad{{0.F, 0.F, NAN}};
  ASSERT_TRUE(write_las_xyz(dir.path + "/s.las", small, "xyz", "SOFT"));
  ASSERT_TRUE(read_las_dxyz(dir.path + "/s.las", back, "xyz"));
  EXPECT_NEAR(back(0).y, 45, 1e-7);
  EXPECT_TRUE(write_las_xyz(dir.path + "/n.las", none, "xyz", "SOFT"));
  EXPECT_FALSE(write_las_xyz(dir.path + "/b.las", bad, "xyz", "SOFT"));
  EXPECT_FALSE(exists(dir.path + "/b.las"));
}

TEST(LasAccess, HeaderCheckSaysWhatIsWrong) {
  const TempDir dir;
  const std::string name = dir.path + "/h.las";
  const std::string good = build_las({}).bytes;
  const struct {
    const char* what;
    size_t at;
    uint64_t value;
    size_t size;
    bool opens;
    const char* text;
  } cases[] = {
      {"signature", 0, 0x58585858, 4, false, "ERROR: wrong file signature 'XXXX'\n"},
      {"version of a longer header", 25, 4, 1, false,
       "ERROR: header size 227 is too small for version 1.4, file "},
      {"header size", 94, 226, 2, false, "ERROR: header size is 226 but should be at least 227\n"},
      {"offset", 96, 200, 4, false, "ERROR: offset to point data 200 is smaller than header size 227\n"},
      {"scale", 139, 0, 8, true, "WARNING: y scale factor is zero.\n"},
      {"box", 186, 0xC1, 1, true, "WARNING: invalid bounding box ["},
      {"format", 104, 11, 1, false, "ERROR: unknown point format 11, file "},
      {"record length", 105, 27, 2, false,
       "ERROR: point record length 27 is too short for point format 1, file "},
      {"compression", 104, 0x81, 1, false, "ERROR: points are compressed in an unknown way, file "},
      {"infinite scale", 137, 0x7FF0, 2, false,
       "ERROR: scale factor or offset is not a finite number, file "},
      {"offset beyond", 96, 9999999, 4, false, "is beyond the end of the file"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::string bytes = good;
    bytes.replace(c.at, c.size, reinterpret_cast<const char*>(&c.value), c.size);
    write_text(name, bytes);
    testing::internal::CaptureStderr();
    auto reader = las_read_open(name, "xyzt", false);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(reader != nullptr, c.opens) << text;
    EXPECT_TRUE(holds(text, c.text)) << text;
    if (!reader) {
      EXPECT_TRUE(holds(text, name)) << text;
    }
  }
  LASheader header;
  header.version_minor = 5;
  testing::internal::CaptureStderr();
  EXPECT_TRUE(check_las_header(header));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "WARNING: unknown version 1.5 (should be 1.0 or 1.1 or 1.2 or 1.3 or 1.4)\n");
  EXPECT_FALSE(las_read_open(dir.path + "/absent.las", "", false));
  EXPECT_FALSE(las_read_open(dir.path, "", false));
  std::unique_ptr<LASreader> none;
  las_read_close(none);
}

// Some software writes version 1.3 with the header of 1.2: read, and written again, as it is.
TEST(LasAccess, Version13WithTheShorterHeader) {
  const TempDir dir;
  for (const int more : {0, 5}) {
    LasBuild how;
    how.user_header = more;
    how.vlrs = {{"somebody", 7, "abc", ""}};
    BuiltLas built = build_las(how);
    poke<uint8_t>(built.bytes, 25, 3);
    write_text(dir.path + "/a.las", built.bytes);
    auto reader = las_read_open(dir.path + "/a.las", "xyzt", false);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->header.npoints, 100U);
    EXPECT_EQ(reader->header.version_minor, 3);
    EXPECT_EQ(reader->header.user_header.size(), static_cast<size_t>(more));
    ASSERT_EQ(reader->header.vlrs.size(), 1U);
    auto writer = las_write_open(dir.path + "/b.las", reader->header, "xyzt");
    ASSERT_TRUE(writer);
    while (reader->read_point()) ASSERT_TRUE(writer->write_point(reader->point));
    ASSERT_TRUE(las_write_close(writer));
    auto back = las_read_open(dir.path + "/b.las", "xyzt", false);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->header.header_size, 227 + more);
    EXPECT_EQ(back->header.vlrs.size(), 1U);
    EXPECT_EQ(back->header.npoints, 100U);
  }
}

TEST(LasAccess, CoordinateSystemText) {
  const TempDir dir;
  const std::string wkt = "PROJCS[\"UTM\"]";
  const struct {
    const char* what;
    std::vector<BuiltRecord> vlrs, evlrs;
    std::string expected;
    bool has_keys;
  } cases[] = {
      {"before the points", {{"LASF_Projection", 2112, wkt, ""}}, {}, wkt, false},
      {"terminated", {{"LASF_Projection", 2112, wkt + std::string(3, '\0'), ""}}, {}, wkt, false},
      {"behind the points",
       {{"LASF_Projection", 2112, "", ""}},
       {{"LASF_Projection", 2112, wkt, ""}},
       wkt,
       false},
      {"keys only", {{"LASF_Projection", 34735, std::string(8, '\1'), ""}}, {}, "", true},
      {"none", {{"somebody", 2112, wkt, ""}}, {}, "", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    LasBuild kind;
    kind.minor = 4;
    kind.vlrs = c.vlrs;
    kind.evlrs = c.evlrs;
    write_text(dir.path + "/w.las", build_las(kind).bytes);
    LASsystem system;
    ASSERT_TRUE(las_get_system(dir.path + "/w.las", system));
    EXPECT_EQ(system.wkt, c.expected);
    EXPECT_EQ(system.keys, std::vector<uint8_t>(c.has_keys ? 8 : 0, 1));
  }
}

TEST(LasText, ColumnsByParseString) {
  const TempDir dir;
  const std::string name = dir.path + "/t.txt";
  write_text(name,
             "# comment\nx y z\n1000.5,2000.25;-3.125\t7 9 2 3 6 -11 100 200 300\r\n\n+1001 2001 5 8 9 1 1 2 "
             "4 1 2 3");
  testing::internal::CaptureStderr();
  auto reader = las_read_open(name, "xyztsrncaRGB", false);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(holds(text, "skipped 1 lines")) << text;
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->header.npoints, 2U);
  EXPECT_EQ(reader->header.point_format, 3);
  EXPECT_EQ(reader->header.min_z, -3.125);
  EXPECT_FALSE(reader->header.adjusted_gps());
  ASSERT_TRUE(reader->read_point());
  const LASpoint& p = reader->point;
  EXPECT_EQ(p.x(), 1000.5);
  EXPECT_EQ(p.z(), -3.125);
  EXPECT_EQ(p.gps_time(), 7);
  EXPECT_EQ(p.return_number(), 2);
  EXPECT_EQ(p.number_of_returns(), 3);
  EXPECT_EQ(p.classification(), 6);
  EXPECT_EQ(p.scan_angle(), -11);
  EXPECT_EQ(p.rgb(2), 300);
  EXPECT_TRUE(reader->read_point());
  EXPECT_FALSE(reader->read_point());
  las_read_close(reader);

  for (const auto& [pattern, content] : {std::pair("xyt", "1 2 3"), std::pair("xyz", "")}) {
    write_text(name, content);
    reader = las_read_open(name, pattern, false);
    EXPECT_EQ(reader != nullptr, content[0] == '\0');  // an empty file is a file without points
  }
  write_text(name, std::string(300000, '1'));  // a line without end
  EXPECT_FALSE(las_read_open(name, "xyz", false));
  write_text(dir.path + "/u.TXT", "1 2 3 4\n");  // no pattern for it: the default
  reader = las_read_open(dir.path + "/u.TXT", "xyzt", false);
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->header.point_format, 0);
}
}  // namespace veld
