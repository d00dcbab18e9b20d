#include "sim/trackproof.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "las/las_access.h"
#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "sim/flight.h"
#include "sim/scoreread.h"
#include "sim/space.h"

namespace veld {
namespace {
struct Track {
  std::vector<double> t;  // s of the week
  std::vector<Pose> pose;
};

// Grid position of a geodetic one, by steps from a place nearby.
void utm_forward(int zone, double lat, double lon, dxyz& p, double& convergence) {
  constexpr double R = 6378137;
  for (int step = 0; step < 4; step++) {
    double lat0, lon0;
    utm_inverse(zone, p.x, p.y, lat0, lon0, convergence);
    const double dn = (lat - lat0) * R, de = (lon - lon0) * R * std::cos(lat);
    p.x += de * std::cos(convergence) - dn * std::sin(convergence);
    p.y += de * std::sin(convergence) + dn * std::cos(convergence);
  }
}

bool read_track(const std::string& path, int zone, const dxyz& origin, Track& track) {
  std::ifstream file(path, std::ios::binary);
  double r[17];
  dxyz p = origin;
  while (file.read(reinterpret_cast<char*>(r), sizeof r)) {
    double convergence = 0;
    utm_forward(zone, r[1], r[2], p, convergence);
    track.t.push_back(r[0]);
    track.pose.push_back({{p.x, p.y, r[3]}, r[7], r[8], r[9] - convergence});
    if (track.pose.size() < 2) continue;
    double& heading = track.pose.back().heading;  // continuous
    const double before = track.pose[track.pose.size() - 2].heading;
    heading = before + std::remainder(heading - before, 2 * M_PI);
  }
  if (track.t.size() > 4) return true;
  ERROR_MSG("cannot read SBET '" << path << "'");
  return false;
}

// By the cubic through the four samples around; samples are about as far from each other.
Pose pose_at(const Track& track, double t) {
  const auto behind = std::upper_bound(track.t.begin(), track.t.end(), t);
  const size_t i = static_cast<size_t>(
      std::clamp<int64_t>(behind - track.t.begin() - 2, 0, static_cast<int64_t>(track.t.size()) - 4));
  Pose sum{{0, 0, 0}, 0, 0, 0};
  for (size_t a = i; a < i + 4; a++) {
    double w = 1;
    for (size_t b = i; b < i + 4; b++)
      if (b != a) w *= (t - track.t[b]) / (track.t[a] - track.t[b]);
    const Pose& p = track.pose[a];
    sum.p += w * p.p;
    sum.roll += w * p.roll;
    sum.pitch += w * p.pitch;
    sum.heading += w * p.heading;
  }
  return sum;
}

Mat3 transposed(const Mat3& m) {
  return {{{m.r[0].x, m.r[1].x, m.r[2].x}, {m.r[0].y, m.r[1].y, m.r[2].y}, {m.r[0].z, m.r[1].z, m.r[2].z}}};
}
Mat3 rotation_deg(const double v[3]) {
  return rotation_xyz(v[0] * RAD_PER_DEG, v[1] * RAD_PER_DEG, v[2] * RAD_PER_DEG);
}

std::unique_ptr<LASreader> open_swath(const std::string& stem) {
  const bool las = std::ifstream(stem + ".las").good();
  return las_read_open(stem + (las ? ".las" : ".laz"), "xyzt", false);
}
}  // namespace

bool prove_track(const ProofFiles& files, const nlohmann::json& truth, ProofScore& score) {
  const int zone = truth["utm_zone"].get<int>() * (truth["utm_south"].get<bool>() ? -1 : 1);
  const dxyz origin{truth["origin"][0].get<double>(), truth["origin"][1].get<double>(), 0};
  double cal[6], imu[3] = {0, 0, 0};
  std::ifstream cal_file(files.cal);
  for (double& v : cal)
    if (!(cal_file >> v)) {
      ERROR_MSG("cannot read calibration '" << files.cal << "'");
      return false;
    }
  if (truth.contains("imu_deg"))
    for (size_t k = 0; k < 3; k++) imu[k] = truth["imu_deg"][k].get<double>();
  Track before, after;
  if (!read_track(files.project + "/traj.out", zone, origin, before) ||
      !read_track(files.track, zone, origin, after))
    return false;
  SimSpec where;
  where.zone = zone, where.east = origin.x, where.north = origin.y;
  SimSpace space;
  if (!space.open(where)) return false;
  const Mat3 mount = rotation_deg(imu), to_mount = transposed(mount), bore = rotation_deg(cal + 3);
  const dxyz lever{cal[0], cal[1], cal[2]};
  const double week0 = 1e9 - truth["week"].get<double>() * 604800;
  dxyz sum2{0, 0, 0};
  for (const auto& s : truth["swaths"]) {
    const std::string stem = swath_stem(s);
    const std::unique_ptr<LASreader> observed = open_swath(files.project + "/" + stem),
                                     corrected = las_read_open(
                                         files.corrected + "/" + stem + files.suffix + files.ext, "xyzt",
                                         false);
    if (!observed || !corrected) return false;
    while (observed->read_point() && corrected->read_point()) {
      const double time = observed->point.gps_time();
      const double t = time > 604800 && before.t[0] < 604800 ? time + week0 : time;
      const Pose o = pose_at(before, t), c = pose_at(after, t);
      const dxyz r = space.vector_to(space.horizon(o.p),
                                     {observed->point.x(), observed->point.y(), observed->point.z()});
      const dxyz v = apply(to_mount, apply(transposed(body_to_world(o.roll, o.pitch, o.heading)), r));
      const dxyz p = space.end_of(space.horizon(c.p), apply(body_to_world(c.roll, c.pitch, c.heading),
                                                            apply(mount, apply(bore, v) + lever)));
      const dxyz d = p - dxyz{corrected->point.x(), corrected->point.y(), corrected->point.z()};
      sum2 += {d.x * d.x, d.y * d.y, d.z * d.z};
      score.largest = {std::max(score.largest.x, std::fabs(d.x)), std::max(score.largest.y, std::fabs(d.y)),
                       std::max(score.largest.z, std::fabs(d.z))};
      score.n++;
    }
  }
  if (score.n == 0) return false;
  const double n = static_cast<double>(score.n);
  score.rms = {std::sqrt(sum2.x / n), std::sqrt(sum2.y / n), std::sqrt(sum2.z / n)};
  return true;
}
}  // namespace veld
