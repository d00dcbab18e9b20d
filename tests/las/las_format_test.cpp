// Every version and point format: what is read is what the bytes say, and what is written is what was read.
#include <gtest/gtest.h>

#include "las/las_access.h"
#include "las/laz_codec.h"
#include "tests/las/las_builder.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
// Copies a file through reader and writer, by single points or by blocks.
bool copy_file(const std::string& from, const std::string& to, bool by_block) {
  auto reader = las_read_open(from, "xyzt", false);
  if (!reader) return false;
  auto writer = las_write_open(to, reader->header, "xyzt");
  if (!writer) return false;
  uint64_t n = 0;
  if (by_block) {
    while (const uint8_t* block = reader->read_block(n))
      if (!writer->write_raw_records(block, n)) return false;
  } else {
    while (reader->read_point())
      if (!writer->write_point(reader->point)) return false;
  }
  const bool whole = reader->p_count == reader->header.npoints;
  las_read_close(reader);
  return las_write_close(writer) && whole;
}

std::vector<LasBuild> all_kinds() {
  std::vector<LasBuild> kinds;
  const BuiltRecord note{"somebody", 77, "text of a record", "note"};
  for (int minor = 0; minor <= 4; minor++)
    for (int format = 0; format <= 10; format++) {
      if (minor < (format < 2 ? 0 : format < 4 ? 2 : format < 6 ? 3 : 4)) continue;
      LasBuild b;
      b.minor = minor;
      b.format = format;
      b.nextra = format % 3 == 0 ? 4 : 0;
      b.npoints = format == 1 ? 0 : 3000;
      b.user_header = format % 4 == 2 ? 11 : 0;
      b.gap = minor == 0 ? 2 : 0;
      b.vlrs = {note, {"LASF_Projection", 2112, "PROJCS[\"x\"]", "WKT"}};
      if (b.nextra) b.vlrs.push_back({"LASF_Spec", 4, extra_bytes_descriptor(5, 24, "height"), "extra"});
      if (minor == 4) b.evlrs = {note, {"other", 9, std::string(2 << 20, 'e'), "too long for memory"}};
      if (minor >= 3 && (format == 4 || format == 5 || format >= 9)) b.waves = std::string(5000, 'w');
      kinds.push_back(b);
    }
  return kinds;
}
}  // namespace

TEST(LasFormat, EveryKindOfFileComesBackByteForByte) {
  const TempDir dir;
  const std::string in = dir.path + "/in.las", las = dir.path + "/out.las", laz = dir.path + "/out.laz";
  for (const LasBuild& kind : all_kinds()) {
    SCOPED_TRACE("1." + std::to_string(kind.minor) + " format " + std::to_string(kind.format));
    const BuiltLas built = build_las(kind);
    write_text(in, built.bytes);
    ASSERT_TRUE(copy_file(in, las, kind.format % 2 == 0));
    EXPECT_TRUE(read_text(las) == built.bytes);
    ASSERT_TRUE(copy_file(in, laz, kind.format % 2 == 1));
    EXPECT_LT(read_text(laz).size(), read_text(in).size() + 200);
    ASSERT_TRUE(copy_file(laz, las, true));
    EXPECT_TRUE(read_text(las) == built.bytes);
    EXPECT_FALSE(exists(las + ".part"));
  }
}

TEST(LasFormat, CompressedBytesDoNotDependOnThreads) {
  const TempDir dir;
  for (const int format : {3, 7}) {
    LasBuild kind;
    kind.minor = 4;
    kind.format = format;
    kind.npoints = 170000;  // four chunks
    const BuiltLas built = build_las(kind);
    write_text(dir.path + "/in.las", built.bytes);
    std::string first;
    for (const int nthreads : {1, 2, 5}) {
      las_set_threads(nthreads);
      ASSERT_TRUE(copy_file(dir.path + "/in.las", dir.path + "/out.laz", true));
      ASSERT_TRUE(copy_file(dir.path + "/out.laz", dir.path + "/back.las", false));
      las_set_threads(1);
      EXPECT_TRUE(read_text(dir.path + "/back.las") == built.bytes);
      if (first.empty()) first = read_text(dir.path + "/out.laz");
      EXPECT_TRUE(read_text(dir.path + "/out.laz") == first);
    }
  }
}

TEST(LasFormat, SeekFindsThePoint) {
  const TempDir dir;
  LasBuild kind;
  kind.npoints = 120000;
  const BuiltLas built = build_las(kind);
  write_text(dir.path + "/a.las", built.bytes);
  ASSERT_TRUE(copy_file(dir.path + "/a.las", dir.path + "/a.laz", true));
  ASSERT_TRUE(copy_file(dir.path + "/a.las", dir.path + "/a.txt", true));
  for (const char* name : {"/a.las", "/a.laz", "/a.txt"}) {
    SCOPED_TRACE(name);
    las_set_threads(2);
    auto reader = las_read_open(dir.path + name, "xyzt", false);
    las_set_threads(1);
    ASSERT_TRUE(reader);
    for (const uint64_t i : {99999, 3, 0, 50000, 50001, 49999, 119999, 77}) {
      ASSERT_TRUE(reader->seek(i));
      ASSERT_TRUE(reader->read_point());
      int32_t X;
      std::memcpy(&X, built.records.data() + i * 28, 4);
      EXPECT_NEAR(reader->point.x(), X * 0.01 + 500000, 1e-4) << i;
      EXPECT_EQ(reader->p_count, i + 1);
    }
    ASSERT_TRUE(reader->seek(119999));
    EXPECT_TRUE(reader->read_point());
    EXPECT_FALSE(reader->read_point());
    EXPECT_FALSE(reader->seek(120000));
    EXPECT_FALSE(reader->failed());
  }
}

TEST(LasPoint, FieldsLieWhereTheFormatsSay) {
  uint8_t rec[67] = {};
  LASpoint p;
  p.rec = rec;
  p.lay = las_layout(3, 34);
  rec[14] = 0xC0 | 5 << 3 | 2;  // edge, direction, 5 returns, return 2
  rec[15] = 0x80 | 0x20 | 9;    // withheld, synthetic, class 9
  rec[16] = 0xF4;               // -12 degrees
  rec[17] = 200;
  rec[18] = 0x34, rec[19] = 0x12;
  rec[28] = 1, rec[31] = 2;
  EXPECT_EQ(p.return_number(), 2);
  EXPECT_EQ(p.number_of_returns(), 5);
  EXPECT_EQ(p.edge() + p.scan_direction(), 2);
  EXPECT_EQ(p.classification(), 9);
  EXPECT_TRUE(p.withheld() && p.synthetic() && !p.keypoint() && !p.overlap());
  EXPECT_FLOAT_EQ(p.scan_angle_deg(), -12.F);
  EXPECT_EQ(p.user_data(), 200);
  EXPECT_EQ(p.point_source_id(), 0x1234);
  EXPECT_EQ(p.rgb(0), 1);
  EXPECT_EQ(p.rgb(1), 512);
  p.set_gps_time(123456.5);
  EXPECT_EQ(rec[27], 0x40);  // sign and exponent end the double at byte 20

  std::memset(rec, 0, sizeof rec);
  p.lay = las_layout(10, 67);
  rec[14] = 11 << 4 | 7;
  rec[15] = 0x80 | 2 << 4 | 8 | 2;  // edge, channel 2, overlap, key point
  rec[16] = 177;
  rec[18] = 0xE8, rec[19] = 0x03;  // 1000 units
  rec[36] = 5;
  rec[38] = 9;
  EXPECT_EQ(p.return_number(), 7);
  EXPECT_EQ(p.number_of_returns(), 11);
  EXPECT_TRUE(p.edge() && !p.scan_direction() && p.overlap() && p.keypoint() && !p.withheld());
  EXPECT_EQ(p.scanner_channel(), 2);
  EXPECT_EQ(p.classification(), 177);
  EXPECT_FLOAT_EQ(p.scan_angle_deg(), 6.F);
  EXPECT_EQ(p.nir(), 5);
  EXPECT_EQ(*p.wave(), 9);
  p.set_withheld(1);
  p.set_scan_direction(1);
  p.set_returns(15, 15);
  EXPECT_EQ(rec[14], 0xFF);
  EXPECT_EQ(rec[15], 0x80 | 0x40 | 2 << 4 | 8 | 4 | 2);
}

TEST(LasHeader, AttributesAreThoseThatFit) {
  LASheader header;
  header.point_format = 1;
  header.point_reclen = 28 + 6;
  const std::string many = extra_bytes_descriptor(3, 0, "a") + extra_bytes_descriptor(9, 8, "b") +
                           extra_bytes_descriptor(1, 0, "does not fit");
  ASSERT_TRUE(header.add_vlr("LASF_Spec", 4, many.data(), many.size()));
  header.read_attributes();
  ASSERT_EQ(header.attributes.size(), 2U);
  const LASattribute* b = header.find_attribute("b");
  ASSERT_TRUE(b);
  EXPECT_EQ(b->start, 2);
  EXPECT_EQ(b->size, 4);
  EXPECT_EQ(b->scale, 0.5);
  EXPECT_EQ(b->offset, 0);
  EXPECT_FALSE(header.find_attribute("does not fit"));
}
}  // namespace veld
