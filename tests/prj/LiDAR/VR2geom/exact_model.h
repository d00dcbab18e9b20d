// tests/prj/LiDAR/VR2geom/exact_model.h
// The forward geometry of a scanner, exact and in double precision: an oracle for the linear sensor model.
#pragma once
#include "lib/Geometry/xyz.h"

namespace veld {
struct ExactParam {        // corrections to be added
  dxyz lever = {0, 0, 0};  // m
  dxyz bore = {0, 0, 0};   // rad
  double internal[7] = {};
  dxyz T = {0, 0, 0};  // m
  dxyz A = {0, 0, 0};  // rad
};
struct ExactView {  // one measurement
  dxyz O, Att;      // m; degrees
  dxyz imu, bore;   // mount angles, degrees
  dxyz s;           // in internal coordinates, m
};
// World position of the point with these corrections. generic: the polynomial internal model.
dxyz exact_point(const ExactView& view, const ExactParam& par, bool generic);
}  // namespace veld
