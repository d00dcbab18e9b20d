// sim/score.h
// Scores corrected swaths against the truth of a simulated project.
// Here:     error of points, with and without one global mean shift; error between swaths; the noise.
// Not here: reading of LAS (las/), the project's own statistics of pairs.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"

namespace veld {
struct ErrorStat {  // metres, per axis
  dxyz rms{0, 0, 0}, mean{0, 0, 0}, largest{0, 0, 0};
  double rms3d = 0;
};
// Statistics of points less truth, after the shift has been taken off; both of the same length.
ErrorStat error_stat(const Vector<dxyz>& points, const Vector<dxyz>& truth, const dxyz& shift);

struct SwathScore {
  std::string name;
  Vector<dxyz> points, truth;  // in file order
  std::vector<uint8_t> cls;    // of the points; empty where nobody asks
};
struct ProjectScore {
  std::vector<ErrorStat> swaths;      // shift not taken off
  ErrorStat all;                      // over all points of all swaths
  dxyz shift{0, 0, 0};                // mean of all
  std::vector<ErrorStat> swaths_rel;  // less the shift
  ErrorStat all_rel;                  // less the shift
  dxyz relative{0, 0, 0};             // RMS between pairs of swaths of mean errors in cells
  double relative3d = 0;
  int64_t ncells = 0;
};
// cell: side in metres of the cells of the relative error, by true position; cells of fewer than 5 points are
// left out.
ProjectScore score_project(const std::vector<SwathScore>& swaths, double cell);

// 3-D RMS of the noise of single points, which no correction takes away: from the differences of the errors of
// neighbours in file order, so the swaths must be observed ones.
double noise_floor(const std::vector<SwathScore>& swaths);
}  // namespace veld
