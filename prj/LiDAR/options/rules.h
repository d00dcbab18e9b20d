// prj/LiDAR/options/rules.h
// Rules between options: which exclude each other, which follow from others.
// Here:     the tables and the loops over them.
// Not here: checks of one value (optparser), checks that need files (inputs.h), what is not available yet
// (availability.h).
#pragma once
#include <set>
#include <string>

#include "prj/LiDAR/options/options.h"

namespace veld {
using GivenSet = std::set<std::string>;  // long names of the options that the user gave

// Derived defaults, in their order; each only where the option was not given.
void derive_defaults(Options& o, const GivenSet& given);

// False after an ERROR line per broken rule. all_read: every option that was given got its value.
[[nodiscard]] bool check_exclusions(const Options& o, const GivenSet& given, bool all_read = true);
}  // namespace veld
