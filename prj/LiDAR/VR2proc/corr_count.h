// prj/LiDAR/VR2proc/corr_count.h
// Totals of one swath that is read, changed and written.
#pragma once
#include <cstdint>

namespace veld {
struct CorrCount {
  uint64_t nread = 0;  // points
  uint64_t nwritten = 0;
  uint64_t ndropped = 0;  // points without trajectory at their time
  uint64_t nunsplit = 0;  // points of no known beam
  int64_t nbytes = 0;     // size of what was written, without undo data
};
}  // namespace veld
