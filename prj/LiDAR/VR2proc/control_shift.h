// prj/LiDAR/VR2proc/control_shift.h
// Shifts of swaths to the ground control: measured with the corrections, added to T0, checked and reported behind it.
#pragma once
#include <vector>

#include "prj/LiDAR/LmTQCGCP/control.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct ControlShift {   // what may be applied
  bool CZ = true;       // the mean height difference to height control points (-gcp_dz)
  bool CXYZ = true;     // the mean difference to targets (-xyz_gcp_corr); heights then are theirs
  bool groups = false;  // per group of swaths (-gcp_grp)
};

// Of the swaths of a row's group; nothing for groups without one.
dxyz shift_of(const GroupShifts& shifts, const Swath& s);
// Adds the shifts of the groups to T0 of the tables of swc.
void add_group_shifts(const Project& prj, const GroupShifts& shifts, const std::vector<SwathId>& swc,
                      SwathVector<SCorrTbl>& tables);

// The shift that the control points of one group ask for, with the tables of its swaths; found: they have one.
// False after an ERROR line.
[[nodiscard]] bool comp_group_shift(const Project& prj, const ControlParam& par, const ControlPoints& points,
                                    const ControlShift& shift, int group, const SwathVector<SCorrTbl>& tables,
                                    dxyz& result, bool& found);

// Measures with the tables of swc, adds the shifts to their T0, and writes the reports behind it. after: the
// differences with these shifts, and the shifts added to those that it holds. What control points leave undetermined stays as it is. False after an ERROR line; no
// shift is added then.
[[nodiscard]] bool corr_control_T0_SCorr(const Project& prj, const ControlParam& par,
                                         const ControlPoints& points, const ControlShift& shift,
                                         const std::vector<SwathId>& swc, SwathVector<SCorrTbl>& tables,
                                         ControlQC& after);
}  // namespace veld
