// Uncertainties: the noise model's parts, and whether what it gives fits the errors that are made.
#include "prj/LiDAR/TNRreg/TNRreg_noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/prj/LiDAR/TNRreg/synth_level.h"

namespace veld {
namespace {
// Residuals of standard deviation s: white ones, and a share that is the same over squares of pixels.
void set_residuals(dUParamTiles& Q, double share, int side) {
  std::mt19937 rng(9);
  std::normal_distribution<float> gauss;
  const float near = Q.s * static_cast<float>(std::sqrt(1 - share)),
              far = Q.s * static_cast<float>(std::sqrt(share));
  for (dUParamTile& T : Q.tile) {
    Image<float> coarse(T.res.xsize() / side + 1, T.res.ysize() / side + 1);
    for (uint64_t k = 0; k < coarse.size(); k++) coarse[k] = gauss(rng);
    for (int y = 0; y < T.res.ysize(); y++)
      for (int x = 0; x < T.res.xsize(); x++)
        T.res(x, y) = near * gauss(rng) + far * coarse(x / side, y / side);
  }
}

TEST(Noise, ShareThatReachesFarIsFound) {
  LevelProblem p(1, 0.05, 0, true);
  resid_pass(p.Q);
  set_residuals(p.Q, 0, 1);
  EXPECT_LT(comp_long_share(p.Q), 0.01);
  set_residuals(p.Q, 0.4, 3);  // as far as the gridding kernel: that is no long reach
  EXPECT_LT(comp_long_share(p.Q), 0.03);
  set_residuals(p.Q, 0.4, 32);
  EXPECT_NEAR(comp_long_share(p.Q), 0.4 * 0.6, 0.1);  // less beyond the squares' edges
}

TEST(Noise, LocalScaleFollowsTheResiduals) {
  LevelProblem p(2, 0.05, 0, true);
  resid_pass(p.Q);
  set_residuals(p.Q, 0, 1);
  dUParamTile& T = p.Q.tile(0);
  for (int y = 0; y < T.res.ysize(); y++)
    for (int x = T.res.xsize() / 2; x < T.res.xsize(); x++) T.res(x, y) *= 5;
  NormalEq N;
  init_normal(N, p.Q);
  std::vector<LocalScale> scale;
  comp_local_scale(N, p.Q, 0, scale);
  const LocalScale usual = scale[N.at(0, 1, 4)], large = scale[N.at(0, 6, 4)];
  EXPECT_NEAR(usual.z, 1, 0.35);
  EXPECT_GT(large.z, 4);
  EXPECT_GT(large.xy, 10);
}

// The spread of many samples against the matrix: without reach beyond a block, the covariance of the right-hand
// sides is that of the data term times the pixels that are tied together.
TEST(Noise, SamplesHaveTheSizeOfTheModel) {
  LevelProblem p(2, 0.05, 0, true);
  resid_pass(p.Q);
  take_pixels(p.Q);
  set_residuals(p.Q, 0, 1);
  update_weights(p.Q);
  NormalEq N;
  init_normal(N, p.Q);
  assemble_normal(N, p.Q);
  set_damping(N, 0);
  N.omega = {0, 0, 0};  // of the data alone
  double sum = 0, expected = 0;
  for (int group = 0; group < NSAMPLE_GROUPS; group++) {
    std::vector<V3<v8f>> r, again;
    sample_noise(N, p.Q, group, 0, {}, r);
    p.Q.nthreads = 3;
    sample_noise(N, p.Q, group, 0, {}, again);
    p.Q.nthreads = 1;
    const size_t inner = N.at(0, 4, 4);
    for (int l = 0; l < LANES; l++) EXPECT_EQ(r[inner].z[l], again[inner].z[l]);
    for (int j = 1; j < N.nv - 1; j++)
      for (int i = 1; i < N.nv - 1; i++) {
        const size_t k = N.at(0, i, j);
        for (int l = 0; l < LANES; l++) sum += static_cast<double>(r[k].z[l] * r[k].z[l]);
        expected += LANES * static_cast<double>(N.block[k].self[5]);
      }
  }
  EXPECT_NEAR(sum / expected, 7.74, 2);  // a little less: weights fall off within a block
}

TEST(Noise, UncertaintiesFitTheErrors) {
  const struct {
    const char* what;
    double slope, noise, outliers;
  } cases[] = {{"gentle", 0.08, 0.02, 0}, {"steep", 0.3, 0.02, 0}, {"noisy, with outliers", 0.2, 0.05, 0.01}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    SynthPair synth;
    synth.dim = 6;
    synth.slope = c.slope;
    synth.noise = c.noise;
    synth.outliers = c.outliers;
    synth.disp = [](double x, double y) { return dxyz{0.6 + 0.002 * x, -0.4 + 0.001 * y, 0.2}; };
    const RegLevels levels = comp_reg_levels(1, 0);
    synth.buf = levels.buf;
    NRparam param;
    param.Jstart = levels.Jstart;
    param.Jend = levels.Jend;
    NRpair pair = make_pair(synth);
    NRresult result;
    ASSERT_TRUE(register_pair(pair, param, result));
    const DefError e = compare(synth, result);
    for (const double chi : {e.chi.x, e.chi.y, e.chi.z}) {
      EXPECT_GT(chi, 0.35);
      EXPECT_LT(chi, 1.8);
    }
  }
}
}  // namespace
}  // namespace veld
