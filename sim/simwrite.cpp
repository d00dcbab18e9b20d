// Files of a simulated project.
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <thread>

#include "las/las_access.h"
#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/txtfile.h"
#include "lib/threads/pool.h"
#include "sim/simproject.h"

namespace {
constexpr double DEG = M_PI / 180;

std::string line_name(size_t i) { return LOG_STR((i < 9 ? "L0" : "L") << i + 1 << ".las"); }

LASheader swath_header(const SimSpec& spec) {
  LASheader header;
  header.version_minor = 2;
  header.point_format = 1;
  header.point_reclen = static_cast<uint16_t>(las_base_length(1));
  header.global_encoding = 1;  // adjusted standard GPS time
  set_las_text(header.system_identifier, "SIMULATION");
  set_las_text(header.generating_software, "veldsim");
  header.x_scale_factor = header.y_scale_factor = header.z_scale_factor = 0.001;
  header.x_offset = std::floor(spec.east / 1000) * 1000;
  header.y_offset = std::floor(spec.north / 1000) * 1000;
  return header;
}

bool write_swath(const SimSpec& spec, const std::string& path, const std::vector<SimPoint>& points,
                 bool truth) {
  const LASheader header = swath_header(spec);
  std::unique_ptr<LASwriter> writer = las_write_open(path, header, "xyzt");
  if (!writer) return false;
  LASpoint p = header.point();
  std::vector<uint8_t> record(header.point_reclen, 0);
  p.rec = record.data();
  const double t0 = spec.week * 604800.0 + spec.sow0 - 1e9;
  bool ok = true;
  for (const SimPoint& s : points) {
    const dxyz& q = truth ? s.truth : s.observed;
    p.set_X(static_cast<int32_t>(std::lround((q.x - header.x_offset) / header.x_scale_factor)));
    p.set_Y(static_cast<int32_t>(std::lround((q.y - header.y_offset) / header.y_scale_factor)));
    p.set_Z(static_cast<int32_t>(std::lround(q.z / header.z_scale_factor)));
    p.set_intensity(static_cast<uint16_t>(100 * s.cls));
    p.set_returns(s.ret, s.nret);
    p.set_classification(s.cls);
    p.set_scan_angle(static_cast<int>(std::lround(s.angle_deg)));
    p.set_gps_time(t0 + s.t);
    ok = writer->write_point(p);
    if (!ok) break;
  }
  return las_write_close(writer) && ok;
}

bool write_sbet(const SimSpec& spec, const FlightPlan& plan, const std::string& path) {
  const DriftModel drift = make_drift(spec);
  BufBinFileOut file(BULK_BUFFER);
  if (!file.open(path, 0)) return false;
  const double t_end = plan.lines.back().t1 + 8;
  for (int64_t i = 0; static_cast<double>(i) / spec.traj_rate < t_end; i++) {
    const double t = static_cast<double>(i) / spec.traj_rate, h = 0.005;
    const Pose pose = recorded_pose(plan, drift, t);
    const dxyz v = (true_pose(plan, t + h).p - true_pose(plan, t - h).p) / (2 * h);
    double lat, lon, convergence;
    utm_inverse(spec.zone, pose.p.x, pose.p.y, lat, lon, convergence);
    const double heading = std::remainder(pose.heading + convergence, 2 * M_PI);
    const double record[17] = {spec.sow0 + t, lat, lon, pose.p.z, v.y, v.x, -v.z, pose.roll, pose.pitch,
                               heading,       0,   0,   0,        0,   0,   0,    0};
    if (!file.write(record, sizeof record)) return false;
  }
  return file.close();
}

nlohmann::json json_xyz(const dxyz& v) { return {v.x, v.y, v.z}; }

bool write_truth_json(const SimSpec& spec, const FlightPlan& plan, const std::vector<size_t>& npoints,
                      const std::string& path) {
  nlohmann::json j;
  j["name"] = spec.name;
  j["seed"] = spec.seed;
  j["utm_zone"] = spec.zone;
  j["origin"] = {spec.east, spec.north};
  j["week"] = spec.week;
  j["sow_start"] = spec.sow0;
  j["sign_note"] = "boresight, lever and internal values are corrections to add; drift is recorded less true";
  j["noise"] = {{"range_m", spec.range_noise}, {"angle_deg", spec.angle_noise_deg}};
  j["boresight_deg"] = json_xyz(spec.boresight_deg);
  j["lever_m"] = json_xyz(spec.lever);
  j["internal"] = {spec.range_bias, 0, spec.angle_scale, 0, 0, 0, 0};
  j["drift_sd"] = {{"pos_m", json_xyz(spec.drift_pos)},
                   {"att_deg", json_xyz(spec.drift_att_deg)},
                   {"tau_s", spec.drift_tau}};
  for (size_t i = 0; i < plan.lines.size(); i++)
    j["swaths"].push_back({{"file", line_name(i)},
                           {"n_points", npoints[i]},
                           {"t0", plan.lines[i].t0},
                           {"t1", plan.lines[i].t1}});
  const DriftModel model = make_drift(spec);
  for (double t = 0; t < plan.lines.back().t1 + 8; t += 1) {
    const Drift d = drift_at(model, t);
    j["drift"].push_back({t, d.pos.x, d.pos.y, d.pos.z, d.att.x / DEG, d.att.y / DEG, d.att.z / DEG});
  }
  TxtFileOut file(true);
  if (!file.open(path, 0)) return false;
  file.fs << j.dump(1) << '\n';
  return file.close();
}

bool write_line(const std::string& path, const std::string& text) {
  TxtFileOut file(true);
  if (!file.open(path, 0)) return false;
  file.fs << text << '\n';
  return file.close();
}
}  // namespace

bool write_project(const SimSpec& spec, const std::string& dir) {
  const FlightPlan plan = make_plan(spec);
  if (mkdir((dir + "/truth").c_str(), 0777) != 0 && errno != EEXIST) {
    ERROR_MSG("could not create directory '" << dir << "/truth': " << std::strerror(errno));
    return false;
  }
  const int nlines = static_cast<int>(plan.lines.size());
  std::vector<size_t> npoints(plan.lines.size());
  std::atomic<int> done = 0;
  progress_start(nlines);
  const int64_t failed =
      run_units(nlines, static_cast<int>(std::thread::hardware_concurrency()), [&](int64_t i, int) {
        const std::vector<SimPoint> points = scan_line(spec, plan, static_cast<int>(i));
        const size_t line = static_cast<size_t>(i);
        npoints[line] = points.size();
        if (!write_swath(spec, dir + "/" + line_name(line), points, false) ||
            !write_swath(spec, dir + "/truth/" + line_name(line), points, true))
          return false;
        progress_step(++done, LOG_STR("SIMULATED " << done << " lines"));
        return true;
      });
  if (failed >= 0) return false;
  progress_end(LOG_STR("SIMULATED " << nlines << " lines"));
  return write_sbet(spec, plan, dir + "/traj.out") && write_line(dir + "/mount.txt", "0 0 0 0 0 0") &&
         write_line(dir + "/command.txt",
                    LOG_STR("-utm " << spec.zone << " -i L*.las -po traj.out -imu 0 0 0 -bore 0 0 0")) &&
         write_truth_json(spec, plan, npoints, dir + "/truth.json");
}
