#include "prj/LiDAR/report/report.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/report/accuracy.h"
#include "prj/LiDAR/report/html.h"
#include "prj/LiDAR/report/report_data.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t MAX_PICTURE = 6000000;  // bytes, larger maps stay beside the page
constexpr size_t MAX_BARS = 40;            // pairs drawn; the table has all of them

std::string m3(double v) { return LOG_STR(v); }  // metres, three decimals
std::string m3_or_none(double v) { return v < 0 ? "-" : m3(v); }

std::string short_name(const Project& prj, SwathId id) {
  return prj.swaths.has(id) ? base_name(prj.swaths.name(id)) : to_string(id);
}

std::string pair_name(const Project& prj, int a, int b) {
  return short_name(prj, SwathId(a)) + " / " + short_name(prj, SwathId(b));
}

int count_corrected(const Project& prj) {
  return static_cast<int>(
      std::ranges::count_if(prj.swaths, [](const Swath& s) { return !s.corrected.empty(); }));
}
int count_mobile(const Project& prj) {
  return static_cast<int>(
      std::ranges::count_if(prj.swaths, [](const Swath& s) { return !s.fixed && s.corr; }));
}

struct Left {
  std::string name, reason;
};

// Swaths that got no correction.
std::vector<Left> left_out_swaths(const Project& prj) {
  std::vector<Left> list;
  for (const Swath& s : prj.swaths)
    if (s.members.empty() && !s.reason.empty() && s.state != SwathState::replaced &&
        s.state != SwathState::used)
      list.push_back({base_name(s.path()), s.reason});
  return list;
}

// --- control points ---

struct PointRow {  // a control point over all swaths
  int n0 = 0, n = 0;
  double dz0 = 0, dz = 0;
  bool rejected = false;
};

std::map<int, PointRow> point_rows(const ControlQC& before, const ControlQC& after) {
  std::map<int, PointRow> rows;
  for (const GCPoccur& o : before.gcp.occ) rows[o.gcp].dz0 += o.dz, rows[o.gcp].n0++;
  for (const GCPoccur& o : after.gcp.occ) {
    PointRow& r = rows[o.gcp];
    r.dz += o.dz, r.n++;
    r.rejected = r.rejected || !o.in;
  }
  return rows;
}

void put_control(std::ostream& os, const CorrResult& corr, const ReportInput& in) {
  os << "<h2 id=\"control\">Control and check points</h2>\n";
  const std::vector<GCP>& gcp = in.before.gcp.gcp;
  if (gcp.empty() && in.before.xyz.gcp.empty()) {
    os << "<p>No control points were given: heights and places are those of the trajectory.</p>\n";
    return;
  }
  std::vector<std::vector<std::string>> rows;
  const auto stat_row = [&](const char* kind, const GCPstat& a, const GCPstat& b) {
    if (a.n + b.n + a.nout + b.nout == 0) return;
    rows.push_back({kind, std::to_string(b.npoint), m3(a.mean), m3(a.rms), m3(b.mean), m3(b.rms), m3(b.ci95),
                    std::to_string(b.nout)});
  };
  stat_row("control", in.before.gcp.control, corr.control.gcp.control);
  stat_row("check", in.before.gcp.check, corr.control.gcp.check);
  if (!rows.empty())
    put_table(os, "Heights of the swaths less those of the points, m",
              {"Points", "Number", "Mean before", "RMS before", "Mean after", "RMS after",
               "95 % (half width)", "Outliers"},
              rows, 1);
  rows.clear();
  const std::map<int, PointRow> points = point_rows(in.before, corr.control);
  for (size_t i = 0; i < gcp.size(); i++) {
    const auto at = points.find(static_cast<int>(i));
    const GCP& g = gcp[i];
    std::vector<std::string> row = {g.name, g.control ? "control" : "check"};
    if (at == points.end()) {
      row.insert(row.end(), {"not measured", "0", "-", "-"});
    } else {
      const PointRow& p = at->second;
      row.push_back(p.rejected ? "rejected as outlier" : p.n > 0 ? "used" : "not measured");
      row.push_back(std::to_string(std::max(p.n, p.n0)));
      row.push_back(p.n0 > 0 ? m3(p.dz0 / p.n0) : "-");
      row.push_back(p.n > 0 ? m3(p.dz / p.n) : "-");
    }
    row.push_back(m3(g.sigma));
    rows.push_back(row);
  }
  if (!rows.empty())
    put_table(os, "Points, mean over the swaths that see them",
              {"Name", "Kind", "State", "Swaths", "DZ before, m", "DZ after, m", "Sigma, m"}, rows, 3);
  rows.clear();
  for (const XYZoccur& o : corr.control.xyz.occ) {
    const XYZGCP& g = corr.control.xyz.gcp[static_cast<size_t>(o.gcp)];
    rows.push_back(
        {g.name, g.control ? "control" : "check", to_string(o.sw), m3(o.d.x), m3(o.d.y), m3(o.d.z)});
  }
  if (!rows.empty())
    put_table(os, "Targets, place in the corrected swath less the surveyed one, m",
              {"Name", "Kind", "Swath", "DX", "DY", "DZ"}, rows, 2);
}

// --- relative accuracy ---

void put_differences(std::ostream& os, const Project& prj, const CorrResult& corr) {
  os << "<h2 id=\"pairs\">Height differences between swaths</h2>\n";
  if (corr.qc.nused == 0) {
    os << "<p>The differences after the correction were not measured.</p>\n";
    return;
  }
  const std::vector<PairRms> pairs = read_pair_rms(prj.name);
  std::vector<BarPair> bars;
  std::vector<std::vector<std::string>> rows;
  for (const PairRms& p : pairs) {
    if (bars.size() < MAX_BARS) bars.push_back({pair_name(prj, p.sw1, p.sw2), p.before, p.after});
    rows.push_back({pair_name(prj, p.sw1, p.sw2), m3_or_none(p.before), m3_or_none(p.after)});
  }
  put_bars(os, pairs.size() > MAX_BARS ? "The 40 worst pairs, RMS" : "RMS by pair, the worst first", bars);
  put_table(os, "All pairs, RMS of the height differences, m", {"Pair", "Before", "After"}, rows, 1);
  const struct {
    const char *suffix, *caption;
  } pictures[] = {{"_DZ.jpg", "Height differences before"},
                  {"_DZcorr.jpg", "Height differences after"},
                  {"_DZ_hist.jpg", "Their histogram, before"},
                  {"_DZcorr_hist.jpg", "Their histogram, after"}};
  for (const auto& p : pictures) put_picture(os, prj.name + p.suffix, p.caption, MAX_PICTURE);
}

// --- calibration, drift, residuals ---

void put_calibration(std::ostream& os, const Project& prj, const CorrResult& corr) {
  os << "<h2 id=\"cal\">Calibration</h2>\n";
  if (corr.found.empty()) {
    os << "<p>No calibration was estimated.</p>\n";
  } else {
    os << "<ul>";
    for (const std::string& line : corr.found) os << "<li>" << html_text(line) << "</li>\n";
    os << "</ul>\n";
  }
  const LogTable cov = read_log_table(prj.name + "_cal_cov.txt");
  if (cov.rows.empty()) return;
  std::vector<std::string> head = {"Parameter", "Unit", "Uncertainty"};
  std::vector<std::vector<std::string>> rows;
  for (const auto& row : cov.rows) {
    if (row.size() < 3) continue;
    head.push_back(row[0]);
    rows.push_back(row);
  }
  put_table(os, "Uncertainties and correlations (x y z lever, w p k boresight roll pitch yaw)", head, rows,
            2);
}

void put_drifts(std::ostream& os, const Project& prj) {
  os << "<h2 id=\"drift\">Drift of the trajectory</h2>\n";
  const char* const labels[] = {"Position X, m", "Position Y, m",  "Position Z, m",
                                "Roll, degrees", "Pitch, degrees", "Yaw, degrees"};
  bool any = false;
  for (int axis = 0; axis < 6; axis++) {
    const std::vector<DriftLine> lines = read_drift(prj.name, axis);
    any = any || !lines.empty();
    put_drift(os, std::string(labels[axis]) + ", correction added, a line a swath", lines);
  }
  if (!any) os << "<p>No drift was estimated.</p>\n";
}

void put_residuals(std::ostream& os, const Project& prj) {
  os << "<h2 id=\"res\">Displacements that are left</h2>\n";
  const LogTable t = read_log_table(prj.name + "_inv_stat.log");
  std::vector<std::vector<std::string>> rows;
  for (const auto& r : t.rows)
    if (r.size() > 18)
      rows.push_back(
          {pair_name(prj, std::atoi(r[1].c_str()), std::atoi(r[2].c_str())), r[9], r[10], r[11], r[18]});
  if (rows.empty())
    os << "<p>No statistics of residuals.</p>\n";
  else
    put_table(os, "RMS of the residuals of the inversion, m", {"Pair", "X", "Y", "Z", "Vectors"}, rows, 1);
  for (const char* const axis : {"XY", "XZ", "YZ"})
    put_picture(os, prj.name + "_res_" + axis + ".jpg", std::string("Residuals, plane ") + axis, MAX_PICTURE);
}

// --- statements, what was left out, options ---

const char* word(Kept k) { return k == Kept::yes ? "pass" : k == Kept::no ? "FAIL" : "not tested"; }

void put_statements(std::ostream& os, const CorrResult& corr, const ReportInput& in) {
  os << "<h2 id=\"acc\">Statements on accuracy</h2>\n";
  AccuracyFigures f;
  add_check_points(corr.control.gcp, f);
  if (corr.qc.nused > 0) f.rms_overlap = corr.qc.rms, f.max_pair = corr.qc.worst_rms;
  f.density = in.density;
  std::vector<std::vector<std::string>> rows;
  for (const Statement& s : asprs_statements(f)) rows.push_back({s.rule, s.figure, word(s.kept)});
  put_table(os, "ASPRS Positional Accuracy Standards for Digital Geospatial Data, Edition 2",
            {"Rule", "Figure", "Result"}, rows, 9);
  rows.clear();
  for (const QualityLevel& q : usgs_levels(f))
    for (const Statement& s : q.statements) rows.push_back({q.name, s.rule, s.figure, word(s.kept)});
  put_table(os, "USGS Lidar Base Specification", {"Level", "Rule", "Figure", "Result"}, rows, 9);
}

void put_left_out(std::ostream& os, const Project& prj, const CorrResult& corr) {
  os << "<h2 id=\"left\">What was rejected, and why</h2>\n";
  std::vector<std::vector<std::string>> rows;
  for (const Left& l : left_out_swaths(prj)) rows.push_back({"swath " + l.name, l.reason});
  std::map<int, double> out;
  for (const GCPoccur& o : corr.control.gcp.occ)
    if (!o.in) out[o.gcp] = o.dz;
  for (const auto& [k, dz] : out)
    rows.push_back({"point " + corr.control.gcp.gcp[static_cast<size_t>(k)].name,
                    LOG_STR("outlier, height difference " << dz << " m")});
  if (corr.control.gcp.counts.ngerr > 0)
    rows.push_back({LOG_STR(corr.control.gcp.counts.ngerr << " heights at points"),
                    "too few laser points, too rough, or beyond the edge of the swath"});
  if (rows.empty())
    os << "<p>Nothing.</p>\n";
  else
    put_table(os, "Rejected", {"What", "Why"}, rows, 9);
}

void put_map_section(std::ostream& os, const CorrResult& corr, const ReportInput& in) {
  os << "<h2 id=\"map\">Project</h2>\n";
  const std::map<int, PointRow> points = point_rows(in.before, corr.control);
  std::vector<MapMark> marks;
  for (size_t i = 0; i < in.before.gcp.gcp.size(); i++) {
    const GCP& g = in.before.gcp.gcp[i];
    const auto at = points.find(static_cast<int>(i));
    const bool rejected = at == points.end() || at->second.rejected;
    marks.push_back({g.name,
                     {g.pos.x, g.pos.y},
                     rejected    ? MapPoint::rejected
                     : g.control ? MapPoint::control
                                 : MapPoint::check});
  }
  for (const XYZoccur& o : in.before.xyz.occ) {
    const XYZGCP& g = in.before.xyz.gcp[static_cast<size_t>(o.gcp)];
    marks.push_back({g.name, {g.pos.x, g.pos.y}, g.control ? MapPoint::control : MapPoint::check});
  }
  put_map(os, in.swaths, marks);
}

void put_swaths(std::ostream& os, const Project& prj) {
  std::vector<std::vector<std::string>> rows;
  for (const Swath& s : prj.swaths)
    if (s.state != SwathState::replaced && s.state != SwathState::absent)
      rows.push_back({to_string(s.id), base_name(prj.swaths.name(s.id)), std::to_string(s.group),
                      s.fixed                ? "reference"
                      : !s.corrected.empty() ? base_name(s.corrected)
                      : s.reason.empty()     ? "no corrected file"
                                             : s.reason});
  put_table(os, "Swaths", {"Number", "File", "Group", "Result"}, rows, 9);
}

void put_options(std::ostream& os, const Project& prj) {
  os << "<h2 id=\"opt\">Options and version</h2>\n<p>" << html_text(SOFTINFO) << "</p>\n";
  // Only what decides the results: the page is the same whatever machine and directories the run had.
  const auto is_of_machine = [](const std::string& line) {
    const std::string word = line.substr(0, line.find(' '));
    for (const char* const name : {"nthreads", "N", "nthreads_io", "mem", "odir", "odir_1", "tmpdir", "idir",
                                   "mul", "quiet", "q", "progress", "log_flush"})
      if (word == name) return true;
    return word.rfind("[dir=", 0) == 0;
  };
  std::ifstream in(prj.name + "_opt.xml");
  std::string text;
  for (std::string line; std::getline(in, line);)
    if (!is_of_machine(line)) text += line + '\n';
  os << "<pre>" << html_text(text) << "</pre>\n";
}

// The figures that are asked for first.
void put_first_figures(std::ostream& os, const Project& prj, const CorrResult& corr, const ReportInput& in) {
  std::vector<std::vector<std::string>> rows;
  if (corr.qc.nused > 0) {
    rows.push_back(
        {"Height differences between swaths, RMS", m3(corr.qc.rms0) + " m", m3(corr.qc.rms) + " m"});
    if (corr.qc.worst1 != SwathId())
      rows.push_back({"Worst pair: " + pair_name(prj, corr.qc.worst1.number, corr.qc.worst2.number), "-",
                      m3(corr.qc.worst_rms) + " m"});
  }
  const auto points = [&](const char* kind, const GCPstat& a, const GCPstat& b) {
    if (b.n > 0)
      rows.push_back({LOG_STR(b.npoint << ' ' << kind << " points, RMS of the height differences"),
                      a.n > 0 ? m3(a.rms) + " m" : "-", m3(b.rms) + " m"});
  };
  points("control", in.before.gcp.control, corr.control.gcp.control);
  points("check", in.before.gcp.check, corr.control.gcp.check);
  if (!rows.empty()) put_table(os, "Before and after", {"Figure", "Before", "After"}, rows, 1);
}
}  // namespace

std::string report_sentence(const Project& prj, const CorrResult& corr, const ReportInput& in) {
  std::string s = LOG_STR(count_corrected(prj) << " of " << count_mobile(prj) << " swaths were aligned");
  if (count_corrected(prj) == 0)
    s = LOG_STR("The corrections of " << corr.swc.size() << " swaths were found");
  if (corr.qc.nused > 0)
    s += LOG_STR("; the height differences between them went from "
                 << corr.qc.rms0 << " to " << corr.qc.rms << " m RMS in " << corr.qc.nused << " pairs");
  const GCPstat& check = corr.control.gcp.check;
  const GCPstat& control = corr.control.gcp.control;
  if (check.n > 0)
    s += LOG_STR("; " << check.npoint << " check points differ by " << check.mean << " m in the mean and "
                      << check.rms << " m RMS");
  else if (control.n > 0)
    s += LOG_STR("; " << control.npoint << " control points differ by " << control.rms << " m RMS");
  if (corr.qc.nused > 0 && corr.qc.rms > corr.qc.rms0)
    s += ". They have grown: do not use these files without looking further.";
  else if (!in.complete)
    s += ". Something was left out or is uncertain, see below.";
  else
    s += ". Nothing was left out.";
  return s;
}

bool write_report(const Project& prj, const CorrResult& corr, const ReportInput& in) {
  const std::string name = prj.name + "_report.html";
  LOG_ENTER("write_report " << name);
  ResultFile out;
  if (!out.open(name)) return false;
  std::ostream& os = out.fs;
  put_page_begin(os, "Alignment of " + base_name(prj.name));
  os << "<p class=\"sum\">" << html_text(report_sentence(prj, corr, in)) << "</p>\n"
     << "<nav aria-label=\"Sections\"><a href=\"#map\">Project</a><a href=\"#pairs\">Differences</a><a "
        "href=\"#control\">Control points</a><a href=\"#acc\">Accuracy</a><a href=\"#cal\">Calibration</a><a "
        "href=\"#drift\">Drift</a><a href=\"#res\">Residuals</a><a href=\"#left\">Rejected</a><a "
        "href=\"#opt\">Options</a></nav>\n";
  put_first_figures(os, prj, corr, in);
  put_map_section(os, corr, in);
  put_swaths(os, prj);
  put_differences(os, prj, corr);
  put_control(os, corr, in);
  put_statements(os, corr, in);
  put_calibration(os, prj, corr);
  put_drifts(os, prj);
  put_residuals(os, prj);
  put_left_out(os, prj, corr);
  put_options(os, prj);
  put_page_end(os);
  return out.commit();
}
}  // namespace veld
