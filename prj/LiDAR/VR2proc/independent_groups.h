// prj/LiDAR/VR2proc/independent_groups.h
// Shifts of groups to their own control points, found before the groups are brought together (-gcp_grp).
// Here:     an inversion of each group from its own pairs, and what its control points say then.
// Not here: the inversion of all pairs with these shifts as known (sequence_corr.cpp).
#pragma once
#include <vector>

#include "prj/LiDAR/VR2proc/corr_run.h"

namespace veld {
// Shifts by group, of those that have control points. Pairs between groups take no part. Logs of the inversion of
// group g stand beside prj.name + "_ig" + g; a group without pairs of its own is measured as it is. in comes back as it
// was. False after an ERROR line.
[[nodiscard]] bool comp_independent_shifts(const Project& prj, const CorrRun& run, InvInput& in,
                                           GroupShifts& shifts);

// What known shifts make of the displacement of each pair, to be taken off it: of its second swath less of its first.
Vector<xyz> pair_shifts(const Project& prj, const std::vector<InvPair>& pairs, const GroupShifts& shifts);
}  // namespace veld
