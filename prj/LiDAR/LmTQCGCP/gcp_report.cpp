// Reports of the height control: text, JSON, triangles.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <map>
#include <set>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTQCGCP/LmTQCGCP.h"
#include "prj/LiDAR/LmTQCGCP/gcp_text.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
const GCP& point_of(const GCPresult& r, const GCPoccur& o) { return r.gcp[static_cast<size_t>(o.gcp)]; }

const char* weight_text(const GCPparam& par) {
  return par.EQ == 1 ? "equal" : par.EQ == 2 ? "adaptive 1/S2" : "adaptive 1/(U2+S2)";
}

int count_points(const GCPresult& r, bool control) {
  std::set<int> points;
  for (const GCPoccur& o : r.occ)
    if (point_of(r, o).control == control) points.insert(o.gcp);
  return static_cast<int>(points.size());
}

std::string label(const GCPresult& r, int i, const char* sw, const char* grp) {
  const GCPoccur& o = r.occ[static_cast<size_t>(i)];
  return occurrence_label(point_of(r, o).name, o.sw, o.group, sw, grp);
}

ReportHead head_of(const GCPparam& par, bool post) {
  return {"absolute vertical", "Input GCP file     ",      par.file, post, DATAUNIT_Z,
          weight_text(par),    "\"dz\": \"Z_LiDAR-Z_GCP\""};
}

void put_header(std::ostream& os, const Project& prj, const GCPparam& par, bool post, const GCPresult& r) {
  put_head(os, prj, head_of(par, post));
  os << "Outlier rejection  " << (par.GCP_ROB ? "enabled (global and groups)" : "disabled") << '\n'
     << "Kernel FWHM        " << r.counts.FWHM / DATAUNIT << '\n'
     << "Swaths used        " << count_swaths(r.occ) << (mobile_only(prj) ? " (mobile only)" : "") << '\n'
     << "GCP used           " << r.control.npoint + r.check.npoint << '\n'
     << "Check pts found    " << count_points(r, false) << '\n'
     << "Control pts found  " << count_points(r, true) << "\n\n";
}

void put_summary(std::ostream& os, const char* kind, const GCPparam& par, const GCPresult& r,
                 const GCPstat& s) {
  const double u = 1 / DATAUNIT_Z;
  os << kind << "SUMMARY STATISTICS " << (par.GCP_ROB ? "(robust)" : "") << '\n';
  if (s.n == 0) {
    os << "not available\n\n";
    return;
  }
  os << "Mean      " << s.mean * u << " (Z_LiDAR-Z_GCP)\n"
     << "StdDev    " << s.stddev * u << " (standard deviation)\n"
     << "RMS       " << s.rms * u << " (total RMS error)\n"
     << "CI95      " << s.ci95 * u << " (95% confidence interval)\n"
     << "CI99      " << s.ci99 * u << " (99% confidence interval)\n"
     << "Min       " << s.min * u << " (GCP " << label(r, s.imin, " sw ", " grp ") << ")\n"
     << "Max       " << s.max * u << " (GCP " << label(r, s.imax, " sw ", " grp ") << ")\n"
     << "NOut       " << s.nout << " (N GCP rejected as outliers)\n"
     << "NOut95      " << s.nout95 << " (N GCP outside CI95)\n"
     << "NOut99      " << s.nout99 << " (N GCP outside CI99)\n\n";
}

struct Part {  // of a swath or group
  std::vector<double> dz;
};

void put_parts(std::ostream& os, const std::string& title, const char* columns, const char* what,
               const std::map<int, Part>& parts) {
  os << title << '\n';
  if (parts.empty()) {
    os << what << " statistics not available\n\n";
    return;
  }
  os << columns << '\n';
  for (const auto& [number, part] : parts) {
    const double n = static_cast<double>(part.dz.size());
    double sum = 0, sum2 = 0;
    for (const double d : part.dz) sum += d;
    for (const double d : part.dz) sum2 += (d - sum / n) * (d - sum / n);
    const double sd = n > 1 ? std::sqrt(sum2 / (n - 1)) : 0;
    os << number << ' ' << part.dz.size() << ' ' << sum / n << ' ' << sd << ' ' << 1.96 * sd << '\n';
  }
  os << '\n';
}

void put_kind(std::ostream& os, const char* kind, bool control, const GCPparam& par, const GCPresult& r) {
  put_summary(os, kind, par, r, control ? r.control : r.check);
  std::map<int, Part> swaths, groups;
  for (const GCPoccur& o : r.occ) {
    if (point_of(r, o).control != control) continue;
    swaths[o.sw.number].dz.push_back(o.dz / DATAUNIT_Z);
    if (o.in_grp) groups[o.group].dz.push_back(o.dz / DATAUNIT_Z);
  }
  put_parts(os, std::string(kind) + "SWATH STATISTICS (non-robust)", "Swath# NGCP Mean_DZ StdDev_DZ CI95_DZ",
            "swaths", swaths);
  put_parts(os, std::string(kind) + "GROUP STATISTICS " + (par.GCP_ROB ? "(robust)" : ""),
            "Group# NGCP Mean_DZ StdDev_DZ CI95_DZ", "groups", groups);
}

void put_list(std::ostream& os, bool post, const GCPresult& r) {
  const double u = 1 / DATAUNIT_Z, slope = DATAUNIT / DATAUNIT_Z;
  os << "GCP LIST\nGCPName Swath# Group# GCP{X Y Z} ZLiDAR DZ(LiDAR-GCP) In InGrp InCI95 InCI99 "
     << (post ? "Corr{X Y Z} " : "") << "Slope{X Y} Density Roughness Unc Npts Out% Sigma Control\n";
  for (const GCPoccur& o : r.occ) {
    const GCP& g = point_of(r, o);
    os << one_word(g.name) << ' ' << o.sw << ' ' << o.group << ' ';
    put_xyz_unit(os, g.pos);
    os << ' ' << o.z_lidar * u << ' ' << o.dz * u << ' ' << o.in << ' ' << o.in_grp << ' ' << o.in95 << ' '
       << o.in99 << ' ';
    if (post) {
      put_xyz_unit(os, o.corr);
      os << ' ';
    }
    os << o.slope_x * slope << ' ' << o.slope_y * slope << ' ' << o.density * DATAUNIT * DATAUNIT << ' '
       << o.roughness * u << ' ' << o.unc * u << ' ' << o.npts << ' ' << o.out_pct << ' ' << g.sigma * u
       << ' ' << g.control << '\n';
  }
}

int count_tin(const GCPresult& r) {
  return static_cast<int>(
      std::count_if(r.occ.begin(), r.occ.end(), [](const GCPoccur& o) { return o.tin.ok; }));
}

void put_tin_list(std::ostream& os, const GCPresult& r) {
  os << "\nGCP LIST (ASPRS TIN)\nGCPName Swath# Group# GCP{X Y Z} T1{X Y Z} T2{X Y Z} T3{X Y Z} ZLiDAR "
        "DZ(LiDAR-GCP)\n";
  for (const GCPoccur& o : r.occ) {
    if (!o.tin.ok) continue;
    const GCP& g = point_of(r, o);
    os << one_word(g.name) << ' ' << o.sw << ' ' << o.group << ' ';
    put_xyz_unit(os, g.pos);
    for (const dxyz& T : o.tin.T) {
      os << ' ';
      put_xyz_unit(os, {g.pos.x + T.x, g.pos.y + T.y, T.z});
    }
    os << ' ' << o.tin.z_tin / DATAUNIT_Z << ' ' << (o.tin.z_tin - g.pos.z) / DATAUNIT_Z << '\n';
  }
}

bool write_text(const Project& prj, const GCPparam& par, bool post, const GCPresult& r,
                const std::string& name) {
  const bool tin = par.tin && count_tin(r) > 0;
  LOG_MSG("Writing quality control report " << name << (tin ? " with ASPRS TIN list" : ""));
  ResultFile out;
  if (!out.open(name)) return false;
  put_header(out.fs, prj, par, post, r);
  put_kind(out.fs, "CHECK: ", false, par, r);
  put_kind(out.fs, "CONTROL: ", true, par, r);
  put_list(out.fs, post, r);
  if (tin) put_tin_list(out.fs, r);
  return out.commit();
}

void put_json_stat(std::ostream& os, const char* key, const GCPresult& r, const GCPstat& s) {
  const double u = 1 / DATAUNIT_Z;
  const auto row = [&](const char* k, double v, bool last = false) {
    os << "\t\t\"" << k << "\": ";
    if (s.n > 0)
      os << v * u;
    else
      os << "null";
    os << (last ? "\n" : ",\n");
  };
  const auto info = [&](const char* k, int i, bool last) {
    os << "\t\t\"" << k << "\": " << (i >= 0 ? json_text(label(r, i, "_sw_", "_grp_")) : "null")
       << (last ? "\n" : ",\n");
  };
  os << "\t\"" << key << "\": {\n";
  row("mean_dz", s.mean);
  row("stddev_dz", s.stddev);
  row("rms_dz", s.rms);
  row("ci95_dz", s.ci95);
  row("ci99_dz", s.ci99);
  os << "\t\t\"n_out_rej\": " << s.nout << ",\n\t\t\"n_out95\": " << s.nout95
     << ",\n\t\t\"n_out99\": " << s.nout99 << ",\n";
  row("min_dz", s.min);
  row("max_dz", s.max);
  info("min_dz_info", s.imin, false);
  info("max_dz_info", s.imax, true);
  os << "\t},\n";
}

bool write_json(const Project& prj, const GCPparam& par, bool post, const GCPresult& r,
                const std::string& name) {
  const double u = 1 / DATAUNIT_Z, slope = DATAUNIT / DATAUNIT_Z;
  ResultFile out;
  if (!out.open(name)) return false;
  std::ostream& os = out.fs;
  put_json_head(os, prj, head_of(par, post));
  os << "\t\"outlier_rejection\": " << (par.GCP_ROB ? "\"enabled (global and groups)\"" : "false")
     << ",\n\t\"kernel_FWHM\": " << r.counts.FWHM / DATAUNIT << ",\n";
  put_json_stat(os, "check", r, r.check);
  put_json_stat(os, "control", r, r.control);
  os << "\t\"list\": [\n";
  for (size_t i = 0; i < r.occ.size(); i++) {
    const GCPoccur& o = r.occ[i];
    const GCP& g = point_of(r, o);
    os << "\t\t{\"name\": " << json_text(g.name) << ", \"swath\": " << o.sw << ", \"group\": " << o.group
       << ", ";
    put_json_xyz(os, "gcp", g.pos);
    os << ", \"z_lidar\": " << o.z_lidar * u << ", \"dz\": " << o.dz * u
       << ", \"in_global\": " << json_flag(o.in) << ", \"in_group\": " << json_flag(o.in_grp)
       << ", \"in_ci95\": " << json_flag(o.in95) << ", \"in_ci99\": " << json_flag(o.in99) << ", ";
    put_json_xyz(os, "corr", o.corr);
    os << ", \"x_slope\": " << o.slope_x * slope << ", \"y_slope\": " << o.slope_y * slope
       << ", \"density\": " << o.density * DATAUNIT * DATAUNIT << ", \"roughness\": " << o.roughness * u
       << ", \"uncertainty\": " << o.unc * u << ", \"n_points\": " << o.npts << ", \"out_%\": " << o.out_pct
       << ", \"GCP_sigma\": " << g.sigma * u << ", \"control\": " << json_flag(g.control) << "}"
       << (i + 1 < r.occ.size() ? ",\n" : "\n");
  }
  os << "\t]\n}\n";
  return out.commit();
}

bool write_tin(const GCPparam& par, const GCPresult& r, const std::string& name) {
  LOG_MSG("Writing GCP TIN triangle export " << name << ".txt");
  ResultFile txt, obj;
  if (!txt.open(name + ".txt") || (par.obj && !obj.open(name + ".obj"))) return false;
  txt.fs << "Label_sw_Swath# T1{X Y Z} T2{X Y Z} T3{X Y Z}\n";
  for (const GCPoccur& o : r.occ) {
    if (!o.tin.ok) continue;
    const GCP& g = point_of(r, o);
    txt.fs << one_word(g.name) << "_sw_" << o.sw;
    for (const dxyz& T : o.tin.T) {
      const dxyz p{(g.pos.x + T.x) / DATAUNIT, (g.pos.y + T.y) / DATAUNIT, T.z / DATAUNIT_Z};
      char line[120];
      std::snprintf(line, sizeof line, "%.2f %.2f %.3f", p.x, p.y, p.z);
      txt.fs << ' ' << line;
      if (par.obj) obj.fs << "v " << line << '\n';
    }
    txt.fs << '\n';
    if (par.obj) obj.fs << "l -1 -2 -3 -1\n";
  }
  return txt.commit() && (!par.obj || obj.commit());
}

std::string outlier_names(const GCPresult& r, bool control) {
  std::map<int, std::pair<double, int>> points;  // sum of DZ, occurrences
  for (const GCPoccur& o : r.occ)
    if (!o.in && point_of(r, o).control == control) points[o.gcp].first += o.dz, points[o.gcp].second++;
  std::string text;
  int n = 0;
  for (const auto& [gcp, sum] : points) {
    if (n++ == 10) return text + LOG_STR(", and " << points.size() - 10 << " more");
    text += LOG_STR((text.empty() ? "" : ", ") << r.gcp[static_cast<size_t>(gcp)].name << " (" << std::showpos
                                               << sum.first / sum.second << " m)");
  }
  return text;
}
}  // namespace

bool robust_GCP_stats(const Project& prj, const GCPparam& par, bool post, GCPresult& r) {
  LOG_ENTER("robust_GCP_stats nocc=" << r.occ.size() << " post=" << post);
  comp_GCP_stats(par, r);
  std::set<int> groups;
  for (const GCPoccur& o : r.occ) groups.insert(o.group);
  LOG_LINE("nGCPok=" << r.control.npoint << " ngrpok=" << groups.size() << " nok_c=" << r.check.n
                     << " nGCPok_c=" << r.check.npoint << " nswok_c=" << count_swaths(r.occ)
                     << " nout95=" << r.control.nout95 << " nout99=" << r.control.nout99
                     << " nout_c95=" << r.check.nout95 << " nout_c99=" << r.check.nout99);
  if (r.control.n + r.check.n == 0) {
    WARNING_MSG("no GCP found in LiDAR data, or all filtered out");
    return true;
  }
  const auto show = [&](const char* text, const GCPstat& s, bool control) {
    if (s.n + s.nout == 0) return;
    LOG_MSG(text << s.mean << ", RMS DZ=" << s.rms << " m (LiDAR-GCP) [weights: " << weight_text(par) << "]"
                 << (par.GCP_ROB ? " [outlier rejection]" : "") << ", " << s.npoint << " points");
    if (s.nout > 0)
      WARNING_MSG((control ? "control" : "check")
                  << " points rejected as outliers: " << outlier_names(r, control));
  };
  show("CONTROL: mean DZ=", r.control, true);
  show("CHECK:   mean DZ=", r.check, false);
  if (par.tin && count_tin(r) == 0)
    WARNING_MSG("GCP TIN list empty, failed to compute TIN or interpolate Z value");
  const std::string name = prj.name + (post ? "_GCPcorr" : "_GCP");
  if (!write_text(prj, par, post, r, name + ".log")) return false;
  if (par.json && !write_json(prj, par, post, r, name + ".json")) return false;
  return !par.tin || count_tin(r) == 0 || write_tin(par, r, prj.name + (post ? "_GCP_tin_corr" : "_GCP_tin"));
}
}  // namespace veld
