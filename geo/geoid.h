// geo/geoid.h
// Geoid grids: heights of the geoid above the ellipsoid of WGS84.
// Here:     the system's own binary grids (name.bin), and the vertical grids that PROJ reads (GTX, GeoTIFF).
// Not here: a constant height of the geoid, and what is done with heights (georef.h).
#pragma once
#include <string>
#include <vector>

namespace veld {
struct GeoidGrid {
  std::string path;       // the file
  std::string def;        // PROJ's operation; empty: a binary grid, the fields below
  double x0 = 0, y0 = 0;  // degrees, the first node: longitude within half a turn, latitude
  double sx = 0, sy = 0;  // degrees from node to node; sy may be negative
  int nx = 0, ny = 0;
  int kind = 0;             // as in the file, only logged
  std::vector<float> geoH;  // m, ny rows of nx
};

// Finds and opens the grid of that name: name.bin in the directory of geoids, else a file of that name there, as it
// stands, or with .gtx, .tif; else one that PROJ knows. False after an ERROR line.
[[nodiscard]] bool read_geoid(const std::string& name, const std::string& geodir, GeoidGrid& grid);

// A binary grid: doubles y0, x0, sy, sx, i32 ny, nx, kind, then nx * ny floats; an x0 of 180 or more lies past the date
// line. False after an ERROR line when the file is missing, of another size, or holds steps that are none.
[[nodiscard]] bool read_geoid_bin(const std::string& name, const std::string& geodir, GeoidGrid& grid);

// Height of the geoid at a place, m. Binary grids: cubic convolution on 4 x 4 nodes, clamped at the border; grids of
// PROJ: its own, bilinear. False (no message) outside the grid or where it has no value. Any thread.
[[nodiscard]] bool geoid_height(const GeoidGrid& grid, double lon, double lat, double& height);
}  // namespace veld
