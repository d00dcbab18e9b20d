// Registration: assembly of the normal equations and residuals in pixels per second on one core, conjugate
// gradients in vertices per second, and a whole pair. Arguments: dim (pixels along a microtile), level J.
#include <benchmark/benchmark.h>

#include "prj/LiDAR/TNRreg/Reg_Coef.h"
#include "prj/LiDAR/TNRreg/TNRreg_normal.h"
#include "tests/prj/LiDAR/TNRreg/synth_pair.h"

namespace veld {
namespace {
SynthPair bench_pair(int dim, int ntiles) {
  SynthPair synth;
  synth.ntx = ntiles;
  synth.nty = 1;
  synth.dim = dim;
  synth.holes = 0.05;
  const double period = 64.0 * dim;
  synth.disp = [period](double x, double y) {
    return dxyz{0.8 + 0.5 * std::sin(6.28 * y / period), -0.6 + 0.5 * std::cos(6.28 * x / period), 0.1};
  };
  return synth;
}

// A level on the planted displacement, ready for a step.
struct BenchLevel {
  NRpair pair;
  Image<xyz> Def;
  dUParamTiles Q;
  GNwork work;
  BenchLevel(int dim, int J) {
    const SynthPair synth = bench_pair(dim, 1);
    const int dxp = comp_dxp(J);
    pair = make_pair(synth);
    set_flags(pair.F, pair.img1);
    Reg_Coef(pair.img1, 1, pair.C);
    Def.resize(dxp, dxp);
    for (int j = 0; j < dxp; j++)
      for (int i = 0; i < dxp; i++) {
        const int cell = synth.dim << J;
        Def(i, j) = to_xyz(synth.disp(i * cell, j * cell));
      }
    Q.tile.resize(1);
    dUParamTile& T = Q.tile(0);
    T.Def = &Def;
    init_neighbours(Q, pair.TI);
    if (!set_FCZ_ROI(T, {&pair.F(0), &pair.C(0), &pair.img2(0), nullptr}, pair.buf, synth.dim << J, 0))
      return;
    set_BI(T);
    init_B_F(T, 0.0f, false);
    vertex_zw_tile(T);
    init_Vmap_from_w(T, dxp, false);
    proc_Vmap_topo(Q);
    init_rows(Q);
    Q.omega = {160, 160, 160};
    Q.s = 0.05f;
    init_normal(work.N, Q);
  }
  void count(benchmark::State& state) const {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(Q.tile[0].B.size()));
  }
};

void BM_assemble(benchmark::State& state) {
  BenchLevel level(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  for (auto _ : state) assemble_normal(level.work.N, level.Q);
  level.count(state);
}
BENCHMARK(BM_assemble)->ArgsProduct({{3, 8, 12}, {1, 2}})->ArgNames({"dim", "J"});

void BM_residuals(benchmark::State& state) {
  BenchLevel level(static_cast<int>(state.range(0)), 1);
  for (auto _ : state) benchmark::DoNotOptimize(resid_pass(level.Q));
  level.count(state);
}
BENCHMARK(BM_residuals)->Arg(3)->Arg(8)->Arg(12)->ArgName("dim");

// Items: iterations times vertices.
void BM_pcg(benchmark::State& state) {
  BenchLevel level(8, 0);
  assemble_normal(level.work.N, level.Q);
  set_damping(level.work.N, 0);
  int64_t items = 0;
  for (auto _ : state) {
    level.work.pcg.r = level.work.N.g;
    items += solve_PCG(level.work.N, level.work.pcg, 1e-9, 50) * static_cast<int64_t>(level.Def.size());
  }
  state.SetItemsProcessed(items);
}
BENCHMARK(BM_pcg);

void BM_pair(benchmark::State& state) {
  const SynthPair synth = bench_pair(8, 2);
  const RegLevels levels = comp_reg_levels(1, 0);
  NRparam param;
  param.Jstart = levels.Jstart;
  param.Jend = levels.Jend;
  param.nthreads = static_cast<int>(state.range(0));
  uint64_t npix = 0;
  for (auto _ : state) {
    state.PauseTiming();
    NRpair pair = make_pair(synth);
    NRresult result;
    state.ResumeTiming();
    benchmark::DoNotOptimize(register_pair(pair, param, result));
    npix += pair.img2.size() * pair.img2(0).size();
  }
  state.SetItemsProcessed(static_cast<int64_t>(npix));
}
BENCHMARK(BM_pair)->Arg(1)->Arg(2)->ArgNames({"nthreads"})->Unit(benchmark::kMillisecond)->UseRealTime();
}  // namespace
}  // namespace veld
