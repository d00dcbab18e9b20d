// Reading and writing of point files, million points a second: plain LAS and LAZ, by format and threads, made
// files and the .laz files of the folder VELD_LAS_SAMPLES. "best_Mp/s" is that of the fastest iteration,
// since the machine may have other work; "MB" is what the process grew by at its peak.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "las/las_access.h"

namespace veld {
namespace {
constexpr uint64_t NPOINTS = 2000000;

// A directory that goes with the program.
struct BenchDir {
  std::string path;
  BenchDir() {
    std::string name = (std::filesystem::temp_directory_path() / "veld_bench_XXXXXX").string();
    if (!mkdtemp(name.data())) std::abort();
    path = name;
  }
  ~BenchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

LASheader header_of(int format) {
  LASheader header;
  header.version_minor = 4;
  header.point_format = static_cast<uint8_t>(format);
  header.point_reclen = static_cast<uint16_t>(las_base_length(format));
  return header;
}

// Scan lines over rough ground, some with several returns.
std::vector<uint8_t> flown_records(const LASheader& header) {
  LASpoint p = header.point();
  std::vector<uint8_t> records(NPOINTS * header.point_reclen, 0);
  std::mt19937 random(1);
  int nreturns = 1, r = 1;
  for (uint64_t i = 0; i < NPOINTS; i++) {
    p.rec = records.data() + i * header.point_reclen;
    const int step = static_cast<int>(i % 1000);
    if (++r > nreturns) {
      r = 1;
      nreturns = random() % 4 == 0 ? 1 + static_cast<int>(random() % 3) : 1;
    }
    p.set_X(step * 37 + static_cast<int>(random() % 16));
    p.set_Y(static_cast<int>(i / 1000) * 40 + static_cast<int>(random() % 16));
    p.set_Z(10000 + step + static_cast<int>(random() % 64) + (r < nreturns ? 500 : 0));
    p.set_returns(r, nreturns);
    p.set_intensity(static_cast<uint16_t>(200 + random() % 256));
    p.set_classification(random() % 8 == 0 ? 5 : 2);
    p.set_scan_angle(step / 25 - 20);
    p.set_point_source_id(7);
    p.set_gps_time(300000 + static_cast<double>(i / 2) * 1e-5);
    for (int c = 0; p.has_rgb() && c < 3; c++)
      p.set_rgb(c, static_cast<uint16_t>(80 + step / 20 + random() % 12));
  }
  return records;
}

struct Data {
  LASheader header;
  std::vector<uint8_t> records;
  std::string las, laz;
};

// The records, `times` over, in calls of a size that callers use.
bool write_file(const std::string& name, const Data& data, int times = 1) {
  constexpr uint64_t BLOCK = 16384;
  auto writer = las_write_open(name, data.header, "xyzt");
  for (; writer && times > 0; times--)
    for (uint64_t i = 0; i < NPOINTS; i += BLOCK)
      if (!writer->write_raw_records(data.records.data() + i * data.header.point_reclen,
                                     std::min(BLOCK, NPOINTS - i)))
        return false;
  return writer && las_write_close(writer);
}

const Data& data_of(int format) {
  static const BenchDir dir;
  static Data all[LAS_MAX_FORMAT + 1];
  Data& data = all[format];
  if (data.records.empty()) {
    data.header = header_of(format);
    data.records = flown_records(data.header);
    const std::string base = dir.path + "/f" + std::to_string(format);
    data.las = base + ".las";
    data.laz = base + ".laz";
    las_set_threads(2);
    if (!write_file(data.las, data) || !write_file(data.laz, data)) std::abort();
  }
  return data;
}

void count(benchmark::State& state, uint64_t npoints = NPOINTS) {
  state.counters["Mp/s"] =
      benchmark::Counter(static_cast<double>(npoints) * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}

int64_t memory_kb(const char* what) {
  std::ifstream in("/proc/self/status");
  for (std::string word; in >> word;)
    if (int64_t kb = 0; word == what && in >> kb) return kb;
  return 0;
}

// Runs one iteration after the other; `run` gives the number of points, 0 on failure.
template <class Run>
void measure(benchmark::State& state, Run run) {
  std::ofstream("/proc/self/clear_refs") << "5";  // the peak begins anew
  const int64_t before = memory_kb("VmRSS:");
  uint64_t npoints = 0;
  double best = 1e9;
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    npoints = run();
    if (npoints == 0) return state.SkipWithError("can't be read or written");
    best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  }
  state.counters["best_Mp/s"] = static_cast<double>(npoints) * 1e-6 / best;
  state.counters["MB"] = static_cast<double>(memory_kb("VmHWM:") - before) / 1024;
}

void read_blocks(benchmark::State& state, const std::string& name) {
  measure(state, [&] {
    auto reader = las_read_open(name, "xyzt", false);
    uint64_t n = 0, sum = 0;
    while (const uint8_t* block = reader ? reader->read_block(n) : nullptr) sum += block[n];
    benchmark::DoNotOptimize(sum);
    return reader ? reader->p_count : 0;
  });
}
}  // namespace

static void read_las_blocks(benchmark::State& state) {
  read_blocks(state, data_of(static_cast<int>(state.range(0))).las);
}
BENCHMARK(read_las_blocks)->Arg(1)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();

static void read_las_points(benchmark::State& state) {
  const Data& data = data_of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto reader = las_read_open(data.las, "xyzt", false);
    double sum = 0;
    while (reader->read_point()) sum += reader->point.x() + reader->point.gps_time();
    benchmark::DoNotOptimize(sum);
  }
  count(state);
}
BENCHMARK(read_las_points)->Arg(1)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();

static void write_las(benchmark::State& state) {
  const Data& data = data_of(static_cast<int>(state.range(0)));
  for (auto _ : state)
    if (!write_file(data.las, data)) state.SkipWithError("can't be written");
  count(state);
}
BENCHMARK(write_las)->Arg(1)->Arg(7)->Unit(benchmark::kMillisecond)->UseRealTime();

static void read_laz(benchmark::State& state) {
  const Data& data = data_of(static_cast<int>(state.range(0)));
  las_set_threads(static_cast<int>(state.range(1)));
  read_blocks(state, data.laz);
}
BENCHMARK(read_laz)->ArgsProduct({{0, 1, 3, 6, 7, 8}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();

static void write_laz(benchmark::State& state) {
  const Data& data = data_of(static_cast<int>(state.range(0)));
  las_set_threads(static_cast<int>(state.range(1)));
  measure(state, [&] { return write_file(data.laz, data) ? NPOINTS : 0; });
}
BENCHMARK(write_laz)->ArgsProduct({{0, 1, 3, 6, 7, 8}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();

// 20 million points: the memory must be that of a few chunks.
static void write_big_laz(benchmark::State& state) {
  const Data& data = data_of(static_cast<int>(state.range(0)));
  const std::string name = data.laz + ".big.laz";
  las_set_threads(static_cast<int>(state.range(1)));
  measure(state, [&] { return write_file(name, data, 10) ? 10 * NPOINTS : 0; });
  std::filesystem::remove(name);
}
BENCHMARK(write_big_laz)
    ->ArgsProduct({{1, 6}, {1, 2}})
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
static void read_big_laz(benchmark::State& state) {
  const Data& data = data_of(static_cast<int>(state.range(0)));
  const std::string name = data.laz + ".big.laz";
  las_set_threads(2);
  if (!write_file(name, data, 10)) return state.SkipWithError("can't be written");
  las_set_threads(static_cast<int>(state.range(1)));
  read_blocks(state, name);
  std::filesystem::remove(name);
}
BENCHMARK(read_big_laz)
    ->ArgsProduct({{1, 6}, {1, 2}})
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

static void build_index(benchmark::State& state) {
  const Data& data = data_of(1);
  auto reader = las_read_open(data.las, "", false);
  LASquadtree tree;
  const LASheader& h = reader->header;
  if (!tree.setup(h.min_x, h.max_x, h.min_y, h.max_y, 10.F)) return state.SkipWithError("no quadtree");
  uint8_t* records = const_cast<uint8_t*>(data.records.data());
  for (auto _ : state) {
    LASindex index;
    index.prepare(tree);
    if (!index.add_records(h.point(), records, NPOINTS, 0)) state.SkipWithError("too many points");
    index.complete();
    benchmark::DoNotOptimize(index.cells.size());
  }
  count(state);
}
BENCHMARK(build_index)->Unit(benchmark::kMillisecond)->UseRealTime();
}  // namespace veld

using namespace veld;

int main(int argc, char** argv) {
  const char* folder = std::getenv("VELD_LAS_SAMPLES");
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(folder ? folder : "", failure))
    for (const int nthreads : {1, 2}) {
      const std::string path = entry.path(), name = entry.path().filename();
      if (entry.path().extension() != ".laz") continue;
      benchmark::RegisterBenchmark(("read_sample/" + name + "/" + std::to_string(nthreads)).c_str(),
                                   [=](benchmark::State& state) {
                                     las_set_threads(nthreads);
                                     read_blocks(state, path);
                                   })
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
    }
  if (!folder)
    benchmark::RegisterBenchmark("read_sample", [](benchmark::State& state) {
      state.SkipWithError("skipped: VELD_LAS_SAMPLES is not set");
    });
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
