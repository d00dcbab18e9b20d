// prj/LiDAR/run/verdict.h
// What a finished run says about itself, on the console and in the log.
// Here:     the closing lines: swaths given, used, written and left out, differences before and after, what was found
//           and how certain it is, the worst pair, old files that could pass for new ones.
// Not here: the figures themselves (LmTQC, VR2inv), the exit procedure (logfiles.h).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/VR2proc/sequence_corr.h"
#include "prj/LiDAR/project.h"
#include "prj/LiDAR/run/sequence.h"

namespace veld {
struct Verdict {
  std::vector<SwathId> given;  // mobile swaths whose correction is wanted
  int nref = 0;                // references
  bool complete = true;        // nothing was left out or is uncertain; else -strict fails the run
};

// Before the work.
Verdict begin_verdict(const Project& prj);

// Behind a step's work. corrected: of the step; corrects: the run has a correction. A WARNING for whatever is incomplete.
void show_verdict(const Project& prj, const CorrResult& corrected, bool corrects, const CorrParam& par,
                  Verdict& verdict);

// The control points before and after, what was rejected, and where the report lies (empty: there is none).
void show_absolute(const Project& prj, const ControlQC& before, const ControlQC& after,
                   const std::string& report);
}  // namespace veld
