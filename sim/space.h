// sim/space.h
// Space around a simulated project. Flights and landscapes are laid out in the grid, but beams fly in space: the grid has
// the scale of its projection, and its heights stand on the curved earth.
// Here:     places of the grid in earth-centred axes, moved to the middle of the project, and back; horizons.
// Not here: the projection (place.h), attitudes (flight.h). Nothing is shared with the aligner's model of the same.
#pragma once
#include "sim/flight.h"
#include "sim/simproject.h"

namespace veld {
struct Horizon {  // of a place
  dxyz grid;      // the place, m
  dxyz space;     // the same in space, m
  Mat3 axes;      // rows: right of grid north, grid north, up, in space
};

class SimSpace {
 public:
  // Around the middle of the project. False, after an ERROR line, where its system is unknown or the projection cannot
  // be followed.
  [[nodiscard]] bool open(const SimSpec& spec);

  Horizon horizon(const dxyz& grid) const;
  // Where a vector from a place ends, m in the grid; v in the axes of the place's horizon.
  dxyz end_of(const Horizon& from, const dxyz& v) const;
  // The vector from a place to another one of the grid.
  dxyz vector_to(const Horizon& from, const dxyz& grid) const;

 private:
  static constexpr int N = 6;             // coefficients each way
  static constexpr double REACH = 20000;  // m, to each side of the middle
  dxyz in_space(const dxyz& grid) const;
  double east_ = 0, north_ = 0;
  // Chebyshev coefficients of the place with height 0 and of the direction of its vertical. Across REACH they are as
  // good as double numbers are: the earth turns by 0.003 radians, its sixth power is nothing.
  dxyz surface_[N][N], up_[N][N];
};
}  // namespace veld
