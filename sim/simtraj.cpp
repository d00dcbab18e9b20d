// Trajectory, coordinate system and options of a simulated project.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "sim/place.h"
#include "sim/simproject.h"
#include "sim/simtraj_internal.h"

namespace veld {
namespace {

// TrajSamples at the trajectory's rate from the start to the end of the flight.
std::vector<TrajSample> recorded_samples(const SimSpec& spec, const SimPlace& place, const FlightPlan& plan) {
  const DriftModel drift = make_drift(spec);
  const double t_end = plan.lines.back().t1 + 8;
  std::vector<TrajSample> samples;
  for (int64_t i = 0; static_cast<double>(i) / spec.traj_rate < t_end; i++) {
    TrajSample s;
    s.t = static_cast<double>(i) / spec.traj_rate;
    const double h = 0.005;
    s.pose = recorded_pose(plan, drift, s.t);
    s.v = (true_pose(plan, s.t + h).p - true_pose(plan, s.t - h).p) / (2 * h);
    place.inverse(s.pose.p.x, s.pose.p.y, s.lat, s.lon, s.convergence);
    s.h = s.pose.p.z + place.geoid(s.lat, s.lon);
    samples.push_back(s);
  }
  return samples;
}

bool write_sbet(const SimSpec& spec, const std::vector<TrajSample>& samples, const std::string& path) {
  BinResultFile file;
  if (!file.open(path)) return false;
  for (const TrajSample& s : samples) {
    const Pose& p = s.pose;
    const double heading = std::remainder(p.heading + s.convergence, 2 * M_PI);
    const double record[17] = {spec.sow0 + s.t, s.lat, s.lon, s.h, s.v.y, s.v.x, -s.v.z, p.roll, p.pitch,
                               heading,         0,     0,     0,   0,     0,     0,      0};
    if (!file.write(record, sizeof record)) return false;
  }
  return file.commit();
}

// A record a second: standard deviations of the drift at that time, as post-processing gives them.
bool write_accuracy(const SimSpec& spec, const std::vector<TrajSample>& samples, const std::string& path) {
  BinResultFile file;
  if (!file.open(path)) return false;
  const DriftModel drift = make_drift(spec);
  const dxyz &pos = spec.drift_pos, &att = spec.drift_att_deg;
  for (double t = 0; t < samples.back().t + 1; t++) {
    const double f = drift_factor(drift, t), minutes = 60 * f;
    const double record[10] = {spec.sow0 + t, f * pos.y, f * pos.x,       f * pos.z,       0.001,
                               0.001,         0.001,     minutes * att.x, minutes * att.y, minutes * att.z};
    if (!file.write(record, sizeof record)) return false;
  }
  return file.commit();
}

// A column per letter; letters that mean nothing are filled with zeros. Heading from true north in geographic
// coordinates, else from grid north.
bool write_text(const SimSpec& spec, const std::vector<TrajSample>& samples, double unit,
                const std::string& path) {
  ResultFile file;
  if (!file.open(path)) return false;
  const bool geo = spec.traj_geographic;
  const double t0 = spec.week * 604800.0 + spec.sow0 - 1e9;
  for (const TrajSample& s : samples) {
    std::string row;
    for (const char letter : spec.traj_columns) {
      double heading = (s.pose.heading + (geo ? s.convergence : 0)) / RAD_PER_DEG;
      heading -= 360 * std::floor(heading / 360);
      const double value = letter == 't'   ? t0 + s.t
                           : letter == 'x' ? (geo ? s.lon / RAD_PER_DEG : s.pose.p.x / unit)
                           : letter == 'y' ? (geo ? s.lat / RAD_PER_DEG : s.pose.p.y / unit)
                           : letter == 'z' ? (geo ? s.h : s.pose.p.z / spec.unit_z)
                           : letter == 'w' ? s.pose.roll / RAD_PER_DEG
                           : letter == 'p' ? s.pose.pitch / RAD_PER_DEG
                           : letter == 'k' ? heading
                                           : 0;
      char text[40];
      std::snprintf(text, sizeof text, geo && (letter == 'x' || letter == 'y') ? "%.10f" : "%.6f", value);
      row += (row.empty() ? "" : " ") + std::string(text);
    }
    file.fs << row << '\n';
  }
  return file.commit();
}

bool write_wkt(int zone, const std::string& path) {
  ResultFile file;
  if (!file.open(path)) return false;
  const int number = std::abs(zone);
  file.fs << "PROJCS[\"UTM zone " << number << (zone < 0 ? "S" : "N")
          << "\",GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,298.257223563]],"
             "PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],"
             "PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"latitude_of_origin\",0],"
             "PARAMETER[\"central_meridian\","
          << 6 * number - 183
          << "],PARAMETER[\"scale_factor\",0.9996],PARAMETER[\"false_easting\",500000],"
             "PARAMETER[\"false_northing\","
          << (zone < 0 ? 10000000 : 0) << "],UNIT[\"metre\",1]]\n";
  return file.commit();
}

std::string trajectory_name(const SimSpec& spec) {
  return !spec.traj_columns.empty()   ? "traj.txt"
         : spec.traj_format == "sbet" ? "traj.out"
                                      : "traj." + spec.traj_format;
}

std::string channel_options(const SimSpec& spec, const std::string& traj) {
  std::string in, numbers, po, bore;
  for (int c = 0; c < spec.nchannel; c++) {
    in += LOG_STR(" -i L*_c" << c << ".las");
    numbers += LOG_STR(' ' << c);
    po += " -po " + traj;
    bore += c == 0 ? " 0 0 0" : LOG_STR(" 0 " << tilt_of(spec, c) << " 0");
  }
  return in + " -chgrp" + numbers + po + " -imu 0 0 0 -bore" + bore;
}

bool has_letter(const SimSpec& spec, char letter) {
  return spec.traj_columns.find(letter) != std::string::npos;
}
}  // namespace

bool write_trajectory(const SimSpec& spec, const FlightPlan& plan, const std::string& dir) {
  SimPlace place;
  if (!place.open(spec)) return false;
  if (spec.geoid && !place.write_geoid(dir + "/geoid.gtx")) return false;
  const std::vector<TrajSample> samples = recorded_samples(spec, place, plan);
  if (spec.crs.empty() && spec.zone < 0 && !write_wkt(spec.zone, dir + "/crs.wkt")) return false;
  const std::string path = dir + "/" + trajectory_name(spec);
  if (spec.accuracy && !write_accuracy(spec, samples, dir + "/smrmsg_" + trajectory_name(spec))) return false;
  if (!spec.traj_columns.empty()) return write_text(spec, samples, place.unit(), path);
  return spec.traj_format == "sbet" ? write_sbet(spec, samples, path)
                                    : write_records(spec, samples, place.unit(), path);
}

std::string project_options(const SimSpec& spec) {
  const std::string traj = trajectory_name(spec);
  std::string o = !spec.crs.empty() ? "" : spec.zone < 0 ? "-wkt crs.wkt" : LOG_STR("-utm " << spec.zone);
  if (spec.geoid) o += " -geoid geoid.gtx";
  if (spec.nchannel == 1)
    o += " -i L*.las -po " + traj + " -imu 0 0 0 -bore 0 0 0";
  else  // a group, a trajectory and a mount per channel
    o += channel_options(spec, traj);
  if (spec.uav) o += " -uav";
  if (spec.nref > 0) o += " -r REF*.las";
  if (!spec.traj_columns.empty()) {
    o += " -po_parse " + spec.traj_columns + LOG_STR(" -po_geo " << spec.traj_geographic << " -po_time 1");
    if (!has_letter(spec, 'k')) o += " -po_att 1";  // the heading is that of the track
  }
  std::string numbers;
  for (int k = 0; k < 7; k++)
    if (spec.internal[k] != 0) numbers += std::to_string(k + 1);
  if (!numbers.empty()) o += " -C B" + numbers;
  if (spec.internal_generic) o += " -int_gen 1";
  return o;
}
}  // namespace veld
