// prj/LiDAR/report/report_data.h
// What the report takes from the logs of the run: tables as they stand there.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/report/svg_plots.h"

namespace veld {
struct LogTable {
  std::vector<std::string> head;
  std::vector<std::vector<std::string>> rows;
};
// The first table of a log: a line of names, rows of as many words at least, up to a blank line. Empty without the
// file.
LogTable read_log_table(const std::string& path);

struct PairRms {  // of a pair of swaths
  int sw1 = 0, sw2 = 0;
  double before = -1, after = -1;  // m; below 0: not measured
};
// From "_DZ_stat.log" and "_DZcorr_stat.log", the worst after the correction first.
std::vector<PairRms> read_pair_rms(const std::string& name);

// The drift of "_TA.log" along one axis (0 to 5: position X Y Z in metres, attitude in degrees), a line a swath.
std::vector<DriftLine> read_drift(const std::string& name, int axis);
}  // namespace veld
