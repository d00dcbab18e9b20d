// prj/LiDAR/POio/traj_cut.h
// Straight flight lines of a trajectory.
// Here:     thinning and smoothing, the scan for lines, the table of it as text.
// Not here: reading and projection of the trajectory (VR2POsync), cutting of swaths by the lines.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/POio/traj_cut_param.h"

namespace veld {
struct CutSample {  // one of the analysis: the mean over a sampling interval
  double t;         // s
  dxyz pos;         // m
  float D;          // m, distance along the track since the first sample
  float Y;          // degrees, heading, continuous
  float speed;      // m/s
};

struct CutSegment {
  size_t first, last;  // samples of the analysis
  double tmin, tmax;   // s, half a sampling interval and the buffer wider than the samples
  float length;        // m
  int number;          // from 1
  bool turn;           // kept between lines
};

struct TrajCut {
  std::vector<CutSample> samples;
  std::vector<CutSegment> segments;  // in order of time
  bool adj = false;                  // their times are adjusted standard GPS time
};

constexpr size_t MAX_TRAJ_SEGMENTS = 10000;

// Cuts a trajectory in projected coordinates (m) with continuous angles into lines. dt: its mean interval, not 0
// (asserted). A line ends where it is Dmax long, where its headings range over more than dymax, and at a gap; it is
// kept when it is at least Dmin long.
TrajCut cut_traj_yawdist(const Vector<PO>& po, double dt, const TrajCutParam& par);

// Writes dir + "pos_cut.txt", a line per sample. False after an ERROR line.
[[nodiscard]] bool save_pos_cut(const TrajCut& cut, const TrajCutParam& par, const std::string& dir);
}  // namespace veld
