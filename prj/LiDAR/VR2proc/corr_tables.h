// prj/LiDAR/VR2proc/corr_tables.h
// Tables on the microtile grid: position, time and trajectory of every sample, and the correction there.
// Here:     the tables.
// Not here: shifts of whole swaths (global_shift.h), statistics and logs (corr_stat.h), points (corr_swath.h).
#pragma once
#include <cstdint>
#include <vector>

#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"
#include "prj/LiDAR/VR2POsync/VR2POsync.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/VR2proc/corr_source.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Where the samples of a swath lie: entry i of its samples is microtile where[i] % 1024 of tile where[i] /
// 1024.
struct SampleIndex {
  Vector<TIsxy> TI;  // tiles of the swath
  std::vector<uint32_t> where;
  std::vector<uint32_t> untimed;  // microtiles with points but without a time, in the same form
};

// Samples of each swath of swc: microtile centre at its mean height, its time, and the trajectory then.
// Swaths not in swc stay empty. False after an ERROR line when a tile or trajectory cache cannot be read.
[[nodiscard]] bool OAttP_tbl_swaths(const Project& prj, const std::vector<SwathId>& swc,
                                    SwathVector<InvSamples>& samples, SwathVector<SampleIndex>& index);

// What the inversion found, or the hand gave, made ready for the points of a swath. po must stay alive with the result,
// none will do for shifts alone; S is the swath's shift. False after an ERROR line when there is no usable trajectory.
[[nodiscard]] bool make_SwathCorr(const CorrSource& source, const Swath& swath, const xyz& S,
                                  const Vector<PO>* po, SwathCorr& corr);

// The correction at every sample (C of each table; T0 is left as it is and not contained in C). fill:
// microtiles without a time get the correction of those around them (-fill).
[[nodiscard]] bool corr_tbl_swaths(const Project& prj, const CorrSource& source,
                                   const std::vector<SwathId>& swc, const SwathVector<InvSamples>& samples,
                                   const SwathVector<SampleIndex>& index, bool fill, int nthreads,
                                   SwathVector<SCorrTbl>& tables);
}  // namespace veld
