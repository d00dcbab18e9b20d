#include "prj/LiDAR/LmTQCGCP/robust_set.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace veld {
namespace {
struct Planted {
  const char* what;
  int npoint, nwrong;
  double error, bias, noise;
  bool alternate;  // signs of the wrong ones
};

TEST(RobustSet, GrossErrorsAreRejectedAndNothingElse) {
  const Planted cases[] = {
      {"three of 20 wrong by 0.5 m", 20, 3, 0.5, 0, 0.01, false},
      {"the same with a bias", 20, 3, 0.5, 0.8, 0.01, false},
      {"both signs", 20, 3, 0.5, -0.3, 0.02, true},
      {"nine of 20", 20, 9, 0.5, 0.1, 0.01, true},
      {"one of four", 4, 1, 0.5, 0, 0.005, false},
      {"one of three: cannot be told", 3, 0, 0.5, 0, 0.01, false},
      {"none wrong", 50, 0, 0, 0.2, 0.01, false},
  };
  for (const Planted& c : cases) {
    SCOPED_TRACE(c.what);
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> noise(-2 * c.noise, 2 * c.noise);
    std::vector<RobustItem> items;
    for (int p = 0; p < c.npoint; p++)
      for (int k = 0; k <= p % 4; k++) {  // wrong points are seen by more or by fewer swaths
        const double sign = c.alternate && p % 2 ? -1 : 1;
        items.push_back({c.bias + noise(rng) + (p < c.nwrong ? sign * c.error : 0), 1.0 + p % 3, p, true});
      }
    comp_robust_set(items);
    for (const RobustItem& i : items) EXPECT_EQ(i.in, i.point >= c.nwrong) << i.point << " " << i.d;
  }
  std::vector<RobustItem> equal(10, RobustItem{0.1, 1, 0, false}), none;
  for (int i = 0; i < 10; i++) equal[static_cast<size_t>(i)].point = i;
  comp_robust_set(equal);
  for (const RobustItem& i : equal) EXPECT_TRUE(i.in);
  comp_robust_set(none);
}
}  // namespace
}  // namespace veld
