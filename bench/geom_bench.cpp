// Point correction with trajectory interpolation: million points a second on one core.
#include <benchmark/benchmark.h>

#include <cmath>

#include "prj/LiDAR/VR2geom/VR2geom.h"

namespace veld {
namespace {
struct Case {
  Vector<PO> po;
  Vector<xyz> Tt, At;
  SwathCorr corr;
  Vector<dxyz> P;
  Vector<double> t;
};

void make_case(Case& c, int echoes, bool internals) {
  constexpr double DURATION = 60, RATE = 200;
  const int nrec = static_cast<int>(DURATION * RATE) + 1, npoint = 1 << 18;
  c.po.resize(nrec);
  for (int i = 0; i < nrec; i++) {
    const double t = i / RATE;
    c.po(i) = {1000 + t,
               500000 + 60 * t,
               5300000 + std::sin(t),
               1500,
               static_cast<float>(std::sin(t)),
               2,
               static_cast<float>(90 + std::cos(t))};
  }
  c.Tt.resize(7, xyz{0.1f, 0.2f, 0.3f});
  c.At.resize(7, xyz{1e-4f, 2e-4f, 3e-4f});
  SwathCorr& s = c.corr;
  s.po = &c.po;
  s.CL = s.CB = s.CT = s.CA = true;
  s.CI = internals;
  s.L = {0.1f, 0, 0}, s.B = {1e-3f, 2e-3f, 1e-3f};
  s.I[0] = 0.01f, s.I[2] = 1e-4f;
  s.Tt = &c.Tt, s.At = &c.At, s.t0 = 1000, s.Dt = 10;
  c.P.resize(npoint), c.t.resize(npoint);
  for (int i = 0; i < npoint; i++) {
    const int pulse = i / echoes * echoes;  // echoes of a pulse share the time stamp
    c.t(i) = 1000 + DURATION * pulse / npoint;
    c.P(i) = {500000 + 60 * (c.t(i) - 1000), 5300000 + 400 * std::sin(pulse * 0.01), 100. + i % echoes};
  }
}

void BM_PointCorr(benchmark::State& state) {
  Case c;
  make_case(c, static_cast<int>(state.range(0)), state.range(1) != 0);
  if (!init_SwathCorr(c.corr)) return state.SkipWithError("set-up");
  for (auto _ : state) {
    CorrCursor cursor;
    xyz sum = {0, 0, 0};
    for (uint64_t i = 0; i < c.P.size(); i++) sum += comp_point_corr(c.corr, cursor, c.P[i], c.t[i]);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(c.P.size()));
}
}  // namespace

BENCHMARK(BM_PointCorr)
    ->ArgNames({"echoes", "internals"})
    ->Args({1, 0})
    ->Args({1, 1})
    ->Args({3, 1})
    ->Unit(benchmark::kMillisecond);
}  // namespace veld
