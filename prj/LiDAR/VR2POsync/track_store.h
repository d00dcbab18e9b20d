// prj/LiDAR/VR2POsync/track_store.h
// Trajectories that one synchronisation of a run has read, kept for the next: the check before the work reads them, the
// work takes them from here.
// Here:     the store, within a limit of memory.
// Not here: reading (POio), projection (proj_PO); nothing is kept on disk.
#pragma once
#include <string>
#include <vector>

#include "lib/general/path.h"
#include "prj/LiDAR/POio/POio.h"

namespace veld {
struct StoredTrack {
  std::string path;
  FileStamp stamp;  // of the file when it was read
  POread par;       // how it was read; the window is what the records cover
  bool adj = false;
  bool projected = false;  // records are in the project's projection
  Vector<PO> po;
};

struct TrackStore {
  uint64_t max_bytes = 0;  // of all records
  std::vector<StoredTrack> tracks;
};

// The records of the window of par, and one or more beyond each end where there are any. False when the store does not
// have them, as for a store of none; po is unchanged then.
bool find_track(const TrackStore* store, const std::string& path, const POread& par, StoredTrack& found);
// Keeps a track in place of an earlier one of the file, if there is room.
void keep_track(TrackStore* store, StoredTrack&& track);
}  // namespace veld
