#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "tests/prj/LiDAR/VR2geom/exact_model.h"

namespace veld {
namespace {
Vector<PO> track(double rate = 100) {  // 20 s at 22 m/s, gentle motion
  const int n = static_cast<int>(20 * rate) + 1;
  Vector<PO> po(n);
  for (int i = 0; i < n; i++) {
    const double t = i / rate;
    po(i) = {1000 + t,
             500000 + 22 * t,
             5300000 + 3 * std::sin(t / 3),
             500 + std::sin(t / 4),
             static_cast<float>(3 * std::sin(t)),
             static_cast<float>(2 + std::sin(t / 2)),
             static_cast<float>(85 + t)};
  }
  return po;
}
dxyz exact_with(const PO& rec, const dxyz& s, const ExactParam& par) {
  return exact_point({{rec.x, rec.y, rec.z}, {rec.roll, rec.pitch, rec.yaw}, {0, 0, 0}, {0, 0, 0}, s}, par,
                     false);
}
void expect_near(const xyz& a, const dxyz& b, double tol) {
  EXPECT_NEAR(a.x, b.x, tol);
  EXPECT_NEAR(a.y, b.y, tol);
  EXPECT_NEAR(a.z, b.z, tol);
}
const dxyz S = {3, -60, 210};  // a point in internal coordinates
}  // namespace

TEST(PointCorr, PutsThePointWhereTheExactModelHasIt) {
  const Vector<PO> po = track();
  const Vector<xyz> Tt{{0.05f, -0.02f, 0.1f}, {0.15f, 0.02f, 0.0f}, {0, 0, 0}};
  const Vector<xyz> At{{1e-4f, 2e-4f, -1e-4f}, {3e-4f, 0, 1e-4f}, {0, 0, 0}};
  SwathCorr c;
  c.po = &po;
  c.CL = c.CB = c.CI = c.CT = c.CA = true;
  c.L = {0.03f, -0.04f, 0.1f};
  c.B = {-0.0023f, 0.0015f, 0.0029f};
  c.I[0] = 0.05f, c.I[2] = 5e-4f, c.I[5] = 2e-3f;
  c.Tt = &Tt, c.At = &At, c.t0 = 1000, c.Dt = 10;
  ASSERT_TRUE(init_SwathCorr(c));
  const PO& rec = po(500);  // at 1005 s: half way between the first two nodes
  ExactParam par;
  par.lever = to_dxyz(c.L), par.bore = to_dxyz(c.B);
  for (int k = 0; k < N_INTERNAL; k++) par.internal[k] = c.I[k];
  par.T = {0.1, 0, 0.05}, par.A = {2e-4, 1e-4, 0};
  const dxyz P = exact_with(rec, S, {});
  CorrCursor cursor;
  // The model is linear in each parameter: second order terms of 3e-3 rad times 220 m remain.
  expect_near(comp_point_corr(c, cursor, P, 1005), exact_with(rec, S, par) - P, 2e-3);
}

TEST(PointCorr, ManualModeIsExactForLargeAngles) {
  const Vector<PO> po = track();
  SwathCorr c;
  c.po = &po;
  c.CM = c.CB = c.CL = true;
  c.CT = c.CA = true;  // drift has no place in manual mode: no tables are needed
  c.B = {0.1f, -0.2f, 0.7f};
  c.L = {1, 2, 3};
  ASSERT_TRUE(init_SwathCorr(c));
  ExactParam par;
  par.bore = to_dxyz(c.B), par.lever = to_dxyz(c.L);
  const dxyz P = exact_with(po(700), S, {});
  CorrCursor cursor;
  expect_near(comp_point_corr(c, cursor, P, 1007), exact_with(po(700), S, par) - P, 1e-3);

  SwathCorr delay;  // a delay moves the point to where the later record has it
  delay.po = &po;
  delay.CM = delay.CDT = true;
  delay.tcorr = 0.02;
  ASSERT_TRUE(init_SwathCorr(delay));
  CorrCursor later;
  expect_near(comp_point_corr(delay, later, P, 1007), exact_with(po(702), S, {}) - P, 2e-3);
  CorrCursor at_end;  // no trajectory after the delay: nothing moves
  expect_near(comp_point_corr(delay, at_end, P, 1020.09), {0, 0, 0}, 0);
}

TEST(PointCorr, OneCursorGivesWhatFreshOnesGive) {
  const Vector<PO> po = track();
  SwathCorr c;
  c.po = &po;
  c.CB = c.CI = true;
  c.B = {1e-3f, -2e-3f, 3e-3f};
  c.I[1] = 1e-4f;
  ASSERT_TRUE(init_SwathCorr(c));
  std::mt19937 gen(3);
  std::uniform_real_distribution<double> u(-0.3, 20.3);
  CorrCursor cursor;
  for (int i = 0; i < 300; i++) {
    const double t = 1000 + u(gen);
    const dxyz P = {500100 + u(gen), 5300000 - u(gen), 280};
    for (int echo = 0; echo < 3; echo++) {
      CorrCursor fresh;
      const dxyz Q = P + dxyz{0, 0, 2. * echo};
      EXPECT_EQ(comp_point_corr(c, cursor, Q, t), comp_point_corr(c, fresh, Q, t));
    }
  }
}

TEST(PointCorr, TimesOutsideTheTrajectory) {
  const Vector<PO> po = track();
  SwathCorr c;
  c.po = &po;
  c.CL = true;
  c.L = {1, 0, 0};
  ASSERT_TRUE(init_SwathCorr(c));
  const struct {
    double t;
    bool ok;
  } cases[] = {{999.95, true},  {999.8, false},  {1000, true},          {1020, true},     {1020.05, true},
               {1020.2, false}, {-2e307, false}, {std::nan(""), false}, {HUGE_VAL, false}};
  CorrCursor cursor;
  for (const auto& k : cases) {
    const xyz C = comp_point_corr(c, cursor, {500000, 5300000, 300}, k.t);
    EXPECT_EQ(C.z == NODATA, !k.ok) << k.t;
    EXPECT_EQ(C == NO_CORR, !k.ok);
  }
  // The point at the sensor itself: shift and drift only.
  EXPECT_EQ(comp_point_corr(c, cursor, {po(0).x, po(0).y, po(0).z}, 1000), (xyz{0, 0, 0}));
}

TEST(PointCorr, ShiftsAndWarpsNeedNoTrajectory) {
  Image<xyz> img(10, 10, xyz{0.1f, 0.2f, 0.3f});
  Vector<xyz> Tt{{1, 1, 1}};
  SwathCorr c;
  c.S = {5, 6, 7};
  c.warp.img = &img;
  c.warp.x0 = 500000, c.warp.y0 = 5300000, c.warp.GSD = 4;
  c.CT = true, c.Tt = &Tt;
  ASSERT_TRUE(init_SwathCorr(c));
  CorrCursor cursor;
  expect_near(comp_point_corr(c, cursor, {500020, 5300020, 1}, 77), {5.9, 6.8, 7.7}, 1e-5);
  expect_near(comp_point_corr(c, cursor, {600020, 5300020, 1}, 77), {6, 7, 8}, 1e-5);  // outside the image

  SwathCorr bad = c;
  bad.CB = true;
  EXPECT_FALSE(init_SwathCorr(bad));  // needs a trajectory
  bad = c;
  bad.Tt = nullptr;
  EXPECT_FALSE(init_SwathCorr(bad));
  Vector<PO> empty;
  bad = c;
  bad.po = &empty;
  EXPECT_FALSE(init_SwathCorr(bad));
}
}  // namespace veld
