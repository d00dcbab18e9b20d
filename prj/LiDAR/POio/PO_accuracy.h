// prj/LiDAR/POio/PO_accuracy.h
// Accuracy files: what the processing of a trajectory says of its own standard deviations over time (SMRMSG).
// Here:     the name of the file beside an SBET, and its records.
// Not here: what becomes of them (priors of the inversion).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/POio/POio.h"

namespace veld {
struct POaccuracy {  // standard deviations at a time
  double t;          // s, on the clock of the trajectory's samples
  xyz pos;           // m, east, north, up
  xyz att;           // degrees, roll, pitch, heading
};

// Whether a file is an accuracy file by its name, which holds "smrmsg" in any case of letters.
bool is_accuracy_file(const std::string& path);
// The accuracy file of an SBET: its name with "sbet" replaced by "smrmsg", or "smrmsg_" in front of it where there is no
// "sbet"; in the same directory. Empty when there is no such file.
std::string accuracy_file_of(const std::string& sbet);

// Records within the window of par and one beyond each end, one a second at most; times are shifted like those of the
// trajectory that par reads. Records of 80 bytes, ten doubles: time, standard deviations of position north, east, down (m),
// of velocity (m/s, not used), of roll, pitch, heading (arc minutes). False after a WARNING: no whole records, or none that
// can be used.
[[nodiscard]] bool read_accuracy(const std::string& path, const POread& par, std::vector<POaccuracy>& list);
}  // namespace veld
