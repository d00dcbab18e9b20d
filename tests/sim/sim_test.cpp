// The simulator against things known without it: a projection library, the definition of the corrections.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "geo/georef.h"
#include "lib/Geometry/angle.h"
#include "sim/score.h"
#include "sim/simproject.h"

namespace veld {
namespace {

TEST(Flight, InverseProjectionAgreesWithTheLibrary) {
  const struct {
    int zone;  // negative: southern hemisphere
    double east, north;
  } cases[] = {{33, 500000, 5321000},
               {33, 327000, 5605000},
               {31, 700000, 200000},
               {18, 250000, 7800000},
               {-35, 610000, 7130000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.east);
    GeoRefParam geo;
    ASSERT_TRUE(geo.init(c.zone, "", 0, "", false));
    double lat, lon, convergence, north_deg;
    utm_inverse(c.zone, c.east, c.north, lat, lon, convergence);
    dxyz p;
    ASSERT_TRUE(geo_forward_north(geo, lon / RAD_PER_DEG, lat / RAD_PER_DEG, 0, p, north_deg));
    EXPECT_NEAR(p.x, c.east, 1e-4);
    EXPECT_NEAR(p.y, c.north, 1e-4);
    // True north lies to the other side of grid north than grid north of true north.
    EXPECT_NEAR(north_deg, -convergence / RAD_PER_DEG, 1e-4);
  }
}

SimSpec small_spec() {
  SimSpec spec;
  sim_preset("tiny", spec);
  spec.length = 40;
  spec.range_noise = 0;
  spec.angle_noise_deg = 0;
  return spec;
}

TEST(Project, WithoutErrorsPointsAreTrue) {
  SimSpec spec = small_spec();
  spec.boresight_deg = {0, 0, 0};
  spec.lever = {0, 0, 0};
  const std::vector<SimPoint> points = scan_line(spec, make_plan(spec), 1);
  ASSERT_GT(points.size(), 5000u);
  double worst = 0;
  for (const SimPoint& p : points) worst = std::max(worst, norm(p.observed - p.truth));
  EXPECT_LT(worst, 1e-6);
}

// Displacement of a point by the internal values, in the frame of the scanner (forward, right, down).
dxyz internal_correction(const SimSpec& spec, const dxyz& s) {
  const double* v = spec.internal;
  const double theta = std::atan2(s.y, s.z), q = theta * theta, range = norm(s);
  if (spec.internal_generic)
    return {v[5] * q, v[2] * theta + v[3] * q + v[4] * q * theta, v[0] * q + v[1] * q * theta + v[6] * q * q};
  const dxyz turn = (v[2] * theta + v[3] * q + v[4] * q * theta) * dxyz{0, -s.z, s.y};
  return (v[0] / range + v[1]) * s + turn + dxyz{v[5] * (range - s.z), 0, 0};
}

// P + Lx a + Ly b + Lz c + roll (a x r) + pitch (b x r) + yaw (c x r) + internal values, with a, b, c the body
// axes and r = P - O.
TEST(Project, CorrectionsAddedToPointsGiveTheTruth) {
  const struct {
    const char* what;
    int channel;
    bool generic;
    double internal[7];
  } cases[] = {
      {"boresight and lever", 0, false, {}},
      {"ranges", 0, false, {0.15, 0.001}},
      {"scan angles", 0, false, {0, 0, 0.002, 0.003, -0.004, 0.02}},
      {"generic", 0, true, {0.5, -0.4, 0.3, 0.6, -0.5, 0.7, 0.8}},
      {"second channel", 1, false, {0.1, 0, 0.002}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    SimSpec spec = small_spec();
    spec.boresight_deg = {0.05, -0.04, 0.06};
    spec.boresight1_deg = {-0.03, 0.05, -0.07};
    spec.lever = {0.3, -0.2, 0.1};
    spec.internal_generic = c.generic;
    std::copy(c.internal, c.internal + 7, spec.internal);
    const FlightPlan plan = make_plan(spec);
    const dxyz bore = c.channel == 0 ? spec.boresight_deg : spec.boresight1_deg;
    const Mat3 mount = rotation_xyz(0, c.channel * spec.tilt1_deg * RAD_PER_DEG, 0);
    double before = 0, after = 0;
    for (const SimPoint& p : scan_line(spec, plan, 0, c.channel)) {
      const Pose pose = recorded_pose(plan, make_drift(spec), p.t);
      const Mat3 body = body_to_world(pose.roll, pose.pitch, pose.heading), ics = product(body, mount);
      const dxyz a = apply(body, {1, 0, 0}), b = apply(body, {0, 1, 0}), down = apply(body, {0, 0, 1}),
                 r = p.observed - pose.p;
      const dxyz s{dot(r, apply(ics, {1, 0, 0})), dot(r, apply(ics, {0, 1, 0})),
                   dot(r, apply(ics, {0, 0, 1}))};
      const dxyz q = p.observed + spec.lever.x * a + spec.lever.y * b + spec.lever.z * down +
                     bore.x * RAD_PER_DEG * cross(a, r) + bore.y * RAD_PER_DEG * cross(b, r) +
                     bore.z * RAD_PER_DEG * cross(down, r) + apply(ics, internal_correction(spec, s));
      before = std::max(before, norm(p.observed - p.truth));
      after = std::max(after, norm(q - p.truth));
    }
    EXPECT_GT(before, 0.3);
    EXPECT_LT(after, 2e-3);  // what the linear form leaves: 180 m times the square of 0.1 degrees
  }
}

TEST(Project, SameSeedSamePoints) {
  const SimSpec spec = small_spec();
  const std::vector<SimPoint> a = scan_line(spec, make_plan(spec), 0),
                              b = scan_line(spec, make_plan(spec), 0);
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); i += 97) EXPECT_EQ(a[i].observed, b[i].observed);
}

TEST(Score, ShiftAndRelativeErrorAreSeparated) {
  std::vector<SwathScore> swaths(2);
  for (int s = 0; s < 2; s++) {
    SwathScore& sw = swaths[static_cast<size_t>(s)];
    sw.truth.resize(400);
    sw.points.resize(400);
    for (int i = 0; i < 400; i++) {
      sw.truth(i) = {0.1 * (i % 20), 0.1 * (i / 20), 5};
      sw.points(i) = sw.truth(i) + dxyz{1, 2, s == 0 ? 0.1 : -0.1};
    }
  }
  const ProjectScore score = score_project(swaths, 10);
  EXPECT_NEAR(score.shift.x, 1, 1e-9);
  EXPECT_NEAR(score.shift.z, 0, 1e-9);
  EXPECT_NEAR(score.all_rel.rms3d, 0.1, 1e-9);
  EXPECT_NEAR(score.all.rms3d, std::sqrt(5.01), 1e-9);
  EXPECT_NEAR(score.relative.z, 0.2, 1e-9);
  EXPECT_EQ(score.ncells, 1);
}
}  // namespace
}  // namespace veld
