// prj/LiDAR/POio/SBET.h
// The record of an SBET, and copies of such files with some of their records changed.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "prj/LiDAR/POio/PO_records.h"

namespace veld {
struct SBETrec {
  double time, lat, lon, height;  // s, rad, rad, m
  double velocity[3];
  double roll, pitch, heading, wander;  // rad
  double accelerations_rates[6];
};
static_assert(sizeof(SBETrec) == 136);

// The records of a file. warn: of bytes behind the last one. False after an ERROR line.
[[nodiscard]] bool open_SBET(const std::string& path, bool warn, PORecords& file);

// Changes records in place; t: their times, on the clock that par gives (par.deltat added). Called for blocks of
// consecutive records in the order of the file. False ends the copy.
using SBETpatch = std::function<bool(std::vector<SBETrec>& records, const std::vector<double>& t)>;

// Copies an SBET with its records changed; out appears whole or not at all. False after an ERROR line, also when the
// size of the file is not that of whole records.
[[nodiscard]] bool copy_SBET(const std::string& path, const POread& par, const std::string& out,
                             const SBETpatch& patch);
}  // namespace veld
