#include "lib/ImgProc/bspline3.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace veld {
namespace {
Vector<float> random_line(int n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> unit(-1, 1);
  Vector<float> line(static_cast<uint64_t>(n));
  for (float& v : line) v = unit(rng);
  return line;
}

TEST(Bspline3, InterpolatesTheSamplesAtAnyLength) {
  for (const int n : {1, 3, 5, 16, 17, 18, 200}) {  // shorter and longer than the filter's horizon
    SCOPED_TRACE(n);
    const Vector<float> line = random_line(n, 7);
    Vector<float> coef = line;
    bspline3_coef(coef);
    if (n == 1) {
      EXPECT_EQ(coef(0), line(0));
      continue;
    }
    for (int i = 0; i < n; i++) EXPECT_NEAR(bspline3_value(coef, i), line(i), 2e-6) << i;
  }
}

TEST(Bspline3, ImageInterpolatesAlongBothAxes) {
  const int w = 37, h = 21;  // no multiple of the block of rows
  Image<float> image(w, h);
  for (int y = 0; y < h; y++) image.setrow(y, random_line(w, static_cast<uint32_t>(y)));
  Image<float> coef = image;
  bspline3_coef(coef);
  Vector<float> column(h), row(w);
  for (int y = 0; y < h; y++) {
    for (int x = 0; x < w; x++) {  // along the column first, then along the row
      coef.getcol(x, column);
      row(x) = bspline3_value(column, y);
    }
    for (int x = 0; x < w; x++) EXPECT_NEAR(bspline3_value(row, x), image(x, y), 5e-6);
  }
}

TEST(Bspline3, ReproducesCubicsInsideAndMirrorsOutside) {
  const int n = 60;
  const auto cubic = [](double x) { return 1e-4 * x * x * x - 0.01 * x * x + 0.2 * x - 1; };
  Vector<float> coef(n);
  for (int i = 0; i < n; i++) coef(i) = static_cast<float>(cubic(i));
  bspline3_coef(coef);
  for (double x = 20; x < 40; x += 0.37) EXPECT_NEAR(bspline3_value(coef, x), cubic(x), 1e-5);
  for (const double d : {0.3, 1.7, 20.0}) {
    EXPECT_NEAR(bspline3_value(coef, -d), bspline3_value(coef, d), 1e-5);
    EXPECT_NEAR(bspline3_value(coef, n - 1 + d), bspline3_value(coef, n - 1 - d), 1e-5);
  }
  EXPECT_EQ(bspline3_value(coef, -2.0 * n), 0.0f);  // more than one reflection
  EXPECT_EQ(bspline3_value(coef, 1e30), 0.0f);
}

TEST(Bspline3, DerivativeWeightsAreTheSlopesOfTheWeights) {
  double w[4], d1[4], d2[4], up[4], down[4];
  for (double t = 0.01; t < 1; t += 0.07) {
    const double h = 1e-3;
    bspline3_weights(t, w);
    bspline3_weights_d1(t, d1);
    bspline3_weights_d2(t, d2);
    EXPECT_NEAR(w[0] + w[1] + w[2] + w[3], 1, 1e-7);
    bspline3_weights(t + h, up);
    bspline3_weights(t - h, down);
    for (int k = 0; k < 4; k++) {
      EXPECT_NEAR(d1[k], (up[k] - down[k]) / (2 * h), 1e-5);
      EXPECT_NEAR(d2[k], (up[k] - 2 * w[k] + down[k]) / (h * h), 1e-4);
    }
  }
}
}  // namespace
}  // namespace veld
