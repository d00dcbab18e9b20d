// prj/LiDAR/LmTQCGCP/XYZGCP.h
// Absolute quality control by targets in three dimensions: the place of a target in a swath less the surveyed one.
// Here:     matching of targets and swaths, differences before and after the correction, statistics, reports, bias.
// Not here: the file of the targets (lidarspec), height control points (LmTQCGCP.h).
//
// XY stands for one horizontal axis, the mean of both, R for the radius in the plane (the root of 2 times XY).
#pragma once
#include <string>
#include <vector>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/LmTQCGCP/control_param.h"
#include "prj/LiDAR/lidarspec/lidarspec.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct XYZoccur {  // a target in its swath
  int gcp = 0;     // index of the target
  SwathId sw;
  int group = 0;          // of the swath
  dxyz lidar{};           // m, where it lies, the correction included
  dxyz d{};               // m, less the surveyed place
  dxyz corr = {0, 0, 0};  // m, the correction there
  bool in95 = true;       // within the confidence region
  bool in99 = true;
};

struct XYZGCPstat {  // of control or of check points
  int n = 0;
  dxyz mean = {0, 0, 0};       // m, weighted, as all that follows
  double sd_xy = 0, sd_z = 0;  // standard deviations
  double rms_xy = 0, rms_z = 0;
  dxyz min = {0, 0, 0}, max = {0, 0, 0};
  int imin[3] = {-1, -1, -1}, imax[3] = {-1, -1, -1};  // occurrences, by axis
  int nout95 = 0, nout99 = 0;
};

struct XYZGCPresult {
  std::vector<XYZGCP> gcp;
  std::vector<XYZoccur> occ;
  XYZGCPstat control, check;
};

// The targets of a file in metres. False after an ERROR line.
[[nodiscard]] bool load_XYZGCP(const XYZGCPparam& par, const GeoRefParam& georef, std::vector<XYZGCP>& gcp,
                               std::string& used);

// The swath of each target: the one whose name, with or without its extension, is the match text, else the only one
// whose name contains it (with "*" or "?": fits it). None, after a WARNING, when none or several do.
std::vector<SwathId> match_XYZGCP_swaths(const Project& prj, const std::vector<XYZGCP>& gcp);

// Differences at the targets, by target. corr: tables of the swaths, or none for the swaths as they are; then
// swaths without a table are passed over. Targets where their swath has no tile are left out, with a WARNING.
// False after an ERROR line when caches cannot be read.
[[nodiscard]] bool QC_XYZGCP(const Project& prj, const std::vector<XYZGCP>& gcp,
                             const std::vector<SwathId>& swath, const SwathVector<SCorrTbl>* corr,
                             std::vector<XYZoccur>& occ);

// Flags and statistics, with messages and the reports prj.name + "_XYZGCP.log" or "_XYZGCPcorr.log" (and ".json").
[[nodiscard]] bool XYZGCP_stats(const Project& prj, const XYZGCPparam& par, bool post, XYZGCPresult& r);
// Without them.
void comp_XYZGCP_stats(const XYZGCPparam& par, XYZGCPresult& r);

// Weighted mean difference over the control points, of all swaths or of one group; z = NODATA, after a WARNING,
// without any.
dxyz XYZGCP_diff_mean(const XYZGCPparam& par, const XYZGCPresult& r);
dxyz XYZGCP_diff_mean_grp(const XYZGCPparam& par, const XYZGCPresult& r, int group);
}  // namespace veld
