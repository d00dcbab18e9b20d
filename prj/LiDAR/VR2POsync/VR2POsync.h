// prj/LiDAR/VR2POsync/VR2POsync.h
// Synchronisation: which trajectory file flew which swath, one time base for both, and a trajectory cache per
// swath.
// Here:     DUT_PO_sync and IDX_PO_sync with their parameters and result, the caches, interpolation at times
//           of vectors.
// Not here: reading of trajectory files (POio), the DUT file (DUTio), the sensor model (VR2geom).
//
// Time base: see SwathClock. Caches and the times in `pairs` are synchronised; times read from tiles afterwards are
// unrolled.
// Frames: caches hold metres in the project's projection and degrees, yaw clockwise from grid north: headings
// of geographic trajectories count from true north and get the direction of true north in the grid added.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/DataStructure/nodata.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/VR2POsync/PO_sync_param.h"
#include "prj/LiDAR/VR2POsync/track_store.h"
#include "prj/LiDAR/project.h"

namespace veld {
constexpr dxyz NO_PO = {1000.0, 1000.0,
                        double{NODATA}};  // position where there is no trajectory; z is the test

struct POfileState {    // one trajectory file
  int dup = -1;         // earlier file of the group with the same path; -1: none
  bool ok = false;      // scanned and, if needed, read
  bool used = false;    // at least one swath lies in it
  bool AREC = false;    // its attitudes are recomputed from the track
  POread read;          // how it is read: as its group says, with the time scale found
  POscan scan;          // times raw, adjusted flag as after synchronisation
  double TimeCorr = 0;  // s
  double tmin = 2e307;  // s, synchronised range
  double tmax = -2e307;
  double dt = 0;                          // s, mean interval
  dxyz min = {99999999, 99999999, 9999};  // m, box of the part that was read
  dxyz max = {-99999999, -99999999, -9999};
};

struct POgroupState {   // one trajectory group: one clock
  double Tmin = 2e307;  // s, synchronised range of the group's swaths
  double Tmax = -2e307;
  uint32_t week = 0;  // GPS week found in the data; 0: all times are seconds of the week
  bool adj = false;   // synchronised times are adjusted standard GPS time
  int nsw = 0;        // swaths with a file
  int nPO = 0;        // files used
};

// Owner of the trajectory caches of a run: deletes the files that were registered with it.
class POC_TMP {
 public:
  POC_TMP() = default;
  ~POC_TMP();
  POC_TMP(POC_TMP&& other) noexcept;
  POC_TMP& operator=(POC_TMP&& other) noexcept;
  POC_TMP(const POC_TMP&) = delete;
  POC_TMP& operator=(const POC_TMP&) = delete;
  void add(const std::string& path) { files_.push_back(path); }
  void clear();  // deletes them now

 private:
  std::vector<std::string> files_;
};

struct POsync {                // beside what stands in the rows of the swaths: clock, track and state
  DUTidx idx;                  // index of the registration
  std::vector<DUTpair> pairs;  // its vectors; t1, t2 synchronised
  std::vector<Vector<dxyz>> O1,
      O2;  // by entry of pairs: position at each vector, m; NO_PO without trajectory
  std::vector<Vector<xyz>> Att1, Att2;  // attitude, degrees; 1000 each without trajectory

  std::vector<POfileState> files;    // by trajectory file
  std::vector<POgroupState> groups;  // by trajectory group - 1; a single one serves all groups of swaths
  int nswok = 0;                     // usable mobile swaths
  POC_TMP poc;                       // its end deletes the caches
};

// The whole synchronisation of a project against the registration result "<dutname>.dut",
// "<dutname>_idx.log". Uses of prj: swaths, trajectory files and groups, channels of groups, mounts, georeferencing,
// name (base of the logs); the area comes from the index, which must be of these swaths, by their names and main
// channels. Completes the rows of prj.swaths: clock, track, and the state of those that get no correction. Writes
// "_PO_stat.log", "_PO_sync_stat.log", "_ch_stat.log", "_sw_PO_rej.log", "_PO_rej.log" and a ".poc" per swath
// in TMPDIR. Returns the number of usable mobile swaths; 0 after an ERROR line.
[[nodiscard]] int DUT_PO_sync(const std::string& dutname, Project& prj, const POsyncParam& par, POsync& res);

// Puts the vectors of another registration of the same pairs in the place of those that res was made with (and that may
// have been moved out of it). The trajectory caches must still be there. False after an ERROR line.
[[nodiscard]] bool replace_sync_pairs(const std::string& dutname, const Project& prj, POsync& res);

// The same without registration data, for all mobile swaths of an index (par.ALL is taken as set): clocks,
// caches and reports, but no vectors. idx must be of the swaths of prj.
[[nodiscard]] int IDX_PO_sync(const DUTidx& idx, Project& prj, const POsyncParam& par, POsync& res);

// Records of the file of a swath, from margin seconds before to margin seconds behind it, in the frames of
// the caches, with the attitudes of the file (AREC or not). False when the swath has no file, or after an ERROR line.
[[nodiscard]] bool read_swath_track(const Project& prj, const POsync& sync, const POsyncParam& par,
                                    const Swath& swath, double margin, Vector<PO>& po);

const Mount* mount_of_swath(const Project& prj, const Swath& swath);  // none without mounts
POread PO_read_param(const POgroup& group);  // how the files of a group are read, on their own clock

// ---- trajectory caches

std::string POC_name(const CacheName& swath, SwathId sw);  // file of swath number sw, in TMPDIR
// Writes a cache whole or not at all. dt: TimeCorr of the trajectory file. False after an ERROR line.
[[nodiscard]] bool save_POC_TMP(const CacheName& swath, SwathId sw, double dt, const Vector<PO>& po);
// Loads a cache. False when it is missing, of a wrong size (logged with "<!> ") or holds no record; no ERROR
// line.
[[nodiscard]] bool load_POC_TMP(const CacheName& swath, SwathId sw, Vector<PO>& po, double& dt);

// Position and attitude at np times against a record list. O, Att: of the length of t (asserted). AREC:
// positions are linear and the attitude is that of the middle record. Times without trajectory get NO_PO and
// 1000. Returns their number.
uint64_t interp_O_Att(const Vector<PO>& po, const Vector<double>& t, bool AREC, Vector<dxyz>& O,
                      Vector<xyz>& Att);

// When a swath saw the place that lies d (m) from what it saw at time t: earlier or later by the way of the platform. t itself
// where that is slow or unknown. dt: mean_dt_PO of po.
double time_at_displacement(const Vector<PO>& po, double dt, bool AREC, double t, const xyz& d);
}  // namespace veld
