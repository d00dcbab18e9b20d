// prj/LiDAR/VR2proc/global_shift.h
// Shifts of whole swaths (T0 of the correction tables): to the references, and what cancels flat effects that
// overlaps alone do not determine. What stands in T0 is added to the points, the logs and the check alike.
#pragma once
#include <vector>

#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/VR2proc/corr_source.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct GlobalShiftParam {
  bool CGM = false;         // cancel the mean correction over all swaths (-mean)
  bool CD = true;           // cancel the flat Z effect of range bias and scale (-d_dz)
  bool CR = true;           // the same, by the option of the range (-r_dz): both must be on
  bool range_model = true;  // internal values 1 and 2 have a flat effect (neither -int_gen nor -int_nob)
  double AGL = 0;           // m, mean height above ground
};

// Mean height of the trajectory above the samples of the swaths of swc, m; 0 without samples.
double comp_mean_AGL(const SwathVector<InvSamples>& samples, const std::vector<SwathId>& swc);

// Sets T0 of the tables of swc to the shift to the references; to zero without one.
void init_T0_SCorr(const InvResult& res, const std::vector<SwathId>& swc, SwathVector<SCorrTbl>& tables);

// The shift given by hand for a swath, m.
xyz manual_shift(const Project& prj, const ManualParam& manual, const Swath& swath);

// Adds the shifts given by hand: of all swaths, and of the groups of the project.
void add_T0_manual(const Project& prj, const ManualParam& manual, const std::vector<SwathId>& swc,
                   SwathVector<SCorrTbl>& tables);

// Adds to T0 of the tables of swc what cancels global means: the mean of C and T0, or the flat effect of the
// range's internal values as a mean over swc. The mean contains that effect, so it is never cancelled twice.
void dzcorr_DR_T0_SCorr(const InvResult& res, const GlobalShiftParam& par, const std::vector<SwathId>& swc,
                        SwathVector<SCorrTbl>& tables);

// "Global shift applied (all swaths): ", or each swath's in the log when they differ.
void display_global_shift(const std::vector<SwathId>& swc, const SwathVector<SCorrTbl>& tables);
}  // namespace veld
