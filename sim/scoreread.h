// sim/scoreread.h
// Files of a simulated project for the scorer.
#pragma once
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "sim/dutscore.h"
#include "sim/score.h"

namespace veld {
// Reads PROJECT/truth.json. False, after an ERROR line, when it cannot be used.
[[nodiscard]] bool read_truth(const std::string& project, nlohmann::json& truth);
// Name of a swath of the list, less its extension.
std::string swath_stem(const nlohmann::json& swath);
// Observed and true points of a swath, .las or .laz, with classes.
[[nodiscard]] bool read_observed(const std::string& project, const std::string& stem, SwathScore& swath);
// Corrected points in file order. False, after an ERROR line, when the number of points is not that of the
// truth or anything but coordinates has changed; points are valid all the same when their number is right.
[[nodiscard]] bool read_corrected(const std::string& project, const std::string& file,
                                  const SwathScore& observed, SwathScore& swath);
// Scores a displacement file; the swaths that the index lists are read one by one.
[[nodiscard]] bool score_dut_file(const std::string& project, const nlohmann::json& truth, const DutFile& dut,
                                  double radius, double gross, DutScore& score);
}  // namespace veld
