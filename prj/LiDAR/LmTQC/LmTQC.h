// prj/LiDAR/LmTQC/LmTQC.h
// Relative quality control in numbers: height differences between overlapping swaths after a correction, and
// the running statistics that the logs of pairs share.
// Here:     QC_DZ_corr_LmT, choice of its pairs, StatXYZ.
// Not here: pictures (LmTQCimg), control points (LmTQCGCP), statistics of the inversion (VR2inv).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "image/save_image.h"
#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"
#include "prj/LiDAR/LmTinter/pair_filter.h"
#include "prj/LiDAR/LmTinter/scorr_tbl.h"
#include "prj/LiDAR/LmTinter/sw_pair.h"
#include "prj/LiDAR/TNRreg/dz_stat.h"
#include "prj/LiDAR/project.h"
#include "prj/LiDAR/stat_xyz.h"

namespace veld {
struct DUTidx;  // DUTio.h

struct PairQC {  // of one pair
  int number = -1;
  SwathId sw1, sw2;
  DZstat before, stat;  // of the height differences before and after the correction, on the same ground
};

struct QCcorrResult {
  int nint = 0;   // pairs of the list
  int nused = 0;  // pairs measured
  double Mpix = 0;
  double stddev = 0;  // m, of the height differences of all pairs
  double rms = 0;     // m
  double area = 0;    // m2
  // The same without the corrections, on the same ground.
  double stddev0 = 0;
  double rms0 = 0;
  double area0 = 0;
  double ncompared = 0;       // pixels of all pairs that were compared
  double npixel = 0;          // pixels that both swaths of a pair have
  SwathId worst1, worst2;     // of the pair with the largest RMS after the correction
  double worst_rms = 0;       // m
  std::vector<PairQC> pairs;  // those measured
  DZHistogram hist;  // of the differences after the correction; empty when no maps and plots are drawn
};

// Pairs of the post-correction QC, chosen from the pairs of the index by the filters of QC (RDIM is not
// used). With ALLDZ every pair stays. They keep their numbers of the index. Messages by the caller's choice; n0: pairs before.
std::vector<SwPair> comp_int_sw_qc(const Project& prj, const DUTidx& idx, const PairFilter& filter, int& n0);

// Measures the pairs on the grids with the corrections applied: with d the field that moves swath 1 onto
// swath 2, d = c2 - c1; and without them, on the same pixels. Writes prj.name + "_DZcorr_stat.log". corr: of all
// swaths. map: the picture "_DZcorr" of the differences that are left, over the tiles of frame.
// False after an ERROR line when no grid can be read or the log cannot be written.
[[nodiscard]] bool QC_DZ_corr_LmT(const Project& prj, const std::vector<SwPair>& pairs,
                                  const SwathVector<SCorrTbl>& corr, int nthreads, const MapParam& map,
                                  const TileInfo& frame, QCcorrResult& result);
}  // namespace veld
