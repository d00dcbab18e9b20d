// sim/terrain.h
// Procedural landscape: hills, fields with furrows and ditches, a road on a bank, houses with gabled or flat
// roofs, trees, and ponds that give no echo. Every height is a function of position and seed, so a beam finds what it hits without a
// grid.
#pragma once
#include <cstdint>

#include "lib/Geometry/xyz.h"

namespace veld {
struct Terrain {
  uint64_t seed = 1;
  double x0 = 0, y0 = 0;     // m, centre of the landscape
  double z0 = 500;           // m, mean height
  double relief = 14;        // m, amplitude of the hills
  double house_frac = 0.35;  // of the lots of the village
  double tree_frac = 0.12;   // of the lots of the landscape
  double village = 170;      // m, radius of the village around the centre
  double wood = 0.35;        // woods stand where a noise of -1..1 is above this
  double undergrowth = 0;    // m, height of shrubs in woods
  double pond_frac = 0;      // of squares of 130 m
};

enum class Cover { ground, roof, tree, shrub };

double ground_height(const Terrain& t, double x, double y);
// Ground or roof, whichever is higher.
double solid_height(const Terrain& t, double x, double y, Cover& cover);
// Top of the crown that stands over (x, y); below the ground where there is none.
double crown_height(const Terrain& t, double x, double y);

struct GridBeam {    // in the grid, where the earth's curvature bends it
  dxyz origin, dir;  // m; m of the grid per m, dir.z < 0 for one that hits
  dxyz bend;         // 1/m
  dxyz at(double range) const { return origin + range * (dir + range * bend); }
};

struct BeamHit {
  double range;  // m along the beam
  Cover cover;
};
bool is_wood(const Terrain& t, double x, double y);
bool is_pond(const Terrain& t, double x, double y);

// First solid surface along a beam. through: it passes crowns. False when nothing is hit within max_range metres.
bool cast_beam(const Terrain& t, const GridBeam& beam, double max_range, bool through, BeamHit& hit);
}  // namespace veld
