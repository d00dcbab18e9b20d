#include "tests/prj/LiDAR/VR2geom/exact_model.h"

#include <cmath>

namespace veld {
namespace {
constexpr double RAD = 0.017453292519943295;

dxyz turn(int axis, double rad, const dxyz& v) {  // right-handed, about x, y or z
  const double c = std::cos(rad), s = std::sin(rad);
  if (axis == 0) return {v.x, c * v.y - s * v.z, s * v.y + c * v.z};
  if (axis == 1) return {c * v.x + s * v.z, v.y, -s * v.x + c * v.z};
  return {c * v.x - s * v.y, s * v.x + c * v.y, v.z};
}
dxyz turn_rpy(const dxyz& rad, const dxyz& v) { return turn(2, rad.z, turn(1, rad.y, turn(0, rad.x, v))); }
}  // namespace

dxyz exact_point(const ExactView& view, const ExactParam& par, bool generic) {
  const double* I = par.internal;
  const double th = std::atan(view.s.y / view.s.z), R = norm(view.s);
  dxyz s = view.s;
  if (generic) {
    s += {I[5] * th * th, th * (I[2] + th * (I[3] + th * I[4])), th * th * (I[0] + th * (I[1] + th * I[6]))};
  } else {
    s = s * ((R + I[0]) / R * (1 + I[1]));                             // range
    s = turn(0, I[2] * th + I[3] * th * th + I[4] * th * th * th, s);  // scan angle, in the scan plane
    s.x += I[5] * (R - view.s.z);
  }
  dxyz body = turn_rpy(view.bore * RAD, s);  // scanner to mount
  body = turn_rpy(par.bore, body) + par.lever;
  body = turn_rpy(view.imu * RAD, body);  // mount to body
  const dxyz ned = turn_rpy(view.Att * RAD + par.A, body);
  return view.O + par.T + dxyz{ned.y, ned.x, -ned.z};  // north-east-down to east-north-up
}
}  // namespace veld
