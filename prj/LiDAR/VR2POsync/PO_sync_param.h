// prj/LiDAR/VR2POsync/PO_sync_param.h
// How swaths and trajectories are matched.
#pragma once

namespace veld {
struct TrackStore;  // track_store.h

struct POsyncParam {
  float tol = 1.0f;     // s, how far a swath may reach beyond its trajectory file (-po_tol)
  float buf = 2.0f;     // s, trajectory kept on each side of a swath
  bool AROT = false;    // rotate attitudes by the IMU angles of the mount (-att_imu)
  bool DAY = false;     // times of swaths are seconds of the day (-daysec)
  bool ALL = false;     // also swaths without registration data
  bool ICH = false;     // channels are independent: no common time interval (-ich)
  float more = 0;       // s, read on each side beyond what is needed, for those who take it from the store
  bool FP = false;      // the tracks of the swaths beside their footprints (-fp)
  bool OUTOBJ = false;  // these as .obj too (-obj)
  int records = 0;      // the trajectory of each swath as it was read, every n-th record (-porec); 0: none
  bool reports = true;  // files of the synchronisation beside the project's name
  TrackStore* tracks = nullptr;  // of the run; none: every file is read
};
}  // namespace veld
