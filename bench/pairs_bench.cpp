// Overlaps and grids of a project of thousands of swaths: how time and peak memory grow with their number.
// Lines of 64 x 2 tiles in a block, each beside the next by one tile, and end to end with four tiles in common;
// every second microtile row is empty, so that common tiles have to be looked into. The counts of all lines are
// one file under many names.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdlib>
#include <filesystem>

#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/LmTplot/swath_inter.h"
#include "prj/LiDAR/tuning.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
constexpr uint32_t LENGTH = 64, WIDTH = 2, COLUMNS = 50, POINTS = 6;

struct Block {
  TempDir dir;
  Project prj;
  std::vector<SwathBox> boxes;
};

void add_line(Block& block, uint32_t i, const Vector<uint32_t>& counts, const Vector<OccBits>& occ) {
  const uint32_t x0 = 83000 + i % COLUMNS * (LENGTH - 4), y0 = 119000 + i / COLUMNS * (WIDTH - 1);
  const TileGeom geom = make_tile_geom(7);
  Vector<TIsxy> TI(LENGTH * WIDTH);
  LTidxInfo info{};
  for (uint32_t k = 0; k < TI.size(); k++) TI[k] = {x0 + k % LENGTH, y0 + k / LENGTH, mTn / 2 * POINTS};
  info.np = TI.size() * mTn / 2 * POINTS;
  info.nt = static_cast<uint32_t>(TI.size());
  info.nmt = info.nt * mTn / 2;
  info.XImin = x0, info.XImax = x0 + LENGTH - 1, info.YImin = y0, info.YImax = y0 + WIDTH - 1;
  info.bbmin[0] = tile_origin(geom, x0), info.bbmax[0] = tile_origin(geom, x0 + LENGTH);
  info.bbmin[1] = tile_origin(geom, y0), info.bbmax[1] = tile_origin(geom, y0 + WIDTH);
  if (!mtile_MBR_stat(geom, TI, occ, info)) std::abort();
  Swath s;
  s.cache = CacheName(block.dir.path + "/a_line_of_a_large_project_" + std::to_string(i) + ".las");
  TilingParam par;
  write_text(s.path(), "x");
  LTidxHdr hdr = make_LTidxHdr(par);
  FamilyOut family(s.cache.file(""), EXT_TIDX, EXT_MTSUM);
  if (!write_LTidx(family, hdr, {}, info, TI) || !family.publish()) std::abort();
  remove_file(s.cache.file(EXT_MTSUM));  // the tables are links to one file, without sums
  const std::string first = block.dir.path + "/counts", name = s.cache.file(EXT_MTIDX);
  if (i == 0)
    write_text(first,
               std::string(reinterpret_cast<const char*>(counts.val), counts.size() * sizeof(uint32_t)));
  std::filesystem::create_hard_link(first, name);
  std::filesystem::create_hard_link(first, s.cache.file(EXT_MTZM));
  block.boxes.push_back({block.prj.swaths.add(s), false, info});
}

// The first n lines; n only grows.
const Block& block_of(uint32_t n) {
  static Block block;
  if (block.prj.swaths.size() == static_cast<int>(n)) return block;
  TMPDIR = block.dir.path + "/";
  Vector<uint32_t> counts(uint64_t{LENGTH} * WIDTH * mTn);
  Vector<OccBits> occ(uint64_t{LENGTH} * WIDTH);
  for (uint64_t i = 0; i < counts.size(); i++) counts[i] = i / mTsub % 2 ? POINTS : 0;
  for (uint64_t k = 0; k < occ.size(); k++) occ[k] = occupied_bits(counts.val + k * mTn);
  for (uint32_t i = static_cast<uint32_t>(block.prj.swaths.size()); i < n; i++)
    add_line(block, i, counts, occ);
  block.prj.scale = make_tile_scale(false, 0);
  block.prj.scale.dim = 8;
  return block;
}

double peak_MB() {
  rusage use{};
  getrusage(RUSAGE_SELF, &use);
  return static_cast<double>(use.ru_maxrss) / 1024;
}

void pairs(benchmark::State& state) {
  const Block& block = block_of(static_cast<uint32_t>(state.range(0)));
  const double before = peak_MB();
  size_t n = 0;
  for (auto _ : state) {
    int nbb = 0;
    SwPairList overlap;
    const SwPairList near = check_BBOX_MBR_fx_inter(block.boxes, 4, nbb);
    if (!comp_sw_overlap(block.prj, near, 1, overlap)) state.SkipWithError("no overlap");
    n = overlap.size();
  }
  state.counters["pairs"] = static_cast<double>(n);
  state.counters["more_MB"] = peak_MB() - before;
}

// All swaths are found to need more than the memory: what is planned, without the gridding itself.
void grid_plan(benchmark::State& state) {
  const Block& block = block_of(static_cast<uint32_t>(state.range(0)));
  MEM_MB = 0;
  std::vector<const LTidxInfo*> infos;
  for (const SwathBox& box : block.boxes) infos.push_back(&box.info);
  const Tovr ovr = make_Tovr(comp_frame(infos));
  const double before = peak_MB();
  set_console(false);  // a line a swath otherwise
  for (auto _ : state) {
    GridResult result;
    (void)LmT_grid(block.prj, ovr, true, 1, result);
  }
  set_console(true);
  MEM_MB = 4096;
  state.counters["more_MB"] = peak_MB() - before;
}
BENCHMARK(pairs)->Arg(750)->Arg(1500)->Arg(3000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(grid_plan)->Arg(3000)->Unit(benchmark::kMillisecond)->Iterations(1);
}  // namespace
}  // namespace veld
