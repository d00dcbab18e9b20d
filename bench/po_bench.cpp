// Reading of trajectories: million records a second from files in the page cache, one core.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "prj/LiDAR/POio/POio.h"

namespace veld {
namespace {
constexpr int NREC = 400000;

// A flight along a parallel at 200 Hz.
std::string write_flight(bool sbet) {
  const std::string path = sbet ? "/tmp/veld_po_bench.out" : "/tmp/veld_po_bench.txt";
  std::FILE* file = std::fopen(path.c_str(), "wb");
  for (int i = 0; file && i < NREC; i++) {
    const double t = 300000 + 0.005 * i, lon = 15 + 4e-6 * i, lat = 48, roll = 0.02 * std::sin(t),
                 heading = 1.57;
    const double rec[17] = {t, lat * M_PI / 180, lon * M_PI / 180, 1500, 0, 60, 0, roll, 0.01, heading};
    if (sbet)
      std::fwrite(rec, sizeof rec, 1, file);
    else
      std::fprintf(file, "%.4f %.9f %.9f 1500.000 %.5f 0.57300 89.95438\n", t, lon, lat, roll * 57.3);
  }
  if (file) std::fclose(file);
  return path;
}

void read_flight(benchmark::State& state) {
  const bool sbet = state.range(0) != 0;
  const std::string path = write_flight(sbet);
  POread par;
  par.proj = PO_GEO;
  par.unroll = false;  // as the synchronisation reads
  bool adj = false;
  for (auto step : state) {
    Vector<PO> po;
    if (!read_PO(path, par, po, adj) || po.size() != NREC) state.SkipWithError("reading failed");
  }
  state.SetItemsProcessed(state.iterations() * NREC);
  std::remove(path.c_str());
}
BENCHMARK(read_flight)->ArgName("sbet")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
}  // namespace

BENCHMARK_MAIN();
}  // namespace veld
