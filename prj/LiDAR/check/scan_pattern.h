// prj/LiDAR/check/scan_pattern.h
// What the beams of a swath look like from the scanner, with the trajectory as it is or changed.
// Here:     directions of beams, how well they lie on a plane or cone, how well they fit the recorded angles.
// Not here: which change explains a swath (traj_fault.h), files (swath_probe.h), limits (geometry_check.h).
//
// Whatever the scanner (oscillating or rotating mirror, polygon, prism; level, tilted or oblique), the beams of one
// laser lie on a plane or a circular cone that is fixed to the scanner. They do so only when the trajectory is right:
// any attitude that does not belong to the time thickens the pattern. A constant misalignment turns the whole
// pattern and changes nothing, so boresight and mount angles play no part.
#pragma once
#include <vector>

#include "lib/DataStructure/vector.h"
#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "prj/LiDAR/check/swath_probe.h"

namespace veld {
enum class AngleChange {  // of the recorded attitudes
  none,
  swapped,     // roll is pitch and pitch is roll
  roll_sign,   // roll counts the other way
  pitch_sign,  // pitch counts the other way
  both_signs,
  yaw_sign,       // heading counts counter-clockwise
  yaw_from_east,  // heading counts counter-clockwise from east
  yaw_back,       // heading is that of the tail
  yaw_right,      // heading is 90 degrees too small
  yaw_left        // heading is 90 degrees too large
};
constexpr int N_ANGLE_CHANGES = 10;

struct TrajChange {
  double late = 0;  // s, the trajectory's times are so much too large
  double low = 0;   // m, its heights are so much too small
  AngleChange angles = AngleChange::none;
};

struct ScanPattern {
  int n = 0;           // beams that have a trajectory
  int nmissing = 0;    // those that have none
  double range = 0;    // m, mean
  double AGL = 0;      // m, mean height of the trajectory above the echoes
  double beside = 0;   // m, median horizontal distance of echoes and trajectory
  double spread = 0;   // degrees, about the plane or cone (68 %)
  double angle = 1e9;  // degrees, of geometric less recorded scan angles about their mean (68 %); 1e9 without
  double off_nadir = 0;  // degrees, between the mean beam and the nadir beam of the mount
  double roll_slope =
      0;             // of geometric less recorded angles over roll: 2 or -2 when roll has the wrong sign; 0
                     // without recorded angles or without enough roll
  double crab = 0;   // degrees, between heading and track; 0 when it hardly moves
  double speed = 0;  // m/s, of the trajectory over the swath
  double v_mismatch = 0;  // of the velocity of the echoes against it, as a part of the speed
};

// beams: in order of time, raw times. dt: TimeCorr of the swath, added to them. AREC: as interp_O_Att.
ScanPattern comp_ScanPattern(const std::vector<Beam>& beams, double dt, bool angled, const Vector<PO>& po,
                             bool AREC, const SwRot& rot, const TrajChange& change);
}  // namespace veld
