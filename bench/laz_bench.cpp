// bench/laz_bench.cpp
// Points per second of the LAZ codec, one thread: made records of every point format, and the sample files
// where they are there.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "tests/las/laz_file.h"

namespace {
struct Input {
  LazScheme scheme;
  uint64_t n = 0, length = 0;
  std::vector<uint8_t> records;
  std::vector<std::vector<uint8_t>> chunks;  // encoded
};

void encode(Input& in, LazEncoder& encoder) {
  in.chunks.resize((in.n + LAZ_CHUNK_SIZE - 1) / LAZ_CHUNK_SIZE);
  for (uint64_t i = 0; i < in.chunks.size(); i++)
    encoder.encode_chunk(in.records.data() + i * LAZ_CHUNK_SIZE * in.length,
                         std::min<uint64_t>(LAZ_CHUNK_SIZE, in.n - i * LAZ_CHUNK_SIZE), in.chunks[i]);
}

void report(benchmark::State& state, const Input& in) {
  uint64_t nbytes = 0;
  for (const auto& chunk : in.chunks) nbytes += chunk.size();
  state.counters["points/s"] =
      benchmark::Counter(double(in.n) * double(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["bytes/point"] = double(nbytes) / double(in.n);
}

void run_encode(benchmark::State& state, Input& in) {
  LazEncoder encoder;
  std::string error;
  if (!encoder.open(in.scheme, error)) return state.SkipWithError(error.c_str());
  for (auto _ : state) encode(in, encoder);
  report(state, in);
}

void run_decode(benchmark::State& state, Input& in, uint32_t fields) {
  LazEncoder encoder;
  LazDecoder decoder;
  std::string error;
  if (!encoder.open(in.scheme, error) || !decoder.open(in.scheme, error, fields))
    return state.SkipWithError(error.c_str());
  encode(in, encoder);
  std::vector<uint8_t> out(LAZ_CHUNK_SIZE * in.length);
  for (auto _ : state)
    for (uint64_t i = 0; i < in.chunks.size(); i++)
      if (!decoder.decode_chunk(in.chunks[i].data(), in.chunks[i].size(),
                                std::min<uint64_t>(LAZ_CHUNK_SIZE, in.n - i * LAZ_CHUNK_SIZE), out.data(),
                                out.size(), nullptr, error))
        return state.SkipWithError(error.c_str());
  report(state, in);
}

Input made_input(int format) {
  constexpr uint64_t N = 500000;
  Input in;
  in.records = made_records(format, 0, N, Flight::smooth, 1);
  in.n = N;
  in.length = in.records.size() / N;
  std::string error;
  if (!default_laz_scheme(format, uint32_t(in.length), in.scheme, error)) in.n = 0;
  return in;
}

Input sample_input(const char* name) {
  LazTestFile file;
  Input in;
  std::string error;
  if (open_laz(read_bytes(std::string(VELD_SHARED) + "/data/las/" + name), file, error) &&
      decode_file(file, in.records, error) &&
      default_laz_scheme(file.format, file.record_length, in.scheme, error)) {
    in.n = file.npoints;
    in.length = file.record_length;
  }
  return in;
}

const char* const sample_names[] = {"v11_lone-star.laz", "v12_autzen_trim.laz",
                                    "made/pf8_eb3_two_chunks.laz"};

void encode_format(benchmark::State& state) {
  Input in = made_input(int(state.range(0)));
  run_encode(state, in);
}
void decode_format(benchmark::State& state) {
  Input in = made_input(int(state.range(0)));
  run_decode(state, in, LAZ_ALL);
}
void decode_xyz_and_time(benchmark::State& state) {
  Input in = made_input(int(state.range(0)));
  run_decode(state, in, LAZ_Z | LAZ_GPSTIME);
}
void encode_sample(benchmark::State& state) {
  Input in = sample_input(sample_names[state.range(0)]);
  if (in.n == 0) return state.SkipWithError("no sample file");
  run_encode(state, in);
}
void decode_sample(benchmark::State& state) {
  Input in = sample_input(sample_names[state.range(0)]);
  if (in.n == 0) return state.SkipWithError("no sample file");
  run_decode(state, in, LAZ_ALL);
}

BENCHMARK(encode_format)->DenseRange(0, 10)->Unit(benchmark::kMillisecond);
BENCHMARK(decode_format)->DenseRange(0, 10)->Unit(benchmark::kMillisecond);
BENCHMARK(decode_xyz_and_time)->DenseRange(6, 10, 4)->Unit(benchmark::kMillisecond);
BENCHMARK(encode_sample)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(decode_sample)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
}  // namespace
