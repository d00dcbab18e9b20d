// prj/LiDAR/VR2proc/corr_swath.h
// Correction of one swath: the LAS or LAZ file rewritten point by point.
// Here:     the inputs of one swath, corr_swath and corr_swath_las.
// Not here: choice of swaths, names and threads (corr_swaths.h), the model (VR2geom).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
struct CorrJob {            // one swath
  SwathId sw;               // its number
  std::string path;         // source
  std::string out;          // corrected file
  SwathClock clock;         // synchronised
  bool FWD = false;         // evaluate the correction at the corrected position
  std::string sid;          // system identifier: the kind of run and the letters of what was applied
  bool lax = false;         // write a spatial index too (-olax)
  bool lax_append = false;  // at the end of the file if that is a LAZ (-lax_append), else beside it
  const std::vector<std::string>* sources = nullptr;  // files that must never be overwritten, for all jobs
};

struct CorrCount {     // totals of one swath
  uint64_t nread = 0;  // points
  uint64_t nwritten = 0;
  uint64_t ndropped = 0;  // points without trajectory at their time
  int64_t nbytes = 0;     // size of the corrected file
};

// Rewrites the swath with its correction. Points, their order and all other attributes pass through; points
// without a trajectory are dropped. The output appears whole or not at all. False after an ERROR line.
[[nodiscard]] bool corr_swath_las(const CorrJob& job, const SwathCorr& corr, CorrCount& count);
}  // namespace veld
