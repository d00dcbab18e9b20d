// The steps of the registration, each against an oracle of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "prj/LiDAR/TNRreg/ND_Pyramid.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/TNRreg/synth_level.h"

namespace veld {
namespace {
TEST(TNRregSteps, GradientIsTheSlopeOfTheEnergy) {
  const struct {
    const char* what;
    int J;
    double size, holes;
    bool whole;
  } cases[] = {
      {"smooth: contiguous coefficients", 2, 0.05, 0, true},
      {"rough: gathered, mirrored at the edges, a tile missing", 2, 8.6, 0.1, false},
      {"one cell of few pixels", 0, 0.7, 0.1, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    LevelProblem p(c.J, c.size, c.holes, c.whole);
    NormalEq N;
    init_normal(N, p.Q);
    assemble_normal(N, p.Q);
    const Vector<float> V = pack_Def(p.Q), g = pack(p.Q, N, N.g);
    std::mt19937 rng(3);
    std::normal_distribution<double> gauss;
    for (int trial = 0; trial < 12; trial++) {
      Vector<float> d(V.size(), 0.0f);  // all parameters, then single ones
      if (trial < 2)
        for (float& v : d) v = static_cast<float>(gauss(rng));
      else
        d(static_cast<int64_t>(rng() % V.size())) = 1;
      const float h = 1.0f / 512;
      Vector<float> up = V, down = V;
      double slope = 0, scale = 0;
      for (uint64_t i = 0; i < V.size(); i++) {
        up(i) += h * d(i), down(i) -= h * d(i);
        slope -= static_cast<double>(g(i)) * static_cast<double>(d(i));
        scale += std::fabs(static_cast<double>(g(i)) * static_cast<double>(d(i)));
      }
      const double numeric = (slow_energy(p.Q, up) - slow_energy(p.Q, down)) / (2.0 * static_cast<double>(h));
      EXPECT_NEAR(slope, numeric, 2e-3 * scale + 0.3) << trial;
    }
  }
}

TEST(TNRregSteps, SeamVertexIsOneParameter) {
  LevelProblem whole(2, 0.1, 0, true), missing(2, 0.1, 0, false);
  EXPECT_EQ(whole.Q.Tnpar, 17u * 17u);
  EXPECT_EQ(missing.Q.Tnpar,
            17u * 17u - 8u * 8u + 1u);  // about the gap, the upper and right tile have one each
  EXPECT_EQ(missing.Q.tile(0).Vmap(8, 8),
            V_SLAVE);  // the diagonal tile is missing: the right neighbour holds it
  EXPECT_EQ(missing.Q.tile(1).Vmap(0, 8), V_ACTIVE);
  Vector<float> V = pack_Def(missing.Q);
  for (uint64_t i = 0; i < V.size(); i++) V(i) = static_cast<float>(i);
  unpack_Def(V, missing.Q);
  const Vector<Image<xyz>>& D = missing.Def;
  for (int k = 0; k < 9; k++) {
    EXPECT_EQ(D(0)(8, k), D(1)(0, k));
    EXPECT_EQ(D(0)(std::min(k, 7), 8), D(2)(std::min(k, 7), 0));
  }
  const Vector<float> back = pack_Def(missing.Q);
  for (uint64_t i = 0; i < V.size(); i++) EXPECT_EQ(back(i), V(i));
}

// A histogram of |r| of a Gaussian, by its distribution function.
Vector<uint32_t> half_gaussian(double sigma, double n) {
  Vector<uint32_t> H(H_SIZE, 0);
  const double h = static_cast<double>(H_STEP);
  for (int k = 0; k < H_SIZE && k * h < 8 * sigma; k++)
    H(k) = static_cast<uint32_t>(
        n * (std::erf((k + 1) * h / sigma / M_SQRT2) - std::erf(k * h / sigma / M_SQRT2)) + 0.5);
  return H;
}

TEST(TNRregSteps, RobustScaleOfGaussianResiduals) {
  float s, out, ff;
  Vector<uint32_t> H = half_gaussian(0.05, 1e6);
  robust_stat(H, H_STEP, s, out, ff);
  EXPECT_NEAR(s, 0.05, 0.001);
  EXPECT_NEAR(out, 0, 0.005);
  EXPECT_EQ(ff, 0);

  H = half_gaussian(0.05, 1e6);
  for (int k = 1024; k < 4096; k++) H(k) += 40;  // an eighth of all lies between 1 and 4 m
  robust_stat(H, H_STEP, s, out, ff);
  EXPECT_NEAR(s, 0.05, 0.004);
  EXPECT_NEAR(out, 0.11, 0.02);

  H = half_gaussian(0.05, 1e6);
  H(60) += 500000;  // a spike of equal residuals goes, with what lay there, and does not move the scale
  robust_stat(H, H_STEP, s, out, ff);
  EXPECT_NEAR(s, 0.05, 0.001);
  EXPECT_NEAR(ff, 0.34, 0.01);
}

TEST(TNRregSteps, NoScaleIsMarked) {
  float s, out, ff;
  Vector<uint32_t> H(H_SIZE, 0);
  robust_stat(H, H_STEP, s, out, ff);
  EXPECT_LT(ff, 0);
  EXPECT_EQ(out, 1);
  H(0) = 1000;  // all residuals zero
  robust_stat(H, H_STEP, s, out, ff);
  EXPECT_LE(s, 0.0001f);
  EXPECT_LT(ff, 0);
}

TEST(TNRregSteps, SignedStatisticsFindMedianWidthAndOutliers) {
  const struct { double m, sigma, outliers; } cases[] = {{0, 0.03, 0}, {0.2, 0.05, 0}, {-1.5, 0.05, 0.1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.m);
    std::mt19937 rng(11);
    std::normal_distribution<double> gauss(c.m, c.sigma);
    std::uniform_real_distribution<double> unit(0, 1);
    Vector<uint32_t> H(2 * H_SIZE, 0);
    for (int k = 0; k < 400000; k++) {
      const double r = unit(rng) < c.outliers ? c.m + 6 * (unit(rng) - 0.5) : gauss(rng);
      H(std::lrint(r / static_cast<double>(H_STEP)) + H_SIZE)++;
    }
    float m, s, out;
    sigma_histo_med(m, s, out, H, H_STEP);
    EXPECT_NEAR(m, c.m, 0.0005);
    EXPECT_NEAR(s, c.sigma, 0.06 * c.sigma);
    EXPECT_NEAR(out, c.outliers, 0.02);
  }
  float m, s, out;
  sigma_histo_med(m, s, out, Vector<uint32_t>(2 * H_SIZE, 0u), H_STEP);
  EXPECT_EQ(m, 0);
  EXPECT_EQ(out, 1);
}

TEST(TNRregSteps, RefinementInterpolatesValidVertices) {
  const xyz none = {7, 7, NR_NODATA};  // x and y of a vertex without estimate do not count
  Image<xyz> D(2, 2, xyz{1, 2, 3});
  D(1, 0) = {3, 4, 5};
  D(0, 1) = none;
  const Image<xyz> f = refine_Def(D, true);
  ASSERT_EQ(f.xsize(), 3);
  EXPECT_EQ(f(0, 0), (xyz{2, 4, 3}));
  EXPECT_EQ(f(1, 0), (xyz{4, 6, 4}));
  EXPECT_EQ(f(2, 0), (xyz{6, 8, 5}));
  EXPECT_EQ(f(0, 1), (xyz{2, 4, 3}));  // one valid
  EXPECT_EQ(f(0, 2), (xyz{0, 0, NR_NODATA}));
  EXPECT_EQ(f(1, 1), (xyz{3, 5, 3.5f}));  // mean of the rows' means (2, 3, 4) and (1, 2, 3), x and y doubled
  EXPECT_EQ(refine_Def(D, false)(1, 0), (xyz{2, 3, 4}));
  EXPECT_EQ(refine_Def(Image<xyz>(2, 2, none), true)(1, 1).z, NR_NODATA);
}

TEST(TNRregSteps, VerticesWithoutEstimateTakeTheirNeighbours) {
  LevelProblem p(2, 0, 0, false);
  for (Image<xyz>& D : p.Def)
    for (uint64_t k = 0; k < D.size(); k++) D[k] = {4, 5, 6};
  for (uint64_t k = 0; k < p.Def(1).size(); k++)
    p.Def(1)[k].z = NR_NODATA;  // a whole tile: from over the seam
  fill_ND_Def(p.Q);
  for (const Image<xyz>& D : p.Def)
    for (uint64_t k = 0; k < D.size(); k++) ASSERT_EQ(D[k], (xyz{4, 5, 6}));
  for (Image<xyz>& D : p.Def)
    for (uint64_t k = 0; k < D.size(); k++) D[k].z = NR_NODATA;
  fill_ND_Def(p.Q);
  EXPECT_EQ(p.Def(2)(3, 3), (xyz{0, 0, 0}));
}

TEST(TNRregSteps, PyramidHalvesAndKeepsWideHoles) {
  Vector<Image<float>> images(1);
  images(0).resize(64, 48);
  for (int y = 0; y < 48; y++)
    for (int x = 0; x < 64; x++) images(0)(x, y) = static_cast<float>(x + 2 * y);
  images(0)(20, 20) = NR_NODATA;  // closed
  for (int y = 20; y < 36; y++)
    for (int x = 36; x < 52; x++) images(0)(x, y) = NR_NODATA;  // wider than the kernel
  Vector<Vector<Image<float>>> levels;
  ND_Pyramid(levels, images, 2, 2);
  ASSERT_EQ(levels.size(), 2u);
  EXPECT_EQ(levels(0)(0).xsize(), 32);
  EXPECT_EQ(levels(1)(0).ysize(), 12);
  EXPECT_NEAR(levels(0)(0)(8, 6), 16 + 24, 1e-4);  // pixel (2i, 2j), no shift
  EXPECT_NEAR(levels(1)(0)(3, 3), 12 + 24, 1e-4);
  EXPECT_NEAR(levels(0)(0)(10, 10), 20 + 40, 0.5);
  EXPECT_EQ(levels(0)(0)(22, 14), NR_NODATA);
  EXPECT_EQ(levels(1)(0)(11, 7), NR_NODATA);
}
}  // namespace

// What fills a hole reaches two pixels far through the spline; rough pixels have heights and reach nobody.
TEST(set_flags, LeavesOutWhatHolesReachAndWhatIsRough) {
  Vector<Image<float>> img(1);
  Vector<Image<uint8_t>> S(1), F;
  img[0].resize(12, 12, 100.0f);
  S[0].resize(12, 12, 3);
  img[0](1, 5) = NR_NODATA;
  S[0](9, 5) = 20;
  set_flags(F, img, S, 16);
  for (int y = 0; y < 12; y++)
    for (int x = 0; x < 12; x++) {
      const bool out = (x <= 3 && y >= 3 && y <= 7) || (x == 9 && y == 5);
      EXPECT_EQ(F[0](x, y), out ? 0 : 4) << x << ' ' << y;
    }
}
}  // namespace veld
