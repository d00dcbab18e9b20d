#include "prj/LiDAR/run/run_report.h"

#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/options/identity.h"
#include "prj/LiDAR/options/outputs.h"

namespace veld {
namespace {
using Json = nlohmann::ordered_json;

std::string utc_text(std::chrono::system_clock::time_point t) {
  const std::time_t s = std::chrono::system_clock::to_time_t(t);
  std::tm tm{};
  gmtime_r(&s, &tm);
  char text[32];
  std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &tm);
  return text;
}

Json vector_json(const dxyz& v) { return {{"x", v.x}, {"y", v.y}, {"z", v.z}}; }

Json options_json(const CommandLine& cl) {
  Options values = cl.o;
  Json options = Json::object();
  for (const OptRow& row : option_rows(values))
    if (cl.given.count(row.name))
      std::visit([&](const auto* value) { options[row.name] = *value; }, row.target);
  return options;
}

const char* command_of(const CommandLine& cl) {
  for (const char* name : {"align2", "align", "reg", "calib", "corr", "scan", "fastqc"})
    if (cl.given.count(name)) return name;
  return "qc";
}

const char* state_word(const Swath& s) {
  if (s.state == SwathState::absent) return "absent";
  if (s.state == SwathState::replaced) return "united";
  if (!s.present()) return "rejected";
  return s.fixed ? "reference" : "mobile";
}

// A row of the table; figures are null for swaths that were not tiled.
Json swath_json(const RunReport::Pass& pass, const Swath& s) {
  const auto text = [](const std::string& t) { return t.empty() ? Json() : Json(t); };
  Json j;
  j["swath"] = s.id.number;
  j["file"] = pass.swaths.name(s.id);
  j["group"] = s.group;
  j["channel"] = s.channel;
  j["main_channel"] = s.mainch.number;
  j["state"] = state_word(s);
  j["reason"] = text(s.reason);
  j["output"] = text(s.corrected);
  const bool known = s.present() && static_cast<size_t>(s.id.number) < pass.scan.stat.swaths.size();
  const auto figure = [&](auto value) { return known ? Json(value(pass.scan.stat.swaths[s.id])) : Json(); };
  j["points"] = figure([](const SwathStat& t) { return uint64_t{t.info.np}; });
  j["density_per_m2"] = figure([](const SwathStat& t) { return t.density; });
  j["length_m"] = figure([](const SwathStat& t) { return t.length; });
  j["width_m"] = figure([](const SwathStat& t) { return t.width; });
  j["heading_deg"] = figure([](const SwathStat& t) { return t.heading; });
  j["time_min_s"] = figure([&](const SwathStat&) { return s.clock.tmin; });
  j["time_max_s"] = figure([&](const SwathStat&) { return s.clock.tmax; });
  j["z_min_m"] = figure([](const SwathStat& t) { return t.Zmin; });
  j["z_max_m"] = figure([](const SwathStat& t) { return t.Zmax; });
  return j;
}

Json dz_json(const DZstat& s) {
  if (s.n == 0) return {};
  return {{"median_m", s.m}, {"stddev_m", s.s}, {"rms_m", s.rms}, {"outliers", s.out}, {"pixels", s.n}};
}

Json pairs_json(const RunReport::Pass& pass) {
  Json pairs = Json::array();
  std::map<int, const DZstat*> corrected;
  for (const PairQC& q : pass.corr.qc.pairs) corrected[q.number] = &q.stat;
  for (const PairResult& p : pass.scan.inter.pairs) {
    Json j;
    j["pair"] = p.number;
    j["swath1"] = p.sw1.number;
    j["swath2"] = p.sw2.number;
    j["vectors"] = p.nvec;
    j["lost"] = p.lost;
    j["dz_before"] = dz_json(p.before);
    j["dz_registered"] = dz_json(p.after);
    j["displacement_mean_m"] = p.nvec > 0 ? vector_json(p.disp.mean()) : Json();
    j["displacement_rms_m"] = p.nvec > 0 ? vector_json(p.disp.rms()) : Json();
    const auto after = corrected.find(p.number);
    j["dz_corrected"] = after != corrected.end() ? dz_json(*after->second) : Json();
    pairs.push_back(std::move(j));
  }
  return pairs;
}

// The calibration sets, to be added, with the swaths that share each.
Json calibration_json(const CorrResult& corr) {
  constexpr double DEGREES = 180 / 3.14159265358979323846;
  Json sets = Json::array();
  for (size_t k = 0; k < corr.inv.calib.size(); k++) {
    const Calib& c = corr.inv.calib[k];
    const dxyz B = to_dxyz(c.B) * DEGREES;
    Json j;
    j["swaths"] = Json::array();
    for (const SwathId sw : corr.inv.swaths.ids())
      if (corr.inv.swaths[sw].cal == static_cast<int>(k)) j["swaths"].push_back(sw.number);
    j["lever_m"] = vector_json(to_dxyz(c.L));
    j["boresight_deg"] = {{"roll", B.x}, {"pitch", B.y}, {"yaw", B.z}};
    j["internal"] = Json::array();
    for (const float v : c.I) j["internal"].push_back(v);
    sets.push_back(std::move(j));
  }
  return sets;
}

Json correction_json(const RunReport::Pass& pass) {
  if (!pass.corrected) return {};
  const CorrResult& corr = pass.corr;
  Json j;
  j["swaths"] = corr.swc.size();
  j["left_as_they_are"] = corr.nswrej;
  j["points_million"] = corr.Mp;
  j["dz_rms_before_m"] = corr.qc.rms0;
  j["dz_rms_after_m"] = corr.qc.rms;
  j["area_m2"] = corr.qc.area;
  j["calibration"] = calibration_json(corr);
  j["calibration_text"] = corr.inv.summary;
  return j;
}

Json fast_QC_json(const FastQCresult& fast) {
  if (fast.ngrids == 0) return {};
  Json j = {
      {"dz_mean_m", fast.mean}, {"dz_rms_m", fast.rms}, {"area_m2", fast.area}, {"groups", Json::array()}};
  for (const GroupDZ& g : fast.groups)
    j["groups"].push_back(
        {{"group1", g.g1}, {"group2", g.g2}, {"pixels", g.n}, {"dz_mean_m", g.mean}, {"dz_rms_m", g.rms}});
  return j;
}

Json separation_json(const SeparationResult& sep) {
  if (!(sep.cell > 0)) return {};
  Json j = {{"rms_m", sep.all.rms()},
            {"largest_m", sep.all.largest},
            {"p95_m", sep.all.percentile(0.95)},
            {"open_ground_m2", static_cast<double>(sep.all.n) * sep.cell * sep.cell}};
  return j;
}

Json pass_json(const RunReport::Pass& pass) {
  Json j;
  j["tile_m"] = pass.scale.Tsize;
  j["microtile_m"] = pass.scale.mTsize;
  j["grid_spacing_m"] = pass.scale.dim > 0 ? Json(pass.scale.GSD()) : Json();
  j["area_m2"] = pass.scan.area;
  j["overlap_m2"] = pass.scan.overlap;
  j["rejected"] = pass.scan.nrejected;
  j["swaths"] = Json::array();
  for (const Swath& s : pass.swaths) j["swaths"].push_back(swath_json(pass, s));
  j["pairs"] = pairs_json(pass);
  j["fast_qc"] = fast_QC_json(pass.scan.fast);
  j["separation"] = separation_json(pass.scan.separation);
  j["correction"] = correction_json(pass);
  return j;
}
// Files that are still there; what they are stands with those of the table.
Json outputs_json(const Project& prj) {
  Json outputs = Json::array();
  std::set<std::string> seen;
  for (const std::string& name : committed_results()) {
    const int64_t bytes = file_size(name);
    if (bytes < 0 || !seen.insert(name).second) continue;
    const OutputTable* const table =
        name.starts_with(prj.name) ? output_of(name.substr(prj.name.size())) : nullptr;
    outputs.push_back({{"file", name}, {"bytes", bytes}, {"meaning", table ? Json(table->meaning) : Json()}});
  }
  return outputs;
}
}  // namespace

bool write_run_report(const std::string& file, const RunReport& report, const CommandLine& cl,
                      const Project& prj, int code) {
  const auto end = std::chrono::system_clock::now();
  Json j;
  j["schema"] = "veldrunner-run-1";
  j["program"] = {{"name", PROGRAM_NAME}, {"identity", banner()}};
  j["command"] = command_of(cl);
  j["name"] = cl.o.name;
  j["options"] = options_json(cl);
  j["coordinates"] = {{"projection", proj_word(prj.georef.kind)},
                      {"definition", prj.georef.def},
                      {"metres_per_unit", prj.georef.unit},
                      {"metres_per_height_unit", prj.georef.unit_z}};
  j["trajectories"] = Json::array();
  for (const POfile& f : prj.pofiles) j["trajectories"].push_back(f.path);
  j["passes"] = Json::array();
  for (const RunReport::Pass& pass : report.passes) j["passes"].push_back(pass_json(pass));
  j["warnings"] = reported_messages(false);
  j["errors"] = reported_messages(true);
  j["outputs"] = outputs_json(prj);
  j["start"] = utc_text(report.start);
  j["end"] = utc_text(end);
  j["seconds"] = std::chrono::duration<double>(end - report.start).count();
  j["exit"] = code;
  ResultFile out;
  if (!out.open(file)) return false;
  out.fs << j.dump(1, ' ', false, Json::error_handler_t::replace) << '\n';
  return out.commit();
}
}  // namespace veld
