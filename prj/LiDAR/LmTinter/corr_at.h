// prj/LiDAR/LmTinter/corr_at.h
// The correction of a swath at any place, from those who know it to those who register about it.
#pragma once
#include <functional>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
// Both answer with the correction in metres, false where there is none, and remember the last question: threads take copies
// of their own.
struct CorrAt {
  std::function<bool(double x, double y, xyz& c)> at;  // at a place (m, of the project) as the swath saw it
  // Of what the swath saw at displacement d (m) from point P, which it saw at a time (s, of its file).
  std::function<bool(const dxyz& P, double time, const xyz& d, xyz& c)> at_time;
};
// That of a swath; without functions after an ERROR line.
using CorrAtOf = std::function<CorrAt(SwathId)>;
}  // namespace veld
