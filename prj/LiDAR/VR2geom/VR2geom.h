// prj/LiDAR/VR2geom/VR2geom.h
// The geometric sensor model: how a point moves when lever, boresight, internals or the trajectory change.
// Here:     rotations, the frame of a point, design columns, point correction, table interpolation, output
//           angles.
// Not here: calibration records and their files (calib.h), trajectories (POio), estimation (VR2inv).
//
// World: X east, Y north, Z up. Body: x forward, y right, z down. Internal coordinates (ICS): x along-track,
// y across-track, z along the nadir beam. Corrections are added to points. Angles in degrees in Att, Mount
// and PO; in radians in Calib and in the tables At.
#pragma once
#include <cstdint>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/nodata.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/angle.h"
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/VR2geom/calib.h"
#include "prj/LiDAR/VR2geom/grid_shape.h"

namespace veld {
constexpr xyz NO_CORR = {1000.0f, 1000.0f, NODATA};  // no trajectory at that time
constexpr float NO_ANGLE = 1000.0f;                  // undefined angle

// ---- rotations

struct Rot3 {  // three rows; the identity by default
  xyz row[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
};
inline xyz rotate(const Rot3& R, const xyz& v) {
  return {dot(R.row[0], v), dot(R.row[1], v), dot(R.row[2], v)};
}
inline xyz rotate_t(const Rot3& R, const xyz& v) { return R.row[0] * v.x + R.row[1] * v.y + R.row[2] * v.z; }
inline xyz column(const Rot3& R, int k) {
  return k == 0   ? xyz{R.row[0].x, R.row[1].x, R.row[2].x}
         : k == 1 ? xyz{R.row[0].y, R.row[1].y, R.row[2].y}
                  : xyz{R.row[0].z, R.row[1].z, R.row[2].z};
}
Rot3 product(const Rot3& A, const Rot3& B);  // A B
Rot3 transposed(const Rot3& A);
Rot3 comp_R(const xyz& Att);  // body to world from roll, pitch, yaw in degrees, yaw clockwise from north
Rot3 comp_T(const xyz& angles_rad);      // Rz(yaw) Ry(pitch) Rx(roll), right-handed, radians
Rot3 mount_rows(const xyz& angles_deg);  // comp_T transposed; the exact identity for zero angles

struct SwRot {     // rotations of one swath
  Rot3 M;          // from the IMU angles; identity when the attitudes are rotated already
  Rot3 Q;          // from the initial boresight angles
  GridShape grid;  // where the swath lies
};
// Rotations of a swath of that group (from 1) from the group's mount. mounts: by group - 1, or one for all. AROT: the
// IMU rotation has been applied to the attitudes.
SwRot chMount2R(int group, const std::vector<Mount>& mounts, bool AROT);
// Applies the IMU angles (degrees) to all attitudes: yaw in [0, 360), then unrolled along the track. With
// identity M the rotated records give the same axes as the original ones with M of these angles.
void rotate_IMU(Vector<PO>& po, const xyz& imu_deg);

// ---- frame of a time, columns of a point

struct TrajFrame {  // all that depends on time only
  dxyz O;           // trajectory position; O.z = -9999 when there is none
  xyz Att;          // degrees
  xyz a, b, c;      // body-mount axes in the world: columns of G = R M^t
  xyz u, v, w;      // axes of the internal coordinate system in the world
  xyz e_r, e_p;     // axes of drift roll and pitch; that of yaw is (0, 0, -1)
  GridShape grid;
  float z0() const { return static_cast<float>(O.z); }
};
void comp_TrajFrame(const dxyz& O, const xyz& Att, const SwRot& rot, TrajFrame& frame);

struct GeomFlags {   // variants of the model
  bool gen = false;  // generic internal model (CALINTGEN)
  bool nob = false;  // no range-bias shift (CALINTNOB)
  bool NOZ = false;  // drift attitude has no Z effect
};

struct GeomCols {  // displacement of the point per unit of each parameter (metres per m, rad or 1)
  xyz lever[3];    // X Y Z
  xyz bore[3];     // roll pitch yaw, per radian
  xyz internal[N_INTERNAL];
  xyz att[3];  // drift roll pitch yaw, per radian
};
// Columns at r = P - O in the grid, displacements in the grid. P exactly at O gives zeros; the internal columns are zero too
// when s_w is 0.
void comp_GeomCols(const TrajFrame& frame, const xyz& r, const GeomFlags& flags, GeomCols& cols);
void comp_att_cols(const TrajFrame& frame, const xyz& r, bool NOZ, xyz cols[3]);  // those of drift alone
// Those of the calibration alone: lever arm and boresight, and the internals when they are wanted.
void comp_calib_cols(const TrajFrame& frame, const xyz& r, const GeomFlags& flags, bool internal,
                     GeomCols& cols);
// Parts of both on the ground: g = to_ground of r, displacements in the axes of O.
void ground_internal_cols(const TrajFrame& frame, const xyz& g, const GeomFlags& flags, xyz cols[N_INTERNAL]);
inline void ground_att_cols(const TrajFrame& f, const xyz& g, bool NOZ, xyz cols[3]) {
  cols[0] = cross(f.e_r, g);
  cols[1] = cross(f.e_p, g);
  if (NOZ) cols[1].z = 0;
  cols[2] = {g.y, -g.x, 0};  // (0, 0, -1) x g
}

struct BodyICS {  // one row of the geometry check
  xyz BF;         // r in body-mount axes
  xyz ICS;        // r in internal coordinates
  float theta;    // scan angle, degrees; NO_ANGLE when undefined
  float phi;      // degrees; NO_ANGLE when undefined
};
BodyICS comp_BodyICS(const TrajFrame& frame, const dxyz& P);

// ---- tables over time

// Place of time t among n nodes t0 + k Dt: node i0 with weight 1 - f, node i0 + 1 with weight f. Before the
// first and behind the last node that node alone counts (f = 0, i0 + 1 isn't to be read).
struct NodePos {
  int i0;
  float f;
};
inline NodePos comp_NodePos(double t, double t0, double Dt, int n) {
  if (n < 2 || !(t > t0) || !(Dt > 0)) return {0, 0.0f};
  const double pos = (t - t0) / Dt;
  if (pos >= n - 1) return {n - 1, 0.0f};
  const int i0 = static_cast<int>(pos);
  return {i0, static_cast<float>(pos - i0)};
}
// Linear interpolation at uniform nodes t0 + k Dt, constant outside. Assert that the tables aren't empty.
xyz InterpVt(double t, double t0, double Dt, const Vector<xyz>& Vt);
void InterpTA(double t, double t0, double Dt, const Vector<xyz>& Tt, const Vector<xyz>& At, xyz& T, xyz& A);

// Least squares line v = a + b t per component, over n > 1 samples (asserted). With all times equal b is 0.
void linreg_xyz(const Vector<double>& t, const Vector<xyz>& v, dxyz& a, dxyz& b);

// Bicubic B-spline sample at (u, v) in cells; cells with Z = -9999 don't count. No valid cell: Z is -9999.
xyz sample_corr_img(const Image<xyz>& img, double u, double v);

// ---- point correction

struct CorrWarp {                   // a correction image; off when img is null
  const Image<xyz>* img = nullptr;  // displacements to remove
  double x0 = 0, y0 = 0;            // world position of cell (0, 0)
  double GSD = 1;                   // m per cell
};

// The correction of one swath. Pointers stay the caller's and must outlive the correction.
struct SwathCorr {
  const Vector<PO>* po = nullptr;  // trajectory of the swath, synchronised times
  SwRot rot;
  GeomFlags flags;
  bool CL = false, CB = false, CI = false;  // lever, boresight, internals on
  bool CT = false, CA = false;              // drift position, drift attitude on
  bool CM = false;                          // manual mode: no drift, no warps
  bool CDT = false;                         // time delay (manual mode only)
  bool AREC = false;                        // sparse track: positions linear between records
  double tcorr = 0;                         // s, the time delay
  xyz S = {0, 0, 0};                        // shift, m
  xyz L = {0, 0, 0};                        // lever, m
  xyz B = {0, 0, 0};                        // boresight, rad
  float I[N_INTERNAL] = {};                 // internals
  const Vector<xyz>* Tt = nullptr;          // drift tables at t0 + k Dt: m, rad
  const Vector<xyz>* At = nullptr;
  double t0 = 0, Dt = 1;  // s
  CorrWarp swarp, warp;   // of the swath, of the project
  // Derived by init_SwathCorr.
  double po_dt = 0;    // s, mean interval of the records
  Rot3 Tb;             // boresight rotation
  uint32_t imask = 0;  // bit k: I[k] isn't zero
};
// Fills the derived fields; call it after the last change of the others. False when po is missing or empty
// though a part needs it, or a table that is switched on is missing (no ERROR line: the caller has the
// swath). Shifts, warps and drift positions alone need no trajectory: with po = null all times are valid.
[[nodiscard]] bool init_SwathCorr(SwathCorr& corr);

// Per-thread memory: points of one time stamp share frame and drift. Start with a fresh one for each swath.
struct CorrCursor {
  double t = -2e307;   // time of what follows
  bool valid = false;  // a trajectory exists at t
  TrajFrame frame;
  xyz drift_T, drift_A;  // drift at t: m, rad
  xyz delay_T, delay_A;  // manual mode: change of position and attitude by the delay, m, rad
};
// Correction to be added to point P seen at time t. NO_CORR when there is no trajectory at t.
xyz comp_point_corr(const SwathCorr& corr, CorrCursor& cursor, const dxyz& P, double t);

// Output angles of a corrected point, degrees, NO_ANGLE when undefined. frame: as comp_point_corr left it.
float comp_las_angle(const TrajFrame& frame, const dxyz& P);  // across the heading, from the vertical
float comp_int_angle(const TrajFrame& frame, const dxyz& P);  // internal scan angle
float comp_int_pitch(const TrajFrame& frame, const dxyz& P);  // internal pitch
}  // namespace veld
