// prj/LiDAR/VR2geom/grid_shape.h
// The grid against the ground: scale of the projection and curvature of the earth in the few km that a scanner sees.
// Here:     its constants at a place, vectors from the grid to the ground and back.
// Not here: the projection (geo/), what is done with the vectors (VR2geom.h).
//
// A scanner measures in space. With O its place, heights above the ellipsoid and R the radius of the earth, a point at a
// distance d over the ellipsoid and at height z lies d (1 + z / R) away and d^2 / 2R lower than the vertical at O says.
#pragma once
#include "geo/georef.h"
#include "lib/Geometry/xyz.h"

namespace veld {
struct GridShape {
  bool flat = true;              // the grid is taken for the ground
  float grid[4] = {1, 0, 0, 1};  // rows x, y: metres of the grid per metre over the ellipsoid, along its axes
  float ground[4] = {1, 0, 0, 1};  // the inverse
  float curvature = 0;             // 1/R, 1/m

  // A vector of the grid from a place at height z0 (m), in axes whose third is the vertical there.
  xyz to_ground(const xyz& r, float z0) const {
    const float up = 1 + (z0 + r.z) * curvature;
    const float x = up * (ground[0] * r.x + ground[1] * r.y), y = up * (ground[2] * r.x + ground[3] * r.y);
    return {x, y, r.z - 0.5f * curvature * (x * x + y * y)};
  }
  // A small displacement c of the point at g = to_ground(r, z0), both in these axes, as the grid has it.
  xyz to_grid(const xyz& c, const xyz& g, float z0) const {
    const float down = 1 - (z0 + g.z) * curvature;
    const float x = down * (c.x - curvature * g.x * c.z), y = down * (c.y - curvature * g.y * c.z);
    return {grid[0] * x + grid[1] * y, grid[2] * x + grid[3] * y, c.z + curvature * (g.x * c.x + g.y * c.y)};
  }
};

// The shape at a place of the grid, m. Flat without a projection, or outside its range.
GridShape comp_GridShape(const GeoRefParam& georef, const dxyz& place);
}  // namespace veld
