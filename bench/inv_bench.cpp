// Inversion for boresight and drift of a block of parallel lines, each beside the next, with a cross line over every
// tenth of them. Arguments: lines, threads. Counter: peak memory of the process, the simulated flight included.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>

#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/VR2inv/inv_sim.h"

namespace veld {
namespace {
constexpr double SPACING = 120, LENGTH = 3000;  // m

const SimProject& block_of(int nlines) {
  static SimProject project;
  static int made = 0;
  if (made == nlines) return project;
  SimParam par;
  for (int k = 0; k < nlines; k++) par.strips.push_back({k % 2 == 0 ? 0.0 : 180.0, SPACING * k, 0, LENGTH});
  for (int k = 0; k + 10 <= nlines; k += 10)
    par.strips.push_back({90, SPACING * (k + 4.5), LENGTH * (k % 20 == 0 ? 0.3 : -0.3), SPACING * 10});
  par.bore = {0.1, -0.05, 0.2};
  par.drift_pos = {0.05, 0.05, 0.05};
  par.sample = 40;
  par.extent = SPACING * nlines + LENGTH;
  project = simulate(par);
  made = nlines;
  return project;
}

void inversion(benchmark::State& state) {
  const SimProject& sim = block_of(static_cast<int>(state.range(0)));
  NTHREADS = static_cast<int>(state.range(1));
  InvParam par;
  par.Fw = par.Fp = par.Fk = true;
  par.Ftx = par.Fty = par.Ftz = true;
  par.HF = true;
  par.dt = 3;
  uint64_t nvec = 0;
  for (const InvPair& p : sim.in.pairs) nvec += p.P.size();
  for (auto _ : state) {
    InvResult result;
    if (!inv_CalTAWarp("", sim.in, par, result)) state.SkipWithError("inversion failed");
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["MB"] = static_cast<double>(usage.ru_maxrss) / 1024;
  state.counters["pairs"] = static_cast<double>(sim.in.pairs.size());
  state.counters["vectors"] = static_cast<double>(nvec);
}
BENCHMARK(inversion)
    ->ArgsProduct({{30, 100, 300}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
}  // namespace
}  // namespace veld
