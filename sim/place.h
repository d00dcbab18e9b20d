// sim/place.h
// Where a simulated project lies on the earth: its coordinate system, and a geoid under it.
// Here:     grid coordinates to longitude and latitude, direction of north, geoid heights, GeoTIFF keys, the grid's file.
// Not here: the flight (flight.h). Nothing of geo/ is used, which the projects are to test: the PROJ library does it.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/simproject.h"

namespace veld {
class SimPlace {
 public:
  SimPlace();
  ~SimPlace();
  // By spec.zone, or by spec.crs; false after an ERROR line. One thread may use a place at a time.
  [[nodiscard]] bool open(const SimSpec& spec);

  double unit() const { return unit_; }  // m per unit of the system's plane
  // Geodetic coordinates (radians) of a position in metres of the grid, and the true azimuth of grid north there.
  void inverse(double east, double north, double& lat, double& lon, double& convergence) const;
  // The same with a height above the ellipsoid in earth-centred coordinates, m.
  dxyz earth_centred(double lat, double lon, double h) const;
  // Height of the geoid above the ellipsoid, m; 0 without one. It falls and rises linearly with latitude and longitude, so
  // that any interpolation of its grid gives it back.
  double geoid(double lat, double lon) const;
  // Writes the grid around the project as a GTX file. False after an ERROR line.
  [[nodiscard]] bool write_geoid(const std::string& path) const;
  // Directory of GeoTIFF keys: code of the system, its unit, unit of the heights.
  std::vector<uint16_t> geotiff_keys(double unit_z) const;

 private:
  struct System;
  std::unique_ptr<System> system_;
  int zone_ = 33;
  double unit_ = 1;
  double a_ = 6378137.0, f_ = 1 / 298.257223563;  // of the ellipsoid, m
  bool geoid_ = false;
  double lat0_ = 0, lon0_ = 0;  // degrees, middle of the geoid's grid
};
}  // namespace veld
