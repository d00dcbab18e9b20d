// prj/LiDAR/POio/traj_cut_param.h
// What makes a straight flight line of a trajectory, as the options say it.
#pragma once

namespace veld {
struct TrajCutParam {
  double DT = 0.4;       // s, sampling interval of the analysis (-cut_res)
  double Dmin = 20;      // m, shortest line (-cut_dist)
  double Dmax = 999999;  // m, longest line; longer ones are cut (-cut_dist_max)
  double dymax = 20;     // degrees, largest range of the heading along a line (-cut_yaw)
  double buf = 0;        // s, time kept beyond both ends (-cut_buf)
  bool keep = false;     // what lies between lines is kept too (-keep_turns)
};
}  // namespace veld
