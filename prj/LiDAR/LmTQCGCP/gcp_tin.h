// prj/LiDAR/LmTQCGCP/gcp_tin.h
// Delaunay triangulation of the points around a control point, and the height of its triangle there.
// Here:     the triangulation on fixed-point coordinates, with exact tests; interpolation in one triangle.
// Not here: where the points come from (gcp_search.cpp).
//
// All tests are exact: coordinates are integers of at most 24 bits, the determinants 128 bits wide at most. So the
// triangulation is the same on every machine, and neither collinear nor cocircular points trouble it.
#pragma once
#include <cstdint>
#include <vector>

#include "lib/Geometry/xyz.h"

namespace veld {
struct PointXY {  // units of 1/512 m, each within +-TIN_RANGE
  int32_t x, y;
  friend bool operator==(const PointXY&, const PointXY&) = default;
};
constexpr int32_t TIN_RANGE = 1 << 23;

struct
    TINtri {  // vertices counter-clockwise; link i is the neighbour across the edge opposite vertex i, -1: none
  int v[3];
  int n[3];
};

// Twice the area of a b c: above 0 counter-clockwise.
int64_t orient2d(const PointXY& a, const PointXY& b, const PointXY& c);
// Sign of: d lies inside (1), on (0) or outside (-1) the circle through a b c, which are counter-clockwise.
int incircle(const PointXY& a, const PointXY& b, const PointXY& c, const PointXY& d);

// Triangulates points that are in lexicographic order without duplicates (see sort_TIN). No triangles when all lie
// on a line. Points are taken in that order: each lies outside the hull of those before it, so no search is needed
// (a sweep with edge flips after C. Lawson, Software for C1 surface interpolation, 1977).
void comp_TIN(const std::vector<PointXY>& p, std::vector<TINtri>& tri);

struct TINresult {
  bool ok = false;
  dxyz T[3] = {};    // corners of the triangle that holds the place, in the frame of the points
  double z_tin = 0;  // its height there, m
  int ntri = 0;      // triangles around
};
// The triangle at (x, y) of the points l0 (metres, some tens around the place). Not ok, after a log line, when the
// place lies in none. Of points at one place the lowest counts.
TINresult GCP_TIN(const xyz* l0, uint64_t nin, double x, double y);
}  // namespace veld
