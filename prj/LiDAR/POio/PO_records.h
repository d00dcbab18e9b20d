// prj/LiDAR/POio/PO_records.h
// Trajectory files that are records of one size behind a header: what all such formats share.
// Here:     search by time, windows, rollovers, reading in blocks. Memory for the window only.
// Not here: what the bytes mean (read_SBET.cpp and its siblings).
#pragma once
#include <cstring>
#include <functional>
#include <string>

#include "prj/LiDAR/POio/POio.h"

namespace veld {
struct PORecords {  // a file, as its format's opener describes it
  std::string path;
  const char* what = "";    // word of the format in messages
  const char* reader = "";  // name of the reader in the log
  int coord = PO_GEO;       // POcoord of the samples
  uint64_t header = 0;      // bytes in front of the records
  uint64_t rsize = 0;       // bytes of a record
  uint64_t nrec = 0;
  int time = -1;  // POtimeFormat that the file itself has, after time_of; -1: that of the options
  std::function<double(const char* record)> time_of;                // s; not a number where there is none
  std::function<PO(const char* record, const POread& par)> sample;  // all but the time
};

struct RecordClock {   // from the times in a file to those of the samples
  double deltat = 0;   // s, added to all: format, then par.deltat
  uint64_t iroll = 0;  // record from which a rollover is behind
  double period = 0;   // s, then added too
  double operator()(double raw, uint64_t i) const { return raw + deltat + (i >= iroll ? period : 0); }
};
// False after an ERROR line.
[[nodiscard]] bool open_record_clock(const PORecords& file, const POread& par, RecordClock& clock);

[[nodiscard]] bool scan_records(const PORecords& file, const POread& par, POscan& scan);
[[nodiscard]] bool read_records(const PORecords& file, const POread& par, Vector<PO>& po, bool& tadj);

// A field of a record or header, at any place.
template <typename T>
T PO_field(const char* bytes, size_t at) {
  T value;
  std::memcpy(&value, bytes + at, sizeof value);
  return value;
}
}  // namespace veld
