// The simulator against things known without it: a projection library, the definition of the corrections.
#include <gtest/gtest.h>

#include <cmath>

#include "geo/georef.h"
#include "sim/score.h"
#include "sim/simproject.h"

namespace {
constexpr double DEG = M_PI / 180;

TEST(Flight, InverseProjectionAgreesWithTheLibrary) {
  const struct {
    int zone;
    double east, north;
  } cases[] = {{33, 500000, 5321000}, {33, 327000, 5605000}, {31, 700000, 200000}, {18, 250000, 7800000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.east);
    GeoRefParam geo;
    ASSERT_TRUE(geo.init(c.zone, "", 0, "", false));
    double lat, lon, convergence, north_deg;
    utm_inverse(c.zone, c.east, c.north, lat, lon, convergence);
    dxyz p;
    ASSERT_TRUE(geo_forward_north(geo, lon / DEG, lat / DEG, 0, p, north_deg));
    EXPECT_NEAR(p.x, c.east, 1e-4);
    EXPECT_NEAR(p.y, c.north, 1e-4);
    // True north lies to the other side of grid north than grid north of true north.
    EXPECT_NEAR(north_deg, -convergence / DEG, 1e-4);
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

// P + Lx a + Ly b + Lz c + roll (a x r) + pitch (b x r) + yaw (c x r), with a, b, c the body axes and r = P -
// O.
TEST(Project, CorrectionsAddedToPointsGiveTheTruth) {
  SimSpec spec = small_spec();
  spec.boresight_deg = {0.05, -0.04, 0.06};
  spec.lever = {0.3, -0.2, 0.1};
  const FlightPlan plan = make_plan(spec);
  const std::vector<SimPoint> points = scan_line(spec, plan, 0);
  double before = 0, after = 0;
  for (const SimPoint& p : points) {
    const Pose pose = recorded_pose(plan, make_drift(spec), p.t);
    const Mat3 m = body_to_world(pose.roll, pose.pitch, pose.heading);
    const dxyz a = apply(m, {1, 0, 0}), b = apply(m, {0, 1, 0}), c = apply(m, {0, 0, 1}),
               r = p.observed - pose.p;
    const dxyz q = p.observed + spec.lever.x * a + spec.lever.y * b + spec.lever.z * c +
                   spec.boresight_deg.x * DEG * cross(a, r) + spec.boresight_deg.y * DEG * cross(b, r) +
                   spec.boresight_deg.z * DEG * cross(c, r);
    before = std::max(before, norm(p.observed - p.truth));
    after = std::max(after, norm(q - p.truth));
  }
  EXPECT_GT(before, 0.3);
  EXPECT_LT(after, 1e-3);  // what the linear form leaves: 180 m times the square of 0.09 degrees
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
