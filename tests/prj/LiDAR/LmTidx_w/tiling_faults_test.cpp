// Files that cannot be tiled, or only in part: the message, and nothing that looks like a cache.
#include <algorithm>
#include <filesystem>
#include <limits>
#include <thread>

#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "tests/support/tiling_fixture.h"

namespace veld {
namespace {
std::vector<TestPoint> moved(std::vector<TestPoint> points, double dx, double dy, double factor) {
  for (TestPoint& p : points) {
    p.x = 500000 + (p.x - 500000) * factor + dx;
    p.y = 5000000 + (p.y - 5000000) * factor + dy;
  }
  return points;
}
}  // namespace

TEST_F(TilingTest, EachFaultHasItsMessageAndLeavesNothing) {
  const TestLine line{.length = 120, .width = 100};
  struct Case {
    const char* message;
    std::vector<TestPoint> points;
    TestLas how;
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<TestPoint> few = fly_line(line), flat = fly_line(line), wide = fly_line(line),
                         late = fly_line(line);
  std::vector<TestPoint> nantime = fly_line(line), classes = fly_line(line), high = fly_line(line),
                         leap = fly_line(line);
  std::vector<TestPoint> sparse;
  few.resize(15);
  for (TestPoint& p : flat) p.x = 500000 + (p.x - 500000) * 0.01;
  wide.back().x += 60000;
  for (TestPoint& p : late) p.t = 1e6 + (p.t - 1e6) * 35000 / 3.0;
  nantime[700].t = nan;
  for (TestPoint& p : classes) p.withheld = true;
  for (TestPoint& p : high) p.z += 50000;
  for (size_t i = 0; i < leap.size(); i++) leap[i].t += 50000.0 * static_cast<double>(i % 3);
  for (int i = 0; i < 40; i++)
    sparse.push_back({.x = 500000.0 + 150 * (i % 7), .y = 5000000.0 + 150 * (i / 7), .z = 5, .t = 1e6 + i});
  const Case cases[] = {
      {"LAS tiling: not enough points or wrong format", few, {}},
      {"LAS tiling: invalid coordinates, X: ", flat, {}},
      {"XY coordinates look geodetic, LiDAR data must be projected!",
       moved(fly_line(line), -499990, -4999950, 1e-5),
       {.scale = 1e-7, .xoff = 0, .yoff = 0}},
      {"LAS tiling: coordinate range out of bounds (", wide, {}},
      {"LAS tiling: swath time interval exceeds ", late, {}},
      {"LAS tiling: invalid timestamps (overflow)", nantime, {}},
      {"LAS tiling: no points left, ", classes, {}},
      {"no points left with valid coordinates", high, {}},
      {"second time stamp rollover", leap, {}},
      {"timestamp processing: insufficient data", fly_line(line), {.format = 0}},
      {"insufficient data", sparse, {}},
  };
  for (const Case& c : cases) {
    const std::string path = make("bad.las", c.points, c.how);
    EXPECT_FALSE(tile(path)) << c.message;
    EXPECT_TRUE(holds(res.reason, c.message)) << c.message << " but: " << res.reason;
    EXPECT_FALSE(exists(CacheName(path).file(EXT_TIDX))) << c.message;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path))
      EXPECT_FALSE(holds(entry.path().string(), ".XYZT")) << c.message << entry.path();
  }
}

TEST_F(TilingTest, TruncatedFilesAndLyingCountsKeepWhatIsThere) {
  const std::vector<TestPoint> points = fly_line({});
  LTidxInfo info;
  const std::string cut = make("cut.las", points, {.cut = 28 * 1000 + 5});
  ASSERT_TRUE(tile(cut)) << res.reason;
  ASSERT_TRUE(read_LTidxInfo(CacheName(cut), info));
  EXPECT_EQ(info.np, points.size() - 1001);
  const std::string more = make("more.las", points, {.count = 4000000000});
  ASSERT_TRUE(tile(more)) << res.reason;
  ASSERT_TRUE(read_LTidxInfo(CacheName(more), info));
  EXPECT_EQ(info.np, points.size());
  const std::string less = make("less.las", points, {.count = 5000});
  ASSERT_TRUE(tile(less)) << res.reason;
  ASSERT_TRUE(read_LTidxInfo(CacheName(less), info));
  EXPECT_EQ(info.np, 5000u);
}

TEST_F(TilingTest, WithoutTimeProcessingAFileWithoutTimesIsTiled) {
  par.tproc = false;
  const std::string path = make("notime.las", fly_line({}), {.format = 0});
  ASSERT_TRUE(tile(path)) << res.reason;
  EXPECT_FALSE(exists(CacheName(path).file(EXT_MTDT)));
}

TEST_F(TilingTest, TimesThatNobodyUsesAreNoFault) {
  par.tproc = false;
  std::vector<TestPoint> days = fly_line({}), nantime = days, huge = days;
  for (size_t i = 0; i < days.size(); i++) days[i].t = 3e5 * static_cast<double>(i % 7);
  nantime[700].t = std::numeric_limits<double>::quiet_NaN();
  nantime[0].t = nantime[700].t;
  for (TestPoint& p : huge) p.t = 1e300;
  for (const auto* const points : {&days, &nantime, &huge}) {
    const std::string path = make("ref.las", *points);
    ASSERT_TRUE(tile(path)) << res.reason;
    LTidxInfo info;
    ASSERT_TRUE(read_LTidxInfo(CacheName(path), info));
    EXPECT_EQ(info.np, points->size());
  }
}

TEST_F(TilingTest, AnUnusableTemporaryDirectoryIsTold) {
  const std::string path = make("a.las", fly_line({}));
  TMPDIR = dir.path + "/none/";
  EXPECT_FALSE(tile(path));
  EXPECT_TRUE(holds(res.reason, "LAS tiling: I/O")) << res.reason;
  EXPECT_EQ(res.fault, SwathFault::own);
}

// The memory is shared: a tile may take all of it, whatever the number of threads; only one beyond it is
// refused.
TEST_F(TilingTest, ThreadsShareTheMemoryAndTakeNoData) {
  constexpr int N = 4;
  TilingMemory memory(3000000, N);
  std::vector<std::string> paths;
  for (int i = 0; i < N; i++)
    paths.push_back(make("a" + std::to_string(i) + ".las", fly_line({.density = i < N - 1 ? 8.0 : 30.0})));
  std::vector<LmTswathResult> results(N);
  std::vector<std::thread> threads;
  for (int i = 0; i < N; i++)
    threads.emplace_back([&, i] {
      const size_t k = static_cast<size_t>(i);
      EXPECT_EQ(LmT_swath(CacheName(paths[k]), SwathId(i), par, false, memory, results[k]), i < N - 1)
          << results[k].reason;
    });
  for (std::thread& thread : threads) thread.join();
  uint32_t nmax = 0;
  for (int i = 0; i < N - 1; i++) {
    LTidxInfo info;
    ASSERT_TRUE(read_LTidxInfo(CacheName(paths[static_cast<size_t>(i)]), info));
    nmax = std::max(nmax, uint32_t{info.Nmax});
    EXPECT_EQ(results[static_cast<size_t>(i)].fault, SwathFault::none);
  }
  EXPECT_GT(nmax * 21, memory.share) << "else there was nothing to share";
  EXPECT_EQ(results[N - 1].fault, SwathFault::memory);
  EXPECT_TRUE(holds(results[N - 1].reason, "use option -mem")) << results[N - 1].reason;
}

TEST_F(TilingTest, ABadSwathLeavesTheOthersAlone) {
  NTHREADSIO = 2;
  SwathTable swaths;
  for (const std::string& path :
       {make("a.las", fly_line({})), file("missing.las"), make("c.las", fly_line({.heading = 90}))})
    swaths.add({.cache = CacheName(path)});
  LmTtileResult total;
  EXPECT_TRUE(LmT_tile(swaths, swaths.ids(), par, true, 2, total));
  EXPECT_EQ(swaths.ids(), (std::vector<SwathId>{SwathId(0), SwathId(2)}));
  EXPECT_FALSE(swaths[SwathId(1)].reason.empty());
  EXPECT_EQ(total.nswt, 2);
  EXPECT_EQ(total.ncached, 0);
  const float first = total.Mp;
  EXPECT_TRUE(LmT_tile(swaths, swaths.ids(), par, true, 2, total));
  EXPECT_EQ(total.ncached, 2);
  EXPECT_EQ(total.Mp, 0.0f);
  EXPECT_GT(first, 0.1f);
  NTHREADSIO = 1;
}

TEST_F(TilingTest, LongSwathsMayRunInEveryDirection) {
  // 12.8 km with tiles of 128 m: 101 tiles of at most 128 along an axis.
  par.tproc = false;
  for (const double heading : {0.0, 90.0, 180.0, 270.0}) {
    const std::string path =
        make("long.las", fly_line({.heading = heading, .length = 12800, .width = 12, .density = 1.0}));
    ASSERT_TRUE(tile(path)) << heading << res.reason;
    SwTiles sw;
    ASSERT_TRUE(read_SwTiles(CacheName(path), sw));
    EXPECT_GE(sw.TI.size(), 100u);
  }
}
}  // namespace veld
