// Targets in three dimensions: their swaths, differences, statistics and bias.
#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <set>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTQCGCP/XYZGCP.h"
#include "prj/LiDAR/LmTQCGCP/corr_lookup.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double VAR_FLOOR = 1e-6;                  // m2: no target is known better than to 1 mm
constexpr double CHI2_95 = 5.991, CHI2_99 = 9.210;  // of two horizontal axes together
constexpr double Z_95 = 1.96, Z_99 = 1.31 * 1.96;

std::string stem_of(const std::string& name) {
  const size_t dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

const XYZGCP& point_of(const XYZGCPresult& r, const XYZoccur& o) { return r.gcp[static_cast<size_t>(o.gcp)]; }

xyz weight_of(const XYZGCP& g, bool EQ) {
  if (EQ) return {1, 1, 1};
  const float h = static_cast<float>(1 / (g.sigma_xy * g.sigma_xy + VAR_FLOOR)),
              v = static_cast<float>(1 / (g.sigma_z * g.sigma_z + VAR_FLOOR));
  return {h, h, v};
}

struct AxisSums {  // weighted sums of an axis
  double w = 0, wd = 0, wdd = 0;
  void add(float weight, double d) {
    w += static_cast<double>(weight), wd += static_cast<double>(weight) * d;
    wdd += static_cast<double>(weight) * d * d;
  }
  double mean() const { return wd / w; }
  double var(int n) const { return n < 2 ? 0 : std::max(0.0, wdd / w - mean() * mean()) * n / (n - 1); }
};

XYZGCPstat comp_stat(const XYZGCPparam& par, XYZGCPresult& r, bool control) {
  XYZGCPstat s;
  AxisSums x, y, z;
  for (size_t i = 0; i < r.occ.size(); i++) {
    const XYZoccur& o = r.occ[i];
    if (point_of(r, o).control != control) continue;
    const xyz w = weight_of(point_of(r, o), par.EQ);
    x.add(w.x, o.d.x), y.add(w.y, o.d.y), z.add(w.z, o.d.z);
    const double d[3] = {o.d.x, o.d.y, o.d.z};
    double *const lo[3] = {&s.min.x, &s.min.y, &s.min.z}, *const hi[3] = {&s.max.x, &s.max.y, &s.max.z};
    for (int k = 0; k < 3; k++) {
      if (s.imin[k] < 0 || d[k] < *lo[k]) *lo[k] = d[k], s.imin[k] = static_cast<int>(i);
      if (s.imax[k] < 0 || d[k] > *hi[k]) *hi[k] = d[k], s.imax[k] = static_cast<int>(i);
    }
    s.n++;
  }
  if (s.n == 0) return s;
  s.mean = {x.mean(), y.mean(), z.mean()};
  s.sd_xy = std::sqrt((x.var(s.n) + y.var(s.n)) / 2);
  s.sd_z = std::sqrt(z.var(s.n));
  s.rms_xy = std::sqrt((x.wdd / x.w + y.wdd / y.w) / 2);
  s.rms_z = std::sqrt(z.wdd / z.w);
  if (s.n < 2) return s;
  for (XYZoccur& o : r.occ) {
    if (point_of(r, o).control != control) continue;
    const dxyz e = o.d - s.mean;
    const double r2 = e.x * e.x + e.y * e.y, v = s.sd_xy * s.sd_xy, up = std::fabs(e.z);
    o.in95 = r2 <= CHI2_95 * v && up <= Z_95 * s.sd_z;
    o.in99 = r2 <= CHI2_99 * v && up <= Z_99 * s.sd_z;
    s.nout95 += !o.in95, s.nout99 += !o.in99;
  }
  return s;
}

dxyz bias(const XYZGCPparam& par, const XYZGCPresult& r, int group, bool whole) {
  AxisSums x, y, z;
  int n = 0;
  for (const XYZoccur& o : r.occ) {
    if (!point_of(r, o).control || (!whole && o.group != group)) continue;
    const xyz w = weight_of(point_of(r, o), par.EQ);
    x.add(w.x, o.d.x), y.add(w.y, o.d.y), z.add(w.z, o.d.z);
    n++;
  }
  const dxyz m = n > 0 ? dxyz{x.mean(), y.mean(), z.mean()} : dxyz{0, 0, NODATA};
  LOG_LINE("CORRDXYZ group=" << (whole ? 0 : group) << " n=" << n << " mean=" << m.x << ' ' << m.y << ' '
                             << m.z);
  return m;
}
}  // namespace

bool load_XYZGCP(const XYZGCPparam& par, const GeoRefParam& georef, std::vector<XYZGCP>& gcp,
                 std::string& used) {
  const XYZGCPdefaults def{!par.check, static_cast<double>(par.SH0) / DATAUNIT,
                           static_cast<double>(par.SZ0) / DATAUNIT_Z};
  if (!read_XYZGCP(par.file, par.col, georef, def, gcp, used)) {
    ERROR_MSG("could not read XYZ GCP file " << par.file);
    return false;
  }
  LOG_MSG("Reading " << gcp.size() << " XYZ GCP, format=" << used << ", default ctrl=" << !par.check
                     << " sigma_xy=" << par.SH0 << " sigma_z=" << par.SZ0);
  for (XYZGCP& g : gcp) {
    for (dxyz* p : {&g.pos, &g.lidar}) *p = {p->x * DATAUNIT, p->y * DATAUNIT, p->z * DATAUNIT_Z};
    g.sigma_xy *= DATAUNIT;
    g.sigma_z *= DATAUNIT_Z;
  }
  return true;
}

std::vector<SwathId> match_XYZGCP_swaths(const Project& prj, const std::vector<XYZGCP>& gcp) {
  LOG_ENTER("match_XYZGCP_swaths nsw=" << prj.swaths.size() << " nXYZGCP=" << gcp.size());
  std::map<SwathId, std::string> names;
  std::map<std::string, std::vector<SwathId>> exact;
  for (const Swath& s : prj.swaths.present()) {
    const std::string name = base_name(s.path()), stem = stem_of(name);
    names[s.id] = name;
    exact[name].push_back(s.id);
    if (stem != name) exact[stem].push_back(s.id);
  }
  std::map<std::string, std::vector<SwathId>> known;  // by match text
  std::vector<SwathId> swath(gcp.size());
  std::set<SwathId> used;
  int nmatched = 0;
  for (size_t i = 0; i < gcp.size(); i++) {
    const std::string& text = gcp[i].match;
    const auto [at, fresh] = known.try_emplace(text);
    std::vector<SwathId>& fits = at->second;
    const bool wild = text.find_first_of("*?") != std::string::npos;
    if (const auto e = exact.find(text); fresh && e != exact.end()) fits = e->second;
    if (fresh && fits.empty())
      for (const auto& [id, name] : names)
        if (wild ? wildcard_match(text, name) : name.find(text) != std::string::npos) fits.push_back(id);
    if (fits.size() != 1) {
      WARNING_MSG("ignoring XYZ GCP " << gcp[i].name << ", " << fits.size() << " swath names match string '"
                                      << text << "'");
      continue;
    }
    swath[i] = fits[0];
    used.insert(fits[0]);
    nmatched++;
  }
  LOG_MSG("Matched " << nmatched << " XYZ GCP to " << used.size() << " swaths");
  return swath;
}

bool QC_XYZGCP(const Project& prj, const std::vector<XYZGCP>& gcp, const std::vector<SwathId>& swath,
               const SwathVector<SCorrTbl>* corr, std::vector<XYZoccur>& occ) {
  LOG_ENTER("QC_XYZGCP nsw=" << prj.swaths.size() << " nXYZGCP=" << gcp.size());
  const Stopwatch time;
  occ.clear();
  LOG_MSG("ABSOLUTE XYZ " << (corr ? "POST-CORRECTION " : "") << "QC: ");
  std::map<SwathId, std::unique_ptr<SwTiles>> opened;
  int nout = 0, nmatched = 0;
  for (size_t i = 0; i < gcp.size(); i++) {
    if (swath[i] == SwathId()) continue;
    nmatched++;
    const Swath& s = prj.swaths[swath[i]];
    std::unique_ptr<SwTiles>& tiles = opened[swath[i]];
    if (!tiles) {
      tiles = std::make_unique<SwTiles>();
      if (!read_SwTiles(s.cache, *tiles)) {
        ERROR_MSG("missing/incompatible temp. tile files, " << s.path());
        return false;
      }
    }
    const dxyz& p = gcp[i].lidar;
    const auto index = [&](double v) {
      return static_cast<int64_t>(std::floor(std::clamp((v - GROUND_ORIGIN) / tiles->geom.Tsize, -1.0, 1e7)));
    };
    XYZoccur o;
    o.gcp = static_cast<int>(i);
    o.sw = swath[i];
    o.group = s.group;
    const SCorrTbl* table = corr && !s.fixed ? &(*corr)[swath[i]] : nullptr;
    if (tiles->find(index(p.x), index(p.y)) < 0 ||
        (table && (table->C.empty() || !corr_at_place(*tiles, *table, p.x, p.y, o.corr)))) {
      nout++;
      continue;
    }
    o.lidar = p + o.corr;
    o.d = o.lidar - gcp[i].pos;
    occ.push_back(o);
  }
  LOG_MSG(occ.size() << " XYZ GCP, correction=" << (corr ? "yes" : "no") << " | XYZGCP_TIME=" << time.text());
  if (nout > 0) WARNING_MSG("GCP tiling: " << nout << " points outside bounding box");
  if (nmatched == 0)
    WARNING_MSG("no XYZ GCP found in any of the " << prj.swaths.size() << " swaths");
  else if (occ.empty())
    WARNING_MSG("all XYZ GCP filtered out");
  return true;
}

void comp_XYZGCP_stats(const XYZGCPparam& par, XYZGCPresult& r) {
  r.control = comp_stat(par, r, true);
  r.check = comp_stat(par, r, false);
}

dxyz XYZGCP_diff_mean(const XYZGCPparam& par, const XYZGCPresult& r) {
  const dxyz m = bias(par, r, 0, true);
  if (m.z == NODATA) WARNING_MSG("no control point found, cannot subtract XYZ bias");
  return m;
}

dxyz XYZGCP_diff_mean_grp(const XYZGCPparam& par, const XYZGCPresult& r, int group) {
  const dxyz m = bias(par, r, group, false);
  if (m.z == NODATA)
    WARNING_MSG("no control point found, cannot subtract per group XYZ bias, group " << group);
  return m;
}
}  // namespace veld
