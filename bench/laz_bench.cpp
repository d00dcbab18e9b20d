// Million points a second of the LAZ codec itself: one thread, chunks in memory. Made records of every point
// format, and the point files of the folder VELD_LAS_SAMPLES (large .laz files of real flights tell most),
// as they are and with their points recoded as formats 6 and 7.
// "Mp/s" is that of the fastest iteration by the thread's own time, which other work disturbs least.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "las/las_access.h"
#include "las/laz_codec.h"
#include "tests/las/laz_file.h"

namespace veld {
namespace {
constexpr uint64_t MADE_POINTS = 500000, LEAST_SAMPLE_POINTS = 50000;

struct Input {
  LASzip scheme;
  uint64_t n = 0, length = 0;
  std::vector<uint8_t> records;
  std::vector<std::vector<uint8_t>> chunks;  // encoded
  std::string error;
};

uint64_t chunk_points(const Input& in, uint64_t chunk) {
  return std::min<uint64_t>(LAZ_CHUNK_SIZE, in.n - chunk * LAZ_CHUNK_SIZE);
}

void encode(Input& in, LazEncoder& encoder) {
  in.chunks.resize((in.n + LAZ_CHUNK_SIZE - 1) / LAZ_CHUNK_SIZE);
  for (uint64_t i = 0; i < in.chunks.size(); i++)
    encoder.encode_chunk(in.records.data() + i * LAZ_CHUNK_SIZE * in.length, chunk_points(in, i),
                         in.chunks[i]);
}

double thread_seconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

template <class Run>
void measure(benchmark::State& state, const Input& in, Run run) {
  double best = 1e9;
  for (auto _ : state) {
    const double begin = thread_seconds();
    if (!run()) return state.SkipWithError(in.error.c_str());
    best = std::min(best, thread_seconds() - begin);
  }
  uint64_t nbytes = 0;
  for (const auto& chunk : in.chunks) nbytes += chunk.size();
  state.counters["Mp/s"] = double(in.n) * 1e-6 / best;
  state.counters["bytes/point"] = double(nbytes) / double(in.n);
}

void run_encode(benchmark::State& state, Input in) {
  LazEncoder encoder;
  if (!in.error.empty() || !encoder.open(in.scheme, in.error)) return state.SkipWithError(in.error.c_str());
  measure(state, in, [&] {
    encode(in, encoder);
    return true;
  });
}

void run_decode(benchmark::State& state, Input in, uint32_t fields) {
  LazEncoder encoder;
  LazDecoder decoder;
  if (!in.error.empty() || !encoder.open(in.scheme, in.error) || !decoder.open(in.scheme, in.error, fields))
    return state.SkipWithError(in.error.c_str());
  encode(in, encoder);
  std::vector<uint8_t> out(LAZ_CHUNK_SIZE * in.length);
  measure(state, in, [&] {
    bool ok = true;
    for (uint64_t i = 0; i < in.chunks.size() && ok; i++)
      ok = decoder.decode_chunk(in.chunks[i].data(), in.chunks[i].size(), chunk_points(in, i), out.data(),
                                out.size(), nullptr, in.error);
    return ok;
  });
}

Input made_input(int format) {
  Input in;
  in.records = made_records(format, 0, MADE_POINTS, Flight::smooth, 1);
  in.n = MADE_POINTS;
  in.length = in.records.size() / in.n;
  if (in.scheme.setup(format, uint32_t(in.length), in.error)) in.error.clear();
  return in;
}

// The same points in another format. Fields that only one of the two has are lost or zero.
std::vector<uint8_t> recoded(const std::vector<uint8_t>& records, LASlayout from, LASlayout to) {
  const uint64_t n = records.size() / uint64_t(from.reclen);
  std::vector<uint8_t> out(n * uint64_t(to.reclen), 0), in = records;
  LASpoint p, q;
  p.lay = from;
  q.lay = to;
  for (uint64_t i = 0; i < n; i++) {
    p.rec = in.data() + i * uint64_t(from.reclen);
    q.rec = out.data() + i * uint64_t(to.reclen);
    q.set_X(p.X());
    q.set_Y(p.Y());
    q.set_Z(p.Z());
    q.set_intensity(p.intensity());
    q.set_returns(p.return_number(), p.number_of_returns());
    q.set_scan_direction(p.scan_direction());
    q.set_edge(p.edge());
    q.set_classification(p.classification());
    q.set_scan_angle(int(p.scan_angle_deg() / LASpoint::EXTENDED_ANGLE_UNIT));
    q.set_user_data(p.user_data());
    q.set_point_source_id(p.point_source_id());
    q.set_gps_time(p.gps_time());
    for (int c = 0; c < 3 && p.has_rgb() && q.has_rgb(); c++) q.set_rgb(c, p.rgb(c));
  }
  return out;
}

bool read_records(const std::string& name, LASheader& header, std::vector<uint8_t>& records) {
  const auto reader = las_read_open(name, "", false);
  if (!reader) return false;
  header = reader->header;
  uint64_t n = 0;
  while (const uint8_t* block = reader->read_block(n))
    records.insert(records.end(), block, block + n * header.point_reclen);
  return !reader->failed();
}

Input sample_input(const std::string& name, int format) {
  LASheader header;
  Input in;
  in.error = "cannot be read";
  if (!read_records(name, header, in.records)) return in;
  in.length = header.point_reclen;
  in.n = in.records.size() / in.length;
  if (format >= 0 && format != header.point_format) {
    const LASlayout to = las_layout(format, las_base_length(format));
    in.records = recoded(in.records, las_layout(header.point_format, int(in.length)), to);
    in.length = uint64_t(to.reclen);
  } else {
    format = header.point_format;
  }
  if (in.scheme.setup(format, uint32_t(in.length), in.error)) in.error.clear();
  return in;
}

template <class Run>
void add(const std::string& name, Run run) {
  benchmark::RegisterBenchmark(name.c_str(), run)->Unit(benchmark::kMillisecond);
}

void add_sample(const std::string& path, const std::string& name, int format) {
  add("encode/" + name, [=](benchmark::State& state) { run_encode(state, sample_input(path, format)); });
  add("decode/" + name,
      [=](benchmark::State& state) { run_decode(state, sample_input(path, format), LAZ_ALL); });
}

void add_samples() {
  const char* folder = std::getenv("VELD_LAS_SAMPLES");
  std::vector<std::filesystem::path> files;
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(folder ? folder : "", failure))
    if (entry.path().extension() == ".laz") files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  bool any = false;
  for (const auto& path : files) {
    const auto reader = las_read_open(path, "", false);
    if (!reader || reader->header.npoints < LEAST_SAMPLE_POINTS) continue;
    const LASheader& file = reader->header;
    any = true;
    const std::string name = path.filename();
    add_sample(path, name, -1);
    if (file.point_format >= 6) continue;
    add_sample(path, name + "/as_6", 6);
    if (las_layout(file.point_format, int(file.point_reclen)).rgb >= 0) add_sample(path, name + "/as_7", 7);
  }
  if (!any)
    add("samples", [](benchmark::State& state) {
      state.SkipWithError(
          "skipped: VELD_LAS_SAMPLES names no folder with .laz files of 50000 points or more");
    });
}
}  // namespace
}  // namespace veld

using namespace veld;

int main(int argc, char** argv) {
  for (int format = 0; format <= LAS_MAX_FORMAT; format++) {
    const std::string name = "format_" + std::to_string(format);
    add("encode/" + name, [=](benchmark::State& state) { run_encode(state, made_input(format)); });
    add("decode/" + name, [=](benchmark::State& state) { run_decode(state, made_input(format), LAZ_ALL); });
    if (format >= 6)
      add("decode_xyz_time/" + name,
          [=](benchmark::State& state) { run_decode(state, made_input(format), LAZ_Z | LAZ_GPSTIME); });
  }
  add_samples();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
