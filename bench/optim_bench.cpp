// The conjugate gradient of the inversion, on a system of its shape: nodes of 6 unknowns along lines, each
// node tied to its neighbours and to nodes of crossing lines.
#include <benchmark/benchmark.h>

#include <cmath>
#include <map>
#include <random>
#include <vector>

#include "lib/Optim/optimCG.h"

namespace veld {
namespace {
struct System {
  Vector<double> Y, D, A;
  Vector<uint32_t> U, V;
};

System make_system(int nline, int nnode) {
  constexpr int STRIDE = 6;
  std::mt19937 gen(1);
  std::normal_distribution<double> norm(0, 1);
  const int dim = nline * nnode * STRIDE;
  std::map<std::pair<uint32_t, uint32_t>, double> off;
  System s;
  s.D.resize(dim, 1e-3);
  s.Y.resize(dim);
  std::vector<int> idx(2 * STRIDE);
  const auto observe = [&](int node_a, int node_b) {  // J2 - J1 of one vector per axis
    for (int axis = 0; axis < 3; axis++) {
      double col[2 * STRIDE];
      for (int k = 0; k < STRIDE; k++) {
        idx[k] = node_a * STRIDE + k, idx[STRIDE + k] = node_b * STRIDE + k;
        col[k] = k < 3 ? (k == axis ? -1 : 0) : norm(gen);
        col[STRIDE + k] = k < 3 ? (k == axis ? 1 : 0) : norm(gen);
      }
      for (int a = 0; a < 2 * STRIDE; a++)
        for (int b = 0; b < 2 * STRIDE; b++)
          if (idx[a] == idx[b])
            s.D(idx[a]) += col[a] * col[a];
          else if (idx[a] < idx[b])
            off[{idx[a], idx[b]}] += col[a] * col[b];
    }
  };
  std::uniform_int_distribution<int> line(0, nline - 1), at(0, nnode - 1);
  for (int l = 0; l < nline; l++)
    for (int n = 0; n < nnode; n++) {
      if (n + 1 < nnode) observe(l * nnode + n, l * nnode + n + 1);
      for (int k = 0; k < 4; k++) {
        const int other = line(gen) * nnode + at(gen);
        if (other != l * nnode + n) observe(l * nnode + n, other);
      }
    }
  s.A.resize(off.size()), s.U.resize(off.size()), s.V.resize(off.size());
  uint64_t k = 0;
  for (const auto& [uv, value] : off) s.A(k) = value, s.U(k) = uv.first, s.V(k) = uv.second, k++;
  for (double& y : s.Y) y = norm(gen);
  return s;
}

void BM_ConjugateGradient(benchmark::State& state) {
  const System sys = make_system(20, static_cast<int>(state.range(0)));
  Vector<double> X;
  uint64_t nvisited = 0;  // list entries passed over: those of one product times the products
  for (auto _ : state) {
    state.PauseTiming();
    System s = sys;
    state.ResumeTiming();
    // Scaled as inv_sparse_LS_CG does it, which is a small part of the time.
    for (double& d : s.D) d = 1 / std::sqrt(d);
    for (uint64_t k = 0; k < s.A.size(); k++) s.A[k] *= s.D[s.U[k]] * s.D[s.V[k]];
    s.Y *= s.D;
    nvisited += s.A.size() * inv_sparse_linsys_CG_DI(X, s.Y, s.A, s.U, s.V, s.A.size(), 10, 1e-14);
  }
  state.SetItemsProcessed(static_cast<int64_t>(nvisited));
  state.counters["dim"] = static_cast<double>(sys.Y.size());
  state.counters["entries"] = static_cast<double>(sys.A.size());
}
void BM_CholeskyInverse(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  Image<double> P(n, n, 0.5), M;
  for (int i = 0; i < n; i++) P(i, i) = n;
  for (auto _ : state) benchmark::DoNotOptimize(inv_M_Cholesky(P, M));
}
}  // namespace

BENCHMARK(BM_ConjugateGradient)->Arg(50)->Arg(250)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CholeskyInverse)->Arg(13)->Arg(200)->Unit(benchmark::kMicrosecond);
}  // namespace veld
