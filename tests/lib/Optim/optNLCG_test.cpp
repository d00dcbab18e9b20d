#include "lib/Optim/optNLCG.h"

#include <gtest/gtest.h>

namespace veld {
namespace {
TEST(OptNLCG, SolvesAQuadratic) {  // a chain of springs with stiffness rising along it
  constexpr int N = 30;
  const auto direction = [](Vector<float>& g, const Vector<float>& x) {
    for (int i = 0; i < N; i++) {
      const float left = i > 0 ? x(i) - x(i - 1) : 0, right = i < N - 1 ? x(i + 1) - x(i) : 0;
      g(i) = -(1 + 0.1f * static_cast<float>(i)) * (x(i) - static_cast<float>(i % 3)) - left + right;
    }
    return 0.0;
  };
  Vector<float> x(N, 10.0f), g(N);
  NLCGwork work;
  const NLCGresult r = OptNLCG(x, direction, {1.0f}, {1e-5f}, 1000, work);
  EXPECT_FALSE(r.div);
  EXPECT_GT(r.niter, 3);
  EXPECT_LT(r.niter, 200);
  direction(g, x);
  for (int i = 0; i < N; i++) EXPECT_NEAR(g(i), 0, 1e-3) << i;
}

TEST(OptNLCG, FollowsACurvedValleyUnderALimitedFirstStep) {  // Rosenbrock's function from its usual start
  Vector<float> x = {-1.2f, 1.0f};
  const auto direction = [](Vector<float>& g, const Vector<float>& v) {
    const float c = v(1) - v(0) * v(0);
    g(0) = 400 * v(0) * c + 2 * (1 - v(0));
    g(1) = -200 * c;
    return static_cast<double>(100 * c * c + (1 - v(0)) * (1 - v(0)));
  };
  NLCGwork work;
  const NLCGresult r = OptNLCG(x, direction, {0.1f, 0.1f}, {1e-6f, 1e-6f}, 5000, work);
  EXPECT_FALSE(r.div);
  EXPECT_NEAR(x(0), 1, 1e-2);
  EXPECT_NEAR(x(1), 1, 2e-2);
}

TEST(OptNLCG, DivergenceLeavesTheStart) {
  NLCGwork work;
  Vector<float> x = {2.0f, 3.0f};
  const auto downhill_for_ever = [](Vector<float>& g, const Vector<float>&) {
    g(0) = 1, g(1) = -2;
    return 0.0;
  };
  EXPECT_TRUE(OptNLCG(x, downhill_for_ever, {1.0f}, {0.001f}, 100, work).div);
  EXPECT_EQ(x(0), 2.0f);
  EXPECT_EQ(x(1), 3.0f);

  auto rising_value = [calls = 0.0](Vector<float>& g, const Vector<float>& v) mutable {
    g(0) = -v(0), g(1) = -v(1);
    return calls++;
  };
  EXPECT_TRUE(OptNLCG(x, rising_value, {1.0f}, {0.001f}, 100, work).div);
  EXPECT_EQ(x(0), 2.0f);
}

TEST(OptNLCG, StopsAtOnceWithoutSlopeAndRefusesWrongSizes) {
  NLCGwork work;
  Vector<float> x = {5.0f, 6.0f, 7.0f};
  const auto flat = [](Vector<float>& g, const Vector<float>&) {
    g.resize(3, 0.0f);
    return 0.0;
  };
  const NLCGresult r = OptNLCG(x, flat, {1.0f}, {0.001f}, 100, work);
  EXPECT_EQ(r.niter, 0);
  EXPECT_FALSE(r.div);
  EXPECT_DEATH(OptNLCG(x, flat, {1.0f, 1.0f}, {0.001f}, 100, work), "dimwild==dim \\|\\| dimwild==1");
  EXPECT_DEATH(OptNLCG(x, flat, {1.0f}, {0.001f, 1.0f}, 100, work), "dimprec==dim \\|\\| dimprec==1");
}
}  // namespace
}  // namespace veld
