// Interpolation and unrolling.
#include <gtest/gtest.h>

#include <cmath>

#include "prj/LiDAR/POio/POio.h"

namespace veld {
namespace {
// Samples every dt of a smooth track.
PO truth(double t) {
  PO p;
  p.t = t;
  p.x = 500000 + 60 * t;
  p.y = 5e6 + 3 * std::sin(0.7 * t);
  p.z = 700 + 0.01 * t * t;
  p.roll = static_cast<float>(2 * std::sin(t));
  p.pitch = static_cast<float>(0.5 * std::cos(t));
  p.yaw = static_cast<float>(10 + t);
  return p;
}
Vector<PO> track(double t0, double dt, int n) {
  Vector<PO> po(static_cast<uint64_t>(n));
  for (int i = 0; i < n; i++) po(i) = truth(t0 + i * dt);
  return po;
}
}  // namespace

TEST(PoInterp, SmoothTrack) {
  const double dt = 0.02;
  const Vector<PO> po = track(100, dt, 500);
  double worst = 0;
  for (double t = 100.03; t < 109.9; t += 0.00713) {
    PO out;
    ASSERT_TRUE(InterpPO(po, t, dt, out));
    const PO want = truth(t);
    worst = std::max({worst, std::fabs(out.x - want.x), std::fabs(out.y - want.y), std::fabs(out.z - want.z),
                      std::fabs(double{out.roll} - want.roll), std::fabs(double{out.yaw} - want.yaw)});
    EXPECT_EQ(out.t, t);
  }
  EXPECT_LT(worst, 2e-5);  // the method is of third order: 3 m 0.7^3 dt^3 and float angles
  PO out;
  for (int i = 0; i < 500; i += 7) {  // it passes through the samples
    ASSERT_TRUE(InterpPO(po, po(i).t, dt, out));
    EXPECT_NEAR(out.y, po(i).y, 1e-8);
  }
}

TEST(PoInterp, Ends) {
  const Vector<PO> po = track(100, 0.02, 50);  // to 100.98
  struct Row {
    double t;
    bool ok;
    double at;  // sample that answers
  };
  PO out;
  for (const Row& r :
       {Row{99.95, true, 100}, Row{100, true, 100}, Row{100.98, true, 100.98}, Row{101.07, true, 100.98},
        Row{99.8, false, 0}, Row{101.1, false, 0}, Row{std::nan(""), false, 0}, Row{2e307, false, 0}}) {
    out = truth(7);
    ASSERT_EQ(InterpPO(po, r.t, 0.02, out), r.ok) << r.t;
    EXPECT_NEAR(out.x, truth(r.ok ? r.at : 7).x, 1e-6) << r.t;
    if (std::isnan(r.t)) continue;
    EXPECT_EQ(SafeInterpPO(po, r.t, 0.02, out), r.ok) << r.t;
    EXPECT_NEAR(out.x, truth(r.t < 100 ? 100 : std::min(r.t, 100.98)).x, 1e-6) << r.t;
  }
  const Vector<PO> one = track(100, 1, 1);
  EXPECT_TRUE(InterpPO(one, 100.05, 1, out));
  EXPECT_FALSE(InterpPO(one, 101, 1, out));
}

// Gaps and jitter: the bracket is found wherever it lies, and a gap is bridged by a line.
TEST(PoInterp, UnevenSamples) {
  Vector<PO> po(2000);
  for (int i = 0; i < 2000; i++)
    po(i) = truth(i * 0.01 + (i >= 1000 ? 37.5 : 0) + 0.0005 * std::sin(i * 1.7));
  const double dt = mean_dt_PO(po);
  EXPECT_NEAR(dt, 0.01, 1e-4);
  PO out;
  for (double t = 0.02; t < 57.4; t += 0.0317) {
    ASSERT_TRUE(InterpPO(po, t, dt, out)) << t;
    EXPECT_NEAR(out.x, truth(t).x, 1e-3) << t;
    ASSERT_TRUE(SafeInterpPO(po, t, dt, out)) << t;
    EXPECT_NEAR(out.x, truth(t).x, 1e-3) << t;
  }
  const POstat s = comp_PO_dt_stat(po, PO_PROJ, false);
  EXPECT_NEAR(s.maxint, 37.51, 2e-3);
  EXPECT_EQ(s.nlarge, 1u);
  EXPECT_EQ(s.nerr, 0u);
  EXPECT_EQ(s.min.x, double{po(0).x});
}

TEST(PoInterp, Unroll) {
  Vector<PO> po = track(0, 1, 6);
  const float raw[] = {350, 359, 1, 20, 355, 2}, want[] = {350, 359, 361, 380, 355, 362};
  for (int i = 0; i < 6; i++) po(i).yaw = raw[i], po(i).roll = i < 3 ? 179.0f : -179.0f;
  unroll_PO(po);
  for (int i = 0; i < 6; i++) {
    EXPECT_FLOAT_EQ(po(i).yaw, want[i]) << i;
    EXPECT_FLOAT_EQ(po(i).roll, i < 3 ? 179.0f : 181.0f) << i;
  }
  Vector<PO> tail = track(0, 1, 3);  // from a record on: what stands before is the reference
  tail(0).yaw = 359, tail(1).yaw = 1, tail(2).yaw = 2;
  unroll_PO(tail, 2);
  EXPECT_FLOAT_EQ(tail(1).yaw, 1);
  EXPECT_FLOAT_EQ(tail(2).yaw, 2);
  Vector<PO> none;
  unroll_PO(none);
}
}  // namespace veld
