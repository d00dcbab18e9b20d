// prj/LiDAR/VR2proc/corr_points.h
// The points of one swath, corrected block by block in memory: coordinates, and the attributes that are asked for.
// Here:     the choice of the beam, the correction, what is rewritten, the undo data.
// Not here: files (corr_swath.h), the model (VR2geom).
#pragma once
#include <array>
#include <cstdint>
#include <vector>

#include "las/lasdefs.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "prj/LiDAR/VR2proc/corr_count.h"
#include "prj/LiDAR/VR2proc/output_param.h"
#include "prj/LiDAR/VR2proc/undo_file.h"
#include "prj/LiDAR/swath/split_type.h"
#include "prj/LiDAR/swath/swath_clock.h"

namespace veld {
struct PointJob {  // of one swath
  const SwathCorr* corr = nullptr;
  SwathClock clock;  // synchronised
  bool FWD = false;  // evaluate the correction at the corrected position
  PointRewrite rewrite;
  double t_out = 0;                  // s, added to rewritten times
  const BeamSplit* split = nullptr;  // none: all points have corr
  std::vector<SwathCorr> beams;      // by beam: corr with the calibration of the beam
  int beam_id = -1;                  // byte of the attribute "beam id" in a record, for SplitType::beam_id
};

// Corrects n records in place and moves those that are kept together: points without a trajectory at their time are
// not, nor those whose coordinates the file cannot hold. undo: gets a correction for each of the n, if it is open.
// Returns how many are kept.
uint64_t corr_records(uint8_t* records, uint64_t n, LASpoint point, const PointJob& job, CorrCursor& cursor,
                      UndoWriter& undo, CorrCount& count);
}  // namespace veld
