// prj/LiDAR/LmTinter/corr_at.h
// The correction of a swath at any place, from those who know it to those who register about it.
#pragma once
#include <functional>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
// The correction of what a swath saw at a place. Roofs and crowns move less than the ground below an aircraft.
struct GroundCorr {
  xyz c = {0, 0, 0};      // of the ground, m
  xyz per_m = {0, 0, 0};  // its growth a metre upwards
  float z = 0;            // m, height of the ground; 0 where per_m is 0 and it does not matter
  xyz at_zero() const { return c - per_m * z; }  // at height 0
};
// Both answer false where there is no correction, and remember the last question: threads take copies of their own.
struct CorrAt {
  // At a place (m, of the project) as the swath saw it.
  std::function<bool(double x, double y, GroundCorr& g)> at;
  // The correction (m) of what the swath saw at displacement d (m) from point P, which it saw at a time (s, of its file).
  std::function<bool(const dxyz& P, double time, const xyz& d, xyz& c)> at_time;
};
// That of a swath; without functions after an ERROR line.
using CorrAtOf = std::function<CorrAt(SwathId)>;
}  // namespace veld
