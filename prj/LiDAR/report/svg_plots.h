// prj/LiDAR/report/svg_plots.h
// Plots of the report as SVG: the map of swaths and control points, bars and histograms before and after, drift over
// time, the scale of a coloured map.
// All of them say by shape, line or word what they say; they need no colour.
#pragma once
#include <ostream>
#include <string>
#include <vector>

#include "image/save_image.h"
#include "lib/Geometry/xy.h"

namespace veld {
using MapRing = std::vector<dxy>;  // m, corners
struct MapSwath {
  std::string name;
  std::vector<MapRing> rings;  // outlines and the holes in them
  bool fixed = false;
};
// Leaves out corners that lie within tolerance of the line between those left (Douglas and Peucker).
MapRing simplify_ring(const MapRing& ring, double tolerance);

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

// One above the other on one axis, each as high as its highest bar. Either may be empty.
void put_histograms(std::ostream& os, const std::string& label, const DZHistogram& before,
                    const DZHistogram& after);

struct DriftLine {
  std::string name;
  std::vector<double> t, v;  // s, value
};
// One axis of the drift: a line a swath, over the time from the first of them.
void put_drift(std::ostream& os, const std::string& label, const std::vector<DriftLine>& lines);

// The colours of a map from its least to its largest value.
void put_scale(std::ostream& os, const std::string& label, const ImgScale& scale);
}  // namespace veld
