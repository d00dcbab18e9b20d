// prj/LiDAR/LmTQCGCP/control_param.h
// What options say about control points, and the points as they were read.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/lidarspec/lidarspec.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
struct GCPparam {
  std::string file;       // of the points (-gcp), empty without
  std::string col;        // its columns (-gcp_parse), empty: as the file says
  bool check = false;     // points without a flag are check points (-gcp_check)
  bool F0 = true;         // points without a flag want last returns (-gcp_last)
  float S0 = 0.005f;      // m, standard deviation of points that have none (-gcp_sigma)
  int EQ = 0;             // weights (-gcp_equal): 0 by both uncertainties, 1 equal, 2 by that of the survey
  float GCP_MIND = 0.1f;  // points/m2, least density (-gcp_d_min)
  float GCP_MAXS = 2;     // m, largest roughness (-gcp_r_max)
  bool GCP_ROB = true;    // outliers are rejected (-gcp_out)
  bool exp = false;       // export of the points around (-ogcp_pc)
  bool tin = false;       // heights by triangles too (-ogcp_tin)
  bool obj = false;       // the triangles as .obj too
  bool json = false;      // reports in JSON too (-json)
};

struct XYZGCPparam {
  std::string file;    // of the targets (-xyz_gcp), empty without
  std::string col;     // its columns (-xyz_gcp_parse), empty: as the file says
  bool check = false;  // targets without a flag are check points (-xyz_gcp_check)
  float SH0 = 0.02f;   // m, standard deviations of targets that have none (-xyz_gcp_sxy, -xyz_gcp_sz)
  float SZ0 = 0.02f;
  bool EQ = false;    // equal weights (-xyz_gcp_equal)
  bool json = false;  // reports in JSON too (-json)
};

struct ControlParam {
  GCPparam gcp;
  XYZGCPparam xyz;
  bool any() const { return !gcp.file.empty() || !xyz.file.empty(); }
};

struct ControlPoints {  // in metres
  std::vector<GCP> gcp;
  std::vector<XYZGCP> xyz;
  std::vector<SwathId> swath;    // of each target
  std::string gcp_col, xyz_col;  // columns that were read
};
}  // namespace veld
