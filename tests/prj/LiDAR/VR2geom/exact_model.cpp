#include "tests/prj/LiDAR/VR2geom/exact_model.h"

#include <cmath>

#include "sim/flight.h"

namespace veld {
namespace {
constexpr double RAD = 0.017453292519943295;

// Turns by roll, pitch, yaw: about the forward, right and down axis in this order.
dxyz turn_rpy(const dxyz& rad, const dxyz& v) { return apply(rotation_xyz(rad.x, rad.y, rad.z), v); }
}  // namespace

dxyz exact_point(const ExactView& view, const ExactParam& par, bool generic) {
  const double* I = par.internal;
  const double th = std::atan(view.s.y / view.s.z), R = norm(view.s);
  dxyz s = view.s;
  if (generic) {
    s += {I[5] * th * th, th * (I[2] + th * (I[3] + th * I[4])), th * th * (I[0] + th * (I[1] + th * I[6]))};
  } else {
    s = s * ((R + I[0]) / R * (1 + I[1]));  // range
    s = turn_rpy({I[2] * th + I[3] * th * th + I[4] * th * th * th, 0, 0},
                 s);  // scan angle, in the scan plane
    s.x += I[5] * (R - view.s.z);
  }
  dxyz body = turn_rpy(view.bore * RAD, s);  // scanner to mount
  body = turn_rpy(par.bore, body) + par.lever;
  body = turn_rpy(view.imu * RAD, body);  // mount to body
  const dxyz att = view.Att * RAD + par.A;
  return view.O + par.T + apply(body_to_world(att.x, att.y, att.z), body);
}
}  // namespace veld
