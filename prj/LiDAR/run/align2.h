// prj/LiDAR/run/align2.h
// The two steps of -align2: what each of them reads, where it writes, and with which ranges it shows maps.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/VR2proc/out_name.h"
#include "prj/LiDAR/options/options.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Options of a step. step 0: the outputs go to -odir_1, the "_1" ranges hold, corrected files are written
// whatever -nil says. Step 1: the plain options, but corrected files keep the names of step 0's.
Options align2_options(const Options& o, int step);

// The swaths of a step. step 0: all. step 1: each mobile swath becomes the file that step 0 wrote for it; those without
// one are rejected, references stay as they are. False after an ERROR line when no mobile swath is left.
[[nodiscard]] bool align2_proc_fxnames(int step, SwathTable& swaths);
}  // namespace veld
