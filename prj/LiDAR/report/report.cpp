#include "prj/LiDAR/report/report.h"

#include <algorithm>
#include <fstream>

#include "lib/general/result_file.h"
#include "prj/LiDAR/report/html.h"
#include "prj/LiDAR/report/report_parts.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
using Rows = std::vector<std::vector<std::string>>;

int count_corrected(const Project& prj) {
  return static_cast<int>(
      std::ranges::count_if(prj.swaths, [](const Swath& s) { return !s.corrected.empty(); }));
}
int count_mobile(const Project& prj) {
  return static_cast<int>(
      std::ranges::count_if(prj.swaths, [](const Swath& s) { return !s.fixed && s.corr; }));
}

std::string joined(const std::vector<std::string>& names) {
  constexpr size_t MOST = 12;
  std::string text;
  for (size_t i = 0; i < names.size() && i < MOST; i++) text += (i > 0 ? ", " : "") + names[i];
  return names.size() > MOST ? text + LOG_STR(" and " << names.size() - MOST << " more") : text;
}

void put_swaths(std::ostream& os, const Project& prj) {
  Rows rows;
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

// Before and after, for what is asked first.
void put_before_after(std::ostream& os, const Project& prj, const CorrResult& corr, const ReportInput& in) {
  Rows rows;
  if (corr.qc.nused > 0) {
    rows.push_back({LOG_STR("Height differences between swaths, RMS of " << corr.qc.nused << " pairs"),
                    m3(corr.qc.rms0) + " m", m3(corr.qc.rms) + " m"});
    const auto worst =
        std::ranges::max_element(corr.qc.pairs, {}, [](const PairQC& p) { return p.stat.rms; });
    if (worst != corr.qc.pairs.end())
      rows.push_back({"Worst pair: " + pair_name(prj, worst->sw1, worst->sw2), m3(worst->before.rms) + " m",
                      m3(worst->stat.rms) + " m"});
  }
  const auto points = [&](const char* kind, const GCPstat& a, const GCPstat& b) {
    if (b.n > 0)
      rows.push_back({LOG_STR(b.npoint << ' ' << kind << " points, RMS of the height differences"),
                      a.n > 0 ? m3(a.rms) + " m" : "-", m3(b.rms) + " m"});
  };
  points("control", in.before.gcp.control, corr.control.gcp.control);
  points("check", in.before.gcp.check, corr.control.gcp.check);
  const auto targets = [&](const char* kind, const XYZGCPstat& a, const XYZGCPstat& b) {
    if (b.n == 0) return;
    const auto text = [](const XYZGCPstat& t) { return m3(t.rms_xy) + " m, " + m3(t.rms_z) + " m"; };
    rows.push_back({LOG_STR(b.n << ' ' << kind << " targets, RMS in X or Y, and in Z"),
                    a.n > 0 ? text(a) : "-", text(b)});
  };
  targets("control", in.before.xyz.control, corr.control.xyz.control);
  targets("check", in.before.xyz.check, corr.control.xyz.check);
  if (!rows.empty()) put_table(os, "Before and after", {"Figure", "Before", "After"}, rows, 1);
}

// Answers in a line each; the sections have the rest.
void put_answers(std::ostream& os, const CorrResult& corr, const ReportInput& in) {
  Rows rows;
  if (!corr.inv.significant) rows.push_back({"Calibration found", "none that is significant, see below"});
  for (const std::string& line : corr.inv.significant ? calibration_lines(corr) : std::vector<std::string>())
    rows.push_back({rows.empty() ? "Calibration found" : "", line});
  for (const auto& [group, s] : corr.control.shifts)
    rows.push_back({group == 0 ? "Shift to the control points"
                               : "Shift to the control points, group " + std::to_string(group),
                    LOG_STR("X " << s.x << " m, Y " << s.y << " m, Z " << s.z << " m")});
  if (!in.before.gcp.gcp.empty()) {
    const std::vector<std::string> names = rejected_points(in.before, corr.control);
    rows.push_back({"Control and check points rejected as outliers",
                    names.empty() ? "none"
                                  : LOG_STR(names.size()
                                            << " of " << in.before.gcp.gcp.size() << ": " << joined(names))});
  }
  const std::vector<QualityLevel> levels = usgs_levels(accuracy_figures(corr, in));
  const auto passed = std::ranges::find_if(levels, [](const QualityLevel& q) { return q.kept == Kept::yes; });
  const auto failed = std::ranges::find_if(levels, [](const QualityLevel& q) { return q.kept != Kept::no; });
  rows.push_back({"USGS quality level",
                  passed != levels.end() && passed == failed ? passed->name + ", all rules kept"
                  : failed != levels.end() ? failed->name + " at best: not all of its rules could be tested"
                                           : "none"});
  put_table(os, "At a glance", {"Question", "Answer"}, rows, 9);
}
}  // namespace

std::string report_sentence(const Project& prj, const CorrResult& corr, const ReportInput& in) {
  std::string s = LOG_STR(count_corrected(prj) << " of " << count_mobile(prj) << " swaths were aligned");
  if (count_corrected(prj) == 0)
    s = LOG_STR("The corrections of " << corr.swc.size() << " swaths were found");
  if (!corr.inv.significant)
    s = LOG_STR("No point was moved: the displacements of the "
                << count_mobile(prj) << " swaths are no larger than what vegetation makes");
  if (corr.qc.nused > 0 && !corr.inv.significant)
    s += LOG_STR("; the height differences between them are " << corr.qc.rms << " m RMS in " << corr.qc.nused
                                                              << " pairs");
  else if (corr.qc.nused > 0)
    s += LOG_STR("; the height differences between them went from "
                 << corr.qc.rms0 << " to " << corr.qc.rms << " m RMS in " << corr.qc.nused << " pairs");
  const GCPstat& check = corr.control.gcp.check;
  const GCPstat& control = corr.control.gcp.control;
  if (check.n > 0)
    s += LOG_STR("; " << check.npoint << " check points differ by " << check.mean << " m in the mean and "
                      << check.rms << " m RMS");
  else if (control.n > 0)
    s += LOG_STR("; " << control.npoint << " control points differ by " << control.rms << " m RMS");
  if (const size_t n = rejected_points(in.before, corr.control).size(); n > 0)
    s += LOG_STR("; " << n << " of " << in.before.gcp.gcp.size() << " points were rejected as outliers");
  if (corr.qc.nused > 0 && corr.qc.rms > corr.qc.rms0)
    s += ". They have grown: do not use these files without looking further.";
  else if (!in.complete)
    s += ". Something was left out or is uncertain, see below.";
  else
    s += ". No swath was left out.";
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
  put_before_after(os, prj, corr, in);
  put_answers(os, corr, in);
  put_map_section(os, corr, in);
  put_swaths(os, prj);
  put_differences(os, prj, corr, in);
  put_control(os, corr, in);
  put_statements(os, corr, in);
  put_calibration(os, corr);
  put_drifts(os, prj, corr);
  put_residuals(os, prj, corr, in);
  put_rejected(os, prj, corr, in);
  put_options(os, prj);
  put_page_end(os);
  return out.commit();
}
}  // namespace veld
