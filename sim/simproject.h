// sim/simproject.h
// A whole simulated project: what is flown, which errors are put in, the observed and the true points.
#pragma once
#include <string>
#include <vector>

#include "sim/flight.h"
#include "sim/terrain.h"

struct SimSpec {
  std::string name = "demo";
  uint64_t seed = 1;
  // Flight
  int nparallel = 3;       // lines in alternate directions
  int ncross = 1;          // lines across them
  double spacing = 105;    // m between parallel lines
  double length = 340;     // m, of a line
  double azimuth_deg = 0;  // of the first line, from grid north
  double agl = 220;        // m above the mean ground; cross lines fly 25 m higher
  double speed = 22;       // m/s
  double motion = 1;       // scale of the aircraft's motion
  double turn = 48;        // s between lines
  // Scanner
  double fov_deg = 24;        // half the field of view
  double pulse_rate = 10000;  // pulses/s
  double scan_rate = 25;      // lines/s
  // Place and time
  int zone = 33;
  double east = 500000, north = 5321000;  // m, centre
  int week = 2301;
  double sow0 = 305100;    // s of the week at t = 0
  double traj_rate = 100;  // Hz
  // Errors: corrections to be added to the observed points
  dxyz boresight_deg{-0.130, 0.085, 0.165};  // roll, pitch, yaw
  dxyz lever{0.03, -0.04, 0};                // m, x forward, y right, z down
  double range_bias = 0;                     // m, to be added to ranges (internal value 1)
  double angle_scale = 0;                    // scan angles are too large by this ratio (internal value 3)
  // Drift of the recorded trajectory, standard deviations
  dxyz drift_pos{0, 0, 0};      // m, east, north, up
  dxyz drift_att_deg{0, 0, 0};  // roll, pitch, yaw
  double drift_tau = 45;        // s
  // Noise
  double range_noise = 0.015;  // m
  double angle_noise_deg = 0.0015;
};

struct SimPoint {
  double t;  // s after the start
  dxyz observed, truth;
  float angle_deg;  // scan angle, positive to the right
  uint8_t ret, nret;
  uint8_t cls;  // 2 ground, 5 tree, 6 building
};

// A named set of values: "demo", "boresight", "drift", "tiny", "large". False for an unknown name.
bool sim_preset(const std::string& name, SimSpec& spec);

FlightPlan make_plan(const SimSpec& spec);
DriftModel make_drift(const SimSpec& spec);
Terrain make_terrain(const SimSpec& spec);

// The points of one line in order of time.
std::vector<SimPoint> scan_line(const SimSpec& spec, const FlightPlan& plan, int line);

// Writes a project into dir (which must exist): L01.las ..., truth/, traj.out, mount.txt, command.txt,
// truth.json. False, after an ERROR line, when a file cannot be written.
[[nodiscard]] bool write_project(const SimSpec& spec, const std::string& dir);
