// An SBET file as the tests write it.
#pragma once
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace veld {
using SbetRow =
    std::array<double, 17>;  // time, lat, lon, h, 3 velocities, roll, pitch, heading, wander, 6 more

inline SbetRow sbet_row(double t, double lon_deg, double lat_deg, double h, double roll_deg, double pitch_deg,
                        double heading_deg, double wander_deg = 0) {
  constexpr double RAD = 3.14159265358979323846 / 180;
  SbetRow row = {};
  row[0] = t, row[1] = lat_deg * RAD, row[2] = lon_deg * RAD, row[3] = h;
  row[7] = roll_deg * RAD, row[8] = pitch_deg * RAD, row[9] = heading_deg * RAD, row[10] = wander_deg * RAD;
  for (size_t i = 11; i < 17; i++) row[i] = 1e30;  // not to be read
  return row;
}

inline void write_sbet(const std::string& path, const std::vector<SbetRow>& rows,
                       const std::string& more = {}) {
  std::string bytes(rows.size() * sizeof(SbetRow), '\0');
  if (!rows.empty()) std::memcpy(bytes.data(), rows.data(), bytes.size());
  write_text(path, bytes + more);
}
}  // namespace veld
