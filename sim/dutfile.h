// sim/dutfile.h
// Displacement files (.dut with _idx.log) as the scorer reads them: its own reader, so that a fault of the
// aligner's cannot hide in both.
#pragma once
#include <string>
#include <vector>

#include "lib/Geometry/xyz.h"

namespace veld {
struct DutVector {  // displacement of swath 1 against swath 2 at a place
  dxyz p, d, unc;   // m
  bool timed;       // both swaths' times are known
  int pair;         // index in DutFile::pairs
};
struct DutPair {
  int sw1, sw2;  // indices in DutFile::swaths
  int64_t nrecords;
};
struct DutFile {
  int spacing = 0;                  // m, of the vectors
  std::vector<std::string> swaths;  // file names without directory and extension
  std::vector<DutPair> pairs;
  std::vector<DutVector> vectors;  // records without a height are left out
};

// path: the .dut file; the index lies beside it. False, after an ERROR line, when one is missing or is not
// what it should be, or is not in metres.
[[nodiscard]] bool read_dut(const std::string& path, DutFile& dut);
}  // namespace veld
