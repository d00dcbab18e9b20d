// prj/LiDAR/POio/traj_cut.h
// Straight flight lines of a trajectory.
// Here:     thinning and smoothing, the scan for lines, the table of it as text.
// Not here: reading and projection of the trajectory (VR2POsync), cutting of swaths by the lines.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/POio/POio.h"

namespace veld {
struct TrajCutParam {
  double DT = 0.4;       // s, sampling interval of the analysis (-cut_res)
  double Dmin = 20;      // m, shortest line (-cut_dist)
  double Dmax = 999999;  // m, longest line; longer ones are cut (-cut_dist_max)
  double dymax = 20;     // degrees, largest range of the heading along a line (-cut_yaw)
  double buf = 0;        // s, time kept beyond both ends (-cut_buf)
  bool keep = false;     // what lies between lines is kept too (-keep_turns)
};

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
