// sim/trackproof.h
// Whether a corrected trajectory can be used: with the calibration that was found it must give the corrected points
// again, from what the scanner measured.
#pragma once
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "lib/Geometry/xyz.h"

namespace veld {
struct ProofFiles {
  std::string project;    // with its trajectory, traj.out
  std::string corrected;  // directory of the corrected swaths
  std::string suffix, ext;
  std::string track;  // corrected SBET
  std::string cal;    // calibration file: lever X Y Z (m), boresight roll pitch yaw (degrees)
};
struct ProofScore {  // m, reproduced less corrected points
  dxyz rms{0, 0, 0}, largest{0, 0, 0};
  int64_t n = 0;
};
// The vectors of the scanner are those of the observed points seen from the recorded trajectory; rotations are exact
// ones. Internal parameters are not known here. False after an ERROR line.
[[nodiscard]] bool prove_track(const ProofFiles& files, const nlohmann::json& truth, ProofScore& score);
}  // namespace veld
