// Robust statistics of the occurrences, and the bias.
#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTQCGCP/LmTQCGCP.h"
#include "prj/LiDAR/LmTQCGCP/robust_set.h"

namespace veld {
namespace {
constexpr double PLACE_UNC = 0.05;  // m, how well the place of a point and that of the swath agree
constexpr double VAR_FLOOR = 1e-6;  // m2: no height is known better than to 1 mm

const GCP& point_of(const GCPresult& r, const GCPoccur& o) { return r.gcp[static_cast<size_t>(o.gcp)]; }

// Flags of the occurrences of one kind in one group (0: of all groups).
void flag_outliers(const GCPparam& par, GCPresult& r, bool control, int group, bool whole) {
  std::vector<RobustItem> items;
  std::vector<size_t> where;
  for (size_t i = 0; i < r.occ.size(); i++) {
    const GCPoccur& o = r.occ[i];
    if (point_of(r, o).control != control || (!whole && o.group != group)) continue;
    items.push_back({o.dz, GCP_weight(o, point_of(r, o), par.EQ), o.gcp, true});
    where.push_back(i);
  }
  if (par.GCP_ROB) comp_robust_set(items);
  for (size_t k = 0; k < items.size(); k++)
    (whole ? r.occ[where[k]].in : r.occ[where[k]].in_grp) = items[k].in;
}

struct Sums {
  double w = 0, wd = 0, wdd = 0;
  int n = 0;
  void add(double weight, double d) { w += weight, wd += weight * d, wdd += weight * d * d, n++; }
  double mean() const { return n > 0 ? wd / w : 0; }
  double stddev() const {
    if (n < 2) return 0;
    const double m = mean();
    return std::sqrt(std::max(0.0, wdd / w - m * m) * n / (n - 1));
  }
};

GCPstat comp_stat(const GCPparam& par, GCPresult& r, bool control) {
  GCPstat s;
  Sums sums;
  std::set<int> points;
  for (size_t i = 0; i < r.occ.size(); i++) {
    const GCPoccur& o = r.occ[i];
    if (point_of(r, o).control != control) continue;
    if (!o.in) {
      s.nout++;
      continue;
    }
    sums.add(GCP_weight(o, point_of(r, o), par.EQ), o.dz);
    points.insert(o.gcp);
    if (s.imin < 0 || o.dz < s.min) s.min = o.dz, s.imin = static_cast<int>(i);
    if (s.imax < 0 || o.dz > s.max) s.max = o.dz, s.imax = static_cast<int>(i);
  }
  s.n = sums.n;
  s.npoint = static_cast<int>(points.size());
  if (s.n == 0) return s;
  s.mean = sums.mean();
  s.stddev = sums.stddev();
  s.rms = std::sqrt(sums.wdd / sums.w);
  s.ci95 = 1.96 * s.stddev;
  s.ci99 = 1.31 * s.ci95;
  for (GCPoccur& o : r.occ) {
    if (point_of(r, o).control != control) continue;
    o.in95 = s.n < 2 || std::fabs(o.dz - s.mean) <= s.ci95;
    o.in99 = s.n < 2 || std::fabs(o.dz - s.mean) <= s.ci99;
    if (o.in) s.nout95 += !o.in95, s.nout99 += !o.in99;
  }
  return s;
}

double bias(const GCPparam& par, const GCPresult& r, int group, bool whole) {
  Sums sums;
  for (const GCPoccur& o : r.occ) {
    if (!point_of(r, o).control || (whole ? !o.in : o.group != group || !o.in_grp)) continue;
    sums.add(GCP_weight(o, point_of(r, o), par.EQ), o.dz);
  }
  LOG_LINE("CORRDZ group=" << (whole ? 0 : group) << " GCP_ROB=" << par.GCP_ROB << " n=" << sums.n
                           << " mean=" << sums.mean());
  return sums.n > 0 ? sums.mean() : NO_BIAS;
}
}  // namespace

double GCP_weight(const GCPoccur& o, const GCP& p, int EQ) {
  if (EQ == 1) return 1;
  double var = p.sigma * p.sigma + VAR_FLOOR;
  if (EQ == 0) var += o.unc * o.unc + (o.slope_x * o.slope_x + o.slope_y * o.slope_y) * PLACE_UNC * PLACE_UNC;
  return 1 / var;
}

void comp_GCP_stats(const GCPparam& par, GCPresult& r) {
  std::set<int> groups;
  for (const GCPoccur& o : r.occ) groups.insert(o.group);
  for (const bool control : {true, false}) {
    flag_outliers(par, r, control, 0, true);
    for (const int g : groups) flag_outliers(par, r, control, g, false);
  }
  r.control = comp_stat(par, r, true);
  r.check = comp_stat(par, r, false);
}

double GCP_dz_mean(const GCPparam& par, const GCPresult& r) {
  const double m = bias(par, r, 0, true);
  if (m == NO_BIAS) WARNING_MSG("no control point found, cannot subtract Z bias");
  return m;
}

double GCP_dz_mean_grp(const GCPparam& par, const GCPresult& r, int group) {
  const double m = bias(par, r, group, false);
  if (m == NO_BIAS) WARNING_MSG("no control point found, cannot subtract per group Z bias, group " << group);
  return m;
}
}  // namespace veld
