// prj/LiDAR/VR2proc/corr_result.h
// What a correction run found and wrote, for reports and summaries.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/LmTQCGCP/control.h"
#include "prj/LiDAR/LmTQCsep/separation.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
struct CorrResult {
  std::vector<SwathId> swc;     // swaths corrected
  std::vector<SwathId> copied;  // swaths without a correction that were copied
  int nswrej = 0;               // mobile swaths left as they are
  double Mp = 0;                // points written, millions
  double MB = 0;                // bytes written, millions
  bool reached = false;         // the corrections were known and the files were begun
  QCcorrResult qc;              // the check after the correction
  ControlQC control;            // the control points behind the correction
  ControlPoints points;         // targets where they lie in the corrected swaths
  InvResult inv;                // what was found, without the residuals of single vectors
  double AGL = 0;               // m, mean height above ground
  SeparationResult separation;  // with the corrections (-sep)
};
}  // namespace veld
