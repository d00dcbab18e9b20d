// prj/LiDAR/LmTidx_w/swath_stat.h
// Statistics of tiled swaths, consistency of groups and channels, and the scale of the project's grids.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct CountHist {               // microtiles by their number of points, of a swath or of several
  std::vector<uint64_t> nmt_of;  // nmt_of[n]: microtiles with n > 0 points; larger counts in the last one
  uint64_t np = 0;               // points
  uint64_t nmt = 0;              // microtiles that hold a point
};
void add_counts(CountHist& hist, const Image<uint32_t>& N);  // of one tile
void add_counts(CountHist& hist, const CountHist& other);

struct GridScale {  // result of comp_GGSD_dim
  int dim = 0;      // pixels along the side of a microtile
  double GGSD = 0;  // m, mTsize / dim
  double D0 = 0;    // points/m2 that represents the microtiles
  double GSD0 = 0;  // m, spacing that gives TARGET_DF points a pixel
};

// Grid scale from the counts of microtiles. median: the median count represents them, else the mean. A fixed
// GGSD_OPT > 0 (m) sets dim instead. No points give dim 1.
GridScale comp_GGSD_dim(const CountHist& hist, double mTsize, bool median);

struct SwathStat {  // one line of the statistics
  LTidxInfo info{};
  GridScale grid;
  CountHist hist;
  double length = 0, width = 0;  // m, of the minimum bounding rectangle, long side first
  double area = 0;               // m2, of the rectangle
  double heading = 0;            // degrees clockwise from north, along the long side in the sense of time
  double density = 0;            // points/m2 of the microtiles that hold points
  double Zmin = 0, Zmax = 0,
         Zmed = 0;           // m, percentiles 1, 99 and 50 of the mean heights of occupied microtiles
  uint64_t nocc = 0;         // occupied microtiles
  uint64_t cache_bytes = 0;  // size of the tile family on disk
  int64_t stamp = -1;        // of the source when it was tiled
};

struct ProjectStat {
  SwathVector<SwathStat> swaths;
  TileInfo frame;                       // tile frame that holds all swaths
  double Zmin = 0, Zmax = 0, Zmed = 0;  // m, over all swaths
  double density = 0;                   // points/m2, mean of the swaths
  double mdt = 0;                       // s, mean time resolution of a microtile
  double mdev = 0;                      // mean time deviation
  uint64_t np = 0;                      // points, of all swaths
  uint64_t nmt = 0;                     // microtiles that hold a point, of all swaths
  uint64_t cache_bytes = 0;             // of all tile families
};

struct InfoParam {
  bool median = true;    // grid scale from the median count (-ggsd_mean off)
  bool fix_ch0 = false;  // a missing main channel is an error (-fix_ch0)
  bool LAREA = false;    // project of large area
  bool tproc = true;     // time stamps were processed
};

constexpr uint32_t MAX_FRAME = 2048;  // tiles along an axis of a project, at most

// Every group and channel must still have a swath: else an ERROR line each and false.
[[nodiscard]] bool check_nonempty_groups(const Project& prj);
// Decides the main channel of every swath (Swath::mainch): among the lower channels of the same sensor, down to
// channel 0, the one whose time interval overlaps most. A swath without one becomes a main channel itself, or, with
// fix_ch0, where only channel 0 counts, fails the check.
[[nodiscard]] bool comp_mainch_swaths(SwathTable& swaths, bool fix_ch0);
// Checks, statistics, "_sw_stat.log", and the project's grid spacing (prj.scale.dim, prj.time_res).
[[nodiscard]] bool InfoTI_swstat(Project& prj, const InfoParam& par, ProjectStat& stat);
// Statistics of one swath from its caches; times as well when tproc. False, silently, on a failed read.
[[nodiscard]] bool comp_swath_stat(const CacheName& swath, bool tproc, bool median, SwathStat& stat);
uint64_t tile_cache_bytes(const CacheName& swath);  // of the tile family of a swath, on disk
// Writes name + "_sw_stat.log".
[[nodiscard]] bool write_sw_stat(const Project& prj, const ProjectStat& stat);
}  // namespace veld
