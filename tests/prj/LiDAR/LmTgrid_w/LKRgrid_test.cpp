// The regression itself: against planes, and against a slow fit written from the definition.
#include "prj/LiDAR/LmTgrid_w/LKRgrid.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace veld {
namespace {
std::vector<xyz> random_points(int n, float from, float to, double (*height)(double, double)) {
  std::mt19937 gen(7);
  std::uniform_real_distribution<float> pos(from, to);
  std::vector<xyz> p;
  for (int i = 0; i < n; i++) {
    const float x = pos(gen), y = pos(gen);
    p.push_back({x, y, static_cast<float>(height(static_cast<double>(x), static_cast<double>(y)))});
  }
  return p;
}

struct SlowPixel {
  double S0 = 0, Z = 0, S = 0;
  bool ok = false;
};

double slow_weight(double d) {  // the cubic B-spline at 0.75 d, from its convolution form
  const auto cube = [](double t) { return t > 0 ? t * t * t : 0.0; };
  const double u = 0.75 * d;
  return 0.75 / 6 * (cube(u + 2) - 4 * cube(u + 1) + 6 * cube(u) - 4 * cube(u - 1) + cube(u - 2));
}

// Weighted plane at pixel (px, py) by Gaussian elimination.
SlowPixel slow_fit(const std::vector<xyz>& p, double scale, int px, int py) {
  double N[3][4] = {};
  SlowPixel out;
  const auto weight = [&](const xyz& q, double& dx, double& dy) {
    dx = px - static_cast<double>(q.x) * scale, dy = py - static_cast<double>(q.y) * scale;
    const double w = slow_weight(dx) * slow_weight(dy);
    return w > 1e-4 ? w : 0.0;
  };
  double dx, dy;
  for (const xyz& q : p) {
    const double w = weight(q, dx, dy), b[4] = {1, dx, dy, static_cast<double>(q.z)};
    for (int r = 0; r < 3; r++)
      for (int c = 0; c < 4; c++) N[r][c] += w * b[r] * b[c];
  }
  out.S0 = N[0][0];
  if (out.S0 <= 0.25) return out;
  const double det2 = N[1][1] * N[2][2] - N[1][2] * N[1][2];
  double det = N[0][0] * det2 - N[0][1] * (N[1][0] * N[2][2] - N[1][2] * N[2][0]) +
               N[0][2] * (N[1][0] * N[2][1] - N[1][1] * N[2][0]);
  if (det2 <= 0 || det <= 0 || det2 / det >= 4) return out;
  for (int r = 0; r < 3; r++)
    for (int k = 0; k < 3; k++) {
      if (k == r) continue;
      const double f = N[k][r] / N[r][r];
      for (int c = r; c < 4; c++) N[k][c] -= f * N[r][c];
    }
  const double Z = N[0][3] / N[0][0], bx = N[1][3] / N[1][1], by = N[2][3] / N[2][2];
  double R = 0;
  for (const xyz& q : p) {
    const double w = weight(q, dx, dy), r = Z + bx * dx + by * dy - static_cast<double>(q.z);
    R += w * r * r;
  }
  out.Z = Z;
  out.S = std::sqrt(R / out.S0);
  out.ok = true;
  return out;
}
}  // namespace

TEST(LKRgrid, PlaneGivesItsHeightAndNoRoughness) {
  const auto plane = [](double x, double y) { return 312.5 + 0.31 * x - 0.17 * y; };
  const std::vector<xyz> p = random_points(60000, -4, 36, plane);  // 37 points/m2, tile of 32 m
  const Image<uint8_t> occ(32, 32, 1);
  LKRtile tile;
  Vector<uint32_t> words;
  const int dim = 3;
  ASSERT_EQ(LKRgrid_tile_nn(p.data(), p.size(), 312, occ, dim, 1.0f, 1000, 4, tile, words), LKRstate::done);
  ASSERT_EQ(words.size(), 32u * 32 * dim * dim);
  for (uint64_t i = 0; i < words.size(); i++) {
    const uint64_t m = i / (dim * dim), r = i % (dim * dim);
    const double x = static_cast<double>(m % 32 * dim + r % dim) / dim,
                 y = static_cast<double>(m / 32 * dim + r / dim) / dim;
    ASSERT_NEAR(static_cast<double>(decode_Z(words(static_cast<int64_t>(i)))), plane(x, y),
                1.0 / 1024 + 1e-4);
    ASSERT_EQ(decode_S(words(static_cast<int64_t>(i))), 0);
  }
}

TEST(LKRgrid, AgreesWithSlowFit) {
  const auto rough = [](double x, double y) {
    return 2000 + 3 * std::sin(x) * std::cos(1.3 * y) + (x > 9 ? 6 : 0);
  };
  const struct {
    int dim;
    float mTsize;
    int npoints;
  } cases[] = {{1, 1, 3000}, {2, 1, 9000}, {4, 1, 9000}, {5, 2, 6000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.dim);
    const float T = 32 * c.mTsize;
    const std::vector<xyz> p = random_points(c.npoints, -c.mTsize, T + c.mTsize, rough);
    Image<uint8_t> occ(32, 32, 0);
    for (int k = 0; k < 40; k++) occ(k * 7 % 32, k * 11 % 32) = 1;
    occ(5, 5) = 4;  // read, but not to be gridded
    LKRtile tile;
    Vector<uint32_t> words;
    ASSERT_EQ(LKRgrid_tile_nn(p.data(), p.size(), 2000, occ, c.dim, c.mTsize, 1000, 4, tile, words),
              LKRstate::done);
    const double scale = static_cast<double>(static_cast<float>(c.dim) / c.mTsize), GSD = 1 / scale;
    int64_t i = 0;
    int nok = 0;
    for (int m = 0; m < 1024; m++) {
      if ((occ[m] & 1) == 0) continue;
      for (int r = 0; r < c.dim * c.dim; r++, i++) {
        const SlowPixel s = slow_fit(p, scale, m % 32 * c.dim + r % c.dim, m / 32 * c.dim + r / c.dim);
        const uint32_t w = words(i);
        if (std::fabs(s.S0 - 0.25) < 1e-4) continue;  // on the limit
        ASSERT_EQ((w & 0xFFFFFF) != 0, s.ok);
        EXPECT_LE(std::abs(decode_D(w) - std::min(7, static_cast<int>(s.S0 + 0.5))), 1);
        if (!s.ok) continue;
        nok++;
        EXPECT_NEAR(static_cast<double>(decode_Z(w)), s.Z, 3e-3);
        EXPECT_LE(std::abs(decode_S(w) - std::min(31, static_cast<int>(s.S * 16 / GSD + 0.5))), 1);
      }
    }
    EXPECT_EQ(static_cast<uint64_t>(i), words.size());
    EXPECT_GT(nok, 30);
  }
}

TEST(LKRgrid, TilesWithoutAnyHeightAreDropped) {
  const xyz one[] = {{16, 16, 50}};
  std::vector<xyz> line;  // along one direction: no plane
  for (int i = 0; i < 4000; i++) line.push_back({static_cast<float>(i) * 0.008f, 16, 50});
  const std::vector<xyz> high = random_points(20000, 0, 32, [](double, double) { return 9000.0; });
  const struct {
    const char* what;
    const xyz* p;
    uint64_t np;
    uint8_t occ;
    LKRstate state;
  } cases[] = {
      {"nothing to grid", high.data(), high.size(), 4, LKRstate::size0},
      {"no point", one, 0, 1, LKRstate::empty},
      {"one point", one, 1, 1, LKRstate::empty},
      {"points on a line", line.data(), line.size(), 1, LKRstate::empty},
      {"heights that do not fit", high.data(), high.size(), 1, LKRstate::Zempty},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    LKRtile tile;
    Vector<uint32_t> words;
    EXPECT_EQ(LKRgrid_tile_nn(c.p, c.np, 50, Image<uint8_t>(32, 32, c.occ), 2, 1, 1000, 4, tile, words),
              c.state);
  }
}

TEST(LKRgrid, RoughPixelsLoseTheirHeightAboveTheLimit) {
  const auto noisy = [](double x, double y) { return 100 + 3 * std::sin(57 * x + 91 * y); };
  const std::vector<xyz> p = random_points(40000, 0, 32, noisy);
  LKRtile tile;
  Vector<uint32_t> words;
  const Image<uint8_t> occ(32, 32, 1);
  EXPECT_EQ(LKRgrid_tile_nn(p.data(), p.size(), 100, occ, 2, 1, 2, 4, tile, words),
            LKRstate::empty);  // limit 1 m
  ASSERT_EQ(LKRgrid_tile_nn(p.data(), p.size(), 100, occ, 2, 1, 1000, 4, tile, words), LKRstate::done);
  EXPECT_EQ(decode_S(words(1500)), 31);
}

TEST(LKRgrid, WordsAtTheirBounds) {
  const struct {
    double z;
    bool nodata;
    float s, density;
    uint32_t Z;
    int S, D;
    bool over;
  } cases[] = {
      {-7500, false, 0, 0, 0, 0, 0, false},
      {-7500 + 1.0 / 1024, false, 0, 1, 1, 0, 1, false},
      {-7500.001, false, 0.5f, 4, 0, 16, 4, true},
      {8884 - 1.0 / 1024, false, 0.96875f, 6.49f, 0xFFFFFF, 31, 6, false},
      {8884, false, 0.9374f, 6.5f, 0, 30, 7, true},
      {0, false, 1e30f, 1e30f, 0x753000, 31, 7, false},
      {100, true, 0.015f, 0.4f, 0, 0, 0, false},
      {NAN, false, NAN, NAN, 0, 31, 7, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.z);
    bool over = false;
    const uint32_t w = encode_ZDS(c.z, c.nodata, c.s, 0.5f, c.density, 4, over);
    EXPECT_EQ(w & 0xFFFFFF, c.Z);
    EXPECT_EQ(decode_S(w), c.S);
    EXPECT_EQ(decode_D(w), c.D);
    EXPECT_EQ(over, c.over);
    EXPECT_EQ(decode_Z(w), c.Z == 0 ? -9999.0f : static_cast<float>(c.Z / 1024.0 - 7500));
  }
}
}  // namespace veld
