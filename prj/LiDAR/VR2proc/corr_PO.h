// prj/LiDAR/VR2proc/corr_PO.h
// One corrected trajectory file: an SBET with its fields changed in place, anything else as text.
// Not here: which swaths correct it (corr_POfiles.h), the arithmetic (track_corr.h).
#pragma once
#include <string>

#include "geo/georef.h"
#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/VR2proc/track_corr.h"

namespace veld {
struct PoCorrJob {
  std::string path;     // source
  std::string stem;     // of the output, without its extension
  int coord = PO_PROJ;  // POcoord of the file
  POread read;          // deltat: to synchronised times
  const GeoRefParam* georef = nullptr;
  const TrackCorr* corr = nullptr;
};
struct PoCorrResult {
  std::string out;          // name of the file
  double seconds = 0;       // s, of the trajectory
  double corrected = 0;     // s, of these corrected
  uint64_t ncorrected = 0;  // records
};

// SBET: a copy, place, height and angles of corrected records changed, all other fields and records as they are.
// Others: text "Time Lon Lat h Roll Pitch Yaw" or "Time X Y Z Roll Pitch Yaw" of all records, synchronised times,
// degrees, lengths in the units of the source; earth-centred ones become geographic. False after an ERROR line.
[[nodiscard]] bool corr_PO_file(const PoCorrJob& job, PoCorrResult& result);
}  // namespace veld
