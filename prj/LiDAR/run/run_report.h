// prj/LiDAR/run/run_report.h
// The summary of a run for programs: NAME_run.json. Its fields stand in docs/run.schema.json.
// Here:     what the steps of the run put together, the file.
// Not here: the logs, which tell people more.
#pragma once
#include <chrono>
#include <string>
#include <vector>

#include "prj/LiDAR/VR2proc/sequence_corr.h"
#include "prj/LiDAR/inputs/read_options.h"
#include "prj/LiDAR/run/sequence.h"

namespace veld {
struct RunReport {
  struct Pass {  // one pass over the project: two with -align2
    SwathTable swaths;
    TileScale scale;
    ScanResult scan;
    bool scanned = false;
    CorrResult corr;
    bool corrected = false;
  };
  std::vector<Pass> passes;
  std::chrono::system_clock::time_point start = std::chrono::system_clock::now();
};

// Writes file. code: the run's exit value. Warnings, errors and outputs are those that the process has reported and
// finished. False after an ERROR line.
[[nodiscard]] bool write_run_report(const std::string& file, const RunReport& report, const CommandLine& cl,
                                    const Project& prj, int code);
}  // namespace veld
