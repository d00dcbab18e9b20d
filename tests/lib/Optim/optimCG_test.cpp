#include "lib/Optim/optimCG.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace veld {
namespace {
constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

// A = B B^t + shift I, positive definite, with about the given share of B filled.
Image<double> random_spd(int dim, double fill, double shift, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> uni(-1, 1);
  Image<double> B(dim, dim, 0.0), P(dim, dim, 0.0);
  for (int i = 0; i < dim; i++)
    for (int j = 0; j < dim; j++)
      if (i == j || std::fabs(uni(gen)) < fill) B(j, i) = uni(gen);
  for (int i = 0; i < dim; i++)
    for (int j = 0; j < dim; j++) {
      double s = i == j ? shift : 0;
      for (int k = 0; k < dim; k++) s += B(k, i) * B(k, j);
      P(j, i) = s;
    }
  return P;
}
Vector<double> random_vec(int dim, unsigned seed) {
  std::mt19937 gen(seed);
  std::normal_distribution<double> norm(0, 3);
  Vector<double> v(dim);
  for (double& x : v) x = norm(gen);
  return v;
}
Vector<double> mul(const Image<double>& P, const Vector<double>& x) {
  Vector<double> y(x.size(), 0.0);
  for (int i = 0; i < P.ysize(); i++)
    for (int j = 0; j < P.xsize(); j++) y(i) += P(j, i) * x(j);
  return y;
}
double max_diff(const Vector<double>& a, const Vector<double>& b) {
  double m = a.size() == b.size() ? 0 : INF;
  for (uint64_t i = 0; i < a.size() && m < INF; i++) m = std::fmax(m, std::fabs(a(i) - b(i)));
  return m;
}
struct Sparse {  // a system of dimension 3 with two off-diagonal entries
  Vector<double> Y{1, 2, 3}, D{4, 5, 6}, A{1, -1};
  Vector<uint32_t> U{0, 1}, V{1, 2};
  uint64_t dim_s = 2;
  Vector<double> X;
  bool solve() { return inv_sparse_LS_CG(X, Y, D, A, U, V, dim_s, 10, 1e-24); }
};
}  // namespace

TEST(OptimCG, SolversAgreeWithThePlantedSolution) {
  for (int dim : {1, 2, 5, 33, 120}) {
    SCOPED_TRACE(dim);
    const Image<double> P = random_spd(dim, 0.2, 0.5, 7 + dim);
    const Vector<double> truth = random_vec(dim, dim);
    const Vector<double> Y = mul(P, truth);
    Vector<double> X, Xcg, work = Y;
    ASSERT_TRUE(inv_LS_Cholesky(P, Y, X));
    EXPECT_LT(max_diff(X, truth), 1e-9);
    ASSERT_TRUE(inv_LS_CG_sparsify(Xcg, P, work, 20, 1e-26));
    EXPECT_LT(max_diff(Xcg, truth), 1e-8);
    Image<double> M;
    ASSERT_TRUE(inv_M_Cholesky(P, M));
    EXPECT_LT(max_diff(mul(M, Y), truth), 1e-8);
    for (int i = 0; i < dim; i++)
      for (int j = 0; j < i; j++) ASSERT_EQ(M(i, j), M(j, i));
  }
}

TEST(OptimCG, ScalesOverManyOrdersOfMagnitude) {  // metres beside radians: diagonals from 1e-6 to 1e10
  const int dim = 40;
  Image<double> P = random_spd(dim, 0.3, 1.0, 5);
  for (int i = 0; i < dim; i++)
    for (int j = 0; j < dim; j++) P(j, i) *= std::pow(10., (i % 5) * 2 - 3) * std::pow(10., (j % 5) * 2 - 3);
  Vector<double> truth = random_vec(dim, 3), X;
  Vector<double> Y = mul(P, truth);
  ASSERT_TRUE(inv_LS_CG_sparsify(X, P, Y, 20, 1e-24));
  double size = 0;  // of the solution in units of the scaled system, in which the tolerance is meant
  for (int i = 0; i < dim; i++) size = std::fmax(size, std::fabs(truth(i)) * std::sqrt(P(i, i)));
  for (int i = 0; i < dim; i++) EXPECT_LT(std::fabs(X(i) - truth(i)) * std::sqrt(P(i, i)), 1e-8 * size) << i;
}

TEST(OptimCG, CholeskyRefusesWhatIsNotPositiveDefinite) {
  const struct {
    const char* what;
    double p00, p01, p11;
  } cases[] = {{"zero pivot", 1, 1, 1},
               {"indefinite", 1, 2, 1},
               {"negative", -1, 0, 1},
               {"zero", 0, 0, 0},
               {"not a number", NOT_A_NUMBER, 0, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Image<double> P(2, 2), M(1, 1, 5.0);
    P(0, 0) = c.p00, P(1, 0) = P(0, 1) = c.p01, P(1, 1) = c.p11;
    Vector<double> X{7}, Y{1, 1};
    EXPECT_FALSE(inv_LS_Cholesky(P, Y, X));
    EXPECT_EQ(X.size(), 1u);  // untouched
    EXPECT_FALSE(inv_M_Cholesky(P, M));
    EXPECT_EQ(M(0, 0), 5.0);
  }
}

TEST(OptimCG, SparseSpecialCases) {
  {  // only the first dim_s entries count, whatever follows
    Sparse s;
    s.A = {1, -1, INF}, s.U = {0, 1, 9}, s.V = {1, 2, 9};
    ASSERT_TRUE(s.solve());
    EXPECT_NEAR(4 * s.X(0) + s.X(1), 1, 1e-12);
    EXPECT_NEAR(s.X(0) + 5 * s.X(1) - s.X(2), 2, 1e-12);
    EXPECT_NEAR(-s.X(1) + 6 * s.X(2), 3, 1e-12);
  }
  {  // diagonal only: plain division, whatever it gives
    Sparse s;
    s.dim_s = 0;
    s.D(1) = 0;
    ASSERT_TRUE(s.solve());
    EXPECT_EQ(s.X(0), 0.25);
    EXPECT_EQ(s.X(1), INF);
  }
  {  // a parameter without data keeps its zero
    Sparse s;
    s.D(2) = 0, s.A(1) = 0, s.Y(2) = 0;
    ASSERT_TRUE(s.solve());
    EXPECT_EQ(s.X(2), 0.0);
    EXPECT_NEAR(s.X(1), (2 - 0.25) / (5 - 0.25), 1e-12);
  }
  {
    Sparse s;
    s.Y.resize(3, 0.0);
    ASSERT_TRUE(s.solve());
    for (double x : s.X) EXPECT_EQ(x, 0.0);
  }
}

TEST(OptimCG, SparseRefusals) {
  const struct {
    const char* what;
    void (*spoil)(Sparse&);
  } cases[] = {
      {"u = v, value 0", [](Sparse& s) { s.V(0) = 0, s.A(0) = 0; }},
      {"u > v", [](Sparse& s) { s.U(0) = 2; }},
      {"index out of range", [](Sparse& s) { s.V(1) = 3; }},
      {"negative diagonal", [](Sparse& s) { s.D(0) = -1; }},
      {"all diagonals zero", [](Sparse& s) { s.D.resize(3, 0.0); }},
      {"infinite right-hand side", [](Sparse& s) { s.Y(0) = -INF; }},
      {"infinite diagonal", [](Sparse& s) { s.D(2) = INF; }},
      {"infinite entry", [](Sparse& s) { s.A(1) = INF; }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Sparse s;
    c.spoil(s);
    EXPECT_FALSE(s.solve());
  }
}

TEST(OptimCG, IterationLimitGivesTheBestSoFarAndNaNEndsAtOnce) {
  const Image<double> P = random_spd(60, 0.3, 1e-3, 1);
  Vector<double> Y = random_vec(60, 2), X;
  EXPECT_TRUE(inv_LS_CG_sparsify(X, P, Y, 0, 1e-20));  // no iteration allowed
  for (double x : X) EXPECT_EQ(x, 0.0);
  Y = random_vec(60, 2);
  Y(3) = NOT_A_NUMBER;
  EXPECT_TRUE(inv_LS_CG_sparsify(X, P, Y, 1000000, 1e-20));
  EXPECT_FALSE(fast_vec_maxabs(X.size(), X, X.size()));
}
}  // namespace veld
