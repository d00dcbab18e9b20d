#include <gtest/gtest.h>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xy.h"

namespace veld {
TEST(Vector, ResizeKeepsTheBlockOnlyAtTheSameSize) {
  Vector<int> v{1, 2, 3};
  int* const block = v.val;
  v.resize(3);
  EXPECT_EQ(v.val, block);
  EXPECT_EQ(v(2), 3);
  v.resize(3, 9);  // a fill value fills even then
  EXPECT_EQ(v(0), 9);
  v.resize(5, v(0));  // the value may be an element of the block that goes
  EXPECT_EQ(v.size(), 5u);
  EXPECT_EQ(v(4), 9);
}

// Faults of the program end it with one line that says where.
TEST(ContainersDeathTest, FaultsAreNamed) {
  Vector<int> v(3, 0), w(2, 0);
  Image<float> im(2, 2, 0.f);
  EXPECT_DEATH(
      v(-1) = 0,
      R"(ERROR: ASSERT \(index>=0\) index=-1 in operator\(\) <int>, line [0-9]+ of vector.h \[.*\])");
  EXPECT_DEATH(v(3) = 0, R"(ASSERT \(index<val.size\(\)\) index=3 )");
  EXPECT_DEATH(im(0, 2) = 0, R"(of image.h \[)");
  EXPECT_DEATH(v += w, R"(ASSERT \(V.size\(\)==v.size\(\)\) in operator\+=)");
  EXPECT_DEATH((dxy{1, 1} / 0.0), R"(ASSERT \(k!=0.\))");
}
}  // namespace veld
