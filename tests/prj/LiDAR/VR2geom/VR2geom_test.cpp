#include "prj/LiDAR/VR2geom/VR2geom.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "tests/prj/LiDAR/VR2geom/exact_model.h"

namespace veld {
namespace {
void expect_near(const xyz& a, const dxyz& b, double tol, const char* what) {
  EXPECT_NEAR(a.x, b.x, tol) << what;
  EXPECT_NEAR(a.y, b.y, tol) << what;
  EXPECT_NEAR(a.z, b.z, tol) << what;
}

ExactView random_view(unsigned seed, bool mounted) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  ExactView v;
  v.O = {500000 + 1000 * u(gen), 5300000 + 1000 * u(gen), 600 + 100 * u(gen)};
  v.Att = {12 * u(gen), 9 * u(gen), 360 * u(gen)};
  v.imu = mounted ? dxyz{5 * u(gen), -20 * u(gen), 180 * u(gen)} : dxyz{0, 0, 0};
  v.bore = mounted ? dxyz{3 * u(gen), 7 * u(gen), 90 * u(gen)} : dxyz{0, 0, 0};
  v.s = {8 * u(gen), 90 * u(gen), 220 + 40 * u(gen)};
  return v;
}

TrajFrame frame_of(const ExactView& v) {
  SwRot rot;
  rot.M = mount_rows(to_xyz(v.imu));
  rot.Q = mount_rows(to_xyz(v.bore));
  TrajFrame f;
  comp_TrajFrame(v.O, to_xyz(v.Att), rot, f);
  return f;
}

TrajFrame level_north() {  // flying north, level, no mount: u north, v east, w down
  TrajFrame f;
  comp_TrajFrame({0, 0, 0}, {0, 0, 0}, SwRot{}, f);
  return f;
}
}  // namespace

TEST(VR2geom, BodyAxesInTheWorld) {
  const struct {
    const char* what;
    xyz att, forward, right, down;
  } cases[] = {
      {"north", {0, 0, 0}, {0, 1, 0}, {1, 0, 0}, {0, 0, -1}},
      {"east", {0, 0, 90}, {1, 0, 0}, {0, -1, 0}, {0, 0, -1}},
      {"nose up", {0, 90, 0}, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}},
      {"right wing down", {90, 0, 0}, {0, 1, 0}, {0, 0, -1}, {-1, 0, 0}},
  };
  for (const auto& c : cases) {
    TrajFrame f;
    comp_TrajFrame({0, 0, 0}, c.att, SwRot{}, f);
    expect_near(f.a, to_dxyz(c.forward), 1e-6, c.what);
    expect_near(f.b, to_dxyz(c.right), 1e-6, c.what);
    expect_near(f.c, to_dxyz(c.down), 1e-6, c.what);
    const Rot3 R = comp_R(c.att);
    expect_near(column(R, 0), to_dxyz(f.a), 1e-6, c.what);
  }
}

// Every column is the change of the exact point per unit of its parameter.
TEST(VR2geom, ColumnsAreDerivativesOfTheExactModel) {
  for (unsigned seed = 1; seed <= 20; seed++)
    for (bool generic : {false, true}) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << " generic " << generic);
      const ExactView v = random_view(seed, seed % 2 == 0);
      const TrajFrame f = frame_of(v);
      const dxyz P = exact_point(v, {}, generic);
      GeomCols cols;
      GeomFlags flags;
      flags.gen = generic;
      comp_GeomCols(f, to_xyz(P - v.O), flags, cols);
      const auto derivative = [&](const std::function<void(ExactParam&, double)>& set, double h) {
        ExactParam plus, minus;
        set(plus, h), set(minus, -h);
        return (exact_point(v, plus, generic) - exact_point(v, minus, generic)) / (2 * h);
      };
      // Tolerances: f32 of vectors of some 250 m, columns of up to that length.
      const struct {
        const char* what;
        const xyz& col;
        std::function<void(ExactParam&, double)> set;
      } cases[] = {
          {"lever X", cols.lever[0], [](ExactParam& p, double h) { p.lever.x = h; }},
          {"lever Y", cols.lever[1], [](ExactParam& p, double h) { p.lever.y = h; }},
          {"lever Z", cols.lever[2], [](ExactParam& p, double h) { p.lever.z = h; }},
          {"bore roll", cols.bore[0], [](ExactParam& p, double h) { p.bore.x = h; }},
          {"bore pitch", cols.bore[1], [](ExactParam& p, double h) { p.bore.y = h; }},
          {"bore yaw", cols.bore[2], [](ExactParam& p, double h) { p.bore.z = h; }},
          {"drift roll", cols.att[0], [](ExactParam& p, double h) { p.A.x = h; }},
          {"drift pitch", cols.att[1], [](ExactParam& p, double h) { p.A.y = h; }},
          {"drift yaw", cols.att[2], [](ExactParam& p, double h) { p.A.z = h; }},
      };
      for (const auto& c : cases) expect_near(c.col, derivative(c.set, 1e-5), 3e-3, c.what);
      for (int k = 0; k < N_INTERNAL; k++)
        expect_near(cols.internal[k], derivative([k](ExactParam& p, double h) { p.internal[k] = h; }, 1e-5),
                    2e-3, "internal");
    }
}

TEST(VR2geom, BodyAndInternalCoordinates) {
  for (unsigned seed = 1; seed <= 6; seed++) {
    const ExactView v = random_view(seed, true);
    const dxyz P = exact_point(v, {}, false);
    const BodyICS b = comp_BodyICS(frame_of(v), P);
    expect_near(b.ICS, v.s, 1e-3, "ICS");
    EXPECT_NEAR(norm(b.BF), norm(v.s), 1e-3);
    EXPECT_NEAR(b.theta, std::atan(v.s.y / v.s.z) * 57.29578, 1e-3);
    EXPECT_NEAR(b.phi, std::asin(v.s.x / norm(v.s)) * 57.29578, 1e-3);
  }
}

TEST(VR2geom, InternalColumnsAtSpecialPlaces) {
  const TrajFrame f = level_north();
  xyz c[N_INTERNAL];
  ground_internal_cols(f, {0, 0, -100}, {}, c);  // straight down
  expect_near(c[0], {0, 0, -1}, 1e-6, "range bias");
  expect_near(c[1], {0, 0, -100}, 1e-4, "range scale");
  for (int k = 2; k < N_INTERNAL; k++) expect_near(c[k], {0, 0, 0}, 0, "no effect at nadir");
  GeomFlags nob;
  nob.nob = true;
  ground_internal_cols(f, {0, 0, -100}, nob, c);
  expect_near(c[0], {0, 0, 0}, 1e-6, "flat shift taken out");
  expect_near(c[1], {0, 0, 0}, 1e-6, "scale without Z");
  const xyz none[] = {{0, 0, 0}, {30, 0, 0}, {0, 40, 0}};  // at the sensor; s_w = 0
  for (const xyz& r : none)
    for (bool gen : {false, true}) {
      GeomFlags flags;
      flags.gen = gen;
      ground_internal_cols(f, r, flags, c);
      for (const xyz& col : c) EXPECT_EQ(col, (xyz{0, 0, 0}));
    }
  GeomCols all;
  comp_GeomCols(f, {0, 0, 0}, {}, all);
  for (int k = 0; k < 3; k++) {
    EXPECT_EQ(all.lever[k], (xyz{0, 0, 0}));
    EXPECT_EQ(all.bore[k], (xyz{0, 0, 0}));
    EXPECT_EQ(all.att[k], (xyz{0, 0, 0}));
  }
  GeomFlags noz;
  noz.NOZ = true;
  comp_GeomCols(f, {20, 30, -100}, noz, all);
  EXPECT_EQ(all.att[1].z, 0);
  EXPECT_NE(all.att[1].y, 0);
}

TEST(VR2geom, MountRotations) {
  Mount zero, turned;
  turned.IMU = {1.5f, -30, 170};
  turned.Bore = {0.3f, 0.2f, 90};
  const Rot3 identity = mount_rows({0, 0, 0});
  for (int i = 0; i < 3; i++)
    for (int k = 0; k < 3; k++) EXPECT_EQ((&identity.row[i].x)[k], i == k ? 1.0f : 0.0f);
  const SwRot rot = chMount2R(1, {turned, zero}, false), arot = chMount2R(1, {turned, zero}, true);
  expect_near(rotate(rot.M, rotate_t(rot.M, {1, 2, 3})), {1, 2, 3}, 1e-6, "orthonormal");
  EXPECT_LT(rot.M.row[0].x, 0);                                             // turned by 170 degrees
  EXPECT_EQ(chMount2R(2, {turned, zero}, false).M.row[0], (xyz{1, 0, 0}));  // a group without rotation
  EXPECT_EQ(chMount2R(2, {turned}, false).Q.row[0], rot.Q.row[0]);          // one mount for all
  EXPECT_EQ(arot.M.row[0], (xyz{1, 0, 0}));  // the attitudes are rotated already
  EXPECT_EQ(arot.Q.row[0], rot.Q.row[0]);
}

// Rotated attitudes with identity rows and original attitudes with IMU rows are the same sensor.
TEST(VR2geom, RotatedAttitudesReplaceTheImuRows) {
  const xyz imu = {2, -3, 178};
  SwRot rot;
  rot.M = mount_rows(imu);
  Vector<PO> po(5);
  for (int i = 0; i < 5; i++) po(i) = {100. + i, 0, 0, 0, 3.f * i - 4, 2.f - i, 170 + 5.f * i};
  Vector<PO> turned = po;
  rotate_IMU(turned, imu);
  for (int i = 0; i < 5; i++) {
    TrajFrame with_rows, with_att;
    comp_TrajFrame({0, 0, 0}, {po(i).roll, po(i).pitch, po(i).yaw}, rot, with_rows);
    comp_TrajFrame({0, 0, 0}, {turned(i).roll, turned(i).pitch, turned(i).yaw}, SwRot{}, with_att);
    expect_near(with_att.a, to_dxyz(with_rows.a), 2e-6, "a");
    expect_near(with_att.b, to_dxyz(with_rows.b), 2e-6, "b");
    expect_near(with_att.c, to_dxyz(with_rows.c), 2e-6, "c");
    EXPECT_LT(std::fabs(turned(i).yaw - turned(i > 0 ? i - 1 : 0).yaw), 180);  // continuous
  }
}

TEST(VR2geom, TablesOverTime) {
  const Vector<xyz> Tt{{1, 0, -1}, {3, 2, -5}, {4, 2, -5}}, At{{0, 0, 0}, {1, 1, 1}, {2, 2, 2}};
  const struct {
    double t;
    xyz T;
  } cases[] = {{-1e9, {1, 0, -1}},     {10, {1, 0, -1}}, {11, {2, 1, -3}}, {12, {3, 2, -5}},
               {13.5, {3.75f, 2, -5}}, {14, {4, 2, -5}}, {15, {4, 2, -5}}, {1e300, {4, 2, -5}}};
  for (const auto& c : cases) {
    xyz T, A;
    InterpTA(c.t, 10, 2, Tt, At, T, A);
    expect_near(T, to_dxyz(c.T), 1e-6, "InterpTA");
    EXPECT_EQ(T, InterpVt(c.t, 10, 2, Tt));
    EXPECT_EQ(A, InterpVt(c.t, 10, 2, At));
  }
  EXPECT_DEATH(InterpVt(0, 0, 1, Vector<xyz>()), "Vt.size");

  Vector<double> t(50);
  Vector<xyz> v(50);
  for (int i = 0; i < 50; i++) {
    t(i) = 1e9 + i * 0.5;
    v(i) = {static_cast<float>(0.1 * i), 2, static_cast<float>(-0.02 * i)};
  }
  dxyz a, b;
  linreg_xyz(t, v, a, b);
  EXPECT_NEAR(b.x, 0.2, 1e-6);
  EXPECT_NEAR(b.y, 0, 1e-9);
  EXPECT_NEAR(a.z + b.z * (1e9 + 5), -0.2, 1e-4);
  EXPECT_DEATH(linreg_xyz(Vector<double>{1}, Vector<xyz>(1), a, b), "n > 1|n>1");
}

TEST(VR2geom, CorrectionImageSample) {
  Image<xyz> img(8, 6);
  for (int y = 0; y < 6; y++)
    for (int x = 0; x < 8; x++) img(x, y) = {1.0f * x, 2.0f * y, 0.5f};
  expect_near(sample_corr_img(img, 3.25, 2.5), {3.25, 5, 0.5}, 1e-5, "a linear field comes back");
  img(3, 2) = {99, 99, NODATA};
  const xyz hole = sample_corr_img(img, 3.25, 2.5);
  EXPECT_NEAR(hole.z, 0.5, 1e-5);
  EXPECT_LT(hole.x, 10);
  EXPECT_NEAR(sample_corr_img(img, 0, 0).z, 0.5, 1e-5);  // part of the support is outside
  for (const dxyz& at : {dxyz{-3, 0, 0}, dxyz{1e30, 0, 0}, dxyz{0, 9, 0}, dxyz{std::nan(""), 0, 0}})
    EXPECT_EQ(sample_corr_img(img, at.x, at.y).z, NODATA);
}

TEST(VR2geom, OutputAngles) {
  TrajFrame f;
  comp_TrajFrame({100, 200, 300}, {0, 0, 90}, SwRot{}, f);  // flying east: right is south
  EXPECT_NEAR(comp_las_angle(f, {100, 100, 200}), 45, 1e-3);
  EXPECT_NEAR(comp_las_angle(f, {150, 300, 200}), -45, 1e-3);
  EXPECT_EQ(comp_las_angle(f, {150, 300, 300}), NO_ANGLE);
  EXPECT_NEAR(comp_int_angle(f, {100, 100, 200}), 45, 1e-3);
  EXPECT_EQ(comp_int_angle(f, {100, 100, 300}), NO_ANGLE);
  EXPECT_NEAR(comp_int_pitch(f, {200, 200, 200}), 45, 1e-3);
  EXPECT_EQ(comp_int_pitch(f, f.O), NO_ANGLE);
}
}  // namespace veld
