// Tiling of one swath of plain LAS, both passes, one thread. Items are points.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>

#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w.h"
#include "prj/LiDAR/tuning.h"
#include "tests/support/swath_writer.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
void tiling(benchmark::State& state) {
  TempDir dir;
  TMPDIR = dir.path + "/";
  const std::string path = dir.path + "/bench.las";
  size_t n;
  {
    const auto height = [](double x, double y) { return 300 + 20 * std::sin(x / 90) * std::cos(y / 70); };
    const std::vector<TestPoint> points = fly_line({.heading = 30,
                                                    .length = static_cast<double>(state.range(0)),
                                                    .width = 500,
                                                    .density = 8,
                                                    .height = height});
    n = points.size();
    write_test_las(path, points);
  }
  TilingParam par;
  LmTswathResult res;
  TilingMemory memory(uint64_t{1} << 30, 1);
  for (auto _ : state)
    if (!LmT_swath(CacheName(path), SwathId(0), par, false, memory, res))
      state.SkipWithError(res.reason.c_str());
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(n));
}
BENCHMARK(tiling)->Arg(500)->Arg(2000)->Unit(benchmark::kMillisecond);
}  // namespace
}  // namespace veld
