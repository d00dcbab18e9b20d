// prj/LiDAR/POio/PO_formats.h
// The formats of trajectory files, a row each.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/POio/POio.h"

namespace veld {
struct POformatRow {
  int fmt;                            // POformat
  const char* word;                   // four characters, in logs
  std::vector<const char*> suffixes;  // lower case; none: whatever no other row has
  int coord;                          // the one POcoord that its files can have; -1: as the options say
  bool (*scan)(const std::string& path, const POread& par, POscan& scan);
  bool (*read)(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
};
const std::vector<POformatRow>& PO_formats();
}  // namespace veld
