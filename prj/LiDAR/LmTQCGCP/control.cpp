#include "prj/LiDAR/LmTQCGCP/control.h"

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
void take_DUT_control(const DUTidx& idx, const std::function<bool(const char* option)>& given,
                      ControlParam& par) {
  const auto wanted = [](const std::string& own, const std::string& file) {
    if (!own.empty() || file.empty()) return false;
    if (is_regular_file(file)) return true;
    WARNING_MSG("control points of the displacement file are gone, left out: " << file);
    return false;
  };
  const auto take = [&](const char* option, auto& to, const auto& from) {
    if (!given(option)) to = static_cast<std::decay_t<decltype(to)>>(from);
  };
  if (wanted(par.gcp.file, idx.gcp.file)) {
    par.gcp.file = idx.gcp.file;
    take("gcp_parse", par.gcp.col, idx.gcp.col);
    take("gcp_check", par.gcp.check, idx.gcp.C0 == 0);
    take("gcp_sigma", par.gcp.S0, idx.gcp.S0);
    take("gcp_equal", par.gcp.EQ, idx.gcp.EQ);
    take("ogcp_pc", par.gcp.exp, idx.gcp.exp != 0);
    LOG_MSG("Control points are those of the displacement file: " << par.gcp.file);
  }
  if (wanted(par.xyz.file, idx.xyzgcp.file)) {
    par.xyz.file = idx.xyzgcp.file;
    take("xyz_gcp_parse", par.xyz.col, idx.xyzgcp.col);
    take("xyz_gcp_check", par.xyz.check, idx.xyzgcp.C0 == 0);
    take("xyz_gcp_sxy", par.xyz.SH0, idx.xyzgcp.SH0);
    take("xyz_gcp_sz", par.xyz.SZ0, idx.xyzgcp.SZ0);
    take("xyz_gcp_equal", par.xyz.EQ, idx.xyzgcp.EQ != 0);
    LOG_MSG("XYZ control points are those of the displacement file: " << par.xyz.file);
  }
}

void fill_DUT_control(const ControlParam& par, const ControlPoints& points, DUTidx& idx) {
  idx.nGCP = static_cast<int>(points.gcp.size());
  idx.nXYZGCP = static_cast<int>(points.xyz.size());
  const GCPparam& g = par.gcp;
  const XYZGCPparam& h = par.xyz;
  if (idx.nGCP > 0)
    idx.gcp = {g.col, g.check ? 0.0 : 1.0, static_cast<double>(g.S0), g.EQ, g.exp ? 1 : 0, real_path(g.file)};
  if (idx.nXYZGCP > 0)
    idx.xyzgcp = {h.col, h.check ? 0.0 : 1.0, static_cast<double>(h.SH0), static_cast<double>(h.SZ0),
                  h.EQ,  real_path(h.file)};
}

bool load_control(const ControlParam& par, const GeoRefParam& georef, ControlPoints& points) {
  if (!par.gcp.file.empty() && !load_GCP(par.gcp, georef, points.gcp, points.gcp_col)) return false;
  return par.xyz.file.empty() || load_XYZGCP(par.xyz, georef, points.xyz, points.xyz_col);
}

void match_control(const Project& prj, ControlPoints& points) {
  if (!points.xyz.empty()) points.swath = match_XYZGCP_swaths(prj, points.xyz);
}

ControlPoints moved_control(const Project& prj, const ControlPoints& points, const ControlQC& qc) {
  ControlPoints next = points;
  next.xyz.clear();
  next.swath.clear();
  for (const XYZoccur& o : qc.xyz.occ) {
    XYZGCP g = points.xyz[static_cast<size_t>(o.gcp)];
    if (prj.swaths[o.sw].corrected.empty()) continue;
    g.lidar = o.lidar;
    g.match = base_name(prj.swaths[o.sw].corrected);
    next.xyz.push_back(g);
  }
  return next;
}

bool QC_control(const Project& prj, const ControlParam& par, const ControlPoints& points, ControlQC& qc) {
  if (!points.gcp.empty()) {
    qc.gcp.gcp = points.gcp;
    std::vector<GCPexport> around;
    if (!robust_QC_GCP(prj, points.gcp, par.gcp, nullptr, NTHREADS, qc.gcp.occ, qc.gcp.counts,
                       par.gcp.exp ? &around : nullptr) ||
        !robust_GCP_stats(prj, par.gcp, false, qc.gcp))
      return false;
    if (par.gcp.exp && !export_GCP_PC(prj, around, qc.gcp)) return false;
  }
  if (points.xyz.empty()) return true;
  qc.xyz.gcp = points.xyz;
  return QC_XYZGCP(prj, points.xyz, points.swath, nullptr, qc.xyz.occ) &&
         XYZGCP_stats(prj, par.xyz, false, qc.xyz);
}

bool QC_GCP_corr(const Project& prj, const ControlParam& par, const ControlPoints& points,
                 const SwathVector<SCorrTbl>& corr, GCPresult& r) {
  LOG_ENTER("QC_GCP_corr nameidx=" << prj.name << " GCPfile=" << par.gcp.file
                                   << " GCPcol=" << points.gcp_col);
  r = GCPresult{};
  r.gcp = points.gcp;
  if (!robust_QC_GCP(prj, points.gcp, par.gcp, &corr, NTHREADS, r.occ, r.counts)) return false;
  comp_GCP_stats(par.gcp, r);
  return true;
}

bool QC_XYZGCP_corr(const Project& prj, const ControlParam& par, const ControlPoints& points,
                    const SwathVector<SCorrTbl>& corr, XYZGCPresult& r) {
  LOG_ENTER("QC_XYZGCP_corr nameidx=" << prj.name << " XYZGCPfile=" << par.xyz.file
                                      << " XYZGCPcol=" << points.xyz_col);
  r = XYZGCPresult{};
  r.gcp = points.xyz;
  if (!QC_XYZGCP(prj, points.xyz, points.swath, &corr, r.occ)) return false;
  comp_XYZGCP_stats(par.xyz, r);
  return true;
}
}  // namespace veld
