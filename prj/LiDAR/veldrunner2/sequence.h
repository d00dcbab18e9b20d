// prj/LiDAR/veldrunner2/sequence.h
// The sequences of the program: each is a list of calls of the stages, in the order of the work.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/LmTidx_w/swath_stat.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/project.h"

struct ScanParam {
  // The command.
  bool REG = false;      // the run registers (-reg, -align, -calib)
  bool QC = true;        // relative QC of the overlaps in numbers (-qc)
  bool FASTQC = false;   // fast QC maps (-fastqc, -scan)
  bool REL = true;       // relative QC after correction is wanted: grids are kept for it
  bool FULL = false;     // grid everything, not only overlaps (-full)
  bool GCP = false;      // control points are given
  // Tiling.
  TilingParam tiling;    // filters, levels, time stamps; large and xlevel as in Project::scale
  bool cache_tile = true;  // -cache_tile
  // Statistics.
  bool median = true;    // grid scale from the median density (-ggsd_mean off)
  bool fix_ch0 = false;  // -fix_ch0
  // Pair selection, for registration and for QC.
  bool ALLDZ = true;     // difference statistics of all pairs (-dz_all)
  int RDIM = 2;          // reduction by channels (-reg_reduce): 0 none, 1 same channel or line, 2 main channels
  int GRPREG = 1;        // groups (-reg_grp): 0 same, 1 all, 2 different
  int REFREG = 1;        // reference swaths (-reg_ref): 0 off, 1 on, 2 only
  int CHREG = 1;         // channels (-reg_ch): 0 same, 1 all, 2 different
  int GRPQC = 1, REFQC = 1, CHQC = 1;  // the same for QC (-qc_grp, -qc_ref, -qc_ch)
  // Registration.
  int Jinit = 1;         // extra coarse levels (-init)
  int Jend = 1;          // finest level (-end)
  int DZ_sub = 4;        // subsampling of difference images (-sub)
  bool DZ_16 = false;    // 16-bit difference images (-dz16)
  // Plots.
  bool BB = false;       // boxes and rectangles of the swaths (-bb)
  bool OUTOBJ = false;   // plots as .obj too
};

struct ScanResult {
  ProjectStat stat;      // statistics and tile frame, by swath number of the project as it is now
  mTbbox full;           // microtiles with at least one swath
  mTbbox over;           // microtiles with at least two
  double area = 0;       // m2, covered
  double overlap = 0;    // m2, covered by at least two
  int nrejected = 0;     // swaths that left the project
  int nint = 0;          // pairs with an overlap
  bool finished = false; // true when the sequence ended early with nothing to do (a single swath)
};

// Tiles all swaths, rejects those that cannot be used (they leave prj), makes the statistics and the grid
// scale, the overlap maps, grids, registers, and writes the displacement file with its index.
// False after an ERROR line; the caller adds "registration or QC failed".
[[nodiscard]] bool SCAN_REG_QC(Project& prj, const ScanParam& par, ScanResult& res);
