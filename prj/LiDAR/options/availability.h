// prj/LiDAR/options/availability.h
// Options whose work this version does not do: an option that asks for it stops the run, what is only on by
// default is left out and reported once.
// Here:     the questions about the availability of options.
// Not here: which options these are (the rows of the option table say it), rules between options that are
//           available (rules.h).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/options/rules.h"

namespace veld {
// False after an ERROR line, with its reason, per option that the user gave and that nothing works on.
[[nodiscard]] bool check_available(const Options& o, const GivenSet& given);

bool is_available(const std::string& option);        // by its long name
void report_unavailable(const std::string& option);  // its ERROR line

// Subjects that are on by default, or by another option, and that the run leaves out, with their options:
// "maps and plots (-map -jpeg -plot)". Empty when nothing is.
std::vector<std::string> left_out(const Options& o, const GivenSet& given);

// A WARNING with the options that are taken without effect.
void warn_no_effect(const GivenSet& given);
}  // namespace veld
