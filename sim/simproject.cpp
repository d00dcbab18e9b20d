#include "sim/simproject.h"

#include <algorithm>
#include <cmath>

#include "lib/Geometry/angle.h"
#include "sim/simrand.h"
#include "sim/space.h"

namespace veld {
Terrain make_terrain(const SimSpec& spec) {
  Terrain t = spec.land;
  t.seed = (spec.land_seed > 0 ? spec.land_seed : spec.seed) * 1000 + 17;
  t.x0 = spec.east;
  t.y0 = spec.north;
  return t;
}

DriftModel make_drift(const SimSpec& spec) {
  DriftModel model = {spec.seed * 1000 + 29, spec.drift_pos, spec.drift_att_deg * RAD_PER_DEG,
                      spec.drift_tau};
  const FlightPlan plan = make_plan(spec);
  const FlightLine& bad = plan.lines[std::min<size_t>(1, plan.lines.size() - 1)];
  model.worse = spec.drift_worse, model.t_bad0 = bad.t0, model.t_bad1 = bad.t1;
  return model;
}

dxyz boresight_of(const SimSpec& spec, int channel) {
  const dxyz &a = spec.boresight_deg, &b = spec.boresight1_deg;
  if (channel < 2) return channel == 0 ? a : b;
  const double c = channel;
  return {b.x * std::cos(c), b.y * std::cos(1.7 * c), b.z * std::sin(c)};
}

double tilt_of(const SimSpec& spec, int channel) { return channel * spec.tilt1_deg; }

FlightPlan make_plan(const SimSpec& spec) {
  FlightPlan plan;
  plan.seed = spec.seed * 1000 + 41;
  plan.speed = spec.speed;
  plan.motion = spec.motion;
  const double z = make_terrain(spec).z0 + spec.agl, T = spec.length / spec.speed;
  const double az = spec.azimuth_deg * RAD_PER_DEG;
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

namespace {
// A pulse as it is and as the scanner reports it, in the scanner's own frame (forward, right, down).
struct Pulse {
  double t, theta;        // reported scan angle, radians
  dxyz reported;          // unit vector
  dxyz start, direction;  // true beam
};

// The true beam of a reported scan angle. With corrections c(s) to be added to the reported vector s, a beam
// whose points are s + c(s) for all ranges: the range corrections stand in measured_range.
void true_beam(const SimSpec& spec, double theta, Pulse& pulse) {
  const double* v = spec.internal;
  const double q = theta * theta;
  if (spec.internal_generic) {
    pulse.start = {v[5] * q, theta * (v[2] + v[3] * theta + v[4] * q), q * (v[0] + v[1] * theta + v[6] * q)};
    pulse.direction = pulse.reported;
    return;
  }
  const double angle = theta - theta * (v[2] + v[3] * theta + v[4] * q);
  const dxyz along{v[5] * (1 - std::cos(theta)), std::sin(angle), std::cos(angle)};
  pulse.start = {0, 0, 0};
  pulse.direction = along / norm(along);
}

double measured_range(const SimSpec& spec, double range) {
  return spec.internal_generic ? range : (range - spec.internal[0]) / (1 + spec.internal[1]);
}

// The mirror swings to and fro; the scan angle is positive to the right.
Pulse make_pulse(const SimSpec& spec, double t, double phase_shift, SimRandom& random) {
  Pulse pulse;
  pulse.t = t;
  const double turns = t * spec.scan_rate + phase_shift;
  const double phase = 2 * (turns - std::floor(turns));
  pulse.theta = spec.fov_deg * RAD_PER_DEG * (phase < 1 ? 2 * phase - 1 : 3 - 2 * phase);
  pulse.reported = {0, std::sin(pulse.theta), std::cos(pulse.theta)};
  true_beam(spec, pulse.theta, pulse);
  const double along = spec.angle_noise_deg * RAD_PER_DEG * random.normal();
  const double across = spec.angle_noise_deg * RAD_PER_DEG * random.normal();
  pulse.direction = apply(rotation_xyz(-across, along, 0), pulse.direction);
  return pulse;
}

uint8_t class_of(Cover cover) {
  const uint8_t cls[] = {2, 6, 5, 3};
  return cls[static_cast<int>(cover)];
}

struct Echoes {
  int n = 0;
  BeamHit hit[2];
};

// What comes back from below the crowns: nothing from water, in woods now and then a shrub.
bool cast_to_ground(const Terrain& terrain, const GridBeam& beam, double max_range, SimRandom& random,
                    BeamHit& hit) {
  if (!cast_beam(terrain, beam, max_range, true, hit)) return false;
  if (hit.cover != Cover::ground) return true;
  const dxyz p = beam.at(hit.range);
  if (is_pond(terrain, p.x, p.y)) return false;
  if (terrain.undergrowth > 0 && is_wood(terrain, p.x, p.y) && random.uniform() < 0.4) {
    hit.range += terrain.undergrowth * random.uniform() / beam.dir.z;  // upwards: dir.z is negative
    hit.cover = Cover::shrub;
  }
  return true;
}

// What comes back of one beam: in crowns an echo from inside, often one more from below.
Echoes find_echoes(const Terrain& terrain, const GridBeam& beam, double max_range, SimRandom& random) {
  Echoes echoes;
  BeamHit first, last;
  if (!cast_beam(terrain, beam, max_range, false, first)) return echoes;
  if (first.cover != Cover::tree) {
    echoes.n = cast_to_ground(terrain, beam, max_range, random, echoes.hit[0]) ? 1 : 0;
    return echoes;
  }
  echoes.n = 1;
  const double luck = random.uniform();
  first.range += 1.2 * random.uniform();
  echoes.hit[0] = first;
  if (luck >= 0.75 || !cast_to_ground(terrain, beam, max_range, random, last)) return echoes;
  if (luck < 0.25 || first.range >= last.range - 1) {
    echoes.hit[0] = last;
  } else {
    echoes.n = 2;
    echoes.hit[1] = last;
  }
  return echoes;
}

// A straight beam of space in the grid: a parabola through three of its places, less than 1 mm off over 3000 m.
GridBeam beam_in_grid(const SimSpace& space, const Horizon& h, const dxyz& start, const dxyz& dir,
                      double range) {
  const dxyz p0 = space.end_of(h, start), p1 = space.end_of(h, start + (0.5 * range) * dir),
             p2 = space.end_of(h, start + range * dir);
  return {p0, (4.0 * p1 - 3.0 * p0 - p2) / range, 2.0 * (p2 - 2.0 * p1 + p0) / (range * range)};
}
}  // namespace

std::vector<SimPoint> scan_line(const SimSpec& spec, const FlightPlan& plan, int line, int channel,
                                int pass) {
  SimSpace space;
  if (!space.open(spec)) return {};
  const Terrain terrain = make_terrain(spec);
  const DriftModel drift = make_drift(spec);
  const FlightLine& fl = plan.lines[line];
  const dxyz error = boresight_of(spec, channel);
  const Mat3 mount = rotation_xyz(0, tilt_of(spec, channel) * RAD_PER_DEG, 0);
  const Mat3 bore =
      product(rotation_xyz(error.x * RAD_PER_DEG, error.y * RAD_PER_DEG, error.z * RAD_PER_DEG), mount);
  SimRandom random(spec.seed * 1000 + 100 + line + 100000 * channel + 200000 * pass);
  std::vector<SimPoint> points;
  const double t_first = fl.t0 - spec.overrun, t_last = fl.t1 + spec.overrun;
  const int64_t npulse = static_cast<int64_t>((t_last - t_first) * spec.pulse_rate);
  for (int64_t i = 0; i < npulse; i++) {
    const double t = t_first + (static_cast<double>(i) + 0.5) / spec.pulse_rate;
    const Pulse pulse = make_pulse(spec, t, 0.31 * channel + 0.43 * pass, random);

    const Pose pose = true_pose(plan, t);
    const Mat3 attitude = body_to_world(pose.roll, pose.pitch, pose.heading);
    const Horizon horizon = space.horizon(pose.p);
    const dxyz start = apply(attitude, spec.lever + apply(bore, pulse.start));
    const dxyz dir = apply(attitude, apply(bore, pulse.direction));

    const Pose rec = recorded_pose(plan, drift, t);
    const Mat3 rec_attitude = body_to_world(rec.roll, rec.pitch, rec.heading);
    const Horizon rec_horizon = space.horizon(rec.p);
    const dxyz rec_dir = apply(rec_attitude, apply(mount, pulse.reported));

    const GridBeam beam = beam_in_grid(space, horizon, start, dir, 1.2 * spec.agl);
    const Echoes echoes = find_echoes(terrain, beam, 20 * spec.agl, random);
    for (int e = 0; e < echoes.n; e++) {
      const BeamHit& hit = echoes.hit[e];
      const double measured = measured_range(spec, hit.range) + spec.range_noise * random.normal();
      points.push_back({t, space.end_of(rec_horizon, rec_dir * measured),
                        space.end_of(horizon, start + dir * hit.range),
                        static_cast<float>(pulse.theta / RAD_PER_DEG), static_cast<uint8_t>(e + 1),
                        static_cast<uint8_t>(echoes.n), class_of(hit.cover), static_cast<uint8_t>(channel)});
    }
  }
  return points;
}
}  // namespace veld
