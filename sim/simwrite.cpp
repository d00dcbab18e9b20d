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
#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/result_file.h"
#include "lib/threads/pool.h"
#include "sim/place.h"
#include "sim/simproject.h"

namespace veld {
namespace {

// Names count from 01.
std::string numbered(const char* letters, int i) { return LOG_STR(letters << (i < 9 ? "0" : "") << i + 1); }

LASheader swath_header(const SimSpec& spec, const SimPlace& place) {
  LASheader header;
  header.version_minor = 2;
  header.point_format = 1;
  header.point_reclen = static_cast<uint16_t>(las_base_length(1));
  header.global_encoding = 1;  // adjusted standard GPS time
  set_las_text(header.system_identifier, "SIMULATION");
  set_las_text(header.generating_software, "veldsim");
  header.x_scale_factor = header.y_scale_factor = header.z_scale_factor = 0.001;
  header.x_offset = std::floor(spec.east / place.unit() / 1000) * 1000;
  header.y_offset = std::floor(spec.north / place.unit() / 1000) * 1000;
  return header;
}

bool write_swath(const SimSpec& spec, const SimPlace& place, const std::string& path,
                 const std::vector<SimPoint>& points, bool truth) {
  LASheader header = swath_header(spec, place);
  if (!spec.crs.empty()) {
    const std::vector<uint16_t> keys = place.geotiff_keys(spec.unit_z);
    if (!header.add_vlr("LASF_Projection", 34735, keys.data(), keys.size() * sizeof(uint16_t))) return false;
  }
  std::unique_ptr<LASwriter> writer = las_write_open(path, header, "xyzt");
  if (!writer) return false;
  LASpoint p = header.point();
  std::vector<uint8_t> record(header.point_reclen, 0);
  p.rec = record.data();
  const double t0 = spec.week * 604800.0 + spec.sow0 - 1e9;
  bool ok = true;
  for (const SimPoint& s : points) {
    const dxyz& q = truth ? s.truth : s.observed;
    p.set_X(
        static_cast<int32_t>(std::lround((q.x / place.unit() - header.x_offset) / header.x_scale_factor)));
    p.set_Y(
        static_cast<int32_t>(std::lround((q.y / place.unit() - header.y_offset) / header.y_scale_factor)));
    p.set_Z(static_cast<int32_t>(std::lround(q.z / spec.unit_z / header.z_scale_factor)));
    p.set_intensity(static_cast<uint16_t>(100 * s.cls));
    p.set_returns(s.ret, s.nret);
    p.set_classification(s.cls);
    p.set_scan_angle(static_cast<int>(std::lround(s.angle_deg)));
    p.set_gps_time(t0 + s.t);
    p.set_user_data(s.channel);
    ok = writer->write_point(p);
    if (!ok) break;
  }
  return las_write_close(writer) && ok;
}

nlohmann::json json_xyz(const dxyz& v) { return {v.x, v.y, v.z}; }

// A file of the project: a channel of a line, or a reference.
struct SwathFile {
  std::string name;
  int line, channel, pass;
  size_t npoints = 0;
};

std::vector<SwathFile> list_swaths(const SimSpec& spec, const FlightPlan& plan) {
  std::vector<SwathFile> files;
  for (int line = 0; line < static_cast<int>(plan.lines.size()); line++)
    for (int channel = 0; channel < spec.nchannel; channel++) {
      const std::string suffix = spec.nchannel > 1 ? LOG_STR("_c" << channel) : std::string();
      files.push_back({numbered("L", line) + suffix + ".las", line, channel, 0});
    }
  const int first = std::max(0, (spec.nparallel - spec.nref) / 2);
  for (int i = 0; i < spec.nref; i++) files.push_back({numbered("REF", i) + ".las", first + i, 0, 1});
  return files;
}

// A reference is a swath of true points, flown half a year before the lines.
bool write_reference(const SimSpec& spec, const SimPlace& place, const std::string& path,
                     std::vector<SimPoint>& points) {
  for (SimPoint& p : points) {
    p.truth += spec.ref_shift;
    p.t -= 26 * 604800.0;
  }
  return write_swath(spec, place, path, points, true);
}

bool simulate_swath(const SimSpec& spec, const SimPlace& place, const FlightPlan& plan,
                    const std::string& dir, SwathFile& file) {
  std::vector<SimPoint> points = scan_line(spec, plan, file.line, file.channel, file.pass);
  file.npoints = points.size();
  if (file.pass > 0) return write_reference(spec, place, dir + "/" + file.name, points);
  for (SimPoint& p : points) p.truth += spec.ref_shift;
  return write_swath(spec, place, dir + "/" + file.name, points, false) &&
         write_swath(spec, place, dir + "/truth/" + file.name, points, true);
}

void json_swaths(const FlightPlan& plan, const std::vector<SwathFile>& files, nlohmann::json& j) {
  j["reference"]["files"] = nlohmann::json::array();
  for (const SwathFile& file : files)
    if (file.pass > 0)
      j["reference"]["files"].push_back(file.name);
    else
      j["swaths"].push_back({{"file", file.name},
                             {"line", file.line + 1},
                             {"channel", file.channel},
                             {"n_points", file.npoints},
                             {"t0", plan.lines[file.line].t0},
                             {"t1", plan.lines[file.line].t1}});
}

bool write_truth_json(const SimSpec& spec, const FlightPlan& plan, const std::vector<SwathFile>& files,
                      const std::string& path) {
  nlohmann::json j;
  j["name"] = spec.name;
  j["seed"] = spec.seed;
  j["utm_zone"] = std::abs(spec.zone);
  j["utm_south"] = spec.zone < 0;
  j["origin"] = {spec.east, spec.north};
  j["week"] = spec.week;
  j["sow_start"] = spec.sow0;
  j["sign_note"] =
      "boresight, lever and internal values are corrections to add; drift is recorded less true; true "
      "positions stand on the datum of the reference, shifted by shift_m";
  j["noise"] = {{"range_m", spec.range_noise}, {"angle_deg", spec.angle_noise_deg}};
  j["boresight_deg"] = json_xyz(spec.boresight_deg);
  j["lever_m"] = json_xyz(spec.lever);
  j["internal"] = spec.internal;
  j["internal_generic"] = spec.internal_generic;
  for (int c = 0; c < spec.nchannel; c++)
    j["channels"].push_back({{"ch", c},
                             {"boresight_deg", json_xyz(boresight_of(spec, c))},
                             {"lever_m", json_xyz(spec.lever)},
                             {"mount_deg", {0, tilt_of(spec, c), 0}}});
  j["reference"]["shift_m"] = json_xyz(spec.ref_shift);
  j["drift_sd"] = {{"pos_m", json_xyz(spec.drift_pos)},
                   {"att_deg", json_xyz(spec.drift_att_deg)},
                   {"tau_s", spec.drift_tau}};
  json_swaths(plan, files, j);
  const DriftModel model = make_drift(spec);
  for (double t = 0; t < plan.lines.back().t1 + 8; t += 1) {
    const Drift d = drift_at(model, t);
    j["drift"].push_back(
        {t, d.pos.x, d.pos.y, d.pos.z, d.att.x / RAD_PER_DEG, d.att.y / RAD_PER_DEG, d.att.z / RAD_PER_DEG});
  }
  ResultFile file;
  if (!file.open(path)) return false;
  file.fs << j.dump(1) << '\n';
  return file.commit();
}

bool make_directory(const std::string& dir) {
  if (mkdir(dir.c_str(), 0777) == 0 || errno == EEXIST) return true;
  ERROR_MSG("could not create directory '" << dir << "': " << std::strerror(errno));
  return false;
}

// The lines with all their channels in one file each.
bool write_beams(const SimSpec& spec, const SimPlace& place, const FlightPlan& plan, const std::string& dir) {
  if (!make_directory(dir) || !make_directory(dir + "/truth")) return false;
  std::vector<SwathFile> files;
  for (int line = 0; line < static_cast<int>(plan.lines.size()); line++) {
    std::vector<SimPoint> points;
    for (int channel = 0; channel < spec.nchannel; channel++)
      for (const SimPoint& p : scan_line(spec, plan, line, channel, 0)) points.push_back(p);
    for (SimPoint& p : points) p.truth += spec.ref_shift;
    std::stable_sort(points.begin(), points.end(),
                     [](const SimPoint& a, const SimPoint& b) { return a.t < b.t; });
    files.push_back({numbered("L", line) + ".las", line, 0, 0, points.size()});
    if (!write_swath(spec, place, dir + "/" + files.back().name, points, false) ||
        !write_swath(spec, place, dir + "/truth/" + files.back().name, points, true))
      return false;
  }
  return write_truth_json(spec, plan, files, dir + "/truth.json");
}

bool write_line(const std::string& path, const std::string& text) {
  ResultFile file;
  if (!file.open(path)) return false;
  file.fs << text << '\n';
  return file.commit();
}
}  // namespace

bool write_project(const SimSpec& spec, const std::string& dir) {
  const FlightPlan plan = make_plan(spec);
  if (!make_directory(dir + "/truth")) return false;
  SimPlace place;
  if (!place.open(spec)) return false;
  std::vector<SwathFile> files = list_swaths(spec, plan);
  const int64_t nfiles = static_cast<int64_t>(files.size());
  std::atomic<int> done = 0;
  progress_start(nfiles);
  const int64_t failed =
      run_units(nfiles, static_cast<int>(std::thread::hardware_concurrency()), [&](int64_t i, int) {
        if (!simulate_swath(spec, place, plan, dir, files[static_cast<size_t>(i)])) return false;
        progress_step(++done, LOG_STR("SIMULATED " << done << " lines"));
        return true;
      });
  if (failed >= 0) return false;
  progress_end(LOG_STR("SIMULATED " << nfiles << " lines"));
  if (spec.nchannel > 1 && !write_beams(spec, place, plan, dir + "/beams")) return false;
  return write_trajectory(spec, plan, dir) && write_control(spec, place.unit(), dir) &&
         write_line(dir + "/mount.txt", "0 0 0 0 0 0") &&
         write_line(dir + "/command.txt", project_options(spec)) &&
         write_truth_json(spec, plan, files, dir + "/truth.json");
}
}  // namespace veld
