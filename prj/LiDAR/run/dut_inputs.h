// prj/LiDAR/run/dut_inputs.h
// The displacement file of a correction, and the swaths that it names.
#pragma once
#include <string>

#include "prj/LiDAR/inputs/inputs.h"

namespace veld {
// The displacement file of an option's argument, its path without ending: the name of either file of the pair, in the
// input or the output directory. False after an ERROR line.
[[nodiscard]] bool find_DUT(const std::string& arg, const PathRules& rules, std::string& dut);

// Swaths of the displacement file as if they had been given, with groups, channels (-chgrp, unless given) and
// references. False after an ERROR line: the file cannot be read, or its references are united.
[[nodiscard]] bool take_DUT_inputs(const std::string& dut, InputArgs& in, std::vector<int>& chgrp);
}  // namespace veld
