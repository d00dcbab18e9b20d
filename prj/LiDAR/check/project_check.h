// prj/LiDAR/check/project_check.h
// The swaths of a project against each other, from a look into each: what does not belong together, by names.
// Here:     problems of places, units, copies, times and filters; overlaps to be expected; needs of disk and time.
// Not here: swaths against trajectories (geometry_check.h), the table of -check (check_table.h).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/check/swath_probe.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct Problem {
  bool error = true;  // the run cannot or should not begin; else it goes on with a WARNING
  std::string text;   // names the files, the cause and what to do
};

struct GroundBox {  // m
  double x0 = 1e18, y0 = 1e18, x1 = -1e18, y1 = -1e18;
  bool empty() const { return x1 < x0; }
  double diagonal() const;
};
GroundBox ground_box(const SwathProbe& probe);
// Smallest distance of two boxes, 0 when they meet.
double box_distance(const GroundBox& a, const GroundBox& b);

// All problems between and within the mobile swaths, without any line in the log.
std::vector<Problem> find_problems(const Project& prj, const SwathVector<SwathProbe>& probes, int utm);

SwathVector<GroundBox> ground_boxes(const SwathTable& swaths, const SwathVector<SwathProbe>& probes);
// The number of other boxes that meet the box of a swath.
SwathVector<int> count_overlaps(const SwathTable& swaths, const SwathVector<GroundBox>& boxes);

struct Needs {         // of a whole alignment
  double points = 0;   // in all files
  double caches = 0;   // bytes in the temporary directory
  double results = 0;  // bytes in the output directory
  double seconds = 0;  // of all processors together
};
Needs estimate_needs(const SwathVector<SwathProbe>& probes);
// A problem for each directory that has not the room.
std::vector<Problem> check_room(const Needs& needs, const std::string& tmpdir, const std::string& odir,
                                bool writes);

// What the header says about its coordinate system, in a few letters; "-" when it says nothing.
std::string header_crs(const LASheader& header);
}  // namespace veld
