// prj/LiDAR/report/svg_plots.h
// Plots of the report as SVG: the map of swaths and control points, bars before and after, drift over time.
// All of them say by shape, line or word what they say; they need no colour.
#pragma once
#include <ostream>
#include <string>
#include <vector>

#include "lib/Geometry/xy.h"

namespace veld {
struct MapSwath {
  std::string name;
  dxy corner[4];  // m
  bool fixed = false;
};
enum class MapPoint { control, check, rejected };
struct MapMark {
  std::string name;
  dxy at;  // m
  MapPoint kind;
};
void put_map(std::ostream& os, const std::vector<MapSwath>& swaths, const std::vector<MapMark>& marks);

struct BarPair {
  std::string name;
  double before = -1, after = -1;  // m; below 0: not known
};
// A pair of bars each, open before and filled after, in the order given.
void put_bars(std::ostream& os, const std::string& label, const std::vector<BarPair>& bars);

struct DriftLine {
  std::string name;
  std::vector<double> t, v;  // s, value
};
// One axis of the drift: a line a swath along the time of each, from its beginning.
void put_drift(std::ostream& os, const std::string& label, const std::vector<DriftLine>& lines);
}  // namespace veld
