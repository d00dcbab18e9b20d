#include "prj/LiDAR/VR2proc/control_shift.h"

#include <map>

#include "lib/general/log.h"

namespace veld {
namespace {
// Shifts of the groups, or of all swaths under group 0.
using Shifts = std::map<int, dxyz>;

dxyz shift_of(const Shifts& shifts, const Swath& s) {
  const auto at = shifts.find(shifts.count(0) ? 0 : s.group);
  return at == shifts.end() ? dxyz{0, 0, 0} : at->second;
}

void add_shifts(const Project& prj, const Shifts& shifts, const char* row, const std::vector<SwathId>& swc,
                SwathVector<SCorrTbl>& tables) {
  const bool groups = shifts.count(0) == 0;
  for (const auto& [group, s] : shifts)
    LOG_MSG(row << (groups ? " per group " + std::to_string(group) : std::string()) << ": " << s.x << ' '
                << s.y << ' ' << s.z);
  for (const SwathId sw : swc) tables[sw].T0 += to_xyz(shift_of(shifts, prj.swaths[sw]));
}

Shifts Z_shifts(const Project& prj, const ControlParam& par, bool groups, const GCPresult& r) {
  Shifts shifts;
  if (!groups) {
    const double m = GCP_dz_mean(par.gcp, r);
    if (m != NO_BIAS) shifts[0] = {0, 0, -m};
    return shifts;
  }
  for (int g = 1; g <= prj.nmgrp; g++)
    if (const double m = GCP_dz_mean_grp(par.gcp, r, g); m != NO_BIAS) shifts[g] = {0, 0, -m};
  return shifts;
}

Shifts XYZ_shifts(const Project& prj, const ControlParam& par, bool groups, const XYZGCPresult& r) {
  Shifts shifts;
  if (!groups) {
    const dxyz m = XYZGCP_diff_mean(par.xyz, r);
    if (m.z != NODATA) shifts[0] = -m;
    return shifts;
  }
  for (int g = 1; g <= prj.nmgrp; g++)
    if (const dxyz m = XYZGCP_diff_mean_grp(par.xyz, r, g); m.z != NODATA) shifts[g] = -m;
  return shifts;
}

// The occurrences behind a shift of their swaths.
void move_occurrences(const Project& prj, const Shifts& shifts, GCPresult& r) {
  for (GCPoccur& o : r.occ) {
    if (prj.swaths[o.sw].fixed) continue;
    const double dz = shift_of(shifts, prj.swaths[o.sw]).z;
    o.z_lidar += dz, o.dz += dz, o.corr.z += dz, o.tin.z_tin += dz;
    for (dxyz& T : o.tin.T) T.z += dz;
  }
}

void move_occurrences(const Project& prj, const Shifts& shifts, XYZGCPresult& r) {
  for (XYZoccur& o : r.occ) {
    if (prj.swaths[o.sw].fixed) continue;
    const dxyz s = shift_of(shifts, prj.swaths[o.sw]);
    o.lidar += s, o.d += s, o.corr += s;
  }
}

// Targets: measured, applied, reported.
bool corr_XYZGCP_T0_SCorr(const Project& prj, const ControlParam& par, const ControlPoints& points,
                          const ControlShift& shift, const std::vector<SwathId>& swc,
                          SwathVector<SCorrTbl>& tables, XYZGCPresult& r) {
  LOG_ENTER("corr_XYZGCP_" << (shift.groups ? "grp_" : "") << "T0_SCorr CXYZ=" << shift.CXYZ
                           << " grpm.size()=" << prj.nmgrp);
  if (!QC_XYZGCP_corr(prj, par, points, tables, r)) {
    ERROR_MSG(
        "post-correction absolute XYZ QC failed, XYZ GCP not found or missing/incompatible temp. tile files");
    return false;
  }
  if (shift.CXYZ) {
    const Shifts shifts = XYZ_shifts(prj, par, shift.groups, r);
    add_shifts(prj, shifts, "XYZ GCP correction", swc, tables);
    move_occurrences(prj, shifts, r);
  }
  return XYZGCP_stats(prj, par.xyz, true, r);
}

// Heights: the same.
bool corr_GCP_T0_SCorr(const Project& prj, const ControlParam& par, const ControlPoints& points, bool CZ,
                       bool groups, const std::vector<SwathId>& swc, SwathVector<SCorrTbl>& tables,
                       GCPresult& r) {
  LOG_ENTER("corr_GCP_" << (groups ? "grp_" : "") << "T0_SCorr_exp CZ=" << CZ << " EXP=" << par.gcp.exp
                        << " grpm.size()=" << prj.nmgrp);
  if (!QC_GCP_corr(prj, par, points, tables, r)) {
    ERROR_MSG("post-correction absolute Z QC failed, GCP not found or missing/incompatible temp. tile files");
    return false;
  }
  if (CZ) {
    const Shifts shifts = Z_shifts(prj, par, groups, r);
    add_shifts(prj, shifts, "GCP correction", swc, tables);
    move_occurrences(prj, shifts, r);
  }
  return robust_GCP_stats(prj, par.gcp, true, r) && (!par.gcp.exp || corr_exp_gcp_pc(prj, prj.name, tables));
}
}  // namespace

bool corr_control_T0_SCorr(const Project& prj, const ControlParam& par, const ControlPoints& points,
                           const ControlShift& shift, const std::vector<SwathId>& swc,
                           SwathVector<SCorrTbl>& tables, ControlQC& after) {
  if (!points.xyz.empty() && !corr_XYZGCP_T0_SCorr(prj, par, points, shift, swc, tables, after.xyz))
    return false;
  const bool by_targets = shift.CXYZ && after.xyz.control.n > 0;
  return points.gcp.empty() ||
         corr_GCP_T0_SCorr(prj, par, points, shift.CZ && !by_targets, shift.groups, swc, tables, after.gcp);
}
}  // namespace veld
