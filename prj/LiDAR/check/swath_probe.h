// prj/LiDAR/check/swath_probe.h
// A look into a point file before the work: its header and a few thousand of its points.
// Here:     the probe of one swath and of all swaths of a project.
// Not here: what follows from it (geometry_check.h), the whole file (LmTidx_w).
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "las/lasdefs.h"
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct Beam {       // an echo of the sample
  double t;         // s, as in the file
  dxyz P;           // m
  float angle_deg;  // scan angle as recorded
};

struct SwathProbe {
  std::string fault;        // why the file cannot be used; empty: it can
  LASheader header;         // as read
  int64_t nbytes = 0;       // size of the file
  bool adj = false;         // times are adjusted standard GPS time
  bool timed = false;       // times differ
  bool angled = false;      // scan angles were recorded
  double tmin = 0;          // s, of the sample
  double tmax = 0;          // s
  std::vector<Beam> beams;  // in order of time
  size_t nkept = 0;         // of the sample, by the filters of the run
  std::string dropped;      // which filter takes most, and the option that keeps these points
};

// Reads the header and up to about 2500 points, spread over the file. Metres by DATAUNIT, DATAUNIT_Z. A file
// that cannot be read gives a fault, behind the reader's ERROR line.
SwathProbe probe_swath(const std::string& path, const TilingParam& filters);

// References and rows that are not present are left empty. On up to nthreads threads.
SwathVector<SwathProbe> probe_swaths(const Project& prj, const TilingParam& filters, int nthreads);
}  // namespace veld
