// geo/datum.h
// The datum step: geodetic coordinates on a spheroid, earth-centred coordinates, the seven parameters between them.
// Here:     conversion both ways, on any spheroid.
// Not here: which parameters a project has (georef.h).
#pragma once
#include "lib/Geometry/xyz.h"

namespace veld {
constexpr double WGS84_A = 6378137.0;  // m, semi-major axis
constexpr double WGS84_E2 = 0.00669437999013;

struct Spheroid {
  double a = WGS84_A;    // m, semi-major axis
  double e2 = WGS84_E2;  // squared eccentricity
};

// Geodetic (degrees, metres) to earth-centred coordinates and back (Bowring 1985).
dxyz geodetic_to_ecef(double lon, double lat, double h, const Spheroid& s = {});
void ecef_to_geodetic(const dxyz& p, double& lon, double& lat, double& h, const Spheroid& s = {});

// Seven parameters dx, dy, dz (m), rotations (arc seconds), scale (ppm), as TOWGS84 has them: rotations of the position
// vector, linearised. to_wgs84 applies them, from_wgs84 is its exact inverse, so that there and back is the same place.
dxyz helmert_to_wgs84(const double H7[7], const dxyz& p);
dxyz helmert_from_wgs84(const double H7[7], const dxyz& p);
}  // namespace veld
