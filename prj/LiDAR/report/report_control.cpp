// Sections of the report on control points: map, differences, statements on accuracy, what was rejected.
#include <algorithm>
#include <cmath>

#include "prj/LiDAR/report/html.h"
#include "prj/LiDAR/report/report_parts.h"

namespace veld {
namespace {
using Rows = std::vector<std::vector<std::string>>;

std::string state_of(const GCP& g, const PointRow& p) {
  if (p.n + p.n0 == 0) return p.refused.empty() ? "no laser points there" : "refused: " + p.refused;
  if (p.n == 0) return "not measured after the correction";
  if (p.rejected) return "rejected as outlier";
  return g.control ? "used" : "compared";
}

void put_totals(std::ostream& os, const CorrResult& corr, const ReportInput& in) {
  Rows rows;
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
  const auto xyz_row = [&](const char* kind, const XYZGCPstat& a, const XYZGCPstat& b) {
    if (a.n + b.n == 0) return;
    rows.push_back({kind, std::to_string(b.n), m3(a.rms_xy), m3(a.rms_z), m3(b.mean.x), m3(b.mean.y),
                    m3(b.mean.z), m3(b.rms_xy), m3(b.rms_z)});
  };
  xyz_row("control", in.before.xyz.control, corr.control.xyz.control);
  xyz_row("check", in.before.xyz.check, corr.control.xyz.check);
  if (!rows.empty())
    put_table(os, "Targets: places in the swaths less the surveyed ones, m (XY: one horizontal axis)",
              {"Targets", "Number", "RMS XY before", "RMS Z before", "Mean X after", "Mean Y after",
               "Mean Z after", "RMS XY after", "RMS Z after"},
              rows, 1);
}

void put_points(std::ostream& os, const CorrResult& corr, const ReportInput& in) {
  const std::vector<GCP>& gcp = in.before.gcp.gcp;
  const std::vector<PointRow> points = point_rows(in.before, corr.control);
  Rows rows;
  for (size_t i = 0; i < gcp.size(); i++) {
    const PointRow& p = points[i];
    rows.push_back({gcp[i].name, gcp[i].control ? "control" : "check", state_of(gcp[i], p),
                    std::to_string(std::max(p.n, p.n0)), p.n0 > 0 ? m3(p.dz0 / p.n0) : "-",
                    p.n > 0 ? m3(p.dz / p.n) : "-", m3(gcp[i].sigma),
                    p.n + p.n0 > 0 ? std::to_string(std::lround(100 * p.slope)) : "-"});
  }
  if (!rows.empty())
    put_table(os, "Points, mean over the swaths that see them",
              {"Name", "Kind", "State", "Swaths", "DZ before, m", "DZ after, m", "Sigma, m", "Slope, %"},
              rows, 3);
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

const char* word(Kept k) {
  return k == Kept::yes ? "pass" : k == Kept::no ? "FAIL" : k == Kept::open ? "not tested" : "reported";
}
}  // namespace

std::vector<PointRow> point_rows(const ControlQC& before, const ControlQC& after) {
  std::vector<PointRow> rows(before.gcp.gcp.size());
  const auto row = [&](int gcp) -> PointRow& { return rows[static_cast<size_t>(gcp)]; };
  for (const GCPresult* r : {&before.gcp, &after.gcp})
    for (const GCPrefused& f : r->counts.refused) row(f.gcp).refused = refusal_text(f.why);
  for (const GCPoccur& o : before.gcp.occ) row(o.gcp).dz0 += o.dz, row(o.gcp).n0++;
  for (const GCPoccur& o : after.gcp.occ) {
    PointRow& r = row(o.gcp);
    r.dz += o.dz, r.n++;
    r.rejected = r.rejected || !o.in;
    r.slope = std::max(r.slope, std::hypot(o.slope_x, o.slope_y));
  }
  return rows;
}

std::vector<std::string> rejected_points(const ControlQC& before, const ControlQC& after) {
  const std::vector<PointRow> points = point_rows(before, after);
  std::vector<std::string> names;
  for (size_t i = 0; i < points.size(); i++)
    if (points[i].rejected) names.push_back(before.gcp.gcp[i].name);
  return names;
}

void put_map_section(std::ostream& os, const CorrResult& corr, const ReportInput& in) {
  os << "<h2 id=\"map\">Project</h2>\n";
  const std::vector<PointRow> points = point_rows(in.before, corr.control);
  std::vector<MapMark> marks;
  for (size_t i = 0; i < points.size(); i++) {
    const GCP& g = in.before.gcp.gcp[i];
    const bool unused = points[i].n == 0 || points[i].rejected;
    marks.push_back({g.name,
                     {g.pos.x, g.pos.y},
                     unused      ? MapPoint::rejected
                     : g.control ? MapPoint::control
                                 : MapPoint::check});
  }
  for (const XYZoccur& o : in.before.xyz.occ) {
    const XYZGCP& g = in.before.xyz.gcp[static_cast<size_t>(o.gcp)];
    marks.push_back({g.name, {g.pos.x, g.pos.y}, g.control ? MapPoint::control : MapPoint::check});
  }
  put_map(os, in.swaths, marks);
}

void put_control(std::ostream& os, const CorrResult& corr, const ReportInput& in) {
  os << "<h2 id=\"control\">Control and check points</h2>\n";
  if (in.before.gcp.gcp.empty() && in.before.xyz.gcp.empty()) {
    os << "<p>No control points were given: heights and places are those of the trajectory.</p>\n";
    return;
  }
  Rows rows;
  for (const auto& [group, s] : corr.control.shifts)
    rows.push_back({group == 0 ? "all swaths" : "group " + std::to_string(group), m3(s.x), m3(s.y), m3(s.z)});
  if (rows.empty())
    os << "<p>The swaths were not shifted to the control points.</p>\n";
  else
    put_table(os, "Shift to the control points, m", {"Swaths", "X", "Y", "Z"}, rows, 1);
  put_totals(os, corr, in);
  put_points(os, corr, in);
}

AccuracyFigures accuracy_figures(const CorrResult& corr, const ReportInput& in) {
  AccuracyFigures f;
  add_check_points(corr.control.gcp, f);
  if (corr.qc.nused > 0) f.rms_overlap = corr.qc.rms, f.max_pair = corr.qc.worst_rms;
  const SepSum& sep = corr.separation.all;
  if (sep.n > 0) {
    f.rms_open = sep.rms(), f.p95_open = sep.percentile(0.95);
    f.max_open = static_cast<double>(sep.largest);
  }
  SepSum precision;
  for (const auto& [sw, sum] : in.separation.precision) precision.add(sum);
  if (precision.n > 0)
    f.precision = precision.percentile(0.95), f.max_precision = static_cast<double>(precision.largest);
  f.density = in.density;
  return f;
}

void put_statements(std::ostream& os, const CorrResult& corr, const ReportInput& in) {
  os << "<h2 id=\"acc\">Statements on accuracy</h2>\n";
  const AccuracyFigures f = accuracy_figures(corr, in);
  Rows rows;
  for (const Statement& s : asprs_statements(f)) rows.push_back({s.rule, s.figure, word(s.kept)});
  put_table(os, "ASPRS Positional Accuracy Standards for Digital Geospatial Data, Edition 2",
            {"Rule", "Figure", "Result"}, rows, 9);
  // A row a rule, a column a level.
  const std::vector<QualityLevel> levels = usgs_levels(f);
  std::vector<std::string> head = {"Rule", "Figure"};
  rows.clear();
  for (const QualityLevel& q : levels) head.push_back(q.name);
  for (size_t k = 0; k < levels[0].statements.size(); k++) {
    std::vector<std::string> row = {levels[0].statements[k].rule, levels[0].statements[k].figure};
    for (const QualityLevel& q : levels)
      row.push_back(q.statements[k].limit + ": " + word(q.statements[k].kept));
    rows.push_back(row);
  }
  std::vector<std::string> all = {"All together", ""};
  for (const QualityLevel& q : levels) all.push_back(word(q.kept));
  rows.push_back(all);
  put_table(os, "USGS Lidar Base Specification, quality levels", head, rows, 9);
  if (f.precision < 0 || f.rms_open < 0)
    os << "<p>Smoothness within a swath and differences on open ground are measured with -sep.</p>\n";
}

void put_rejected(std::ostream& os, const Project& prj, const CorrResult& corr, const ReportInput& in) {
  os << "<h2 id=\"left\">What was rejected, and why</h2>\n";
  Rows rows;
  for (const Swath& s : prj.swaths)
    if (s.members.empty() && !s.reason.empty() && s.state != SwathState::replaced &&
        s.state != SwathState::used)
      rows.push_back({"swath " + base_name(s.path()), s.reason});
  for (const PairResult& p : in.pairs)
    if (!p.lost.empty()) rows.push_back({"pair " + pair_name(prj, p.sw1, p.sw2), p.lost});
  const std::vector<PointRow> points = point_rows(in.before, corr.control);
  for (size_t i = 0; i < points.size(); i++) {
    const PointRow& p = points[i];
    const GCP& g = in.before.gcp.gcp[i];
    if (p.rejected)
      rows.push_back({"point " + g.name, LOG_STR("outlier, height difference " << p.dz / p.n << " m")});
    else if (p.n == 0)
      rows.push_back({"point " + g.name, state_of(g, p)});
    else if (!p.refused.empty())
      rows.push_back({"point " + g.name + " in some swaths", p.refused});
  }
  if (rows.empty())
    os << "<p>Nothing.</p>\n";
  else
    put_table(os, "Rejected", {"What", "Why"}, rows, 9);
}
}  // namespace veld
