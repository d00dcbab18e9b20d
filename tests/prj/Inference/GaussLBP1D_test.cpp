#include "prj/Inference/GaussLBP1D.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace veld {
namespace {
// The chain's precision matrix, inverted densely: means and marginal precisions.
void dense_chain(const Vector<float>& h, const Vector<float>& J, std::vector<double>& mean,
                 std::vector<double>& prec) {
  const int n = static_cast<int>(h.size());
  std::vector<std::vector<double>> a(n, std::vector<double>(2 * n, 0.0));
  for (int i = 0; i < n; i++) {
    a[i][i] = static_cast<double>(J(i)) + 1e-4 * ((i > 0) + (i < n - 1));
    if (i > 0) a[i][i - 1] = -1e-4;
    if (i < n - 1) a[i][i + 1] = -1e-4;
    a[i][n + i] = 1;
  }
  for (int p = 0; p < n; p++) {
    const double d = a[p][p];
    for (double& v : a[p]) v /= d;
    for (int i = 0; i < n; i++)
      if (i != p)
        for (int k = 2 * n - 1; k >= p; k--) a[i][k] -= a[i][p] * a[p][k];
  }
  mean.assign(n, 0.0);
  prec.assign(n, 0.0);
  for (int i = 0; i < n; i++) {
    for (int k = 0; k < n; k++) mean[i] += a[i][n + k] * static_cast<double>(h(k));
    prec[i] = 1 / a[i][n + i];
  }
}

TEST(GaussLBP1D, OneSweepEachWayIsTheExactPosterior) {
  for (const int n : {2, 3, 40}) {
    SCOPED_TRACE(n);
    std::mt19937 rng(static_cast<uint32_t>(n));
    std::uniform_real_distribution<float> unit(0, 1);
    Vector<float> h(n), J(n);
    for (int i = 0; i < n; i++) {
      J(i) = i == 0 || unit(rng) < 0.4f ? 1.0f : 0.0f;
      h(i) = J(i) * 10 * unit(rng);
    }
    std::vector<double> mean, prec;
    dense_chain(h, J, mean, prec);
    pass_mess_GLBP(h, J);
    for (int i = 0; i < n; i++) {
      EXPECT_NEAR(h(i), mean[i], 1e-3) << i;
      EXPECT_NEAR(J(i), prec[i], 1e-3 * prec[i]) << i;
    }
  }
}

TEST(GaussLBP1D, EdgesOfTheChain) {
  Vector<float> h = {6.0f}, J = {2.0f};
  pass_mess_GLBP(h, J);
  EXPECT_FLOAT_EQ(J(0), 2.0f);
  EXPECT_FLOAT_EQ(h(0), 3.0f);
  Vector<float> none_h, none_J;
  pass_mess_GLBP(none_h, none_J);
  EXPECT_DEATH(pass_mess_GLBP(h, none_J), "mJ.size\\(\\)==h.size\\(\\)");
}

TEST(GaussLBP1D, ImageHolesAreClosedSmoothly) {
  const int w = 30, n = 20;
  Image<float> Z(w, n), W(w, n, 1.0f);
  const auto plane = [](int x, int y) { return 0.5f * static_cast<float>(x) - 0.2f * static_cast<float>(y); };
  for (int y = 0; y < n; y++)
    for (int x = 0; x < w; x++) {
      const bool hole =
          (x > 10 && x < 16 && y > 4 && y < 9) || y == 12 || y == 19;  // inside, a whole row, an edge
      Z(x, y) = hole ? 0.0f : plane(x, y);
      W(x, y) = hole ? 0.0f : 1.0f;
    }
  GLBP_fill_image(Z, W);
  for (int y = 0; y < n; y++)
    for (int x = 0; x < w; x++)
      EXPECT_NEAR(Z(x, y), plane(x, y), y == 19 ? 0.21 : 0.01)
          << x << ' ' << y;  // beyond the data: the last row's
}

TEST(GaussLBP1D, AnImageWithoutDataStaysAtZero) {
  Image<float> Z(8, 6, 0.0f), W(8, 6, 0.0f);
  GLBP_fill_image(Z, W);
  for (uint64_t k = 0; k < Z.size(); k++) {
    EXPECT_EQ(Z[k], 0.0f);
    EXPECT_LT(W[k], 1.1e-4f);
  }
  Image<float> empty, empty_W;
  GLBP_fill_image(empty, empty_W);
}
}  // namespace
}  // namespace veld
