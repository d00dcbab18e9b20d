// bench/grid_bench.cpp
// Gridding: points per second of one core, in memory, both passes. Points lie as a scanner leaves them, lines
// of equal spacing, and stand together by microtile.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "prj/LiDAR/LmTgrid_w/LKRgrid.h"

namespace veld {
namespace {
std::vector<xyz> scan_points(float mTsize, double ppm2) {
  const float Tsize = mTsize * 32;
  const double step = 1 / std::sqrt(ppm2);
  std::vector<std::vector<xyz>> mt(32 * 32);
  uint32_t seed = 1;
  for (double y = 0; y < Tsize; y += step)
    for (double x = 0; x < Tsize; x += step) {
      seed = seed * 1664525u + 1013904223u;
      const double jx = x + step * 0.2 * ((seed >> 8 & 255) / 255.0),
                   jy = y + 0.3 * step * (seed >> 24) / 255.0;
      const float px = std::floor(jx * 512) / 512.f, py = std::floor(jy * 512) / 512.f;
      if (px >= Tsize || py >= Tsize) continue;
      const int m = static_cast<int>(py / mTsize) * 32 + static_cast<int>(px / mTsize);
      mt[m].push_back({px, py, 100 + 3 * std::sin(px * 0.1f) + 0.05f * px});
    }
  std::vector<xyz> all;
  for (const auto& v : mt) all.insert(all.end(), v.begin(), v.end());
  return all;
}

// Arguments: side of a microtile in m, dim; the density gives 4 points per pixel.
void BM_LKRgrid_tile(benchmark::State& state) {
  const float mTsize = static_cast<float>(state.range(0));
  const int dim = static_cast<int>(state.range(1));
  const std::vector<xyz> p = scan_points(mTsize, 4.0 * dim * dim / (mTsize * mTsize));
  const Image<uint8_t> occ(32, 32, 1);
  LKRtile tile;
  Vector<uint32_t> words;
  for (auto _ : state) {
    const LKRstate done =
        LKRgrid_tile_nn(p.data(), p.size(), 300.0, occ, dim, mTsize, 1000.f, 4.f, tile, words);
    if (done != LKRstate::done) state.SkipWithError("no grid");
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(p.size()));
}
BENCHMARK(BM_LKRgrid_tile)->Args({4, 4})->Args({4, 8})->Args({32, 32})->Unit(benchmark::kMillisecond);
}  // namespace
}  // namespace veld
