// prj/LiDAR/LmTplot/footprint.h
// Outlines of occupied microtiles: border edges, closed rings.
// Here:     the geometry, in metres.
// Not here: files (LmTplot_txt.h, swath_geojson.h).
#pragma once
#include <cstdint>
#include <vector>

#include "prj/LiDAR/LmTplot/LmTplot.h"

namespace veld {
struct EdgePoint {  // corner of microtiles, in microtiles of the whole valid range
  int64_t x = 0, y = 0;
  bool operator==(const EdgePoint&) const = default;
  auto operator<=>(const EdgePoint&) const = default;
};
struct BorderEdge {  // one side of a microtile; what is occupied lies to its left
  EdgePoint a, b;
};

// One edge for each side of an occupied microtile beyond which nothing is occupied, across tile borders.
std::vector<BorderEdge> border_edges(const Tocc& occ);

using Ring = std::vector<EdgePoint>;  // corners only, not closed: the first does not stand at the end again
struct Outline {
  Ring outer;               // counterclockwise
  std::vector<Ring> holes;  // clockwise
};
// The rings that the edges form; microtiles that meet in a corner only belong to different ones.
std::vector<Outline> trace_outlines(const std::vector<BorderEdge>& edges);
}  // namespace veld
