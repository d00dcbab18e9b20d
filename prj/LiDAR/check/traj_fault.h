// prj/LiDAR/check/traj_fault.h
// What is wrong between a swath and its trajectory.
// Here:     limits of the pattern of beams, the search for the change of the trajectory that mends it, its words.
// Not here: the pattern (scan_pattern.h), reading and reporting (geometry_check.h).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/check/scan_pattern.h"

namespace veld {
enum class TrajFaultKind {
  none,
  late,         // times of the trajectory are shifted
  angles,       // its attitudes are swapped or have another sign
  low,          // its heights are shifted
  no_attitude,  // it has none, and the platform was not level
  elsewhere,    // the echoes are nowhere near it
  below,        // the echoes are above it
  upside,       // the scanner would look away from the ground
  motion        // echoes and trajectory move differently
};

struct TrajFault {
  TrajFaultKind kind = TrajFaultKind::none;
  TrajChange change;              // what would mend it (late, angles, low)
  ScanPattern now;                // with the trajectory as it is
  ScanPattern changed;            // with the change
  std::vector<AngleChange> also;  // changes of the attitudes that mend it, the one of change among them
};

enum class Attitude { recorded, missing, level };  // of the file; level: asked for (-po_att, -po_parse)

// The beams of a swath against its trajectory. po: its window, with which `now` was made; wide: more of it on both
// sides, for the search in time, or empty. attitude: whether the file has roll,
// pitch and yaw.
TrajFault find_traj_fault(const std::vector<Beam>& beams, double dt, bool angled, const ScanPattern& now,
                          const Vector<PO>& wide, Attitude attitude, const SwRot& rot);
// Whether the pattern leaves anything to look for: then the search needs the wide trajectory.
bool pattern_is_clean(const ScanPattern& now);

// Gives the swaths of one trajectory one change of the attitudes: the one that mends most of them.
void agree_on_angles(std::vector<TrajFault*>& faults);

constexpr double LATE_MAX = 45;  // s, shifts of time that are searched

// "trajectory is 18.0 s late": what is wrong, then what may have caused it and what to do.
std::string fault_text(const TrajFault& fault);
std::string fault_remedy(const TrajFault& fault);
// The figures that tell it: "beams lie within 3.42 degrees of their plane, 0.02 without".
std::string fault_evidence(const TrajFault& fault);
}  // namespace veld
