// prj/LiDAR/LmTQCGCP/LmTQCGCP.h
// Absolute quality control: the swaths against ground control points, before and after the correction, and the bias
// that can be taken off.
// Here:     height control points (GCP): search, robust statistics, reports, bias, exports.
// Not here: the files of the points (lidarspec), targets in three dimensions (XYZGCP.h), shifts of swaths (VR2proc).
//
// An occurrence is one point in one swath. DZ is the height of the swath less that of the point, in metres; so a
// bias is subtracted. All that is reported is in the unit of the input files.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/LmTQCGCP/control_param.h"
#include "prj/LiDAR/LmTQCGCP/gcp_tin.h"
#include "prj/LiDAR/lidarspec/lidarspec.h"
#include "prj/LiDAR/project.h"

namespace veld {
constexpr double NO_BIAS = -9999.0;

struct GCPoccur {  // one point in one swath; lengths in m
  int gcp = 0;     // index of the point
  SwathId sw;
  int group = 0;       // of the swath
  double z_lidar = 0;  // height of the swath there, the correction included
  double dz = 0;       // less that of the point
  bool in = true;      // no outlier among all of its kind
  bool in_grp = true;  // nor among those of its group
  bool in95 = true;    // within the confidence interval
  bool in99 = true;
  dxyz corr = {0, 0, 0};  // the correction at that place, contained in z_lidar
  double slope_x = 0;     // of the ground
  double slope_y = 0;
  double density = 0;    // points/m2
  double roughness = 0;  // RMS of the points about the ground
  double unc = 0;        // standard deviation of z_lidar
  int npts = 0;          // points within the kernel
  double out_pct = 0;    // of these left out as no ground, percent
  TINresult tin;         // corners relative to the point
};

enum class Refusal {
  edge,
  density,
  roughness
};                   // points on one side only, or too few; too sparse; too rough
struct GCPrefused {  // a point whose height in a swath was not taken
  int gcp = 0;
  SwathId sw;
  Refusal why = Refusal::edge;
};

struct GCPcounts {                  // of one search
  int nscan = 0;                    // swaths that were opened
  int nGCP = 0;                     // points within the frame
  uint64_t nread = 0;               // laser points read
  uint64_t nused = 0;               // of these in the fits
  std::vector<GCPrefused> refused;  // occurrences refused: density, roughness, irregular sampling
  int nlast = 0;                    // occurrences left out: last returns wanted, the tiles hold others
  double FWHM = 0;                  // m, width of the kernel at half its maximum
  bool corrected = false;           // with corrections
};

const char* refusal_text(Refusal why);

struct GCPexport {  // a laser point around a control point
  dxyz pos;         // m
  SwathId sw;
  int group;
  bool in;  // used for the height
};

// The points of a file in metres; used: the columns taken. Messages as the sequences give them. False after an ERROR
// line.
[[nodiscard]] bool load_GCP(const GCPparam& par, const GeoRefParam& georef, std::vector<GCP>& gcp,
                            std::string& used);

// Heights of the swaths at the points. Mobile swaths only, when there are any. corr: tables of the swaths, or none
// for the swaths as they are; then swaths without a table are passed over. Only tiles around points are read. The
// result stands by swath, then point, whatever the number of threads. points: takes the laser points around when it
// is given. False after an ERROR line when caches cannot be read or no point lies in the frame.
[[nodiscard]] bool robust_QC_GCP(const Project& prj, const std::vector<GCP>& gcp, const GCPparam& par,
                                 const SwathVector<SCorrTbl>* corr, int nthreads, std::vector<GCPoccur>& occ,
                                 GCPcounts& counts, std::vector<GCPexport>* points = nullptr);

struct GCPstat {    // of control or of check points; occurrences without outliers
  int n = 0;        // occurrences
  int npoint = 0;   // points
  double mean = 0;  // m, weighted, as all that follows
  double stddev = 0;
  double rms = 0;
  double ci95 = 0, ci99 = 0;  // m, half widths
  double min = 0, max = 0;
  int imin = -1, imax = -1;  // occurrences
  int nout = 0, nout95 = 0, nout99 = 0;
};

struct GCPresult {  // of one check, for the correction and the reports
  std::vector<GCP> gcp;
  std::vector<GCPoccur> occ;
  GCPcounts counts;
  GCPstat control, check;
};

// Weight of an occurrence (GCPparam::EQ).
double GCP_weight(const GCPoccur& o, const GCP& p, int EQ);

// Sets the flags of the occurrences and the statistics. Control and check points are treated apart.
void comp_GCP_stats(const GCPparam& par, GCPresult& r);

// The same with messages and the reports prj.name + "_GCP.log" or "_GCPcorr.log" (and ".json", "_GCP_tin").
[[nodiscard]] bool robust_GCP_stats(const Project& prj, const GCPparam& par, bool post, GCPresult& r);

// Weighted mean of DZ over the control points, of all swaths or of one group; NO_BIAS, after a WARNING, without any.
double GCP_dz_mean(const GCPparam& par, const GCPresult& r);
double GCP_dz_mean_grp(const GCPparam& par, const GCPresult& r, int group);

// Writes prj.name + "_GCP_PC.txt" and "_GCP_sw.txt": the laser points around the control points, and the heights.
[[nodiscard]] bool export_GCP_PC(const Project& prj, const std::vector<GCPexport>& points,
                                 const GCPresult& r);
// Writes name + "_GCP_PC_corr.txt" and "_GCP_sw_corr.txt": those of name moved by the corrections, as prj.name's.
[[nodiscard]] bool corr_exp_gcp_pc(const Project& prj, const std::string& name,
                                   const SwathVector<SCorrTbl>& corr);
}  // namespace veld
