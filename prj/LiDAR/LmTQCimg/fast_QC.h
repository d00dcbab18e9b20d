// prj/LiDAR/LmTQCimg/fast_QC.h
// Maps of the overlapping swaths straight from their grids: height difference, density, roughness, elevation,
// relief.
// Here:     fast_QC_ZDS.
// Not here: differences pair by pair (LmTinter, LmTQC), the grids (LmTgrid_w), files (image/).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/DataStructure/image.h"
#include "prj/LiDAR/LmTQCimg/fast_QC_groups.h"
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct FastQCparam {
  MapParam map;
  bool DZ = true;     // the map of height differences is drawn
  bool full = false;  // the whole area, not only overlaps (-full)
  // Pairs of swaths whose differences count, nsw x nsw, symmetric; empty: all (-dz_all).
  Image<uint8_t> pair_ok;
  bool REFQC = true;          // grids of reference swaths take part
  float Zlow = 0, Zhigh = 0;  // m, heights of the project: the scale of elevations without -z_range
  int nthreads = 1;
};

struct FastQCresult {
  double mean = 0, rms = 0;  // m, of Zmax - Zmin over the overlaps
  double area = 0;           // m2, compared
  uint64_t ntiles = 0;       // tiles with a grid
  uint64_t nblocks = 0;      // (swath, tile) blocks read
  uint64_t npix = 0;         // map pixels with at least two swaths
  double Mpix = 0;           // grid pixels read, millions
  int nmaps = 0;
  int ngrids = 0;               // swaths with a grid
  std::vector<GroupDZ> groups;  // of projects with several groups, where all pairs count
};

// Works from north to south, a row of tiles at a time, on threads; memory is that of such a row of each map and of
// the grid tables of the swaths that it crosses. Each map pixel is one grid pixel of each swath. A pixel's height
// difference is Zmax - Zmin over the swaths (with -dz_mix: height in the swath of lower number less that in the
// other), where at least two have a roughness within Z_SMAXF; the other maps take heights of any roughness, the mean
// of the swaths; that of intensities is made of the points. Swaths without a grid are left out; files: prj.name + "_DZ", "_D",
// "_R", "_Z", "_S", "_I".
// False after an ERROR line: no grid at all, or a file that could not be read or written.
[[nodiscard]] bool fast_QC_ZDS(const Project& prj, const TileInfo& frame, const FastQCparam& par,
                               FastQCresult& result);
}  // namespace veld
