// sim/flight.h
// The simulated flight: straight lines with realistic motion, turns between them, the recorded trajectory
// with its slow drift, and the forward geometry of the scanner. The geometry is written here from first
// principles (rotations composed axis by axis in north-east-down) and shares nothing with the sensor model of
// the aligner, so that a wrong sign there cannot cancel.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/Geometry/xyz.h"

namespace veld {
struct Mat3 {  // rows of a rotation
  dxyz r[3];
};
dxyz apply(const Mat3& m, const dxyz& v);
Mat3 product(const Mat3& a, const Mat3& b);
// Right-handed rotation by angles about x, then y, then z (radians).
Mat3 rotation_xyz(double rx, double ry, double rz);
// Body (forward, right, down) to world (east, north, up) for roll, pitch and grid heading in radians.
Mat3 body_to_world(double roll, double pitch, double heading);

struct Pose {                   // of the body at one time, in grid coordinates
  dxyz p;                       // m, east north up
  double roll, pitch, heading;  // radians; heading clockwise from grid north
};

struct FlightLine {
  double t0, t1;   // s after the start
  double x, y, z;  // m, where the line is at (t0+t1)/2
  double heading;  // radians from grid north
};

struct FlightPlan {
  uint64_t seed = 1;
  double speed = 22;              // m/s
  double motion = 1;              // scale of attitude and position motion
  std::vector<FlightLine> lines;  // in time order
};

// True pose at any time from the start of the first line less 10 s to the end of the last plus 10 s.
Pose true_pose(const FlightPlan& plan, double t);

struct DriftModel {
  uint64_t seed = 1;
  dxyz pos_sd{0, 0, 0};  // m, standard deviation east, north, up
  dxyz att_sd{0, 0, 0};  // radians, roll, pitch, heading
  double tau = 45;       // s, correlation time
  // From t_bad0 to t_bad1 it is `worse` times as large, with a smooth step of tau / 2 on both sides.
  double worse = 1;
  double t_bad0 = 0, t_bad1 = 0;  // s
};
double drift_factor(const DriftModel& model, double t);
struct Drift {
  dxyz pos, att;  // recorded less true
};
Drift drift_at(const DriftModel& model, double t);
Pose recorded_pose(const FlightPlan& plan, const DriftModel& drift, double t);

// Geodetic coordinates (radians, WGS84) of a UTM position (zone negative: southern hemisphere), and the true
// azimuth of grid north there. Krueger's series to the fourth order in the third flattening.
void utm_inverse(int zone, double east, double north, double& lat, double& lon, double& convergence);
}  // namespace veld
