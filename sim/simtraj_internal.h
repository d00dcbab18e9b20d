// sim/simtraj_internal.h
// Samples of the recorded trajectory, and its files of records.
#pragma once
#include <string>
#include <vector>

#include "sim/simproject.h"

namespace veld {
struct TrajSample {
  double t;            // s after the start
  double lat, lon;     // radians
  double convergence;  // radians
  dxyz v;              // m/s, east, north, up
  double h;            // m above the ellipsoid
  Pose pose;           // as recorded, heading from grid north
};

// TRJ, SOL, BIN, POF or LAS, by spec.traj_format; unit: m per unit of projected positions.
[[nodiscard]] bool write_records(const SimSpec& spec, const std::vector<TrajSample>& samples, double unit,
                                 const std::string& path);
}  // namespace veld
