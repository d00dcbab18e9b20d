// Registration: one evaluation of the descent direction on one core, in pixels per second, and a whole pair.
// Arguments: dim (pixels along a microtile), level J.
#include <benchmark/benchmark.h>

#include "prj/LiDAR/TNRreg/Reg_Coef.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"
#include "tests/prj/LiDAR/TNRreg/synth_pair.h"

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

void BM_gradient(benchmark::State& state) {
  const SynthPair synth = bench_pair(static_cast<int>(state.range(0)), 1);
  const int J = static_cast<int>(state.range(1)), dxp = comp_dxp(J);
  NRpair pair = make_pair(synth);
  set_flags(pair.F, pair.img1);
  Reg_Coef(pair.img1, 1);
  Image<xyz> Def(dxp, dxp);
  for (int j = 0; j < dxp; j++)
    for (int i = 0; i < dxp; i++) {
      const int cell = synth.dim << J;
      Def(i, j) = to_xyz(synth.disp(i * cell, j * cell));
    }
  dUParamTiles Q;
  Q.tile.resize(1);
  dUParamTile& T = Q.tile(0);
  T.Def = &Def;
  init_neighbours(Q, pair.TI);
  if (!set_FCZ_ROI(T, {&pair.F(0), &pair.img1(0), &pair.img2(0)}, pair.buf, synth.dim << J, 0)) return;
  set_BI(T);
  init_B_F(T, 0.0f, false);
  vertex_zw_tile(T);
  init_Vmap_from_w(T, dxp, false);
  proc_Vmap_topo(Q);
  init_rows(Q);
  Q.omega = {160, 160, 160};
  Q.s = 0.05f;
  Vector<float> V, g(3ull * Q.Tnpar);
  conv_D2V(V, Q);
  for (auto _ : state) benchmark::DoNotOptimize(dUdef_W_nr_reg_tiles(g, g.size(), V, Q));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(T.B.size()));
}
BENCHMARK(BM_gradient)->ArgsProduct({{8, 12, 16}, {0, 2}})->ArgNames({"dim", "J"});

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
    benchmark::DoNotOptimize(mg_nr_reg_tiles(pair, param, result));
    npix += pair.img2.size() * pair.img2(0).size();
  }
  state.SetItemsProcessed(static_cast<int64_t>(npix));
}
BENCHMARK(BM_pair)->Arg(1)->Arg(2)->ArgNames({"nthreads"})->Unit(benchmark::kMillisecond)->UseRealTime();
}  // namespace
