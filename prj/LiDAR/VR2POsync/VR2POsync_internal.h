// prj/LiDAR/VR2POsync/VR2POsync_internal.h
// The steps of a synchronisation, which work on one record.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/VR2POsync/VR2POsync.h"

namespace veld {
struct SyncJob {
  Project& prj;
  const POsyncParam& par;
  POsync& res;
  SwathVector<uint8_t> regsw = SwathVector<uint8_t>(prj.swaths);  // it has valid registration vectors

  SwathTable& swaths() const { return prj.swaths; }
  // Trajectory group that serves a mobile swath, from 0.
  int po_group(const Swath& s) const { return prj.pogroups.size() == 1 ? 0 : s.group - 1; }
  int first_file(int f) const { return file(f).dup >= 0 ? file(f).dup : f; }
  int nfiles() const { return static_cast<int>(prj.pofiles.size()); }
  const std::string& file_path(int f) const { return prj.pofiles[static_cast<size_t>(f)].path; }
  int file_group(int f) const { return prj.pofiles[static_cast<size_t>(f)].group - 1; }  // from 0
  const POgroup& file_param(int f) const { return prj.pogroups[static_cast<size_t>(file_group(f))]; }
  POfileState& file(int f) const { return res.files[static_cast<size_t>(f)]; }
  POgroupState& group(int g) const { return res.groups[static_cast<size_t>(g)]; }
  // Channel of a trajectory group, from 0.
  int channel_of_group(int g) const {
    return prj.pogroups.size() > 1 && static_cast<size_t>(g) < prj.chgrp.size()
               ? prj.chgrp[static_cast<size_t>(g)]
               : 0;
  }
};

// Tests the main channel of every swath; finds duplicates among the trajectory files, across channels too. False after an
// ERROR.
[[nodiscard]] bool comp_multich(SyncJob& job);
// One common time interval for all channels of a line; "_ch_stat.log". False after an ERROR.
[[nodiscard]] bool set_max_interval_ch(SyncJob& job);

// Scans all trajectory files; "_PO_stat.log". False after an ERROR if none could be scanned.
[[nodiscard]] bool scan_PO_time(SyncJob& job);
// One time base per group: TimeCorr, synchronised times and flags of swaths and files.
[[nodiscard]] bool grp_sync_time(SyncJob& job);

struct TimeGuess {
  int time = 0;        // POtimeFormat
  uint32_t gweek = 0;  // week of the first swath that lies in the file, 0 when it is not known
  uint32_t gday = 0;   // its day of the week
};
// Finds the scale in which most swaths of its group lie in a file, of which `raw` has the times as they are. Reports it
// when it is not that of the default. False when none fits.
bool guess_time(const SyncJob& job, int f, const POscan& raw, TimeGuess& guess);
// Positions to metres in the project's projection, headings to grid north, in place; box of the positions.
// False after an ERROR line.
[[nodiscard]] bool proj_PO(Vector<PO>& po, int proj, const GeoRefParam& georef, const std::string& path,
                           dxyz& min, dxyz& max);
// Compares the first and the last place of each geographic trajectory with the geoid grid. Beyond it there may be nothing
// but the way to the project, so only a WARNING says so.
void check_geoid_ends(const SyncJob& job);
// The window of a swath from the records of a file, attitudes as the options require, written as its cache.
// An empty window is no failure: cached is false then. False after an ERROR line.
[[nodiscard]] bool cache_PO_sw(SyncJob& job, Swath& swath, int f, const Vector<PO>& po, bool& cached);

struct SyncVerdict {        // counts of swaths by what became of them; files
  int nswm = 0;             // mobile swaths
  int nswmul = 0;           // rejected: more than one file matches
  int nswrejint = 0;        // rejected: no registration data
  int nswrejmatch = 0;      // rejected: no file matches
  int ntraj = 0;            // files, those of one path once
  std::vector<int> unused;  // files that no swath lies in, nor in one of the same path
};
// Rejects the swaths that get no correction, with the reason; counts the swaths and files of the groups. Sets nswok.
SyncVerdict judge_sync(SyncJob& job);
[[nodiscard]] bool log_posync(const SyncJob& job);
// "_sw_traj.txt": where the platform was while each swath was scanned, a place a second, with par.FP. False after an ERROR.
[[nodiscard]] bool traj_swaths_fp(const SyncJob& job);
// "_PO_rec_sw_<n>.txt" of each swath with par.records: its cache as text, which can be read as a trajectory again. False
// after an ERROR.
[[nodiscard]] bool save_PO_records(const SyncJob& job);
// Reports what was rejected; "_sw_PO_rej.log", "_PO_rej.log". False after an ERROR.
[[nodiscard]] bool report_verdict(const SyncJob& job, const SyncVerdict& v);
[[nodiscard]] bool display_traj_proc(const SyncJob& job);  // false after an ERROR: no overlap

std::string interval_text(double seconds);  // hh:mm:ss
}  // namespace veld
