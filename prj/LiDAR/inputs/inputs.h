// prj/LiDAR/inputs/inputs.h
// The project's inputs: from patterns and per-group options to checked lists.
// Here:     directories, swaths, trajectories, mounts, class filter.
// Not here: strings that steer the inversion and the output name (steer_opt.h), options themselves
// (options.h).
//
// All routines write their ERROR line and return false; the caller stops.
#pragma once
#include <string>
#include <vector>

#include "lib/general/filelist.h"
#include "prj/LiDAR/options/options.h"
#include "prj/LiDAR/options/split_opt.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct GroupArg {                 // one occurrence of an option that names files: one group
  std::vector<std::string> args;  // patterns, or text files that list names
  bool list = false;              // the latter
};

struct SplitGroup {  // a mobile group whose files hold several channels
  int group = 1;     // 1-based
  SplitOpt split;
  std::vector<xyz> bore;  // degrees, by channel; empty: that of the group
  std::vector<int> map;  // channel of each value of the attribute, 0 none; empty: channel = rank of the value
};

struct InputArgs {                // occurrences in the order of the command line
  std::vector<GroupArg> mobile;   // -input, -input_list
  std::vector<GroupArg> fixed;    // -ref, -ref_list
  std::vector<GroupArg> po;       // -po, -po_list
  PathRules rules;                // how relative names are completed
  std::vector<SplitGroup> split;  // groups whose files are split into channels
};

// One pattern into the list, with its group; a duplicate is an error.
[[nodiscard]] bool add_swathgrouplist(FileList& list, const FileList& excl, const std::string& pattern,
                                      int group, const PathRules& rules);
// The names of a text file, one a line.
[[nodiscard]] bool add_swathgrouplist_lof(FileList& list, const FileList& excl, const std::string& file,
                                          int group, const PathRules& rules);

// Gives INDIR, OUTDIR, TMPDIR, GEODIR (and odir_1 with align2) their trailing "/" and tests that they can be
// used.
[[nodiscard]] bool dir_check(std::string& odir_1, bool align2);

// Swaths of the project: exclusions, mobile groups, fixed groups. Fills swaths, nmgrp, ngrp.
[[nodiscard]] bool get_swath_files(const InputArgs& in, const Options& o, Project& prj);
// Channels of the mobile groups by -chgrp; all 0 without it. Sets the channel of each swath.
[[nodiscard]] bool chk_ch_grp(const Options& o, Project& prj);

// Trajectory files. A file may belong to several groups. required: none is an error.
[[nodiscard]] bool get_PO_files(const InputArgs& in, bool required, Project& prj);
// Parameters of each trajectory group: one value for all or one per group.
[[nodiscard]] bool get_PO_param(const Options& o, Project& prj);
void log_PO_param(const Project& prj);
// GPS week and weekday of each trajectory group by -gps_date.
[[nodiscard]] bool GPSdate2gweekday(const Options& o, Project& prj);
// A calendar date as GPS week and weekday (0 Sunday). False for a date before the GPS epoch.
bool date2gweekday(int year, int month, int day, uint32_t& week, uint32_t& weekday);

// Mounts by files or angles, for the groups of swaths that the project has: one for all, one per group, or one
// per channel.
[[nodiscard]] bool get_mount_files(const Options& o, const PathRules& rules, Project& prj);

// Shifts and calibrations of a manual correction (-shift_corr, -calib_corr), one file for all mobile groups
// or one per group. Without the options the lists stay empty.
[[nodiscard]] bool get_shift_calib_files(const Options& o, const PathRules& rules, Project& prj);

// Beams that share a file (-beam_param) and the calibration of each (-beam_calib_corr). No sets without the options.
[[nodiscard]] bool read_beams(const Options& o, const PathRules& rules, BeamParam& beams);

// Classes to drop, from -drop_class or -keep_class.
[[nodiscard]] bool xclsf2xcls(const Options& o, std::vector<uint8_t>& xcls);
// -ground_class: the classes of vegetation and noise, unless a list was given.
void set_xcls_gnd(const Options& o, std::vector<uint8_t>& xcls);
}  // namespace veld
