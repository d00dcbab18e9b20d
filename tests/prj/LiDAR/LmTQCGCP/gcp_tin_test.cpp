#include "prj/LiDAR/LmTQCGCP/gcp_tin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace veld {
namespace {
std::vector<PointXY> sorted(std::vector<PointXY> p) {
  std::sort(p.begin(), p.end(),
            [](const PointXY& a, const PointXY& b) { return a.x != b.x ? a.x < b.x : a.y < b.y; });
  p.erase(std::unique(p.begin(), p.end()), p.end());
  return p;
}

// Twice the area of the convex hull, by gift wrapping.
int64_t hull_area2(const std::vector<PointXY>& p) {
  size_t at = 0;
  int64_t area = 0;
  do {
    size_t far = at == 0 ? 1 : 0;
    for (size_t i = 0; i < p.size(); i++) {
      if (i == at) continue;
      const int64_t o = orient2d(p[at], p[far], p[i]);
      const auto d2 = [&](size_t k) {
        const int64_t x = int64_t{p[k].x} - p[at].x, y = int64_t{p[k].y} - p[at].y;
        return x * x + y * y;
      };
      if (o < 0 || (o == 0 && d2(i) > d2(far))) far = i;
    }
    area += orient2d(p[0], p[at], p[far]);
    at = far;
  } while (at != 0);
  return area;
}

void expect_delaunay(const std::vector<PointXY>& p) {
  std::vector<TINtri> tri;
  comp_TIN(p, tri);
  int64_t area = 0;
  for (size_t t = 0; t < tri.size(); t++) {
    const auto P = [&](int i) -> const PointXY& { return p[static_cast<size_t>(tri[t].v[i])]; };
    const int64_t a = orient2d(P(0), P(1), P(2));
    ASSERT_GT(a, 0);
    area += a;
    for (const PointXY& q : p) ASSERT_LE(incircle(P(0), P(1), P(2), q), 0);  // all circles are empty
    for (int i = 0; i < 3; i++) {
      const int n = tri[t].n[i];
      if (n < 0) continue;
      const TINtri& other = tri[static_cast<size_t>(n)];
      EXPECT_TRUE(std::count(other.n, other.n + 3, static_cast<int>(t)) == 1);
      for (const int k : {1, 2}) EXPECT_TRUE(std::count(other.v, other.v + 3, tri[t].v[(i + k) % 3]) == 1);
    }
  }
  EXPECT_EQ(area, tri.empty() ? 0 : hull_area2(p));  // the hull is covered once
}

TEST(GcpTin, CirclesAreEmptyAndTheHullIsCovered) {
  std::mt19937 rng(5);
  for (const int range : {3, 10, 1000, 8000000})  // small ranges: many collinear and cocircular points
    for (int round = 0; round < 40; round++) {
      std::vector<PointXY> p;
      std::uniform_int_distribution<int> c(-range, range);
      for (int i = 0; i < 4 + round; i++) p.push_back({c(rng), c(rng)});
      SCOPED_TRACE(range * 100 + round);
      expect_delaunay(sorted(p));
    }
  std::vector<PointXY> grid, line;
  for (int i = 0; i < 100; i++) grid.push_back({i / 10, i % 10}), line.push_back({i, 2 * i});
  expect_delaunay(sorted(grid));
  std::vector<TINtri> tri;
  comp_TIN(line, tri);
  EXPECT_TRUE(tri.empty());
  line.push_back({200, 0});
  expect_delaunay(sorted(line));
  line.back() = {200, 1000};
  expect_delaunay(sorted(line));
}

TEST(GcpTin, HeightIsThatOfTheTriangleAround) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> c(-4, 4);
  std::vector<xyz> p;
  for (int i = 0; i < 60; i++) {
    const float x = c(rng), y = c(rng);
    p.push_back({x, y, 10 + 0.5f * x - 0.25f * y});
  }
  p.push_back(p[3]);  // the same place, higher
  p.back().z += 5;
  for (const auto& [x, y] : {std::pair{0.5, 0.5}, {-1.0, 2.0}, {0.0, 0.0}}) {
    const TINresult r = GCP_TIN(p.data(), p.size(), x, y);
    ASSERT_TRUE(r.ok);
    EXPECT_NEAR(r.z_tin, 10 + 0.5 * x - 0.25 * y, 0.003);  // corners lie on 1/512 m
  }
  EXPECT_FALSE(GCP_TIN(p.data(), p.size(), 9, 9).ok);
  EXPECT_FALSE(GCP_TIN(p.data(), 2, 0, 0).ok);
  EXPECT_FALSE(GCP_TIN(p.data(), 0, 0, 0).ok);
}
}  // namespace
}  // namespace veld
