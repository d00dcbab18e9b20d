// prj/LiDAR/LmTQCGCP/gcp_fit.h
// Height of scattered points at one place: a plane by kernel weights, robust against what is not ground.
#pragma once
#include <cstdint>
#include <vector>

#include "lib/Geometry/xyz.h"

namespace veld {
constexpr double GCP_REACH = 4;         // half side of the square of points around a place, in kernel units
constexpr double KERNEL_FWHM = 1.9264;  // width of the kernel at half its maximum, in kernel units

struct GCPfit {
  bool ok = false;  // false: too few points, on one side only, or badly spread
  double z = 0;     // m
  double slope_x = 0, slope_y = 0;
  double density = 0;    // points/m2
  double roughness = 0;  // m, RMS about the plane
  double unc = 0;        // m, standard deviation of z
  int npts = 0;          // points within the kernel
  int nin = 0;           // of these used
};

// The plane at (x, y) of n points in metres. h: kernel unit, m; the kernel is that of the grids with this spacing, and
// ends at 2.67 h. in: n flags, set for the points that were used.
GCPfit comp_GCP_fit(const xyz* p, uint64_t n, double x, double y, double h, std::vector<uint8_t>& in);
}  // namespace veld
