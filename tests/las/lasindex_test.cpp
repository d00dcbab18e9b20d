// The spatial index: box queries against a plain search, its two places, damage.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "las/las_access.h"
#include "tests/las/las_builder.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
// A square kilometre in strips, so that neighbours in space are far apart in the file.
Vector<dxyz> strips(int64_t n) {
  Vector<dxyz> P(static_cast<uint64_t>(n));
  std::mt19937 random(3);
  for (int64_t i = 0; i < n; i++)
    P(i) = {1000. * static_cast<double>(i % 1000) / 1000 - 300,
            1000. * static_cast<double>(i) / static_cast<double>(n) + 5e6,
            static_cast<double>(random() % 100)};
  return P;
}

LASindex index_of(const std::string& name, float cell, uint32_t threshold) {
  auto reader = las_read_open(name, "", false);
  LASquadtree tree;
  const LASheader& h = reader->header;
  EXPECT_TRUE(tree.setup(h.min_x, h.max_x, h.min_y, h.max_y, cell));
  LASindex index;
  index.prepare(tree, threshold);
  for (uint64_t i = 0; reader->read_point(); i++)
    EXPECT_TRUE(index.add(reader->point.x(), reader->point.y(), i));
  return index;
}

std::vector<double> search(const Vector<dxyz>& P, double x0, double x1, double y0, double y1) {
  std::vector<double> found;
  for (const dxyz& p : P)
    if (p.x >= x0 && p.x <= x1 && p.y >= y0 && p.y <= y1) found.push_back(p.x + p.y);
  return found;
}
}  // namespace

TEST(LASindex, BoxQueriesFindWhatAPlainSearchFinds) {
  const TempDir dir;
  const std::string name = dir.path + "/p.laz";
  const Vector<dxyz> P = strips(120000);
  ASSERT_TRUE(write_las_xyz(name, P, "xyz", "S"));
  const struct {
    float cell;
    uint32_t threshold, min_points;
    int max_intervals;
  } kinds[] = {{100, 1000, 100000, -20}, {40, 10, 2000, 0}, {40, 10, 0, -3}, {300, 1, 500, 10}};
  const double boxes[][4] = {{-100, 100, 5e6 + 100, 5e6 + 300}, {0, 0.5, 5e6, 5e6 + 1000},
                             {-300, 700, 5e6, 5e6 + 1},         {-1e9, 1e9, -1e9, 1e9},
                             {800, 900, 5e6, 5e6 + 10},         {-50, -50, 5e6 + 500, 5e6 + 500}};
  for (const auto& kind : kinds) {
    LASindex index = index_of(name, kind.cell, kind.threshold);
    index.complete(kind.min_points, kind.max_intervals);
    uint64_t npoints = 0;
    for (const auto& [at, cell] : index.cells) npoints += cell.npoints;
    EXPECT_EQ(npoints, P.size());
    auto reader = las_read_open(name, "", false);
    for (const auto& b : boxes) {
      std::vector<double> found;
      ASSERT_TRUE(read_las_box(*reader, index, b[0], b[1], b[2], b[3],
                               [&](const LASpoint& p) { found.push_back(p.x() + p.y()); }));
      const std::vector<double> expected = search(P, b[0], b[1], b[2], b[3]);
      ASSERT_EQ(found.size(), expected.size());
      for (size_t i = 0; i < found.size(); i++) ASSERT_NEAR(found[i], expected[i], 0.0021);
    }
  }
}

TEST(LASindex, IsFoundBesideAndInsideTheFile) {
  const TempDir dir;
  const std::string laz = dir.path + "/p.laz", las = dir.path + "/p.las";
  ASSERT_TRUE(write_las_xyz(laz, strips(30000), "xyz", "S"));
  ASSERT_TRUE(write_las_xyz(las, strips(30000), "xyz", "S"));
  LASindex index = index_of(laz, 100, 1000), back;
  index.complete();
  EXPECT_FALSE(back.read(laz));
  EXPECT_FALSE(index.append(las));  // no LAZ
  const uint64_t size = std::filesystem::file_size(laz);
  ASSERT_TRUE(index.append(laz));
  EXPECT_EQ(std::filesystem::file_size(laz), size + 60 + index.to_bytes().size());
  ASSERT_TRUE(back.read(laz));
  EXPECT_EQ(back.to_bytes(), index.to_bytes());
  LASindex shorter = index_of(laz, 300, 1000);
  ASSERT_TRUE(shorter.append(laz));  // takes the place of the one before
  EXPECT_EQ(std::filesystem::file_size(laz), size + 60 + shorter.to_bytes().size());
  ASSERT_TRUE(back.read(laz));
  EXPECT_EQ(back.to_bytes(), shorter.to_bytes());
  Vector<dxyz> P;
  EXPECT_TRUE(read_las_dxyz(laz, P, ""));
  EXPECT_EQ(P.size(), 30000U);
  ASSERT_TRUE(index.write(laz));
  ASSERT_TRUE(back.read(las));  // the same base name
  EXPECT_EQ(back.to_bytes(), index.to_bytes());
  ASSERT_TRUE(write_las_xyz(las, strips(30001), "xyz", "S"));
  EXPECT_FALSE(back.read(las)) << "an index does not outlive its file";
  ASSERT_TRUE(index.write(laz));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(back.read(las));
  EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), "belongs to another file"));

  LASheader header;  // written together with its file
  for (const bool append : {false, true}) {
    const std::string name = dir.path + (append ? "/w.laz" : "/v.laz");
    auto reader = las_read_open(laz, "", false);
    auto writer = las_write_open(name, reader->header, "");
    LASindex made;
    made.prepare(index.quadtree);
    for (uint64_t i = 0; reader->read_point(); i++)
      ASSERT_TRUE(made.add(reader->point.x(), reader->point.y(), i) && writer->write_point(reader->point));
    bool index_ok = false;
    ASSERT_TRUE(las_write_close(writer, made, append, index_ok));
    EXPECT_TRUE(index_ok);
    EXPECT_EQ(exists(dir.path + "/v.lax"), true);
    EXPECT_FALSE(exists(dir.path + "/w.lax"));
    ASSERT_TRUE(back.read(name));
    EXPECT_EQ(back.to_bytes(), index.to_bytes());
  }
}

TEST(LASindex, OfPointsBesideTheAnnouncedBoxIsNotWritten) {
  const TempDir dir;
  const std::string name = dir.path + "/p.las";
  for (const double moved : {0., 150.}) {
    LASheader header;
    header.min_x = header.min_y = 5;
    header.max_x = header.max_y = 195;
    LASindex index;
    ASSERT_TRUE(index.prepare(header));
    auto writer = las_write_open(name, header, "");
    uint8_t record[20] = {};
    LASpoint point = header.point();
    point.rec = record;
    for (uint64_t i = 0; i < 1900; i++) {
      point.set_X(static_cast<int32_t>(500 + 10 * i + 100 * moved));
      point.set_Y(static_cast<int32_t>(500 + 10 * i));
      ASSERT_TRUE(writer->write_point(point) && index.add_records(point, record, 1, i));
    }
    bool index_ok = true;
    ASSERT_TRUE(las_write_close(writer, index, false, index_ok));
    EXPECT_EQ(index_ok, moved == 0);
    EXPECT_EQ(exists(dir.path + "/p.lax"), moved == 0);
    std::filesystem::remove(dir.path + "/p.lax");
  }
  LASheader nowhere;
  nowhere.max_x = std::nan("");
  EXPECT_FALSE(LASindex().prepare(nowhere));
}

TEST(LASindex, DamagedBytesAreRefusedOrSound) {
  LASquadtree tree;
  ASSERT_TRUE(tree.setup(0, 500, 0, 500, 50));
  LASindex index, back;
  index.prepare(tree, 1);
  for (uint32_t i = 0; i < 500; i++) ASSERT_TRUE(index.add(i * 7 % 500, i * 31 % 500, i));
  const std::vector<uint8_t> good = index.to_bytes();
  std::string reason;
  ASSERT_TRUE(back.from_bytes(good.data(), good.size(), 500, reason));
  for (size_t n = 0; n < good.size(); n++) EXPECT_FALSE(back.from_bytes(good.data(), n, 500, reason)) << n;
  std::mt19937 random(1);
  for (int round = 0; round < 2000; round++) {
    std::vector<uint8_t> bad = good;
    bad[random() % (round % 2 ? bad.size() : 80)] = static_cast<uint8_t>(random());
    if (!back.from_bytes(bad.data(), bad.size(), 500, reason)) continue;
    for (const LASinterval& interval : back.query(100, 200, 100, 200)) EXPECT_LT(interval.end, 500U);
  }
  for (const double v : {1e300, -1e300, std::nan("")}) EXPECT_FALSE(tree.setup(0, v, 0, 1, 1));
  EXPECT_FALSE(tree.setup(0, 1e6, 0, 1, 1));  // too many levels
  EXPECT_FALSE(tree.setup(0, 1, 0, 1, 0));
}
}  // namespace veld
