// prj/LiDAR/LmTinter/LmTinter.h
// The driver of the registration: choice of swath pairs, their overlap tiles, registration of pairs side by
// side, statistics, the DUT files and the cache of pairs.
// Here:     reg_inter_LmT and its steps on pairs.
// Not here: the registration of a pair (TNRreg), grids (LmTgrid_w), the files' format (DUTio).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "image/save_image.h"
#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/LmTinter/corr_at.h"
#include "prj/LiDAR/LmTinter/pair_filter.h"
#include "prj/LiDAR/LmTinter/sw_pair.h"
#include "prj/LiDAR/LmTplot/swath_inter.h"
#include "prj/LiDAR/TNRreg/dz_stat.h"
#include "prj/LiDAR/project.h"
#include "prj/LiDAR/stat_xyz.h"

namespace veld {
struct DUTidx;    // DUTio.h
struct SCorrTbl;  // scorr_tbl.h

// Of the logs of height differences, up to the unit of area.
constexpr char DZ_STAT_HEADER[] = "Pair# Swath#1 Swath#2 Mean StdDev RMS Outlier% Filtered% Area:";
constexpr char DZ_STAT_NAMES[] = " FileName1 FileName2 [Mean StdDev RMS m]";  // its end, behind the unit

struct InterParam {
  bool REG = true;  // register; false: accurate QC only, no DUT files
  bool QC = true;   // measure the height differences before and after
  PairFilter filter;
  int Jinit = 1;        // -init 0..4; the start level follows from it, see comp_reg_levels
  int Jend = 0;         // final level: vertices every mTsize << Jend metres
  int nmTmin = 4;       // smallest overlap of a tile, microtiles
  MapParam map;         // pictures of the height differences, of the vectors and their uncertainties
  TileInfo frame;       // tiles of the project, for the pictures; none are drawn without
  bool FP = false;      // footprints of the overlaps (-fp)
  bool OUTOBJ = false;  // these as .obj too (-obj)
  bool nop = false;     // no output files
  int nthreads = 1;
};

struct PairResult {  // of one pair
  int number = -1;
  SwathId sw1, sw2;
  uint64_t nvec = 0;     // vectors
  DZstat before, after;  // height differences before and after the registration; n = 0 without
  StatXYZ disp;          // m, of the vectors
  std::string lost;      // why it was not registered, empty when it was
};

struct InterResult {
  int nint0 = 0;                         // overlapping pairs
  int nint1 = 0;                         // after the filters
  int nint = 0;                          // pairs in the index
  int nreg = 0;                          // registered
  int nqc = 0;                           // measured
  int ncached = 0;                       // of the registered ones, taken from the cache
  uint64_t nvec = 0;                     // vectors written
  uint64_t nnotime = 0;                  // of these, without a time: the inversion cannot use them
  double Mpix = 0;                       // pixels compared, millions
  double rms_before = 0, rms_after = 0;  // m, height differences over all pairs
  std::vector<PairResult> pairs;         // in the order of the index
  DZHistogram hist;                      // of the differences before; empty when no maps and plots are drawn
};

// Those of the pairs that have an occupied microtile in common. near: pairs whose boxes and rectangles meet (see
// check_BBOX_MBR_fx_inter). Swaths without a grid overlap nothing. Of the counts only common tiles are read, up to the
// first hit; the tile tables of all swaths stand in memory, 12 bytes a tile. False, after an ERROR line, when a
// tile cache cannot be read.
[[nodiscard]] bool comp_sw_overlap(const Project& prj, const SwPairList& near, int nthreads,
                                   SwPairList& overlap);

// Chooses the pairs and numbers them. overlap: pairs that do, in order. Pairs of references are never formed, and a
// reference is no channel of a line, whatever its times. n0, n1: pairs before and after the filters.
std::vector<SwPair> comp_int_sw(const SwathTable& swaths, const SwPairList& overlap, const PairFilter& filter,
                                bool REG, int& n0, int& n1);

// Registers (or, without REG, measures) all chosen pairs. head: the index as far as it is known before the
// pairs (scale, swaths, boxes, control parameters). Writes prj.name + ".dut", "_idx.log", "_DZ_stat.log",
// "_DZreg_stat.log", "_DXYZreg_stat.log"; the pictures "_DZ" and "_DZreg" of the differences before and after, "_DXYZ" of
// the vectors, "_UNC" of their uncertainties; with FP the footprints "_op_fp" of the overlaps that are compared. A pair that is too large for -mem or does not converge gets no
// vectors and does not stop the loop. False after an ERROR line when a cache cannot be read or a file not be
// written.
[[nodiscard]] bool reg_inter_LmT(const Project& prj, const DUTidx& head, const SwPairList& overlap,
                                 const InterParam& param, InterResult& result);

// Registers the pairs of an index that have vectors once more, about the displacements that corrections amount to
// (by swath, as an inversion of these vectors found them): model on the microtile grid, corr_at at any place. Writes name + ".dut" and "_idx.log", pairs in the order of
// the index. result: nint, nreg, nvec; nreg is 0, after a WARNING, when the grids are not those of the index, and no
// file is written then. False after an ERROR line.
[[nodiscard]] bool rereg_inter_LmT(const Project& prj, const DUTidx& idx, const SwathVector<SCorrTbl>& model,
                                   const CorrAtOf& corr_at, const std::string& name, int nthreads,
                                   InterResult& result);
}  // namespace veld
