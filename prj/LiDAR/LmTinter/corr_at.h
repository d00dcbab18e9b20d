// prj/LiDAR/LmTinter/corr_at.h
// The correction of a swath at any place, from those who know it to those who register about it.
#pragma once
#include <functional>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
// Of what a swath saw at a place.
struct GroundCorr {
  xyz c = {0, 0, 0};  // m
  xyz per_m = {
      0, 0, 0};  // its growth a metre upwards: roofs and crowns move less than the ground below an aircraft
  float z = 0;   // m, height of the ground
};
// Both answer false where there is no correction, and remember the last question: threads take copies of their own.
struct CorrAt {
  std::function<bool(double x, double y, GroundCorr& g)>
      at;  // at a place (m, of the project) as the swath saw it
  // The correction (m) of what the swath saw at displacement d (m) from point P, which it saw at a time (s, of its file).
  std::function<bool(const dxyz& P, double time, const xyz& d, xyz& c)> at_time;
};
// That of a swath; without functions after an ERROR line.
using CorrAtOf = std::function<CorrAt(SwathId)>;
}  // namespace veld
