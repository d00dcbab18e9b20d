#include <gtest/gtest.h>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xy.h"
#include "lib/Geometry/xyz.h"

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

TEST(Vector, ElementWiseOperatorsAndCopies) {
  Vector<double> a{2, 4}, b{1, 2};
  a += b;
  a *= b;
  a -= b;
  a /= b;
  EXPECT_EQ(a(0), 2);
  EXPECT_EQ(a(1), 5);
  Vector<double> c = a;
  c(0) = 7;
  EXPECT_EQ(a(0), 2);
  copy(a, c);
  EXPECT_EQ(a(0), 7);
}

TEST(Image, RowsAndColumns) {
  Image<int> im(3, 2, 0);
  Vector<int> row{1, 2, 3}, col{7, 8};
  im.setrow(1, row);
  im.setcol(0, col);
  EXPECT_EQ(im(0, 0), 7);
  EXPECT_EQ(im(0, 1), 8);
  EXPECT_EQ(im(2, 1), 3);
  im.getrow(1, row);
  EXPECT_EQ(row(0), 8);
  im.getcol(2, col);
  EXPECT_EQ(col(1), 3);
}

TEST(Geometry, CrossProductIsNormalToBoth) {
  const dxyz a = {1, 2, 3}, b = {-2, 0.5, 4}, c = cross(a, b);
  EXPECT_DOUBLE_EQ(dot(a, c), 0);
  EXPECT_DOUBLE_EQ(dot(b, c), 0);
  EXPECT_DOUBLE_EQ(norm(dxyz{3, 0, 4}), 5);
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
#ifndef VELD_SANITIZED  // a sanitizer ends the process before the allocation can fail
  EXPECT_DEATH(Vector<double>(uint64_t(1) << 50),
               "ERROR: Vector/V0 allocation failed, size 1125899906842624 x 8");
  EXPECT_DEATH(v.resize(uint64_t(1) << 60), "ERROR: Vector/R0 allocation failed");
  EXPECT_DEATH(im.resize(1 << 30, 1 << 30, 1.f),
               "ERROR: Image/R1 allocation failed, size 1073741824 x 1073741824 x 4");
#endif
}
}  // namespace veld
