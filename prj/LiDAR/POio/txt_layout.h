// prj/LiDAR/POio/txt_layout.h
// How a text trajectory is to be read, found from its first lines.
// Here:     names of columns in a header line, units beside them, separators, decimal commas, usual number of fields.
// Not here: the rows (txt_rows.h), options (POread).
#pragma once
#include <string>

#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/POio/txt_rows.h"

namespace veld {
struct TxtLayout {
  POrowStyle row;
  std::string letters;     // of the columns, '-' for one to skip
  bool header = false;     // they are from a header line
  int coord = PO_PROJ;     // POcoord
  bool rad_place = false;  // longitude and latitude are radians
  bool rad_angle = false;  // roll, pitch and yaw are
  bool NED2ENU = false;    // the third coordinate counts downwards
  double time_unit = 1;    // s
  double first_time = 0;   // of the first row, as it stands there
};

// Looks at the first lines of a file. Columns are those of par.col, else those that a header line names, else
// "txyzwpk". A header says longitude and latitude, radians, microseconds or "down" where the options don't; what it
// says and decimal commas are reported when `report` is set. False after an ERROR line.
[[nodiscard]] bool find_layout(const std::string& path, const POread& par, bool report, TxtLayout& layout);
}  // namespace veld
