// prj/LiDAR/VR2proc/corr_swath.h
// Correction of one swath: the LAS or LAZ file rewritten point by point.
// Here:     the inputs of one swath, corr_swath_las.
// Not here: its points (corr_points.h), choice of swaths, names and threads (corr_swaths.h).
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "las/lasreader.h"
#include "prj/LiDAR/VR2proc/corr_points.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
struct CorrJob {            // one swath
  SwathId sw;               // its number
  std::string path;         // source
  std::string out;          // corrected file
  PointJob points;          // what is done to its points; corr is set by the caller
  bool adj = false;         // synchronised times are adjusted standard GPS time
  std::string sid;          // system identifier: the kind of run and the letters of what was applied
  bool undo = false;        // write undo data beside the corrected file (-oundo)
  bool lax = false;         // write a spatial index too (-olax)
  bool lax_append = false;  // at the end of the file if that is a LAZ (-lax_append), else beside it
  const std::vector<std::string>* sources = nullptr;  // files that must never be overwritten, for all jobs
};

// Rewrites the swath with its correction. Points, their order and all attributes that the job does not name pass
// through; points without a trajectory are dropped. The output appears whole or not at all, and undo data of an earlier
// file of its name go. False after an ERROR line.
[[nodiscard]] bool corr_swath_las(CorrJob job, CorrCount& count);

// Opens the source of a job and finds what its points are read by. None after an ERROR line.
std::unique_ptr<LASreader> open_corr_source(CorrJob& job);
// The header of a file with the corrected points of a job. False after an ERROR line.
[[nodiscard]] bool corrected_header(const CorrJob& job, const LASheader& source, LASheader& header);
// WARNINGs about points that were dropped or are of no beam. short_read: not all points could be read.
void warn_corr_points(const CorrJob& job, const CorrCount& count, bool short_read);
}  // namespace veld
