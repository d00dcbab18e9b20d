// prj/LiDAR/run/sequence.h
// The sequences of the program: each is a list of calls of the stages, in the order of the work.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTQCGCP/control.h"
#include "prj/LiDAR/LmTQCimg/fast_QC.h"
#include "prj/LiDAR/LmTQCsep/separation.h"
#include "prj/LiDAR/LmTidx_w/swath_stat.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/options/scan_param.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct ScanResult {
  ProjectStat stat;      // statistics and tile frame, by swath number of the project as it is now
  mTbbox full;           // microtiles with at least one swath
  mTbbox over;           // microtiles with at least two
  double area = 0;       // m2, covered
  double overlap = 0;    // m2, covered by at least two
  int nrejected = 0;     // swaths that the tiling could not use
  int nmemory = 0;       // swaths that -mem is too small for: the run is to fail once the others are finished
  int ncached = 0;       // swaths whose tiles were taken as they stood
  DUTidx index;          // the project as the displacement file describes it, without pairs
  SwPairList pairs;      // pairs of swaths that have ground in common, where they were looked for
  ControlPoints points;  // those of the parameters, with the swaths of the targets
  ControlQC control;     // the swaths as they are against them
  InterResult inter;     // of the registration, or of the QC run
  FastQCresult fast;     // of the fast QC
  SeparationResult separation;  // of the swaths as they are (-sep)
  bool finished = false;        // true when the sequence ended early with nothing to do (a single swath)
};

// Tiles all swaths, rejects those that cannot be used (they leave prj), makes the statistics and the grid
// scale, the overlap maps, grids, registers, and writes the displacement file with its index.
// False after an ERROR line; the caller adds "registration or QC failed".
[[nodiscard]] bool SCAN_REG_QC(Project& prj, const ScanParam& par, ScanResult& res);
}  // namespace veld
