// prj/LiDAR/VR2proc/track_corr.h
// Drift and shift of swaths brought back into the trajectory that they were flown on.
// Here:     which correction holds at a time, corrected samples.
// Not here: files (corr_PO.h), the drift itself (VR2inv). The calibration is no part of a trajectory: together with it
//           a corrected trajectory reproduces the corrected points.
#pragma once
#include <vector>

#include "geo/georef.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"

namespace veld {
struct TrackPart {                  // of one swath
  double begin = 0, end = 0;        // s, synchronised: where its correction holds
  xyz S = {0, 0, 0};                // m, shift of the swath
  const Vector<xyz>* Tt = nullptr;  // drift of position (m) and attitude (rad) at t0 + k Dt; null: none
  const Vector<xyz>* At = nullptr;
  double t0 = 0, Dt = 1;
  bool AREC = false;  // the attitude is that of the track: level, and this heading
  float yaw = 0;      // degrees, from grid north
};

struct TrackCorr {
  std::vector<TrackPart> parts;  // in order of time, one behind the other
  Rot3 M;                        // IMU rotation that has been applied to attitudes before the drift was found
  double tcorr = 0;              // s, time delay: a sample is that of a time earlier by so much
};

// Lets the parts reach tol seconds beyond their swaths, so that interpolation at the ends meets corrected samples too, but
// not into each other: between two they end half way.
void settle_parts(std::vector<TrackPart>& parts, double tol);
// The part that holds at a time; none: no correction.
const TrackPart* part_at(const TrackCorr& corr, double t);

struct TrackShift {  // what a sample gets
  dxyz T;            // m, in the projection
  xyz A;             // degrees, of the attitude as the file has it; with AREC from level flight on
};
// At time t in a part. Att: attitude of the file, degrees, yaw from grid north.
TrackShift comp_TrackShift(const TrackCorr& corr, const TrackPart& part, double t, const xyz& Att);

// Moves a geographic position (degrees, m) by a shift in the projection. north_deg: direction of true north in the grid
// there. False (no message) where the projection isn't defined.
[[nodiscard]] bool shift_geographic(const GeoRefParam& g, const dxyz& shift, double& lon, double& lat,
                                    double& h);
}  // namespace veld
