// prj/LiDAR/run/check_first.h
// The checks that come before the work of every command.
#pragma once
#include "prj/LiDAR/options/options.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Looks into swaths and trajectories and reports all problems. writes: the run writes corrected files. False after
// ERROR lines that name what is wrong: nothing has been done then. With -check the table comes too.
[[nodiscard]] bool check_first(const Project& prj, const Options& o, const std::vector<uint8_t>& xcls,
                               bool writes);
}  // namespace veld
