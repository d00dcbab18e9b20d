// Output tiles: every point once, where it belongs, in the order of the swaths.
#include "prj/LiDAR/VR2proc/tile_writer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>
#include <set>
#include <sstream>

#include "las/las_access.h"
#include "lib/general/path.h"
#include "tests/support/swath_writer.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
constexpr int NSWATH = 3, NPOINT = 5000;

class Tiles : public testing::Test {
 protected:
  TempDir dir;
  TileParam par;
  TileLayout layout;
  std::vector<LASheader> headers;

  // Swaths of points numbered by their times, on steps that differ from swath to swath.
  void SetUp() override {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> place(0, 250);
    for (int sw = 0; sw < NSWATH; sw++) {
      std::vector<TestPoint> points(NPOINT);
      for (int i = 0; i < NPOINT; i++) {
        points[i].x = 500000 + place(random);
        points[i].y = 5000000 - place(random);
        points[i].t = sw * NPOINT + i;
      }
      TestLas how;
      how.xoff = 499000.5 + sw;
      write_test_las(swath(sw), points, how);
      headers.push_back(las_read_open(swath(sw), "", false)->header);
      headers.back().min_x = 500000, headers.back().max_x = 500250;
      headers.back().min_y = 4999750, headers.back().max_y = 5000000;
    }
    par.size = 100;
    par.origin = {30, -20};
    par.buffer = 50;
    ASSERT_TRUE(init_corr_tiles(par, headers, 0, layout));
  }
  std::string swath(int sw) const { return dir.path + "/s" + std::to_string(sw) + ".las"; }
  // budget: bytes of the buffers.
  bool write(const std::string& prefix, uint64_t budget, int nthreads, TileCount& count) {
    std::vector<std::unique_ptr<TilePieces>> pieces;
    std::vector<const TilePieces*> list;
    for (int sw = 0; sw < NSWATH; sw++) {
      auto reader = las_read_open(swath(sw), "", false);
      pieces.push_back(std::make_unique<TilePieces>(dir.path + "/tmp" + std::to_string(sw), layout,
                                                    reader->header.point(), 50, budget, sw + 1));
      uint64_t n;
      while (uint8_t* const block = reader->read_block(n))
        if (!pieces.back()->add(block, n)) return false;
      if (!pieces.back()->finish()) return false;
      list.push_back(pieces.back().get());
    }
    TileOutput out;
    out.prefix = prefix;
    out.suffix = ".las";
    out.header = headers[0];
    out.lax = true;
    out.list = prefix + ".log";
    return close_corr_tiles(layout, list, out, nthreads, count);
  }
};

TEST_F(Tiles, HoldEveryPointOnceWhereItBelongs) {
  TileCount count;
  ASSERT_TRUE(write(dir.path + "/t_", 4000, 1, count));
  EXPECT_EQ(count.npoints, static_cast<uint64_t>(NSWATH * NPOINT));
  EXPECT_EQ(count.nt, 16u);  // 500000 lies 70 m behind a border: 30, 100, 100, 20 m
  EXPECT_EQ(count.ntidx, count.nt);
  std::vector<double> place(NSWATH * NPOINT * 2);  // of the sources, by time
  for (int sw = 0; sw < NSWATH; sw++) {
    auto r = las_read_open(swath(sw), "", false);
    while (r->read_point()) {
      const size_t i = static_cast<size_t>(r->point.gps_time());
      place[2 * i] = r->point.x(), place[2 * i + 1] = r->point.y();
    }
  }
  std::set<int> seen;
  std::istringstream list(read_text(dir.path + "/t_.log"));
  std::string name;
  std::getline(list, name);
  int64_t column, row;
  double x0, y0, x1, y1;
  uint64_t n;
  while (list >> column >> row >> x0 >> y0 >> x1 >> y1 >> n >> name) {
    SCOPED_TRACE(name);
    EXPECT_DOUBLE_EQ(x0, 30 + 100. * static_cast<double>(column));
    auto r = las_read_open(name, "", false);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->header.npoints, n);
    double before = -1;
    while (r->read_point()) {
      const double x = r->point.x(), y = r->point.y(), t = r->point.gps_time();
      ASSERT_TRUE(x >= x0 && x < x1 && y >= y0 && y < y1);
      ASSERT_NEAR(x, place[2 * static_cast<size_t>(t)], 1e-6);
      ASSERT_NEAR(y, place[2 * static_cast<size_t>(t) + 1], 1e-6);
      ASSERT_GT(t, before);  // swath after swath, each in its order
      before = t;
      ASSERT_EQ(r->point.point_source_id(), static_cast<int>(t) / NPOINT + 1);
      ASSERT_TRUE(seen.insert(static_cast<int>(t)).second);
    }
    EXPECT_TRUE(exists(change_extension(name, ".lax")));
  }
  EXPECT_EQ(seen.size(), static_cast<size_t>(NSWATH * NPOINT));
  EXPECT_FALSE(exists(dir.path + "/tmp0"));
}

TEST_F(Tiles, HaveTheSameBytesWhateverBuffersAndThreads) {
  TileCount a, b;
  ASSERT_TRUE(write(dir.path + "/a_", 3000, 1, a));
  ASSERT_TRUE(write(dir.path + "/b_", 1 << 26, 4, b));
  int ntile = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path)) {
    const std::string name = entry.path().filename();
    if (name.rfind("a_", 0) != 0 || name == "a_.log") continue;
    ntile++;
    EXPECT_EQ(read_text(entry.path()), read_text(dir.path + "/b_" + name.substr(2))) << name;
  }
  EXPECT_EQ(ntile, 32);  // with their indexes
}

TEST_F(Tiles, TooManyOrNoneAreRefused) {
  TileLayout other;
  par.size = 0.001;
  EXPECT_FALSE(init_corr_tiles(par, headers, 0, other));
  par.size = 100;
  EXPECT_FALSE(init_corr_tiles(par, {}, 0, other));
  TileCount count;
  layout.XI0 += 100;  // beside all points
  EXPECT_FALSE(write(dir.path + "/n_", 3000, 1, count));
}
}  // namespace
}  // namespace veld
