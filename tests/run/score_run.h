// tests/run/score_run.h
// Corrected files of a whole run against what is known about their points.
#pragma once
#include <string>
#include <vector>

#include "sim/score.h"

namespace veld {
// Writes the simulated project that veldsim makes of the options into a directory; it is made if absent.
bool simulate(const std::string& dir, const std::string& options);

// Scores files of out, named by their stems and the suffix "_c", against the files of truth of the same stems.
// A file that is missing or has other points fails the test and gives an empty score.
ProjectScore score_files(const std::string& truth, const std::string& out,
                         const std::vector<std::string>& stems);

// The number behind the first occurrence of a label in a text; not a number without one.
double number_after(const std::string& text, const std::string& label);
}  // namespace veld
