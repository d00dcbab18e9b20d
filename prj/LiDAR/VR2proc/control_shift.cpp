#include "prj/LiDAR/VR2proc/control_shift.h"

#include <map>

#include "lib/general/log.h"

namespace veld {
dxyz shift_of(const GroupShifts& shifts, const Swath& s) {
  const auto at = shifts.find(shifts.count(0) ? 0 : s.group);
  return at == shifts.end() ? dxyz{0, 0, 0} : at->second;
}

void add_group_shifts(const Project& prj, const GroupShifts& shifts, const std::vector<SwathId>& swc,
                      SwathVector<SCorrTbl>& tables) {
  for (const SwathId sw : swc) tables[sw].T0 += to_xyz(shift_of(shifts, prj.swaths[sw]));
}

namespace {
void add_shifts(const Project& prj, const GroupShifts& shifts, const char* row,
                const std::vector<SwathId>& swc, SwathVector<SCorrTbl>& tables) {
  const bool groups = shifts.count(0) == 0;
  for (const auto& [group, s] : shifts)
    LOG_MSG(row << (groups ? " per group " + std::to_string(group) : std::string()) << ": " << s.x << ' '
                << s.y << ' ' << s.z);
  add_group_shifts(prj, shifts, swc, tables);
}

// Groups that have a shift by targets get none: two heights would contradict each other.
GroupShifts Z_shifts(const Project& prj, const ControlParam& par, bool groups, const GroupShifts& by_targets,
                     const GCPresult& r) {
  GroupShifts shifts;
  if (by_targets.count(0)) return shifts;
  if (!groups) {
    const double m = GCP_dz_mean(par.gcp, r);
    if (m != NO_BIAS) shifts[0] = {0, 0, -m};
    return shifts;
  }
  for (int g = 1; g <= prj.nmgrp; g++) {
    if (by_targets.count(g)) continue;
    if (const double m = GCP_dz_mean_grp(par.gcp, r, g); m != NO_BIAS) shifts[g] = {0, 0, -m};
  }
  return shifts;
}

GroupShifts XYZ_shifts(const Project& prj, const ControlParam& par, bool groups, const XYZGCPresult& r) {
  GroupShifts shifts;
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
void move_occurrences(const Project& prj, const GroupShifts& shifts, GCPresult& r) {
  for (GCPoccur& o : r.occ) {
    if (prj.swaths[o.sw].fixed) continue;
    const double dz = shift_of(shifts, prj.swaths[o.sw]).z;
    o.z_lidar += dz, o.dz += dz, o.corr.z += dz, o.tin.z_tin += dz;
    for (dxyz& T : o.tin.T) T.z += dz;
  }
}

void move_occurrences(const Project& prj, const GroupShifts& shifts, XYZGCPresult& r) {
  for (XYZoccur& o : r.occ) {
    if (prj.swaths[o.sw].fixed) continue;
    const dxyz s = shift_of(shifts, prj.swaths[o.sw]);
    o.lidar += s, o.d += s, o.corr += s;
  }
}

// Targets: measured, applied, reported.
bool corr_XYZGCP_T0_SCorr(const Project& prj, const ControlParam& par, const ControlPoints& points,
                          const ControlShift& shift, const std::vector<SwathId>& swc,
                          SwathVector<SCorrTbl>& tables, GroupShifts& shifts, XYZGCPresult& r) {
  LOG_ENTER("corr_XYZGCP_" << (shift.groups ? "grp_" : "") << "T0_SCorr CXYZ=" << shift.CXYZ
                           << " grpm.size()=" << prj.nmgrp);
  if (!QC_XYZGCP_corr(prj, par, points, tables, r)) {
    ERROR_MSG(
        "post-correction absolute XYZ QC failed, XYZ GCP not found or missing/incompatible temp. tile files");
    return false;
  }
  if (shift.CXYZ) {
    shifts = XYZ_shifts(prj, par, shift.groups, r);
    add_shifts(prj, shifts, "XYZ GCP correction", swc, tables);
    move_occurrences(prj, shifts, r);
  }
  return XYZGCP_stats(prj, par.xyz, true, r);
}

// Heights: the same.
bool corr_GCP_T0_SCorr(const Project& prj, const ControlParam& par, const ControlPoints& points,
                       const ControlShift& shift, const GroupShifts& by_targets,
                       const std::vector<SwathId>& swc, SwathVector<SCorrTbl>& tables, GroupShifts& shifts,
                       GCPresult& r) {
  LOG_ENTER("corr_GCP_" << (shift.groups ? "grp_" : "") << "T0_SCorr_exp CZ=" << shift.CZ
                        << " EXP=" << par.gcp.exp << " grpm.size()=" << prj.nmgrp);
  if (!QC_GCP_corr(prj, par, points, tables, r)) {
    ERROR_MSG("post-correction absolute Z QC failed, GCP not found or missing/incompatible temp. tile files");
    return false;
  }
  if (shift.CZ) {
    shifts = Z_shifts(prj, par, shift.groups, by_targets, r);
    add_shifts(prj, shifts, "GCP correction", swc, tables);
    move_occurrences(prj, shifts, r);
  }
  return robust_GCP_stats(prj, par.gcp, true, r) && (!par.gcp.exp || corr_exp_gcp_pc(prj, prj.name, tables));
}
}  // namespace

bool comp_group_shift(const Project& prj, const ControlParam& par, const ControlPoints& points,
                      const ControlShift& shift, int group, const SwathVector<SCorrTbl>& tables, dxyz& result,
                      bool& found) {
  found = false;
  if (shift.CXYZ && !points.xyz.empty()) {
    XYZGCPresult r;
    if (!QC_XYZGCP_corr(prj, par, points, tables, r)) {
      ERROR_MSG(
          "post-correction absolute XYZ QC failed, XYZ GCP not found or missing/incompatible temp. tile "
          "files");
      return false;
    }
    const dxyz m = XYZGCP_diff_mean_grp(par.xyz, r, group);
    found = m.z != NODATA;
    if (found) result = -m;
  }
  if (found || !shift.CZ || points.gcp.empty()) return true;
  GCPresult r;
  if (!QC_GCP_corr(prj, par, points, tables, r)) {
    ERROR_MSG("group GCP bias computation failed, GCP not found or missing/incompatible temp. tiles");
    return false;
  }
  const double m = GCP_dz_mean_grp(par.gcp, r, group);
  found = m != NO_BIAS;
  if (found) result = {0, 0, -m};
  return true;
}

bool corr_control_T0_SCorr(const Project& prj, const ControlParam& par, const ControlPoints& points,
                           const ControlShift& shift, const std::vector<SwathId>& swc,
                           SwathVector<SCorrTbl>& tables, ControlQC& after) {
  GroupShifts by_targets, by_heights;
  if (!points.xyz.empty() &&
      !corr_XYZGCP_T0_SCorr(prj, par, points, shift, swc, tables, by_targets, after.xyz))
    return false;
  if (!points.gcp.empty() &&
      !corr_GCP_T0_SCorr(prj, par, points, shift, by_targets, swc, tables, by_heights, after.gcp))
    return false;
  for (const GroupShifts* shifts : {&by_targets, &by_heights})
    for (const auto& [group, s] : *shifts) after.shifts[group] += s;
  return true;
}
}  // namespace veld
