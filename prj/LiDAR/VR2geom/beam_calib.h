// prj/LiDAR/VR2geom/beam_calib.h
// Calibration sets of the beams of a sensor, from the "_cal.log" of a calibration that had each beam as a channel.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/VR2geom/calib.h"

namespace veld {
// Reads ns sets, one a line: lever (m), boresight (degrees, radians in the sets), seven internals, swaths that share
// external and internal values, swath, group, channel. Beam k is that of channel k, or of group k + 1 where all lines
// have the same channel. False after an ERROR line.
[[nodiscard]] bool read_beam_calib(const std::string& name, int ns, std::vector<Calib>& sets);
}  // namespace veld
