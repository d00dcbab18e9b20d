#include "prj/LiDAR/VR2geom/VR2geom.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
// ---- rotations

Rot3 product(const Rot3& A, const Rot3& B) {
  Rot3 C;
  for (int i = 0; i < 3; i++) C.row[i] = rotate_t(B, A.row[i]);
  return C;
}

Rot3 transposed(const Rot3& A) {
  Rot3 T;
  for (int k = 0; k < 3; k++) T.row[k] = column(A, k);
  return T;
}

Rot3 comp_R(const xyz& Att) {
  const float sr = std::sin(Att.x * DEG2RAD), cr = std::cos(Att.x * DEG2RAD);
  const float sp = std::sin(Att.y * DEG2RAD), cp = std::cos(Att.y * DEG2RAD);
  const float sy = std::sin(Att.z * DEG2RAD), cy = std::cos(Att.z * DEG2RAD);
  Rot3 R;
  R.row[0] = {sy * cp, sy * sp * sr + cy * cr, sy * sp * cr - cy * sr};
  R.row[1] = {cy * cp, cy * sp * sr - sy * cr, cy * sp * cr + sy * sr};
  R.row[2] = {sp, -cp * sr, -cp * cr};
  return R;
}

Rot3 comp_T(const xyz& angles_rad) {
  const float sr = std::sin(angles_rad.x), cr = std::cos(angles_rad.x);
  const float sp = std::sin(angles_rad.y), cp = std::cos(angles_rad.y);
  const float sy = std::sin(angles_rad.z), cy = std::cos(angles_rad.z);
  Rot3 T;
  T.row[0] = {cy * cp, cy * sp * sr - sy * cr, cy * sp * cr + sy * sr};
  T.row[1] = {sy * cp, sy * sp * sr + cy * cr, sy * sp * cr - cy * sr};
  T.row[2] = {-sp, sr * cp, cr * cp};
  return T;
}

Rot3 mount_rows(const xyz& angles_deg) {
  if (angles_deg == xyz{0, 0, 0}) return Rot3{};
  return transposed(comp_T(angles_deg * DEG2RAD));
}

SwRot chMount2R(int group, const std::vector<Mount>& mounts, bool AROT) {
  SwRot rot;
  if (mounts.empty()) return rot;
  const size_t g = mounts.size() == 1 ? 0 : static_cast<size_t>(group) - 1;
  ASSERT(g < mounts.size());
  LOG_LINE("chMount2R group=" << group << " ngrp=" << mounts.size() << " AROT=" << AROT);
  if (!AROT) rot.M = mount_rows(mounts[g].IMU);
  rot.Q = mount_rows(mounts[g].Bore);
  return rot;
}

void rotate_IMU(Vector<PO>& po, const xyz& imu_deg) {
  const Rot3 Mt = transposed(mount_rows(imu_deg));
  for (PO& rec : po) {
    const Rot3 R = product(comp_R({rec.roll, rec.pitch, rec.yaw}), Mt);
    rec.pitch = std::asin(std::clamp(R.row[2].x, -1.0f, 1.0f)) * RAD2DEG;
    rec.roll = std::atan2(-R.row[2].y, -R.row[2].z) * RAD2DEG;
    rec.yaw = std::atan2(R.row[0].x, R.row[1].x) * RAD2DEG;
    if (rec.yaw < 0) rec.yaw += 360.0f;
  }
  if (!po.empty()) unroll_PO(po);
}

// ---- frame of a time, columns of a point

void comp_TrajFrame(const dxyz& O, const xyz& Att, const SwRot& rot, TrajFrame& frame) {
  frame.O = O;
  frame.Att = Att;
  frame.grid = rot.grid;
  const float sr = std::sin(Att.x * DEG2RAD), cr = std::cos(Att.x * DEG2RAD);
  const float sp = std::sin(Att.y * DEG2RAD), cp = std::cos(Att.y * DEG2RAD);
  const float sy = std::sin(Att.z * DEG2RAD), cy = std::cos(Att.z * DEG2RAD);
  const Rot3 R = {{{sy * cp, sy * sp * sr + cy * cr, sy * sp * cr - cy * sr},
                   {cy * cp, cy * sp * sr - sy * cr, cy * sp * cr + sy * sr},
                   {sp, -cp * sr, -cp * cr}}};
  frame.a = rotate(R, rot.M.row[0]);
  frame.b = rotate(R, rot.M.row[1]);
  frame.c = rotate(R, rot.M.row[2]);
  const auto to_world = [&frame](const xyz& q) { return frame.a * q.x + frame.b * q.y + frame.c * q.z; };
  frame.u = to_world(rot.Q.row[0]);
  frame.v = to_world(rot.Q.row[1]);
  frame.w = to_world(rot.Q.row[2]);
  frame.e_r = {sy * cp, cy * cp, sp};
  frame.e_p = {cy, -sy, 0};
}

void ground_internal_cols(const TrajFrame& frame, const xyz& r, const GeomFlags& flags,
                          xyz cols[N_INTERNAL]) {
  const xyz s = {dot(frame.u, r), dot(frame.v, r), dot(frame.w, r)};
  const float Rs = norm(r);
  std::fill_n(cols, N_INTERNAL, xyz{0, 0, 0});
  if (s.z == 0 || Rs == 0) return;
  const float theta = std::atan(s.y / s.z);
  const float theta2 = theta * theta, theta3 = theta2 * theta;
  if (flags.gen) {
    cols[0] = frame.w * theta2;
    cols[1] = frame.w * theta3;
    cols[2] = frame.v * theta;
    cols[3] = frame.v * theta2;
    cols[4] = frame.v * theta3;
    cols[5] = frame.u * theta2;
    cols[6] = frame.w * (theta2 * theta2);
    return;
  }
  const xyz rs = frame.u * s.x + frame.v * s.y + frame.w * s.z;  // s in the world
  const xyz turn = frame.w * s.y - frame.v * s.z;                // (0, -s_w, s_v) in the world
  cols[0] = rs / Rs;
  cols[1] = rs;
  cols[2] = turn * theta;
  cols[3] = turn * theta2;
  cols[4] = turn * theta3;
  cols[5] = frame.u * (Rs - s.z);
  if (flags.nob) {
    cols[0].z += 1;  // straight down, a range bias is -1 on Z everywhere: that flat part is taken out
    cols[1].z = 0;
  }
}

namespace {
void columns_to_grid(const TrajFrame& frame, const xyz& g, xyz* cols, int n) {
  if (frame.grid.flat) return;
  for (int k = 0; k < n; k++) cols[k] = frame.grid.to_grid(cols[k], g, frame.z0());
}
}  // namespace

void comp_calib_cols(const TrajFrame& frame, const xyz& r, const GeomFlags& flags, bool internal,
                     GeomCols& cols) {
  if (r == xyz{0, 0, 0}) {
    cols = GeomCols{};
    return;
  }
  const xyz g = frame.grid.flat ? r : frame.grid.to_ground(r, frame.z0());
  cols.lever[0] = frame.a;
  cols.lever[1] = frame.b;
  cols.lever[2] = frame.c;
  for (int k = 0; k < 3; k++) cols.bore[k] = cross(cols.lever[k], g);
  columns_to_grid(frame, g, cols.lever, 3);
  columns_to_grid(frame, g, cols.bore, 3);
  if (!internal) return;
  ground_internal_cols(frame, g, flags, cols.internal);
  columns_to_grid(frame, g, cols.internal, N_INTERNAL);
}

void comp_GeomCols(const TrajFrame& frame, const xyz& r, const GeomFlags& flags, GeomCols& cols) {
  comp_calib_cols(frame, r, flags, true, cols);
  if (!(r == xyz{0, 0, 0})) comp_att_cols(frame, r, flags.NOZ, cols.att);
}

void comp_att_cols(const TrajFrame& frame, const xyz& r, bool NOZ, xyz cols[3]) {
  const xyz g = frame.grid.flat ? r : frame.grid.to_ground(r, frame.z0());
  ground_att_cols(frame, g, NOZ, cols);
  columns_to_grid(frame, g, cols, 3);
}

BodyICS comp_BodyICS(const TrajFrame& frame, const dxyz& P) {
  const xyz r = to_xyz(P - frame.O);
  BodyICS out;
  out.BF = {dot(frame.a, r), dot(frame.b, r), dot(frame.c, r)};
  out.ICS = {dot(frame.u, r), dot(frame.v, r), dot(frame.w, r)};
  out.theta = comp_int_angle(frame, P);
  out.phi = comp_int_pitch(frame, P);
  return out;
}

float comp_las_angle(const TrajFrame& frame, const dxyz& P) {
  const xyz d = to_xyz(P - frame.O);
  if (d.z == 0) return NO_ANGLE;
  const float h = 0.9999999f * std::atan2(frame.a.x, frame.a.y);
  return std::atan((d.x * std::cos(h) - d.y * std::sin(h)) / -d.z) * RAD2DEG;
}

float comp_int_angle(const TrajFrame& frame, const dxyz& P) {
  const xyz r = to_xyz(P - frame.O);
  const float sw = dot(frame.w, r);
  return sw == 0 ? NO_ANGLE : std::atan(dot(frame.v, r) / sw) * RAD2DEG;
}

float comp_int_pitch(const TrajFrame& frame, const dxyz& P) {
  const xyz r = to_xyz(P - frame.O);
  const float Rs = norm(r);
  return Rs == 0 ? NO_ANGLE : std::asin(std::clamp(dot(frame.u, r) / Rs, -1.0f, 1.0f)) * RAD2DEG;
}

// ---- tables over time

namespace {
xyz sample_nodes(const NodePos& pos, const Vector<xyz>& table) {
  const xyz* v = table.val + pos.i0;
  return pos.f == 0 ? v[0] : v[0] * (1 - pos.f) + v[1] * pos.f;
}

void bspline_weights(float f, float w[4]) {
  const float g = 1 - f, f2 = f * f, f3 = f2 * f;
  w[0] = g * g * g / 6;
  w[1] = (3 * f3 - 6 * f2 + 4) / 6;
  w[2] = (-3 * f3 + 3 * f2 + 3 * f + 1) / 6;
  w[3] = f3 / 6;
}
}  // namespace

xyz InterpVt(double t, double t0, double Dt, const Vector<xyz>& Vt) {
  ASSERT(Vt.size());
  return sample_nodes(comp_NodePos(t, t0, Dt, static_cast<int>(Vt.size())), Vt);
}

void InterpTA(double t, double t0, double Dt, const Vector<xyz>& Tt, const Vector<xyz>& At, xyz& T, xyz& A) {
  ASSERT(Tt.size() == At.size() && Tt.size());
  const NodePos pos = comp_NodePos(t, t0, Dt, static_cast<int>(Tt.size()));
  T = sample_nodes(pos, Tt);
  A = sample_nodes(pos, At);
}

void linreg_xyz(const Vector<double>& t, const Vector<xyz>& v, dxyz& a, dxyz& b) {
  const uint64_t n = t.size();
  ASSERT(n > 1);
  ASSERT(v.size() == n);
  double tm = 0;
  dxyz vm = {0, 0, 0};
  for (uint64_t i = 0; i < n; i++) {
    tm += t[i];
    vm += to_dxyz(v[i]);
  }
  tm /= static_cast<double>(n);
  vm /= static_cast<double>(n);
  double stt = 0;
  dxyz stv = {0, 0, 0};
  for (uint64_t i = 0; i < n; i++) {
    const double dt = t[i] - tm;
    stt += dt * dt;
    stv += (to_dxyz(v[i]) - vm) * dt;
  }
  b = stt > 0 ? stv / stt : dxyz{0, 0, 0};
  a = vm - b * tm;
}

xyz sample_corr_img(const Image<xyz>& img, double u, double v) {
  const double iu = std::floor(u), iv = std::floor(v);
  // So far off that no cell is reached; also keeps the indices in range.
  if (!(iu >= -2 && iu <= img.xsize() && iv >= -2 && iv <= img.ysize())) return {0, 0, NODATA};
  float wu[4], wv[4];
  bspline_weights(static_cast<float>(u - iu), wu);
  bspline_weights(static_cast<float>(v - iv), wv);
  const int x0 = static_cast<int>(iu) - 1, y0 = static_cast<int>(iv) - 1;
  xyz sum = {0, 0, 0};
  float wsum = 0;
  for (int j = std::max(0, -y0); j < std::min(4, img.ysize() - y0); j++) {
    const xyz* row = img.row(y0 + j);
    for (int i = std::max(0, -x0); i < std::min(4, img.xsize() - x0); i++) {
      const xyz& cell = row[x0 + i];
      if (cell.z == NODATA) continue;
      const float weight = wu[i] * wv[j];
      sum += cell * weight;
      wsum += weight;
    }
  }
  return wsum > 0 ? sum / wsum : xyz{0, 0, NODATA};
}
}  // namespace veld
