// prj/LiDAR/LmTQCsep/separation.h
// Swath separation images and tables as client specifications ask for them: the classes of the USGS Lidar Base
// Specification (version 2.1, relative vertical accuracy) over intensities.
// Here:     save_separation, the limits of the quality levels.
// Not here: maps with a continuous scale (LmTQCimg), robust statistics of pairs (LmTQC).
#pragma once
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct SeparationLimits {
  float precision;  // m, intraswath: range of heights in a cell on hard flat ground, largest
  float rms;        // m, interswath RMSDz on open ground that slopes less than 10 degrees
  float largest;  // m, interswath, largest difference there; the image's classes end at half of it and at it
};
constexpr std::array<SeparationLimits, 4> QUALITY_LEVELS = {
    {{0.03f, 0.04f, 0.08f}, {0.06f, 0.08f, 0.16f}, {0.06f, 0.08f, 0.16f}, {0.12f, 0.16f, 0.32f}}};

constexpr float SEP_BIN = 0.005f;  // m, of the counts below
struct SepSum {                    // of magnitudes, m
  uint64_t n = 0;
  double sum = 0, sum2 = 0;
  float largest = 0;
  std::vector<uint64_t> count;  // by SEP_BIN, the last one holds all beyond
  void add(float v);
  void add(const SepSum& o);
  double rms() const;
  double mean() const { return n > 0 ? sum / static_cast<double>(n) : 0; }
  double percentile(double fraction) const;  // to a bin
  double beyond(float limit) const;          // fraction above, to a bin
};

struct SeparationResult {
  std::map<std::pair<SwathId, SwathId>, SepSum> pairs;  // open flat ground
  SepSum all;
  std::map<SwathId, SepSum> precision;  // on hard flat ground; empty with a correction
  double cell = 0;                      // m, pixel of the image
};

// Draws name + "_sep" and writes name + "_sep_stat.log", or, with corr, "_sepcorr": heights with the correction applied.
// A pixel is a cell of sub x sub grid pixels, at most 4 times the point spacing; its height is the mean of the grid's,
// its difference that of the highest and the lowest swath, of any size on any ground. Colours: up to half the largest
// permitted difference bluish green, up to it yellow, beyond vermilion, over intensities; one swath alone grey.
// corr: by swath; null: as the swaths are. Memory: a row of tiles. False after an ERROR line.
[[nodiscard]] bool save_separation(const Project& prj, const TileInfo& frame, const MapParam& map,
                                   int nthreads, const SwathVector<SCorrTbl>* corr, SeparationResult& result);

// The table file. False after an ERROR line.
[[nodiscard]] bool write_sep_log(const std::string& name, const SeparationResult& r, int level);
}  // namespace veld
