// prj/LiDAR/LmTQCGCP/control.h
// All control points of a run, heights and targets, as the sequences use them.
// Here:     their options together, loading, one check before or after the correction, the shifts that they ask for.
// Not here: the measurements (LmTQCGCP.h, XYZGCP.h).
#pragma once
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "prj/LiDAR/LmTQCGCP/LmTQCGCP.h"
#include "prj/LiDAR/LmTQCGCP/XYZGCP.h"
#include "prj/LiDAR/LmTQCGCP/control_param.h"

namespace veld {
struct DUTidx;  // DUTio.h

using GroupShifts = std::map<int, dxyz>;  // m, of the swaths of groups; under 0 of all swaths

struct ControlQC {  // a check: empty lists without points
  GCPresult gcp;
  XYZGCPresult xyz;
  GroupShifts shifts;  // to the control points, contained in the check
};

// Takes over the control points of a displacement file's index, for those that the options do not name, with what was
// said about them there. given: options of this run, which it keeps.
void take_DUT_control(const DUTidx& idx, const std::function<bool(const char* option)>& given,
                      ControlParam& par);
// What the index is to say of the control points.
void fill_DUT_control(const ControlParam& par, const ControlPoints& points, DUTidx& idx);

// Reads the files; georef: system of the project. False after an ERROR line.
[[nodiscard]] bool load_control(const ControlParam& par, const GeoRefParam& georef, ControlPoints& points);
// Finds the swaths of the targets; once the swaths of the project are known.
void match_control(const Project& prj, ControlPoints& points);

// The points for the corrected swaths: targets where qc found them, to be matched with the corrected files.
ControlPoints moved_control(const Project& prj, const ControlPoints& points, const ControlQC& qc);

// The check of the swaths as they are, with reports and exports. False after an ERROR line.
[[nodiscard]] bool QC_control(const Project& prj, const ControlParam& par, const ControlPoints& points,
                              ControlQC& qc);
// The checks with corrections, without reports.
[[nodiscard]] bool QC_GCP_corr(const Project& prj, const ControlParam& par, const ControlPoints& points,
                               const SwathVector<SCorrTbl>& corr, GCPresult& r);
[[nodiscard]] bool QC_XYZGCP_corr(const Project& prj, const ControlParam& par, const ControlPoints& points,
                                  const SwathVector<SCorrTbl>& corr, XYZGCPresult& r);
}  // namespace veld
