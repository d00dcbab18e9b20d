// prj/LiDAR/LmTidx_w/swath_stat.h
// Statistics of tiled swaths, consistency of groups and channels, and the scale of the project's grids.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/project.h"

struct GridScale {      // result of comp_GGSD_dim for one swath
  int dim = 0;          // pixels along the side of a microtile
  double GGSD = 0;      // m, mTsize / dim
  double D0 = 0;        // points/m2 that represents the swath
  double GSD0 = 0;      // m, spacing that gives TARGET_DF points a pixel
  uint64_t np = 0;      // points
  uint64_t nmt = 0;     // microtiles that hold a point
};

// Grid scale of a swath (or of several, given one after the other) from the counts of its microtiles.
// median: the median count represents it, else the mean. A fixed GGSD_OPT > 0 (m) sets dim instead.
GridScale comp_GGSD_dim(const Vector<Image<uint32_t>>& TN, double mTsize, bool median);

struct SwathStat {      // one line of the statistics
  LTidxInfo info;
  GridScale grid;
  double length = 0, width = 0;  // m, of the minimum bounding rectangle
  double area = 0;               // m2, microtiles that hold a point
  double heading = 0;            // degrees clockwise from north: along the long side, 0 to 180
  double density = 0;            // points/m2
  double Zmin = 0, Zmax = 0, Zmed = 0;  // m, of the mean heights of occupied microtiles
  uint64_t cache_bytes = 0;      // size of the tile family on disk
};

struct ProjectStat {
  std::vector<SwathStat> swaths;  // by swath number
  TileInfo frame;                 // tile frame that holds all swaths
  double Zmin = 0, Zmax = 0;      // m
  double density = 0;             // points/m2, mean of the swaths
  double mdt = 0;                 // s, mean time resolution of a microtile
  double mdev = 0;                // mean time deviation
  uint64_t np = 0;                // points, of all swaths
  uint64_t nmt = 0;               // microtiles that hold a point, of all swaths
};

struct InfoParam {
  bool median = true;   // grid scale from the median count (-ggsd_mean off)
  bool fix_ch0 = false; // a missing main channel is an error (-fix_ch0)
  bool LAREA = false;   // project of large area
  bool tproc = true;    // time stamps were processed
  bool large = false;   // -large, for the advice of a message
};

// Every group and channel must still have a swath: else an ERROR line each and false.
[[nodiscard]] bool check_nonempty_groups(const Project& prj);
// Ties every swath to the channel 0 swath of its line (Swath::mainch).
[[nodiscard]] bool comp_mainch_swaths(Project& prj, const std::vector<SwathStat>& stat, bool fix_ch0);
// Checks, statistics, "_sw_stat.log", and the project's grid spacing (prj.scale.dim, prj.time_res).
[[nodiscard]] bool InfoTI_swstat(Project& prj, const InfoParam& par, ProjectStat& stat);
// Writes name + "_sw_stat.log".
[[nodiscard]] bool write_sw_stat(const Project& prj, const ProjectStat& stat);
