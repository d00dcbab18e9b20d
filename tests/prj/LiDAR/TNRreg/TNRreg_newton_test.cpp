// The normal equations against the definition of the energy, and their minimiser.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/prj/LiDAR/TNRreg/synth_level.h"

namespace veld {
namespace {
double dot_of(const Vector<float>& a, const Vector<float>& b) {
  double sum = 0;
  for (uint64_t i = 0; i < a.size(); i++) sum += static_cast<double>(a[i]) * static_cast<double>(b[i]);
  return sum;
}

Vector<float> random_vector(uint64_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<float> gauss;
  Vector<float> v(n);
  for (float& x : v) x = gauss(rng);
  return v;
}

TEST(NormalEquations, SolutionFulfilsThemByDefinition) {
  const struct {
    const char* what;
    int J;
    double size, holes;
    bool whole;
  } cases[] = {{"four tiles", 2, 0.05, 0, true},
               {"a tile missing, holes, far displacements", 2, 3.6, 0.1, false},
               {"cells of few pixels", 0, 0.7, 0.02, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    LevelProblem p(c.J, c.size, c.holes, c.whole);
    NormalEq N;
    init_normal(N, p.Q);
    assemble_normal(N, p.Q);
    set_damping(N, 0);
    const Vector<float> V = pack_Def(p.Q), g = pack(p.Q, N, N.g);
    PCGwork<float> one;
    one.r = N.g;
    const int iterations = solve_PCG(N, one, 1e-5, 2000);
    EXPECT_LT(iterations, 1000);
    const Vector<float> x = pack(p.Q, N, one.x);
    for (uint32_t seed = 0; seed < 6; seed++) {
      const Vector<float> d = random_vector(V.size(), seed);
      const double scale = std::sqrt(slow_product(p.Q, V, d, d) * slow_product(p.Q, V, x, x));
      EXPECT_NEAR(slow_product(p.Q, V, d, x), dot_of(d, g), 1e-4 * scale) << seed;
    }
    PCGwork<v8f> eight;  // the lanes: multiples of the right-hand side
    eight.r.resize(N.size());
    for (size_t k = 0; k < N.size(); k++)
      for (int l = 0; l < LANES; l++) {
        const float factor = static_cast<float>(l - 3);
        eight.r[k].x[l] = factor * N.g[k].x, eight.r[k].y[l] = factor * N.g[k].y;
        eight.r[k].z[l] = factor * N.g[k].z;
      }
    solve_PCG(N, eight, 1e-5, 2000);
    for (int l = 0; l < LANES; l++) {
      std::vector<V3<float>> lane(N.size());
      for (size_t k = 0; k < N.size(); k++) lane[k] = {eight.x[k].x[l], eight.x[k].y[l], eight.x[k].z[l]};
      const Vector<float> xl = pack(p.Q, N, lane);
      double off = 0, size = 0;
      for (uint64_t i = 0; i < x.size(); i++) {
        off += std::pow(static_cast<double>(xl[i] - static_cast<float>(l - 3) * x[i]), 2);
        size += std::pow(static_cast<double>(x[i]), 2);
      }
      EXPECT_LT(std::sqrt(off), 0.005 * std::sqrt(size)) << l;
    }
  }
}

// Steps from Def until they change nothing any more. Returns the energy.
double minimise(dUParamTiles& Q, int limit) {
  GNwork work;
  init_normal(work.N, Q);
  double E = resid_pass(Q) + prior_energy(work.N, Q);
  for (int k = 0; k < limit; k++) {
    const GNstep step = gauss_newton_step(Q, work, E);
    EXPECT_LE(step.energy, E * (1 + 1e-9));  // whatever happens, it does not rise
    E = step.energy;
    if (!step.accepted || step.change < 1e-4) break;
  }
  return E;
}

// From two sides: where it ends a step gains nothing more, and near the minimum both ends are one.
TEST(GaussNewton, EndsInTheMinimum) {
  const struct {
    const char* what;
    int J;
    double size, holes;
    bool agree;  // one minimum is in reach of both
  } cases[] = {{"from near, wide cells", 2, 0.3, 0, true},
               {"from near, small cells with holes", 1, 0.3, 0.02, true},
               {"from far", 2, 2.5, 0.1, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    LevelProblem p(c.J, c.size, c.holes);
    p.Q.omega = {30, 30, 30};
    const Vector<float> start = pack_Def(p.Q);
    Vector<float> found[2];
    for (const int side : {0, 1}) {
      Vector<float> V = start;
      for (float& v : V) v *= side ? -1.0f : 1.0f;
      unpack_Def(V, p.Q);
      const double before = slow_energy(p.Q, V);
      minimise(p.Q, 100);
      found[side] = pack_Def(p.Q);
      const double energy = slow_energy(p.Q, found[side]);
      EXPECT_LT(energy, 0.9 * before);
      NormalEq N;
      init_normal(N, p.Q);
      assemble_normal(N, p.Q);
      set_damping(N, 0);
      PCGwork<float> step;
      step.r = N.g;
      solve_PCG(N, step, 1e-5, 2000);
      EXPECT_LT(dot_of(pack(p.Q, N, step.x), pack(p.Q, N, N.g)) / 2, 5e-4 * energy);
    }
    for (uint64_t i = 0; c.agree && i < start.size(); i++)
      EXPECT_NEAR(found[0][i], found[1][i], i % 3 < 2 ? 0.03 : 0.01) << i;
  }
}

TEST(GaussNewton, RoughPixelsWeighLess) {
  LevelProblem p(2, 0.05, 0, true);
  dUParamTile& T = p.Q.tile(0);
  resid_pass(p.Q);
  p.Q.rough_unit = 0.05f;
  for (int j = 0; j < T.rough.ysize(); j++)
    for (int i = 0; i < T.rough.xsize(); i++) T.rough(i, j) = static_cast<uint8_t>(i % 2 ? 20 : 0);
  for (uint64_t k = 0; k < T.res.size(); k++) T.res[k] = 0.1f;
  p.Q.s = 0.1f;
  update_weights(p.Q);
  const auto weight = [&](int i) {
    for (int j = 0; j < T.B.ysize(); j++)
      if (T.B(i, j) != 0) return T.B(i, j) & B_WEIGHT;
    return -1;
  };
  EXPECT_EQ(weight(4), 50);  // a residual of the scale
  const double rough = 0.18 * 20 * 0.05, total = 0.01 + rough * rough;
  EXPECT_NEAR(weight(5), 100 * 0.01 / total / (1 + 0.01 / total), 1);
}
}  // namespace
}  // namespace veld
