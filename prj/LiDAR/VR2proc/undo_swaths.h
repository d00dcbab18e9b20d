// prj/LiDAR/VR2proc/undo_swaths.h
// The driver that takes corrections back: names, threads, summary.
#pragma once
#include <string>

#include "prj/LiDAR/VR2proc/out_name.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct UndoParam {
  OutputName out;    // name pattern (-out)
  std::string odir;  // output directory with its "/"
  bool lax = false;  // with spatial indexes (-olax)
  bool lax_append = false;
};

// Writes each mobile swath as it was before its correction, on NTHREADS threads. One that fails does not stop the
// others. False after an ERROR line when any failed.
[[nodiscard]] bool undo_corr_swaths(const Project& prj, const UndoParam& par);
}  // namespace veld
