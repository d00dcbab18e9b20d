// Open ground of a swath on the cells of a tile, from its points.
// Here:     ground_cells.
// Not here: heights of all surfaces from the grid (sep_cells.h).
#pragma once
#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"

namespace veld {
constexpr float MAX_SLOPE = 0.17632698f;     // tan(10 degrees)
constexpr float GROUND_TOLERANCE = 0.2f;     // m, of points about the plane of a cell
constexpr float GROUND_SHARE = 0.9f;         // of a cell's points, at least on its plane
constexpr uint32_t MIN_GROUND_POINTS = 6;    // of a cell
constexpr float MAX_GROUND_VARIANCE = 0.5f;  // of a cell's height, in variances of a point

// P: np points in metres from the lower left corner of the tile; those outside its side x side cells are left out.
// Z: height of the plane through the points of a cell at its centre, NODATA where the ground is not open: the plane
// starts from the lowest points of the cell's quarters and is the one of all points within GROUND_TOLERANCE of it; no
// point lies further below, GROUND_SHARE of the points and one in each quarter lie on it, and it slopes less than
// MAX_SLOPE.
void ground_cells(const Vector<xyz>& P, uint64_t np, int side, float cell, Image<float>& Z);
}  // namespace veld
