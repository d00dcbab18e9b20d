#include "sim/simproject.h"

#include <algorithm>
#include <cmath>

#include "sim/simrand.h"

namespace {
constexpr double DEG = M_PI / 180;
}

bool sim_preset(const std::string& name, SimSpec& spec) {
  spec = SimSpec();
  spec.name = name;
  if (name == "demo" || name == "boresight") return true;
  if (name == "tiny") {  // for tests that take seconds
    spec.nparallel = 2;
    spec.length = 170;
    spec.spacing = 80;
    spec.agl = 160;
    spec.pulse_rate = 6000;
    return true;
  }
  if (name ==
      "drift") {  // attitude and position drift on top, far from the central meridian, crooked azimuth
    spec.seed = 7;
    spec.nparallel = 4;
    spec.ncross = 2;
    spec.length = 420;
    spec.azimuth_deg = 37;
    spec.east = 327000;
    spec.north = 5605000;
    spec.boresight_deg = {0.21, -0.12, -0.24};
    spec.lever = {0, 0, 0};
    spec.drift_pos = {0.03, 0.03, 0.04};
    spec.drift_att_deg = {0.003, 0.003, 0.006};
    return true;
  }
  if (name == "large") {  // for measuring speed
    spec.seed = 3;
    spec.length = 1500;
    spec.pulse_rate = 60000;
    spec.scan_rate = 60;
    return true;
  }
  return false;
}

Terrain make_terrain(const SimSpec& spec) {
  Terrain t;
  t.seed = spec.seed * 1000 + 17;
  t.x0 = spec.east;
  t.y0 = spec.north;
  return t;
}

DriftModel make_drift(const SimSpec& spec) {
  return {spec.seed * 1000 + 29, spec.drift_pos, spec.drift_att_deg * DEG, spec.drift_tau};
}

FlightPlan make_plan(const SimSpec& spec) {
  FlightPlan plan;
  plan.seed = spec.seed * 1000 + 41;
  plan.speed = spec.speed;
  plan.motion = spec.motion;
  const double z = make_terrain(spec).z0 + spec.agl, T = spec.length / spec.speed;
  const double az = spec.azimuth_deg * DEG;
  double t = 10;
  const auto add = [&](double offset, double heading, double across_az, double height) {
    plan.lines.push_back({t, t + T, spec.east + offset * std::cos(across_az),
                          spec.north - offset * std::sin(across_az), height, heading});
    t += T + spec.turn;
  };
  for (int i = 0; i < spec.nparallel; i++)
    add((i - 0.5 * (spec.nparallel - 1)) * spec.spacing, az + (i % 2 ? M_PI : 0), az, z);
  for (int i = 0; i < spec.ncross; i++)
    add((i - 0.5 * (spec.ncross - 1)) * spec.spacing, az + M_PI / 2 + (i % 2 ? M_PI : 0), az + M_PI / 2,
        z + 25);
  return plan;
}

std::vector<SimPoint> scan_line(const SimSpec& spec, const FlightPlan& plan, int line) {
  const Terrain terrain = make_terrain(spec);
  const DriftModel drift = make_drift(spec);
  const FlightLine& fl = plan.lines[line];
  const Mat3 bore =
      rotation_xyz(spec.boresight_deg.x * DEG, spec.boresight_deg.y * DEG, spec.boresight_deg.z * DEG);
  SimRandom random(spec.seed * 1000 + 100 + line);
  std::vector<SimPoint> points;
  const int64_t npulse = static_cast<int64_t>((fl.t1 - fl.t0) * spec.pulse_rate);
  for (int64_t i = 0; i < npulse; i++) {
    const double t = fl.t0 + (static_cast<double>(i) + 0.5) / spec.pulse_rate;
    // The mirror swings to and fro; the scan angle is positive to the right.
    const double phase = 2 * (t * spec.scan_rate - std::floor(t * spec.scan_rate));
    const double theta = spec.fov_deg * DEG * (phase < 1 ? 2 * phase - 1 : 3 - 2 * phase);
    const double noise_along = spec.angle_noise_deg * DEG * random.normal();
    const double noise_across = spec.angle_noise_deg * DEG * random.normal();
    const double true_theta = theta * (1 - spec.angle_scale) + noise_across;
    const dxyz beam_true{std::sin(noise_along), std::cos(noise_along) * std::sin(true_theta),
                         std::cos(noise_along) * std::cos(true_theta)};

    const Pose pose = true_pose(plan, t);
    const Mat3 attitude = body_to_world(pose.roll, pose.pitch, pose.heading);
    const dxyz origin = pose.p + apply(attitude, spec.lever);
    const dxyz dir = apply(attitude, apply(bore, beam_true));

    const Pose rec = recorded_pose(plan, drift, t);
    const Mat3 rec_attitude = body_to_world(rec.roll, rec.pitch, rec.heading);
    const dxyz rec_dir = apply(rec_attitude, dxyz{0, std::sin(theta), std::cos(theta)});

    const auto add = [&](const BeamHit& hit, int ret, int nret) {
      const double measured = hit.range - spec.range_bias + spec.range_noise * random.normal();
      const uint8_t cls = hit.cover == Cover::ground ? 2 : hit.cover == Cover::roof ? 6 : 5;
      points.push_back({t, rec.p + rec_dir * measured, origin + dir * hit.range,
                        static_cast<float>(theta / DEG), static_cast<uint8_t>(ret),
                        static_cast<uint8_t>(nret), cls});
    };
    BeamHit first, last;
    if (!cast_beam(terrain, origin, dir, 20 * spec.agl, false, first)) continue;
    if (first.cover != Cover::tree) {
      add(first, 1, 1);
      continue;
    }
    const double luck = random.uniform();
    first.range += 1.2 * random.uniform();  // the echo comes from inside the crown
    const bool through = luck < 0.75 && cast_beam(terrain, origin, dir, 20 * spec.agl, true, last);
    if (!through) {
      add(first, 1, 1);
    } else if (luck < 0.25) {
      add(last, 1, 1);
    } else if (first.range < last.range - 1) {
      add(first, 1, 2);
      add(last, 2, 2);
    } else {
      add(last, 1, 1);
    }
  }
  return points;
}
