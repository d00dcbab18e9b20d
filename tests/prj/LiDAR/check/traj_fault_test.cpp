// Scanners of all kinds over rolling ground, seen from a moving platform: a right trajectory is never refused, a
// wrong one is, with its cause. The beams are made with plain vectors, not with the sensor model.
#include "prj/LiDAR/check/traj_fault.h"

#include <gtest/gtest.h>

#include <cmath>

#include "sim/flight.h"

namespace veld {
namespace {
constexpr int NBEAMS = 800;
constexpr double RAD = 0.017453292519943295;

// Roll, pitch, yaw of the platform, degrees. Lively enough to tell, as real flights are.
xyz true_attitude(double t) {
  return {static_cast<float>(1.2 * std::sin(0.9 * t) + 0.4 * std::sin(2.3 * t)),
          static_cast<float>(1.5 + 0.8 * std::sin(0.7 * t + 1) + 0.3 * std::cos(1.9 * t)),
          static_cast<float>(63 + 1.1 * std::sin(0.5 * t + 2))};
}
dxyz true_position(double t) {
  return {1000 + 40 * t * std::sin(63 * RAD), 2000 + 40 * t * std::cos(63 * RAD),
          600 + 2 * std::sin(0.2 * t)};
}

// Body (forward, right, down) to world (east, north, up).
dxyz to_world(const xyz& att, const dxyz& b) {
  return apply(body_to_world(att.x * RAD, att.y * RAD, att.z * RAD), b);
}

struct Scanner {
  const char* name;
  dxyz (*beam)(double t, double& angle_deg);  // in the body frame, and the angle that is recorded
};

double mirror_deg(double t) { return 30 * std::asin(std::sin(2 * M_PI * 7.3 * t)) / (M_PI / 2); }

dxyz level(double t, double& a) {
  a = mirror_deg(t);
  return {0, std::sin(a * RAD), std::cos(a * RAD)};
}
dxyz tilted(double t, double& a) {  // 20 degrees forward
  const dxyz v = level(t, a);
  return {v.z * std::sin(20 * RAD), v.y, v.z * std::cos(20 * RAD)};
}
dxyz oblique(double t, double& a) {  // a polygon that looks 45 degrees back
  const dxyz v = level(t, a);
  return {-v.z * std::sin(45 * RAD), v.y, v.z * std::cos(45 * RAD)};
}
dxyz misaligned(double t, double& a) {  // 3 degrees about each axis
  return to_world({3, -3, 90 - 3}, tilted(t, a));
}
dxyz prism(double t, double& a) {  // a circle, 20 degrees about nadir; no angle
  a = 0;
  const double u = 2 * M_PI * 9.1 * t;
  return {std::sin(20 * RAD) * std::cos(u), std::sin(20 * RAD) * std::sin(u), std::cos(20 * RAD)};
}
dxyz channels(double t, double& a) {  // 16 lasers in one file, fanned along the track
  const double fan = (std::fmod(std::floor(t * 1e4), 16) - 7.5) * 2 * RAD;
  const dxyz v = level(t, a);
  return {std::sin(fan), v.y * std::cos(fan), v.z * std::cos(fan)};
}
dxyz no_angle(double t, double& a) {
  const dxyz v = level(t, a);
  a = 0;
  return v;
}

// Where a beam meets hills, by stepping the range.
dxyz hit(const dxyz& O, const dxyz& d) {
  double range = 500;
  for (int i = 0; i < 30; i++) {
    const dxyz P = O + d * range;
    const double ground = 100 + 15 * std::sin(P.x / 90) * std::cos(P.y / 110);
    range += (P.z - ground) / -d.z * 0.9;
  }
  return O + d * range;
}

struct Flight {
  std::vector<Beam> beams;
  Vector<PO> po;
  bool angled = false;
};

Flight fly(const Scanner& scanner) {
  Flight f;
  for (int i = 0; i < NBEAMS; i++) {
    const double t = 60 + 30.0 * i / NBEAMS + 0.00013 * (i % 7);
    double angle = 0;
    dxyz b = scanner.beam(t, angle);
    if (scanner.beam == misaligned) b = {b.y, b.x, -b.z};  // to_world gives east, north, up
    const dxyz d = to_world(true_attitude(t), b / norm(b));
    f.beams.push_back({t, hit(true_position(t), d), static_cast<float>(std::lround(angle))});
    f.angled = f.angled || angle != 0;
  }
  f.po.resize(15000);
  for (uint64_t i = 0; i < f.po.size(); i++) {
    const double t = static_cast<double>(i) * 0.01;
    const dxyz O = true_position(t);
    const xyz a = true_attitude(t);
    f.po[i] = {t, O.x, O.y, O.z, a.x, a.y, a.z};
  }
  return f;
}

TrajFault judge(const Flight& f, Attitude attitude = Attitude::recorded) {
  const SwRot rot;
  const ScanPattern now = comp_ScanPattern(f.beams, 0, f.angled, f.po, false, rot, {});
  return find_traj_fault(f.beams, 0, f.angled, now, f.po, attitude, rot);
}

const Scanner SCANNERS[] = {{"level", level},           {"tilted", tilted}, {"oblique", oblique},
                            {"misaligned", misaligned}, {"prism", prism},   {"channels", channels},
                            {"no angle", no_angle}};
}  // namespace

TEST(TrajFault, ARightTrajectoryIsNeverRefused) {
  for (const Scanner& s : SCANNERS) {
    SCOPED_TRACE(s.name);
    const TrajFault f = judge(fly(s));
    EXPECT_EQ(f.kind, TrajFaultKind::none) << fault_text(f) << " " << fault_evidence(f);
    EXPECT_TRUE(s.beam == channels || f.now.spread < 0.02) << f.now.spread;
  }
}

TEST(TrajFault, TheCauseIsNamed) {
  const struct {
    const char* what;
    void (*spoil)(PO&);
    const char* text;
    bool angles;  // needs recorded scan angles
  } cases[] = {
      {"UTC", [](PO& p) { p.t -= 18; }, "trajectory is 18.0 s early", false},
      {"late", [](PO& p) { p.t += 0.4; }, "trajectory is 0.4 s late", false},
      {"swapped",
       [](PO& p) {
         const float r = p.roll;
         p.roll = p.pitch, p.pitch = r;
       },
       "roll and pitch of the trajectory are swapped", false},
      {"pitch", [](PO& p) { p.pitch = -p.pitch; }, "pitch of the trajectory has the wrong sign", false},
      {"roll", [](PO& p) { p.roll = -p.roll; }, "roll of the trajectory has the wrong sign", true},
      {"tail", [](PO& p) { p.yaw += 180; }, "heading of the trajectory is that of the tail", false},
      {"from east", [](PO& p) { p.yaw = 90 - p.yaw; }, "heading of the trajectory counts from east", true},
      {"geoid", [](PO& p) { p.z += 45; }, "trajectory is 45 m too high", true},
      {"other flight", [](PO& p) { p.x += 5000; }, "points lie ", false},
      {"below", [](PO& p) { p.z -= 700; }, "points lie ", false},
  };
  for (const Scanner& s : {SCANNERS[1], SCANNERS[6]})
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(s.name) + ", " + c.what);
      Flight f = fly(s);
      if (c.angles && !f.angled) continue;
      for (PO& p : f.po) c.spoil(p);
      const TrajFault fault = judge(f);
      EXPECT_EQ(fault_text(fault).substr(0, std::string(c.text).size()), c.text) << fault_evidence(fault);
    }
}

TEST(TrajFault, MissingAttitudes) {
  Flight f = fly(SCANNERS[0]);
  for (PO& p : f.po) p.roll = p.pitch = 0, p.yaw = 63;
  EXPECT_EQ(judge(f, Attitude::missing).kind, TrajFaultKind::no_attitude);
  EXPECT_EQ(judge(f, Attitude::level).kind, TrajFaultKind::none);
}
}  // namespace veld
