// Reports of the targets in three dimensions: text, JSON.
#include <cmath>
#include <map>
#include <set>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTQCGCP/XYZGCP.h"
#include "prj/LiDAR/LmTQCGCP/gcp_text.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
const XYZGCP& point_of(const XYZGCPresult& r, const XYZoccur& o) { return r.gcp[static_cast<size_t>(o.gcp)]; }

const char* weight_text(const XYZGCPparam& par) { return par.EQ ? "equal" : "adaptive 1/S2"; }

std::string label(const XYZGCPresult& r, int i, const char* sw, const char* grp) {
  const XYZoccur& o = r.occ[static_cast<size_t>(i)];
  return occurrence_label(point_of(r, o).name, o.sw, o.group, sw, grp);
}

double axis(const dxyz& v, int k) { return k == 0 ? v.x : k == 1 ? v.y : v.z; }
double unit_of(int k) { return k < 2 ? DATAUNIT : DATAUNIT_Z; }

int count_kind(const XYZGCPresult& r, bool control) { return control ? r.control.n : r.check.n; }

ReportHead head_of(const XYZGCPparam& par, bool post) {
  return {"absolute XYZ",   "Input XYZ GCP file ",    par.file, post, DATAUNIT,
          weight_text(par), "\"diff\": \"LiDAR-GCP\""};
}

void put_header(std::ostream& os, const Project& prj, const XYZGCPparam& par, bool post,
                const XYZGCPresult& r) {
  put_head(os, prj, head_of(par, post));
  os << "Swaths used        " << count_swaths(r.occ) << '\n'
     << "N GCP used         " << r.occ.size() << '\n'
     << "Check pts found    " << count_kind(r, false) << '\n'
     << "Control pts found  " << count_kind(r, true) << "\n\n";
}

void put_summary(std::ostream& os, const char* kind, const XYZGCPresult& r, const XYZGCPstat& s) {
  os << kind << "SUMMARY STATISTICS\n";
  if (s.n == 0) {
    os << "not available\n\n";
    return;
  }
  os << "Mean      " << s.mean.x / DATAUNIT << ' ' << s.mean.y / DATAUNIT << ' ' << s.mean.z / DATAUNIT_Z
     << " (LiDAR-GCP)\n"
     << "StdDev      " << s.sd_xy / DATAUNIT << ' ' << s.sd_z / DATAUNIT_Z << " (XY Z standard deviation)\n"
     << "RMS         " << s.rms_xy / DATAUNIT << ' ' << s.rms_z / DATAUNIT_Z << " (XY Z total RMS error)\n";
  const char* const names[3] = {"DX", "DY", "DZ"};
  for (int k = 0; k < 3; k++)
    os << "Min " << names[k] << "     " << axis(s.min, k) / unit_of(k) << " (GCP "
       << label(r, s.imin[k], " sw ", " grp ") << ")\n"
       << "Max " << names[k] << "     " << axis(s.max, k) / unit_of(k) << " (GCP "
       << label(r, s.imax[k], " sw ", " grp ") << ")\n";
  os << "NOut95      " << s.nout95 << " (N GCP outside CI95 region)\n"
     << "NOut99      " << s.nout99 << " (N GCP outside CI99 region)\n\n";
}

// A swath or group each: number, count, means, standard deviations.
void put_parts(std::ostream& os, const std::string& title, const char* first, bool control,
               const std::map<int, std::vector<dxyz>>& parts) {
  os << title << '\n';
  if (parts.empty()) {
    os << "statistics not available\n\n";
    return;
  }
  os << first << " NGCP Mean_D{X Y Z} StdDev_DXY " << (control ? "StdDev_DR " : "") << "StdDev_DZ\n";
  for (const auto& [number, list] : parts) {
    const double n = static_cast<double>(list.size());
    dxyz m{0, 0, 0};
    for (const dxyz& d : list) m += d / n;
    double h = 0, v = 0;
    for (const dxyz& d : list) {
      h += (d.x - m.x) * (d.x - m.x) + (d.y - m.y) * (d.y - m.y);
      v += (d.z - m.z) * (d.z - m.z);
    }
    const double radius = n > 1 ? std::sqrt(h / (n - 1)) : 0, up = n > 1 ? std::sqrt(v / (n - 1)) : 0;
    os << number << ' ' << list.size() << ' ' << m.x / DATAUNIT << ' ' << m.y / DATAUNIT << ' '
       << m.z / DATAUNIT_Z << ' ' << radius / std::sqrt(2.0) / DATAUNIT << ' ';
    if (control) os << radius / DATAUNIT << ' ';
    os << up / DATAUNIT_Z << '\n';
  }
  os << '\n';
}

void put_kind(std::ostream& os, const char* kind, bool control, const XYZGCPresult& r) {
  put_summary(os, kind, r, control ? r.control : r.check);
  std::map<int, std::vector<dxyz>> swaths, groups;
  for (const XYZoccur& o : r.occ) {
    if (point_of(r, o).control != control) continue;
    swaths[o.sw.number].push_back(o.d);
    groups[o.group].push_back(o.d);
  }
  put_parts(os, std::string(kind) + "SWATH STATISTICS", "Swath#", control, swaths);
  put_parts(os, std::string(kind) + "GROUP STATISTICS", "Group#", control, groups);
}

void put_list(std::ostream& os, const XYZGCPresult& r) {
  os << "GCPName Swath# Group# GCP{X Y Z} LiDAR{X Y Z} (LiDAR-GCP){X Y Z} InCI95 InCI99 SigmaXY SigmaZ "
        "Control\n";
  for (const XYZoccur& o : r.occ) {
    const XYZGCP& g = point_of(r, o);
    os << one_word(g.name) << ' ' << o.sw << ' ' << o.group;
    for (const dxyz* p : {&g.pos, &o.lidar, &o.d}) {
      os << ' ';
      put_xyz_unit(os, *p);
    }
    os << ' ' << o.in95 << ' ' << o.in99 << ' ' << g.sigma_xy / DATAUNIT << ' ' << g.sigma_z / DATAUNIT_Z
       << ' ' << g.control << '\n';
  }
}

bool write_text(const Project& prj, const XYZGCPparam& par, bool post, const XYZGCPresult& r,
                const std::string& name) {
  LOG_MSG("Writing quality control report " << name);
  ResultFile out;
  if (!out.open(name)) return false;
  put_header(out.fs, prj, par, post, r);
  put_kind(out.fs, "CHECK: ", false, r);
  put_kind(out.fs, "CONTROL: ", true, r);
  put_list(out.fs, r);
  return out.commit();
}

void put_json_stat(std::ostream& os, const char* key, const XYZGCPresult& r, const XYZGCPstat& s) {
  os << "\t\"" << key << "\": {\n";
  const auto two = [&](const char* k, double a, double b) {
    os << "\t\t\"" << k << "\": ";
    if (s.n > 0)
      os << "[" << a / DATAUNIT << ", " << b / DATAUNIT_Z << "],\n";
    else
      os << "null,\n";
  };
  os << "\t\t";
  if (s.n > 0)
    put_json_xyz(os, "mean", s.mean);
  else
    os << "\"mean\": null";
  os << ",\n";
  two("stddev_xy_z", s.sd_xy, s.sd_z);
  two("rms_xy_z", s.rms_xy, s.rms_z);
  os << "\t\t\"stddev_xy_r_z\": null,\n\t\t\"rms_xy_r_z\": null,\n";
  const char* const names[3] = {"dx", "dy", "dz"};
  for (int k = 0; k < 3; k++)
    for (const bool lo : {true, false}) {
      const std::string name = std::string(lo ? "min_" : "max_") + names[k];
      const int i = lo ? s.imin[k] : s.imax[k];
      os << "\t\t\"" << name << "\": ";
      if (i >= 0)
        os << axis(lo ? s.min : s.max, k) / unit_of(k);
      else
        os << "null";
      os << ",\n\t\t\"" << name << "_info\": " << (i >= 0 ? json_text(label(r, i, "_sw_", "_grp_")) : "null")
         << ",\n";
    }
  os << "\t\t\"n_out95\": " << s.nout95 << ",\n\t\t\"n_out99\": " << s.nout99 << "\n\t},\n";
}

bool write_json(const Project& prj, const XYZGCPparam& par, bool post, const XYZGCPresult& r,
                const std::string& name) {
  ResultFile out;
  if (!out.open(name)) return false;
  std::ostream& os = out.fs;
  put_json_head(os, prj, head_of(par, post));
  put_json_stat(os, "check", r, r.check);
  put_json_stat(os, "control", r, r.control);
  os << "\t\"list\": [\n";
  for (size_t i = 0; i < r.occ.size(); i++) {
    const XYZoccur& o = r.occ[i];
    const XYZGCP& g = point_of(r, o);
    os << "\t\t{\"name\": " << json_text(g.name) << ", \"swath\": " << o.sw << ", \"group\": " << o.group
       << ", ";
    put_json_xyz(os, "gcp", g.pos);
    os << ", ";
    put_json_xyz(os, "lidar", o.lidar);
    os << ", ";
    put_json_xyz(os, "diff", o.d);
    os << ", \"in_ci95\": " << json_flag(o.in95) << ", \"in_ci99\": " << json_flag(o.in99)
       << ", \"GCP_sigma\": [" << g.sigma_xy / DATAUNIT << ", " << g.sigma_z / DATAUNIT_Z
       << "], \"control\": " << json_flag(g.control) << "}" << (i + 1 < r.occ.size() ? ",\n" : "\n");
  }
  os << "\t]\n}\n";
  return out.commit();
}
}  // namespace

bool XYZGCP_stats(const Project& prj, const XYZGCPparam& par, bool post, XYZGCPresult& r) {
  LOG_ENTER("XYZGCP_stats nocc=" << r.occ.size() << " post=" << post);
  comp_XYZGCP_stats(par, r);
  LOG_LINE("nXYZGCPok=" << r.control.n << " nXYZGCPok_c=" << r.check.n);
  if (r.occ.empty()) {
    WARNING_MSG("no XYZ GCP found in LiDAR data, or all filtered out");
    return true;
  }
  const auto show = [](const char* text, const XYZGCPstat& s) {
    if (s.n > 0)
      LOG_MSG(text << s.mean.x << ' ' << s.mean.y << ' ' << s.mean.z << ", RMS DXY=" << s.rms_xy
                   << " DZ=" << s.rms_z << " m (LiDAR-GCP), " << s.n << " points");
  };
  show("XYZ CONTROL: mean diff:", r.control);
  show("XYZ CHECK:   mean diff:", r.check);
  const std::string name = prj.name + (post ? "_XYZGCPcorr" : "_XYZGCP");
  if (!write_text(prj, par, post, r, name + ".log")) return false;
  return !par.json || write_json(prj, par, post, r, name + ".json");
}
}  // namespace veld
