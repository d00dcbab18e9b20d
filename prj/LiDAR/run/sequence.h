// prj/LiDAR/run/sequence.h
// The sequences of the program: each is a list of calls of the stages, in the order of the work.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/LmTidx_w/swath_stat.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct ScanParam {
  // The command.
  bool REG = false;    // the run registers (-reg, -align, -calib)
  bool QC = true;      // difference statistics of the pairs before and after registration (-qc)
  bool QCRUN = false;  // a run without a command: the difference statistics are its purpose
  bool CORR = false;   // a correction follows: its check needs grids, and a single swath is work enough
  bool FULL = false;   // grid everything, not only overlaps (-full)
  bool GCP = false;    // control points are given
  // Tiling.
  TilingParam tiling;      // filters, levels, time stamps; large and xlevel as in Project::scale
  bool cache_tile = true;  // -cache_tile
  bool rej_ref = true;     // references without overlap leave the project (-rej_ref)
  // Statistics.
  bool median = true;    // grid scale from the median density (-ggsd_mean off)
  bool fix_ch0 = false;  // -fix_ch0
  PairFilter regpairs;   // pairs to register (-reg_reduce, -reg_grp, -reg_ref, -reg_ch, -dz_all)
  PairFilter qcpairs;    // pairs of a QC run (-qc_grp, -qc_ref, -qc_ch)
  int Jinit = 1;         // start of the registration (-init)
  int Jend = 0;          // final level: vertices every mTsize << Jend metres
  int DZ_sub = 4;        // subsampling of the height differences (-sub)
  // Plots.
  bool BB = false;      // boxes and rectangles of the swaths (-bb)
  bool OUTOBJ = false;  // plots as .obj too
};

struct ScanResult {
  ProjectStat stat;    // statistics and tile frame, by swath number of the project as it is now
  mTbbox full;         // microtiles with at least one swath
  mTbbox over;         // microtiles with at least two
  double area = 0;     // m2, covered
  double overlap = 0;  // m2, covered by at least two
  int nrejected = 0;   // swaths that left the project
  int nmemory = 0;     // swaths that -mem is too small for: the run is to fail once the others are finished
  int ncached = 0;     // swaths whose tiles were taken as they stood
  DUTidx index;        // the project as the displacement file describes it, without pairs
  InterResult inter;   // of the registration, or of the QC run
  bool finished = false;  // true when the sequence ended early with nothing to do (a single swath)
};

// Tiles all swaths, rejects those that cannot be used (they leave prj), makes the statistics and the grid
// scale, the overlap maps, grids, registers, and writes the displacement file with its index.
// False after an ERROR line; the caller adds "registration or QC failed".
[[nodiscard]] bool SCAN_REG_QC(Project& prj, const ScanParam& par, ScanResult& res);
}  // namespace veld
