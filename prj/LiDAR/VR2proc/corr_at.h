// prj/LiDAR/VR2proc/corr_at.h
// Corrections of swaths at any place.
// Here:     what answers for a swath, from its samples and trajectory.
// Not here: tables of corrections on the microtile grid (corr_tables.h), points (corr_points.h).
#pragma once
#include "prj/LiDAR/LmTinter/corr_at.h"
#include "prj/LiDAR/VR2proc/corr_tables.h"

namespace veld {
// Answers for all swaths. Times and heights between the samples are straight, so that attitudes count in full; beside a
// sample whose neighbours are missing or of another time they are its own. T0: shifts of whole swaths, of the tables. What
// is handed in must outlive the answers. Those of a swath hold its trajectory and 4 bytes a microtile.
CorrAtOf make_corr_at(const Project& prj, const CorrSource& source, const SwathVector<InvSamples>& samples,
                      const SwathVector<SampleIndex>& index, const SwathVector<SCorrTbl>& tables);
}  // namespace veld
