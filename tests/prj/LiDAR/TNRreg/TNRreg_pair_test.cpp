// Whole pairs: planted displacements come back, from how far, with which uncertainty, and the same on any
// threads.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "prj/LiDAR/TNRreg/TNRreg_internal.h"
#include "prj/LiDAR/TNRreg/reg_cache.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/TNRreg/synth_pair.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
NRparam make_param(SynthPair& synth, int init, int coarse = 0) {
  const RegLevels levels = comp_reg_levels(init, coarse);
  synth.buf = levels.buf;
  NRparam param;
  param.Jstart = levels.Jstart;
  param.Jend = levels.Jend;
  return param;
}

std::function<dxyz(double, double)> shift(double x, double y, double z) {
  return [=](double, double) { return dxyz{x, y, z}; };
}

void expect_same_bytes(const NRresult& a, const NRresult& b) {
  const auto same = [](const auto& u, const auto& v) {
    ASSERT_EQ(u.size(), v.size());
    for (uint64_t t = 0; t < u.size(); t++) {
      ASSERT_EQ(u(t).size(), v(t).size());
      EXPECT_EQ(std::memcmp(u(t).val, v(t).val, u(t).size() * sizeof(*u(t).val)), 0) << t;
    }
  };
  same(a.Def, b.Def);
  same(a.Unc, b.Unc);
  same(a.Zv, b.Zv);
  for (const auto& [s, r] : {std::pair{&a.before, &b.before}, std::pair{&a.after, &b.after}}) {
    EXPECT_EQ(s->m, r->m);
    EXPECT_EQ(s->s, r->s);
    EXPECT_EQ(s->out, r->out);
    EXPECT_EQ(s->n, r->n);
  }
}

TEST(Registration, PlantedDisplacementComesBackWithItsUncertainty) {
  const double period = 256;  // pixels
  const auto warp = [period](double x, double y) {
    return dxyz{1.2 + 0.8 * std::sin(6.28 * y / period), -0.7 + 0.8 * std::cos(6.28 * x / period),
                0.3 + 0.1 * std::sin(6.28 * (x + y) / period)};
  };
  struct Case {
    const char* what;
    SynthPair synth;
    int coarse;
    double mean_xy, rms_xy, rms_z;  // pixels, pixels, metres
  };
  Case cases[] = {{"shift", {}, 1, 0.02, 0.1, 0.02},
                  {"warp, finest vertices", {}, 0, 0.03, 0.15, 0.03},
                  {"shift, vertices on the halved grid", {}, 3, 0.06, 0.15, 0.03},
                  {"warp, holes and what one swath alone saw", {}, 1, 0.05, 0.25, 0.05}};
  cases[1].synth.ntx = 1;
  cases[0].synth.disp = cases[2].synth.disp = shift(1.3, -2.4, 0.25);
  cases[1].synth.disp = cases[3].synth.disp = warp;
  cases[3].synth.holes = 0.05;
  cases[3].synth.outliers = 0.005;
  for (Case& c : cases) {
    SCOPED_TRACE(c.what);
    const NRparam param = make_param(c.synth, 1, c.coarse);
    NRpair pair = make_pair(c.synth);
    NRresult result;
    ASSERT_TRUE(register_pair(pair, param, result));
    const DefError e = compare(c.synth, result);
    const int side = 1 << (5 - c.coarse);  // vertices: seams count once
    EXPECT_GT(e.n, c.synth.ntx * c.synth.nty * side * side * 8u / 10);
    EXPECT_LE(e.n, (c.synth.ntx * side + 1u) * (c.synth.nty * side + 1u));
    EXPECT_NEAR(e.mean.x, 0, c.mean_xy);
    EXPECT_NEAR(e.mean.y, 0, c.mean_xy);
    EXPECT_NEAR(e.mean.z, 0, 0.005);
    EXPECT_LT(e.rms.x, c.rms_xy);
    EXPECT_LT(e.rms.y, c.rms_xy);
    EXPECT_LT(e.rms.z, c.rms_z);
    if (c.synth.outliers == 0) {  // the prior holds x and y tighter than the data of a vertex alone would
      EXPECT_GT(e.chi.x, 0.1);
      EXPECT_LT(e.chi.x, 1.8);
      EXPECT_LT(e.chi.y, 1.8);
      EXPECT_GT(e.chi.z, 0.3);
      EXPECT_LT(e.chi.z, 1.8);
    }
    EXPECT_NEAR(result.after.m, 0, 0.002);
    const double noise = 0.02 * std::sqrt(2.0);  // of both swaths; interpolation and halving smooth some away
    EXPECT_NEAR(result.after.s, c.coarse > 2 ? noise / 2 : noise, 0.012);
    EXPECT_LT(result.before.m, -0.15);  // reference less moved: the first swath is higher
    EXPECT_GT(result.before.s, 3 * result.after.s);
    DZstat again;
    ASSERT_TRUE(acc_qc_tiles(pair, &result.Def, 1, again));
    EXPECT_NEAR(again.s, c.coarse > 2 ? noise : static_cast<double>(result.after.s),
                c.coarse > 2 ? 0.012 : 0.003);
    ASSERT_TRUE(acc_qc_tiles(pair, nullptr, 1, again));
    EXPECT_NEAR(again.m, result.before.m, 0.002);
  }
}

TEST(Registration, ConvergesFromAsFarAsTheStartLevelReaches) {
  // Waves: ground with much and with little detail, pixels.
  const struct {
    int init;
    double x, y, shortest;
  } cases[] = {{0, 2, 1, 6},  {1, 3, -3, 6},  {1, 3, -3, 12},   {1, -5, 3, 12},
               {2, 7, 7, 12}, {3, -9, 10, 6}, {4, 16, -16, 12}, {4, -20, 8, 6}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "-init " << c.init << " shift " << c.x << " " << c.y << " waves "
                                    << c.shortest);
    SynthPair synth;
    synth.shortest = c.shortest;
    synth.disp = shift(c.x, c.y, -0.4);
    synth.dim = c.init < 3 ? 2 : 4;  // a tile must be several times as wide as the shift
    const int coarse = c.init < 3 ? 1 : 2;
    const NRparam param = make_param(synth, c.init, coarse);
    NRpair pair = make_pair(synth);
    NRresult result;
    ASSERT_TRUE(register_pair(pair, param, result));
    const DefError e = compare(synth, result);
    const uint64_t side = 64u >> coarse;
    EXPECT_GT(e.n, side * side * 7 / 10);
    EXPECT_LT(e.rms.x, 0.4);
    EXPECT_LT(e.rms.y, 0.4);
    EXPECT_LT(e.rms.z, 0.08);
    EXPECT_NEAR(e.mean.x, 0, 0.15);
    EXPECT_NEAR(e.mean.y, 0, 0.15);
  }
}

TEST(Registration, FlatGroundIsUncertainInThePlaneOnly) {
  xyz unc[2];
  for (const bool flat : {false, true}) {
    SynthPair synth;
    synth.ntx = synth.nty = 1;
    synth.slope = flat ? 0.0 : 0.3;
    synth.disp = shift(0, 0, 0.2);
    NRparam param = make_param(synth, 1, 1);
    NRpair pair = make_pair(synth);
    NRresult result;
    ASSERT_TRUE(register_pair(pair, param, result));
    const DefError e = compare(synth, result);
    unc[flat] = to_xyz(e.unc);
    EXPECT_NEAR(e.mean.z, 0, 0.01);
    EXPECT_LT(e.rms.z, 0.05);
  }
  EXPECT_GT(unc[1].x, 4 * unc[0].x);
  EXPECT_GT(unc[1].y, 4 * unc[0].y);
  EXPECT_LT(unc[1].z, unc[0].z);
}

TEST(Registration, NoiseFloorCountsFromTheFinalLevel) {
  const auto mean_unc_z = [](float sigma0, int lowest) {
    SIGMA0_REG = sigma0;
    J0_REG = lowest;
    SynthPair synth;
    synth.ntx = synth.nty = 1;
    synth.disp = shift(0.5, 0, 0.2);
    const NRparam param = make_param(synth, 2, 1);
    NRpair pair = make_pair(synth);
    NRresult result;
    EXPECT_TRUE(register_pair(pair, param, result));
    SIGMA0_REG = 0;
    J0_REG = 1;
    return compare(synth, result).unc.z;
  };
  const double none = mean_unc_z(0, 1);
  EXPECT_NEAR(mean_unc_z(0.15f, 1) / none, 1, 0.02);  // above the final level, which is not level 0
  const double raised = mean_unc_z(0.15f, 0);         // residuals of 0.03 m
  EXPECT_GT(raised / none, 2);                        // neighbours share more where the data weigh less
  EXPECT_LT(raised / none, 6);
}

TEST(Registration, ResultsDoNotDependOnThreads) {
  SynthPair synth;
  synth.dim = 5;  // rows that are no multiple of the vector length; enough pixels for threads to start
  synth.holes = 0.03;
  synth.disp = shift(4.5, -3.2, 0.4);
  NRparam param = make_param(synth, 2, 1);
  NRresult results[3];
  for (const int nthreads : {1, 2, 3}) {
    NRpair pair = make_pair(synth);
    param.nthreads = nthreads;
    ASSERT_TRUE(register_pair(pair, param, results[nthreads - 1]));
  }
  expect_same_bytes(results[0], results[1]);
  expect_same_bytes(results[0], results[2]);
}

TEST(Registration, CacheGivesTheSameResult) {
  TempDir dir;
  SynthPair synth;
  synth.dim = 2;
  synth.holes = 0.1;
  synth.disp = shift(2, 1, 0.3);
  NRparam param = make_param(synth, 2, 2);
  param.cache = dir.path + "/pair.rpc.d0";
  const auto run = [&](NRresult& result) {
    NRpair pair = make_pair(synth);
    EXPECT_TRUE(register_pair(pair, param, result));
  };
  NRresult computed, cached;
  run(computed);
  EXPECT_TRUE(computed.cache_written);
  EXPECT_FALSE(computed.from_cache);
  const std::string whole = read_text(param.cache);
  ASSERT_EQ(whole.size(), 4u * 9 * 9 * 12);
  param.cached = true;
  run(cached);
  EXPECT_TRUE(cached.from_cache);
  EXPECT_FALSE(cached.cache_written);
  expect_same_bytes(computed, cached);

  std::string nan = whole;
  const float bad = std::numeric_limits<float>::quiet_NaN();
  std::memcpy(&nan[1212], &bad, sizeof bad);
  const struct {
    const char* what;
    std::string text;
  } broken[] = {{"one byte short", whole.substr(0, whole.size() - 1)},
                {"empty", ""},
                {"longer", whole + "x"},
                {"not a number", nan}};
  for (const auto& b : broken) {
    SCOPED_TRACE(b.what);
    write_text(param.cache, b.text);
    Vector<Image<xyz>> Def(4);
    for (Image<xyz>& D : Def) D.resize(9, 9);
    EXPECT_FALSE(read_reg_cache(param.cache, Def));
  }
  NRresult renewed;
  run(renewed);
  EXPECT_FALSE(renewed.from_cache);
  expect_same_bytes(computed, renewed);
  EXPECT_EQ(read_text(param.cache), whole);
  EXPECT_FALSE(write_reg_cache(dir.path + "/absent/x.d0", computed.Def));
}

TEST(Registration, PairsWithoutUsableDataFailQuietly) {
  const auto fill = [](Image<float>& I, float z) {
    for (uint64_t k = 0; k < I.size(); k++) I[k] = z;
  };
  const struct {
    const char* what;
    std::function<void(NRpair&, NRparam&)> spoil;
  } cases[] = {
      {"no data in the first swath", [&](NRpair& p, NRparam&) { fill(p.img1(0), NR_NODATA); }},
      {"no data in the second swath", [&](NRpair& p, NRparam&) { fill(p.img2(0), NR_NODATA); }},
      {"equal grids leave no residual", [&](NRpair& p, NRparam&) { fill(p.img1(0), 5), fill(p.img2(0), 5); }},
      {"nothing alike",
       [&](NRpair& p, NRparam&) {
         for (uint64_t k = 0; k < p.img2(0).size(); k++) p.img2(0)[k] = static_cast<float>(7 * k % 31);
       }},
      {"heights out of range", [&](NRpair& p, NRparam&) { fill(p.img1(0), 8000); }},
      {"no level to run", [&](NRpair&, NRparam& param) { param.Jend = param.Jstart + 1; }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    SynthPair synth;
    synth.ntx = synth.nty = 1;
    synth.dim = 2;
    NRparam param = make_param(synth, 1);
    NRpair pair = make_pair(synth);
    c.spoil(pair, param);
    NRresult result;
    EXPECT_FALSE(register_pair(pair, param, result));
  }
}

TEST(Registration, TilesWithoutDataDoNotDisturbTheirNeighbours) {
  SynthPair synth;
  synth.disp = shift(2, -2, 0.3);
  NRparam param = make_param(synth, 2, 1);
  NRpair pair = make_pair(synth);
  for (uint64_t k = 0; k < pair.img2(3).size(); k++) pair.img2(3)[k] = NR_NODATA;
  for (int y = 0; y < 128; y++)  // half a tile
    for (int x = 48; x < 128; x++) pair.img2(1)(x, y) = NR_NODATA;
  NRresult result;
  ASSERT_TRUE(register_pair(pair, param, result));
  const DefError e = compare(synth, result);
  EXPECT_GT(e.n, 400u);
  EXPECT_LT(e.rms.x, 0.4);
  EXPECT_LT(e.rms.z, 0.08);
  EXPECT_EQ(result.Def(1)(10, 5).z, NR_NODATA);
  EXPECT_EQ(result.Unc(1)(10, 5), (xyz{NR_NO_UNC, NR_NO_UNC, NR_NO_UNC}));
  EXPECT_EQ(result.Zv(1)(10, 5), NR_NODATA);
  EXPECT_EQ(result.Def(0)(16, 5).z, NR_NODATA);  // a slave: its vertex stands in tile 1
  EXPECT_NE(result.Def(1)(0, 5).z, NR_NODATA);
}

TEST(Registration, MapsOfTheDifferences) {
  SynthPair synth;
  synth.ntx = synth.nty = 1;
  synth.dim = 2;
  synth.noise = 0.001;
  synth.disp = shift(0, 0, 0.25);
  make_param(synth, 1);
  NRpair pair = make_pair(synth);
  DZmap map;
  map.want0 = true;
  DZstat stat;
  prepare_pair(pair, 0, 2);
  ASSERT_TRUE(acc_qc_tiles(pair, nullptr, 2, stat, &map));
  EXPECT_NEAR(stat.m, -0.25, 0.001);
  ASSERT_EQ(map.dz0.size(), 1u);
  EXPECT_EQ(map.dz0(0).xsize(), 16);
  EXPECT_NEAR(map.dz0(0)(5, 9), -0.25, 0.01);
  EXPECT_TRUE(map.dz.empty());
}
}  // namespace
}  // namespace veld
