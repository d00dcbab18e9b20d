// Set-up of an inversion: nodes, filters, precisions, overlap in time.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "prj/LiDAR/VR2inv/VR2inv_internal.h"

namespace veld {
namespace {
// Three swaths of 100 s, one after the other; swath 2 is a reference. A pair of n vectors between each two.
InvInput small_input(int n = 20) {
  InvInput in;
  in.GSD = 0.5f;
  for (int s = 0; s < 3; s++) {
    InvSwath w;
    w.group = s == 2 ? 0 : 1, w.mainch = SwathId(s), w.fl = s == 2 ? -1 : 0, w.fixed = s == 2;
    w.tmin = 200 * s, w.tmax = 200 * s + 100;
    in.swaths.push_back(w);
  }
  for (int k = 0; k < 3; k++) {
    InvPair p;
    p.sw1 = SwathId(k == 2 ? 1 : 0), p.sw2 = SwathId(k == 0 ? 1 : 2);
    p.P.resize(n, dxyz{0, 0, 0});
    p.Def.resize(n, xyz{0.1f, 0.2f, 0.3f}), p.Unc.resize(n, xyz{0.1f, 0.1f, 0.1f});
    p.t1.resize(n, in.swaths[p.sw1].tmin + 1), p.t2.resize(n, in.swaths[p.sw2].tmin + 1);
    p.O1.resize(n, dxyz{0, 0, 200}), p.O2.resize(n, k > 0 ? dxyz{1000, 1000, -9999} : dxyz{0, 0, 200});
    p.Att1.resize(n, xyz{0, 0, 0}), p.Att2.resize(n, xyz{0, 0, 0});
    in.pairs.push_back(std::move(p));
  }
  return in;
}
}  // namespace

TEST(InvSetup, NodesOfASwath) {
  const struct {
    double T, dt;
    int nt;
  } cases[] = {{100, 0, 1}, {4, 10, 2}, {14, 10, 2}, {15, 10, 3}, {24.9, 10, 3}, {25, 10, 4}, {0, 10, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "T " << c.T << " dt " << c.dt);
    InvInput in = small_input();
    for (InvSwath& s : in.swaths) s.tmax = s.tmin + c.T;
    InvParam par;
    par.dt = c.dt;
    InvCalDrift inv(in, par, "");
    ASSERT_TRUE(init(inv, 1) && init(inv, 2));
    EXPECT_EQ(inv.sw[SwathId(0)].nt, c.nt);
    EXPECT_EQ(inv.nTAnd, 2 * c.nt);
    EXPECT_EQ(inv.dim, 2 * c.nt * 3);
    EXPECT_EQ(inv.sw[SwathId(2)].nt, 0);
  }
}

TEST(InvSetup, ChannelsShareTheNodesOfTheirLine) {
  InvInput in = small_input();
  in.swaths[SwathId(1)] = in.swaths[SwathId(0)];
  in.swaths[SwathId(1)].channel = 1, in.swaths[SwathId(1)].mainch = SwathId(0),
  in.swaths[SwathId(1)].group = 2;
  InvParam par;
  par.dt = 10;
  par.Fw = true;
  par.FE[1] = par.FE[6] = true;  // the seventh has no place in the physical model
  par.EXTSW = false, par.INTSW = true;
  InvCalDrift inv(in, par, "");
  ASSERT_TRUE(init(inv, 1));
  EXPECT_EQ(inv.ncalext, 2);
  EXPECT_EQ(inv.ncalint, 2);
  EXPECT_EQ(inv.dimcal, 4);
  EXPECT_EQ(inv.int0[6], -1);
  ASSERT_TRUE(init(inv, 2));
  EXPECT_EQ(inv.sw[SwathId(0)].node0, inv.sw[SwathId(1)].node0);
  EXPECT_EQ(inv.nTAnd, 11);
  EXPECT_EQ(inv.nTA, 22);
  in.swaths[SwathId(1)].mainch = SwathId(7);
  EXPECT_FALSE(init(inv, 1));
}

TEST(InvSetup, PairFilters) {
  const struct {
    int GRPC, REFC;
    bool use[3];
    bool ok;
  } cases[] = {// pair 0 mobile, 1 and 2 with the reference
               {1, 1, {true, true, true}, true},
               {1, 0, {true, false, false}, true},
               {1, 2, {false, true, true}, true},
               {2, 0, {false, false, false}, false},
               {0, 1, {true, true, true}, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "GRPC " << c.GRPC << " REFC " << c.REFC);
    InvInput in = small_input();
    InvParam par;
    par.GRPC = c.GRPC, par.REFC = c.REFC;
    InvCalDrift inv(in, par, "");
    ASSERT_TRUE(init(inv, 1));
    EXPECT_EQ(init_prec(inv), c.ok);
    for (int k = 0; k < 3; k++) EXPECT_EQ(inv.pair[k].use, c.use[k]) << k;
  }
}

TEST(InvSetup, VectorsAdmittedAndTheirWeights) {
  constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
  const struct {
    const char* what;
    void (*spoil)(InvInput&);
    bool kept;
  } cases[] = {
      {"as it is", [](InvInput&) {}, true},
      {"at the limit", [](InvInput& in) { in.pairs[0].Unc(0).y = 0.5f; }, false},
      {"just below", [](InvInput& in) { in.pairs[0].Unc(0).y = 0.49999f; }, true},
      {"no trajectory",
       [](InvInput& in) {
         in.pairs[0].O2(0) = {1000, 1000, -9999};
       },
       false},
      {"uncertainty not a number", [](InvInput& in) { in.pairs[0].Unc(0).z = NaN; }, false},
      {"negative uncertainty", [](InvInput& in) { in.pairs[0].Unc(0).z = -1; }, false},
      {"displacement not a number", [](InvInput& in) { in.pairs[0].Def(0).x = NaN; }, false},
      {"infinite time", [](InvInput& in) { in.pairs[0].t1(0) = HUGE_VAL; }, false},
      {"uncertainty zero",
       [](InvInput& in) {
         in.pairs[0].Unc(0) = {0, 0, 0};
       },
       true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    InvInput in = small_input();
    c.spoil(in);
    InvParam par;
    InvCalDrift inv(in, par, "");
    ASSERT_TRUE(init(inv, 1) && init_prec(inv));
    const xyz W = inv.pair[0].W0(0);
    EXPECT_EQ(W.x > 0, c.kept);
    EXPECT_EQ(inv.pair[0].nok, c.kept ? 20u : 19u);
    EXPECT_LE(W.x, 1.001e6f);  // the floor
    EXPECT_LE(W.z, 1.001e8f);
  }
  InvInput in = small_input();
  in.pairs[0].nfull = 60;  // two thirds of the vectors were left out
  in.shift0.resize(3, xyz{0.1f, 0, 0});
  InvParam par;
  par.XFUmax = 0.1f;  // 5 cm: nothing with the reference passes
  InvCalDrift inv(in, par, "");
  ASSERT_TRUE(init(inv, 1) && init_prec(inv));
  EXPECT_NEAR(inv.pair[0].W0(3).x, 3 / (0.01 + 1e-6), 0.1);
  EXPECT_NEAR(inv.pair[0].data(3).x, 0, 1e-7);
  EXPECT_FALSE(inv.pair[1].use);
  EXPECT_EQ(inv.npair_used, 1);
}

TEST(InvSetup, OverlapInTime) {
  const struct {
    double overlap;
    double dt;
    bool ok;
  } cases[] = {{0.05, 10, true}, {0.2, 10, false}, {0.2, 0, true}, {-5, 10, true}};
  for (const auto& c : cases) {
    InvInput in = small_input();
    in.swaths[SwathId(1)].tmin = in.swaths[SwathId(0)].tmax - c.overlap;
    InvParam par;
    par.dt = c.dt;
    InvCalDrift inv(in, par, "");
    ASSERT_TRUE(init(inv, 1));
    EXPECT_EQ(check_time_overlap(inv), c.ok) << c.overlap;
  }
}

TEST(InvSetup, AdjustmentOfPrecisions) {
  const struct {
    int UADJ;
    double c;
    bool changed;
    double W;
  } cases[] = {
      {1, 1.41, false, 100}, {1, 2, true, 25}, {3, 1.2, true, 100 / 1.44},
      {3, 0.5, true, 100},   {2, 2, true, 25},  // the residuals' variance, as it is larger
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "UADJ " << c.UADJ << " c " << c.c);
    InvInput in = small_input();
    InvParam par;
    par.UADJ = c.UADJ;
    InvCalDrift inv(in, par, "");
    ASSERT_TRUE(init(inv, 1) && init_prec(inv));
    for (PairState& p : inv.pair)
      for (xyz& W : p.W0) W = {100, 100, 100};
    std::vector<PairChi> chi(3);
    for (PairChi& x : chi) x.c = {c.c, 1, 0}, x.rms = {0.1 * c.c, 0.1, 0};
    EXPECT_EQ(adj_prec(inv, chi), c.changed);
    EXPECT_NEAR(inv.pair[0].W0(0).x, c.W, 1e-3);
    EXPECT_NEAR(inv.pair[0].W0(0).y, 100, 1e-3);  // never below 1
  }
}

TEST(InvSetup, DisplacementStatistics) {
  InvInput in = small_input(2000);
  for (InvPair& p : in.pairs)
    for (uint64_t i = 0; i < p.Def.size(); i++) {
      p.Unc(i) = {0.001f, 0.001f, 0.001f};
      p.Def(i) = {i % 2 ? 0.3f : -0.3f, i % 25 == 0 ? 50.f : 0.1f, 0.2f};  // 4% outliers in Y
      p.t1(i) = in.swaths[p.sw1].tmin + static_cast<double>(i) * 0.05;
      p.t2(i) = in.swaths[p.sw2].tmin + static_cast<double>(i) * 0.05;
    }
  InvParam par;
  par.RMSALL = false;
  InvCalDrift inv(in, par, "");
  ASSERT_TRUE(init(inv, 1) && init_prec(inv));
  const xyz rms = comp_def_RMS(inv, false);
  EXPECT_NEAR(rms.x, 0.3, 1e-3);
  EXPECT_NEAR(rms.y, 0.1, 1e-3);
  EXPECT_NEAR(rms.z, 0.2, 1e-3);
  EXPECT_NEAR(comp_def_RMS(inv, true).z, 0, 1e-3);
  // Z changes by 0.2 m a second, along the time of both swaths: per root second at bins of 2 s.
  for (uint64_t i = 0; i < inv.pair[0].res.size(); i++) inv.pair[0].res(i).z = static_cast<float>(0.01 * i);
  uint64_t ng = 0;
  EXPECT_NEAR(grad_stddev_def(inv, 2, 0, ng).z, 0.4 / std::sqrt(2), 1e-3);
  EXPECT_EQ(ng, 2u * 49);
  EXPECT_EQ(grad_stddev_def(inv, 1000, 0, ng).z, 0);
  EXPECT_EQ(ng, 0u);
}
}  // namespace veld
