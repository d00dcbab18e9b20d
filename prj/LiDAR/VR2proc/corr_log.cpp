#include "prj/LiDAR/VR2proc/corr_log.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "lib/general/timing.h"
#include "lib/general/txtfile.h"
#include "prj/LiDAR/stat_xyz.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {

std::string tmp_name(SwathId sw, const char* suffix) {
  return TMPDIR + "tmp_sw_" + to_string(sw) + "." + own_tag() + suffix;
}

// The format of a line, with the swath at its end; the merge puts the number of the node in front of it.
std::string node_line(double t, const dxyz* P, const xyz& T, const xyz& A_deg, SwathId sw) {
  char text[256];
  if (P)
    std::snprintf(text, sizeof text, "%.3f  %.2f %.2f %.2f  %7.3f %7.3f %7.3f  %7.4f %7.4f %7.4f  %3d\n", t,
                  P->x, P->y, P->z, static_cast<double>(T.x), static_cast<double>(T.y),
                  static_cast<double>(T.z), static_cast<double>(A_deg.x), static_cast<double>(A_deg.y),
                  static_cast<double>(A_deg.z), sw.number);
  else
    std::snprintf(text, sizeof text, "%.3f  %7.3f %7.3f %7.3f  %7.4f %7.4f %7.4f  %3d\n", t,
                  static_cast<double>(T.x), static_cast<double>(T.y), static_cast<double>(T.z),
                  static_cast<double>(A_deg.x), static_cast<double>(A_deg.y), static_cast<double>(A_deg.z),
                  sw.number);
  return text;
}

// End of the headers: units, and the scale of the times.
std::string TA_units(const Project& prj, const std::vector<SwathId>& swc) {
  const bool adj = !swc.empty() && prj.swaths[swc[0]].clock.adj;
  return std::string(" [Time s ") + (adj ? "adjusted standard GPS" : "of the GPS week") +
         ", X Y Z TrajCorr m, AttCorr degrees]";
}

bool merge_one(const Project& prj, const std::vector<SwathId>& swc, const char* suffix, const char* header) {
  ResultFile out;
  if (!out.open(prj.name + suffix)) return false;
  out.fs << header << TA_units(prj, swc) << '\n';
  for (const SwathId sw : swc) {
    TxtFileIn in(tmp_name(sw, suffix), true);
    if (!in.is_open()) return false;
    std::string line;
    for (int node = 0; in.getline(line); node++) {
      char number[16];
      std::snprintf(number, sizeof number, " %4d", node);
      const size_t last = line.find_last_not_of("0123456789");  // the swath's number ends the line
      size_t at = line.find_last_not_of(' ', last);
      at = at == std::string::npos ? 0 : at + 1;
      out.fs << line.substr(0, at) << ' ' << number << line.substr(at) << '\n';
    }
    in.close();
    if (!remove_file(tmp_name(sw, suffix))) LOG_LINE("<!> FAILED TO DELETE " << tmp_name(sw, suffix));
  }
  return out.commit();
}

struct NodeStat {
  StatXYZ all;
  dxyz slope{0, 0, 0};  // per hour
  dxyz hf{0, 0, 0};     // per sqrt(h)
};

NodeStat node_stat(const Vector<xyz>& v, double Dt, double unit) {
  NodeStat s;
  Vector<double> t(v.size());
  dxyz d2{0, 0, 0};
  for (uint64_t k = 0; k < v.size(); k++) {
    t[k] = static_cast<double>(k) * Dt;
    s.all.add(to_dxyz(v[k]) * unit);
    if (k == 0) continue;
    const dxyz d = to_dxyz(v[k] - v[k - 1]) * unit;
    d2 += {d.x * d.x, d.y * d.y, d.z * d.z};
  }
  if (v.size() < 2 || Dt <= 0) return s;
  dxyz a, b;
  linreg_xyz(t, v, a, b);
  s.slope = b * (3600 * unit);
  const double n = static_cast<double>(v.size() - 1);
  s.hf = {60 * std::sqrt(d2.x / n / Dt), 60 * std::sqrt(d2.y / n / Dt), 60 * std::sqrt(d2.z / n / Dt)};
  return s;
}

struct StatLabels {
  const char *con, *swath, *total, *units;
};
constexpr StatLabels LABEL_T = {
    "Swath# Period NPts T{X Y Z}",
    "Swath# Period NPts T_Min{X Y Z} T_Max{X Y Z} T_Mean{X Y Z} T_Drift{X Y Z} T_StdDev{X Y Z} T_HFDrift{X Y "
    "Z}",
    "NSwaths NPts T_Min{X Y Z} T_Max{X Y Z} T_Mean{X Y Z} T_RMS{X Y Z} T_HFDrift{X Y Z}",
    "[Period s, T m, Drift m/h, HFDrift m/sqrt(h)]"};
constexpr StatLabels LABEL_A = {
    "Swath# Period NPts A{R P Y}",
    "Swath# Period NPts A_Min{R P Y} A_Max{R P Y} A_mean{R P Y} A_drift{R P Y} A_StdDev{R P Y} A_HFDrift{R P "
    "Y}",
    "NSwaths NPts A_Min{R P Y} A_Max{R P Y} A_Mean{R P Y} A_RMS{R P Y} A_HFDrift{R P Y}",
    "[Period s, A degrees, Drift degrees/h, HFDrift degrees/sqrt(h)]"};

void put_columns(std::ostream& os, std::initializer_list<dxyz> columns, const std::string& name = "") {
  for (const dxyz& v : columns) {
    os << "  ";
    put_xyz(os, v);
  }
  os << name << '\n';
}

// table: Tt or At.
void write_drift_table(std::ostream& os, const StatLabels& label, Vector<xyz> InvCorr::*table,
                       const InvResult& res, double unit, const std::vector<SwathId>& swc,
                       const SwathTable& swaths) {
  bool con = true;
  for (const SwathId sw : swc) con = con && (res.swaths[sw].*table).size() <= 1;
  os << (con ? label.con : label.swath) << " FileName " << label.units << '\n';
  StatXYZ total;
  dxyz hf2{0, 0, 0};
  for (const SwathId sw : swc) {
    const Vector<xyz>& v = res.swaths[sw].*table;
    if (v.size() == 0) continue;
    const NodeStat s = node_stat(v, res.swaths[sw].Dt, unit);
    total.add(s.all);
    hf2 += {s.hf.x * s.hf.x, s.hf.y * s.hf.y, s.hf.z * s.hf.z};
    os << sw << ' ' << swaths[sw].clock.end - swaths[sw].clock.begin << ' ' << v.size();
    if (con)
      put_columns(os, {s.all.mean()}, ' ' + swaths[sw].path());
    else
      put_columns(os, {s.all.vmin, s.all.vmax, s.all.mean(), s.slope, s.all.stddev(), s.hf},
                  ' ' + swaths[sw].path());
  }
  if (total.n == 0) return;
  const double n = static_cast<double>(swc.size());
  os << '\n' << label.total << ' ' << label.units << '\n' << swc.size() << ' ' << total.n;
  put_columns(os, {total.vmin,
                   total.vmax,
                   total.mean(),
                   total.rms(),
                   {std::sqrt(hf2.x / n), std::sqrt(hf2.y / n), std::sqrt(hf2.z / n)}});
}
}  // namespace

bool log_corr(const InvResult& res, SwathId sw, const xyz& S, const Vector<PO>& po) {
  const InvCorr& found = res.swaths[sw];
  const uint64_t n = found.Tt.size();
  LOG_ENTER("log_corr sw=" << sw << " n=" << n << " T0=" << (n > 0 ? found.t0 : 0.));
  TxtFileOut ta(true), pta(true);
  if (!ta.open(tmp_name(sw, "_TA.log"), 0) || !pta.open(tmp_name(sw, "_P_TA.log"), 0)) return false;
  const double dt = mean_dt_PO(po);
  for (uint64_t k = 0; k < n; k++) {
    const double t = found.t0 + static_cast<double>(k) * found.Dt;
    const xyz T = found.Tt[k] + S, A = found.At[k] * static_cast<float>(DEG_PER_RAD);
    ta.fs << node_line(t, nullptr, T, A, sw);
    PO at;
    // The last node may lie beyond the trajectory that was kept: its position is then that of the end.
    const double tc = std::clamp(t, double{po(0).t}, double{po(static_cast<int64_t>(po.size()) - 1).t});
    if (!InterpPO(po, tc, dt, at)) continue;
    const dxyz P{at.x, at.y, at.z};
    pta.fs << node_line(t, &P, T, A, sw);
  }
  const bool ok = ta.close();
  return pta.close() && ok;
}

bool merge_log_corr(const Project& prj, const std::vector<SwathId>& swc) {
  LOG_ENTER("merge_log_corr nswc=" << swc.size());
  const Stopwatch watch;
  if (!merge_one(prj, swc, "_TA.log", "Time TrajCorr{X Y Z} AttCorr{Roll Pitch Yaw} CtrlPt# Swath#") ||
      !merge_one(prj, swc, "_P_TA.log", "Time X Y Z TrajCorr{X Y Z} AttCorr{Roll Pitch Yaw} CtrlPt# Swath#"))
    return false;
  LOG_MSG("Written timestamped shift/attitude corrections "
          << prj.name << "_TA.log, and georeferenced version " << prj.name << "_P_TA.log");
  LOG_LINE("/// MERGE_LOG_CORR_TIME=" << watch.text());
  return true;
}

void remove_log_corr(const std::vector<SwathId>& swc) {
  for (const SwathId sw : swc)
    for (const char* const suffix : {"_TA.log", "_P_TA.log"}) remove_file(tmp_name(sw, suffix));
}

bool drift_stat_output(const Project& prj, const InvResult& res, const std::vector<SwathId>& swc) {
  uint64_t ntmax = 0;
  for (const SwathId sw : swc) ntmax = std::max(ntmax, res.swaths[sw].Tt.size());
  LOG_ENTER("drift_stat_output ntmax=" << ntmax << " CON=" << (ntmax <= 1) << " CA=" << res.CA);
  ResultFile file;
  if (!file.open(prj.name + "_TA_stat.log")) return false;
  write_drift_table(file.fs, LABEL_T, &InvCorr::Tt, res, 1.0, swc, prj.swaths);
  if (res.CA) {
    file.fs << '\n';
    write_drift_table(file.fs, LABEL_A, &InvCorr::At, res, DEG_PER_RAD, swc, prj.swaths);
  }
  if (!file.commit()) return false;
  LOG_MSG("Written time-dependent correction statistics " << prj.name << "_TA_stat.log");
  return true;
}
}  // namespace veld
