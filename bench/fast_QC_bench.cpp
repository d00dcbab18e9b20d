// Fast QC of a project of two billion grid pixels: pixels a second, and peak memory, at two sizes of its maps.
// Eight swaths of 64 x 16 tiles, each on the upper half of the one before; their grids are one file under many names,
// heights with a noise of some decimetres, so that pictures are as hard to compress as any.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTQCimg/fast_QC.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"
#include "prj/LiDAR/tuning.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
constexpr uint32_t WIDTH = 64, HEIGHT = 16, NSWATHS = 8;
constexpr int DIM = 16;

struct Large {
  TempDir dir;
  Project prj;
  TileInfo frame{83000, 119000, WIDTH, HEIGHT + (NSWATHS - 1) * HEIGHT / 2};
};

template <typename T>
void put(std::ofstream& out, const T& v) {
  out.write(reinterpret_cast<const char*>(&v), sizeof v);
}

void write_words(const std::string& name) {
  std::ofstream out(name, std::ios::binary);
  std::vector<uint32_t> tile(static_cast<size_t>(mTn * DIM * DIM));
  uint32_t random = 1;
  for (uint32_t k = 0; k < WIDTH * HEIGHT; k++) {
    for (uint32_t& w : tile) {
      random = random * 1664525u + 1013904223u;
      w = (GRID_ZBIAS + 102400 + (random >> 24)) | 1u << 24 | 4u << 29;
    }
    out.write(reinterpret_cast<const char*>(tile.data()),
              static_cast<std::streamsize>(tile.size() * sizeof(uint32_t)));
  }
  if (!out.flush()) std::abort();
}

void write_grid_index(const Swath& s) {
  GridHdr hdr;
  hdr.tstamp = source_tstamp(s.cache);
  hdr.smaxf = GZ_SMAXF;
  hdr.dim = DIM;
  std::ofstream out(s.cache.file(EXT_GMTIDX), std::ios::binary);
  put(out, hdr);
  for (uint32_t k = 0; k < WIDTH * HEIGHT; k++) put(out, static_cast<uint16_t>(mTn));
  const std::vector<uint8_t> all(mTn, 1);
  for (uint32_t k = 0; k < WIDTH * HEIGHT; k++) {
    put(out, uint8_t{1});
    out.write(reinterpret_cast<const char*>(all.data()), mTn);
  }
  if (!out.flush()) std::abort();
}

void add_swath(Large& large, uint32_t i) {
  const uint32_t x0 = large.frame.XI, y0 = large.frame.YI + i * HEIGHT / 2;
  const TileGeom geom = make_tile_geom(7);
  Vector<TIsxy> TI(WIDTH * HEIGHT);
  for (uint32_t k = 0; k < TI.size(); k++) TI[k] = {x0 + k % WIDTH, y0 + k / WIDTH, mTn};
  LTidxInfo info{};
  info.nt = static_cast<uint32_t>(TI.size());
  info.np = info.nmt = info.nt * mTn;
  info.XImin = x0, info.XImax = x0 + WIDTH - 1, info.YImin = y0, info.YImax = y0 + HEIGHT - 1;
  info.bbmin[0] = tile_origin(geom, x0), info.bbmax[0] = tile_origin(geom, x0 + WIDTH);
  info.bbmin[1] = tile_origin(geom, y0), info.bbmax[1] = tile_origin(geom, y0 + HEIGHT);
  Swath s;
  s.cache = CacheName(large.dir.path + "/s" + std::to_string(i) + ".las");
  write_text(s.path(), "x");
  FamilyOut family(s.cache.file(""), EXT_TIDX, EXT_MTSUM);
  if (!write_LTidx(family, make_LTidxHdr(TilingParam()), {}, info, TI) || !family.publish()) std::abort();
  remove_file(s.cache.file(EXT_MTSUM));  // the words are links to one file, without sums
  write_grid_index(s);
  std::filesystem::create_hard_link(large.dir.path + "/words", s.cache.file(EXT_GMTZDS));
  large.prj.swaths.add(s);
}

Large& large() {
  static const std::unique_ptr<Large> made = [] {
    auto l = std::make_unique<Large>();
    TMPDIR = l->dir.path + "/";
    l->prj.name = l->dir.path + "/out";
    l->prj.scale = make_tile_scale(false, 0);
    l->prj.scale.dim = DIM;
    write_words(l->dir.path + "/words");
    for (uint32_t i = 0; i < NSWATHS; i++) add_swath(*l, i);
    return l;
  }();
  return *made;
}

double peak_MB() {
  rusage use{};
  getrusage(RUSAGE_SELF, &use);
  return static_cast<double>(use.ru_maxrss) / 1024;
}

// sub: grid pixels along a pixel of the maps.
void fast_QC(benchmark::State& state) {
  FastQCparam par;
  par.map.DZ_sub = static_cast<int>(state.range(0));
  par.map.img.OUTTIFF = true;
  par.map.OUTD = par.map.OUTS = state.range(1) != 0;
  par.map.img.nthreads = par.nthreads = 1;
  set_console(false);
  FastQCresult result;
  for (auto _ : state)
    if (!fast_QC_ZDS(large().prj, large().frame, par, result)) state.SkipWithError("failed");
  set_console(true);
  state.counters["pixels"] =
      benchmark::Counter(result.Mpix * 1e6, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["peak_MB"] = peak_MB();
}
BENCHMARK(fast_QC)->Args({4, 0})->Args({4, 1})->Args({1, 0})->Unit(benchmark::kMillisecond)->Iterations(1);
}  // namespace
}  // namespace veld
