// tests/prj/LiDAR/VR2inv/inv_sim.h
// A flight with planted errors, seen by the inversion: displacements with noise, samples, recorded
// trajectories. Its rotations are those of the simulator, exact and in double precision; it shares nothing with the
// sensor model.
#pragma once
#include <cstdint>
#include <vector>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"

namespace veld {
struct SimStrip {
  double heading;        // degrees, clockwise from north
  double x, y;           // m, middle of the strip
  double length = 1200;  // m
  double height = 220;   // m above the datum
  int group = 1;
  bool fixed = false;
  double worse = 1;  // times as much drift
};

struct SimParam {
  std::vector<SimStrip> strips;
  double half_fov = 24;    // degrees
  double speed = 22;       // m/s
  dxyz bore = {0, 0, 0};   // degrees, corrections to be added
  dxyz lever = {0, 0, 0};  // m
  double internal[7] = {};
  dxyz const_pos = {0, 0, 0};  // m, standard deviation of a constant position error per strip
  dxyz drift_pos = {0, 0, 0};  // m, standard deviation of the drift of the recorded position
  dxyz drift_att = {0, 0, 0};  // degrees, the same for the attitude
  double drift_time = 45;      // s, correlation time
  double extent = 1500;        // m, ground on each side of the origin
  double spacing = 12;         // m between vectors
  double sample = 8;           // m between samples
  double sigma_xy = 0.03;      // m, of displacements: each vector has its own, from half to twice this
  double sigma_z = 0.008;
  double fixed_shift_z = 0;  // m, the fixed strips are lower by this
  unsigned seed = 1;
};

struct SimProject {
  InvInput in;
  std::vector<Vector<dxyz>> truth;  // true positions of the samples, by swath
  std::vector<dxyz> const_pos;      // constant position error of each strip
};

SimProject simulate(const SimParam& par);

// Three parallel strips in alternate directions and two that cross them, at an oblique azimuth.
std::vector<SimStrip> five_strips(double azimuth);

struct SimError {  // of the corrected samples, m
  dxyz rms;        // less one mean shift common to all swaths
  dxyz mean;       // that shift
};
// Applies a result to the samples as a correction run would. Swaths without correction don't count.
SimError corrected_error(const SimProject& sim, const InvResult& res, const GeomFlags& flags = {});
}  // namespace veld
