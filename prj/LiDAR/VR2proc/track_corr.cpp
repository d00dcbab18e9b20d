#include "prj/LiDAR/VR2proc/track_corr.h"

#include <algorithm>
#include <cmath>

#include "prj/LiDAR/POio/POio.h"

namespace veld {
namespace {
// Axes of small turns of roll, pitch and yaw at an attitude, in the world.
struct TurnAxes {
  dxyz r, p, y;
};
TurnAxes turn_axes(const xyz& Att) {
  const double pitch = double{Att.y} * RAD_PER_DEG, yaw = double{Att.z} * RAD_PER_DEG;
  const double sp = std::sin(pitch), cp = std::cos(pitch), sy = std::sin(yaw), cy = std::cos(yaw);
  return {{sy * cp, cy * cp, sp}, {cy, -sy, 0}, {0, 0, -1}};
}

// Changes of roll, pitch and yaw at an attitude that turn by the vector w.
dxyz turn_angles(const xyz& Att, const dxyz& w) {
  const double pitch = double{Att.y} * RAD_PER_DEG, yaw = double{Att.z} * RAD_PER_DEG;
  const double sy = std::sin(yaw), cy = std::cos(yaw);
  const double roll = (w.x * sy + w.y * cy) / std::cos(pitch);
  return {roll, w.x * cy - w.y * sy, roll * std::sin(pitch) - w.z};
}

// The attitude behind the IMU rotation.
xyz rotated_attitude(const xyz& Att, const Rot3& M) {
  const Rot3 R = product(comp_R(Att), transposed(M));
  return {std::atan2(-R.row[2].y, -R.row[2].z) * RAD2DEG,
          std::asin(std::clamp(R.row[2].x, -1.0f, 1.0f)) * RAD2DEG,
          std::atan2(R.row[0].x, R.row[1].x) * RAD2DEG};
}
}  // namespace

void settle_parts(std::vector<TrackPart>& parts, double tol) {
  std::sort(parts.begin(), parts.end(),
            [](const TrackPart& a, const TrackPart& b) { return a.begin < b.begin; });
  for (size_t i = 0; i < parts.size(); i++) {
    if (i == 0) parts[i].begin -= tol;
    if (i + 1 == parts.size()) {
      parts[i].end += tol;
      continue;
    }
    const double middle = 0.5 * (parts[i].end + parts[i + 1].begin);
    parts[i].end = std::min(parts[i].end + tol, middle);
    parts[i + 1].begin = std::max(parts[i + 1].begin - tol, middle);
  }
}

const TrackPart* part_at(const TrackCorr& corr, double t) {
  const auto behind = std::upper_bound(corr.parts.begin(), corr.parts.end(), t,
                                       [](double time, const TrackPart& p) { return time < p.begin; });
  if (behind == corr.parts.begin() || !(t <= (behind - 1)->end)) return nullptr;
  return &*(behind - 1);
}

TrackShift comp_TrackShift(const TrackCorr& corr, const TrackPart& part, double t, const xyz& Att) {
  TrackShift s{to_dxyz(part.S), {0, 0, 0}};
  if (part.Tt) s.T += to_dxyz(InterpVt(t, part.t0, part.Dt, *part.Tt));
  xyz A = {0, 0, 0};
  if (part.At) A = InterpVt(t, part.t0, part.Dt, *part.At);
  if (part.AREC) {
    s.A = xyz{0, 0, part.yaw} + A * RAD2DEG - Att;
    return s;
  }
  if (A == xyz{0, 0, 0}) return s;
  const TurnAxes axes = turn_axes(rotated_attitude(Att, corr.M));
  const dxyz turn = axes.r * double{A.x} + axes.p * double{A.y} + axes.y * double{A.z};
  s.A = to_xyz(turn_angles(Att, turn) * DEG_PER_RAD);
  return s;
}

bool shift_geographic(const GeoRefParam& g, const dxyz& shift, double& lon, double& lat, double& h) {
  if (shift.x == 0 && shift.y == 0 && shift.z == 0) return true;
  dxyz p;
  double lon0, lat0, h0, lon1, lat1, h1;
  if (!geo_forward(g, lon, lat, h, p) || !geo_inverse(g, p, lon0, lat0, h0)) return false;
  p += {shift.x / g.unit, shift.y / g.unit, shift.z / g.unit_z};
  if (!geo_inverse(g, p, lon1, lat1, h1)) return false;
  // Differences: what forward and back leave of a position doesn't matter.
  lon += lon1 - lon0;
  lat += lat1 - lat0;
  h += h1 - h0;
  return true;
}
}  // namespace veld
