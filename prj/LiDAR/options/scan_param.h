// prj/LiDAR/options/scan_param.h
// The parameters of the scan sequence: tiling, statistics, grids, registration.
// Here:     what options set, and what the command adds.
// Not here: the sequence and its result (run/sequence.h).
#pragma once
#include "prj/LiDAR/LmTQCGCP/control_param.h"
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTQCimg/transect.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/LmTinter/pair_filter.h"

namespace veld {
struct ScanParam {
  // The command.
  bool REG = false;      // the run registers (-reg, -align, -calib)
  bool QC = true;        // difference statistics of the pairs before and after registration (-qc)
  bool QCRUN = false;    // a run without a command: the difference statistics are its purpose
  bool CORR = false;     // a correction follows: its check needs grids, and a single swath is work enough
  bool REG2 = false;     // and registers again, which needs grids too (-reg2)
  bool FULL = false;     // grid everything, not only overlaps (-full)
  ControlParam control;  // control points (-gcp, -xyz_gcp), and points: as they were read
  ControlPoints points;
  // Tiling.
  TilingParam tiling;      // filters, levels, time stamps; large and xlevel as in Project::scale
  bool cache_tile = true;  // -cache_tile
  bool rej_ref = true;     // references without overlap leave the project (-rej_ref)
  std::string drop_map;    // points on its non-zero pixels are dropped (-drop_map)
  std::vector<double> bbox_x,
      bbox_y;  // file units: swaths beside this box leave the project (-bbox_x, -bbox_y)
  // Statistics.
  bool mean = false;                  // grid scale from the mean density, not the median (-ggsd_mean)
  bool fix_ch0 = false;               // -fix_ch0
  PairFilter regpairs = {.RDIM = 2};  // pairs to register (-reg_reduce, -reg_grp, -reg_ref, -reg_ch, -dz_all)
  PairFilter qcpairs;                 // pairs of a QC run (-qc_grp, -qc_ref, -qc_ch)
  int Jinit = 1;                      // start of the registration (-init)
  int Jend = 1;                       // final level, vertices every mTsize << Jend metres (-coarse)
  bool FASTQC = false;                // maps straight from the grids (-fastqc)
  MapParam map;                       // maps and plots of all stages
  GtileParam gtile;                   // gridded tiles as files
  TransectParam transect;             // points in a box as text and from the side
  // Plots.
  bool BB = false;      // boxes and rectangles of the swaths (-bb)
  bool FP = false;      // footprints of the swaths (-fp)
  bool OUTOBJ = false;  // plots as .obj too
  bool SWMAPS = false;  // maps of where the swaths lie: points, heights, times, overlap (-scan)
};
}  // namespace veld
