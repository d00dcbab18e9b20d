// Trajectories, their parameters, dates, mounts, files of manual corrections.
#include <algorithm>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/PO_accuracy.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/inputs/inputs.h"

namespace veld {
namespace {
// One value for all groups, or one per group: gives each group its own. False with another count.
template <typename T, typename F>
bool spread(const std::vector<T>& values, const char* what, std::vector<POgroup>& groups, F set) {
  if (values.empty()) return true;
  if (values.size() != 1 && values.size() != groups.size()) {
    ERROR_MSG(values.size() << ' ' << what << " provided, expected 1 or " << groups.size()
                            << " (1 per group)");
    return false;
  }
  for (size_t g = 0; g < groups.size(); g++) set(groups[g], values[values.size() == 1 ? 0 : g]);
  return true;
}

void log_mounts(const std::vector<Mount>& mounts) {
  for (size_t g = 0; g < mounts.size(); g++) {
    const Mount& m = mounts[g];
    LOG_LINE("MNT g " << g + 1 << " IMU: " << m.IMU.x << ' ' << m.IMU.y << ' ' << m.IMU.z
                      << " Bore: " << m.Bore.x << ' ' << m.Bore.y << ' ' << m.Bore.z);
  }
}

// Who has a mount of its own: the mobile groups, or, when there are fewer, the channels of the sensor.
struct MountOwners {
  size_t ngrp = 1;           // mobile groups
  size_t nch = 1;            // channels
  std::vector<int> channel;  // by group - 1; empty: all of channel 0

  explicit MountOwners(const Project& prj)
      : ngrp(static_cast<size_t>(std::max(prj.nmgrp, 1))), channel(prj.chgrp) {
    for (const int ch : channel) nch = std::max(nch, static_cast<size_t>(ch) + 1);
  }
  bool takes(size_t n) const { return n == 1 || n == ngrp || n == nch; }
  // Which of n records a group gets.
  size_t record_of(size_t group, size_t n) const {
    return n == 1 ? 0 : n == ngrp ? group : static_cast<size_t>(channel[group]);
  }
  std::string expected() const {
    std::string text = LOG_STR(" provided, expected 1 or " << ngrp << " (1 per group)");
    if (nch > 1 && nch != ngrp) text += LOG_STR(" or " << nch << " (1 per channel)");
    return text;
  }
};

// Triplets of angles into the mounts: one for all, one per group, or one per channel.
bool spread_angles(const std::vector<double>& v, const char* name, const MountOwners& owners,
                   std::vector<Mount>& mounts, xyz Mount::*field) {
  if (v.empty()) return true;
  const size_t n = v.size() / 3;
  if (!owners.takes(n)) {
    ERROR_MSG(n << ' ' << name << " rot angle triplets" << owners.expected());
    return false;
  }
  if (n == 1 && owners.ngrp > 1) LOG_MSG("using the 3 specified " << name << " rot angles for all groups");
  for (size_t g = 0; g < mounts.size(); g++) {
    const double* a = v.data() + 3 * owners.record_of(g, n);
    mounts[g].*field = {static_cast<float>(a[0]), static_cast<float>(a[1]), static_cast<float>(a[2])};
  }
  return true;
}

// Reads a record per group from one file for all or one each. Reports every file that cannot be read.
template <typename T>
bool read_group_files(const std::vector<std::string>& files, const PathRules& rules,
                      std::vector<T>& records) {
  bool ok = true;
  for (size_t f = 0; f < files.size(); f++) {
    std::string file = files[f];
    ok = update_check_file(file, rules) && records[f].read_file(file) && ok;
  }
  for (size_t g = files.size(); g < records.size(); g++) records[g] = records[0];
  return ok;
}

// Files of a manual correction; none is no fault.
template <typename T>
bool group_files(const std::vector<std::string>& files, const char* kind, const PathRules& rules,
                 std::vector<T>& records) {
  if (files.empty()) return true;
  if (files.size() != 1 && files.size() != records.size()) {
    ERROR_MSG("group size mismatch, " << files.size() << ' ' << kind << " files and " << records.size()
                                      << " groups");
    return false;
  }
  if (files.size() == 1 && records.size() > 1)
    WARNING_MSG("using " << kind << " file " << files[0] << " for all groups");
  if (read_group_files(files, rules, records)) return true;
  ERROR_MSG("missing " << kind << " files, cannot proceed");
  return false;
}
}  // namespace

bool get_PO_files(const InputArgs& in, bool required, Project& prj) {
  LOG_ENTER("get_PO_files ngrpPO=" << in.po.size() << " required=" << required);
  prj.pofiles.clear();
  bool ok = true;
  int group = 0;
  for (const GroupArg& g : in.po) {
    FileList files;  // of one group: the channels of a sensor share their trajectory
    group++;
    for (const std::string& arg : g.args)
      ok = (g.list ? add_swathgrouplist_lof(files, {}, arg, group, in.rules)
                   : add_swathgrouplist(files, {}, arg, group, in.rules)) &&
           ok;
    for (const std::string& file : files.name)
      if (is_accuracy_file(file))
        LOG_MSG("accuracy file " << file << " is no trajectory, left out of these");
      else
        prj.pofiles.push_back({file, group});
  }
  if (!ok) {
    ERROR_MSG("could not find all specified trajectory files, cannot proceed");
    return false;
  }
  if (required && prj.pofiles.empty()) {
    ERROR_MSG("PO files required for correction: give the trajectories (-po)");
    return false;
  }
  prj.pogroups.assign(in.po.size(), POgroup());
  return true;
}

bool get_PO_param(const Options& o, Project& prj) {
  LOG_ENTER("get_PO_param ngrpPO=" << prj.pogroups.size());
  std::vector<POgroup>& g = prj.pogroups;
  if (g.empty()) return true;
  bool ok = spread(o.po_geo, "po_geo flags", g, [](POgroup& p, int v) { p.geo = v; });
  ok = spread(o.po_time, "po_time flags", g, [](POgroup& p, int v) { p.time = v; }) && ok;
  for (POgroup& group : g) group.has_time = !o.po_time.empty();
  ok = spread(o.po_rad, "po_rad flags", g, [](POgroup& p, int v) { p.rad = v; }) && ok;
  ok = spread(o.po_parse, "po_parse strings", g, [](POgroup& p, const std::string& v) { p.col = v; }) && ok;
  ok = spread(o.po_att, "po_att flags", g, [](POgroup& p, int v) { p.att = v; }) && ok;
  for (size_t k = 0; k < g.size(); k++)
    if (PO_time_needs_date(g[k].time) && o.gps_date.empty()) {
      ERROR_MSG("PO time format " << g[k].time << " for group " << k + 1
                                  << " requires option -gps_date for conversion");
      ok = false;
    }
  return ok;
}

void log_PO_param(const Project& prj) {
  LOG_ENTER("log_PO_param npo=" << prj.pofiles.size());
  LOG_LINE("[# grp geo time rad att file]");
  for (size_t i = 0; i < prj.pofiles.size(); i++) {
    const POgroup& g = prj.pogroups[static_cast<size_t>(prj.pofiles[i].group) - 1];
    LOG_LINE("PO " << i << ' ' << prj.pofiles[i].group << ' ' << g.geo << ' ' << g.time << ' ' << g.rad << ' '
                   << g.att << ' ' << prj.pofiles[i].path);
  }
}

bool date2gweekday(int year, int month, int day, uint32_t& week, uint32_t& weekday) {
  const int64_t n = gps_day_number(year, month, day);
  if (n < 0) return false;
  week = static_cast<uint32_t>(n / 7);
  weekday = static_cast<uint32_t>(n % 7);
  return true;
}

bool GPSdate2gweekday(const Options& o, Project& prj) {
  LOG_ENTER("GPSdate2gweekday n=" << o.gps_date.size() << " ngrp=" << prj.pogroups.size());
  const size_t n = o.gps_date.size(), ngrp = prj.pogroups.size();
  if (n == 0 || ngrp == 0) return true;
  if (n != 1 && n != ngrp) {
    ERROR_MSG(n << " GPS dates provided, expected 1 or " << ngrp << " (1 per group)");
    return false;
  }
  if (n == 1 && ngrp > 1) WARNING_MSG("using GPS date " << o.gps_date[0] << " for all groups");
  bool ok = true;
  for (size_t g = 0; g < (n == 1 ? 1 : ngrp); g++) {
    const std::string& date = o.gps_date[n == 1 ? 0 : g];
    std::string s = date;
    for (char& c : s)
      if (c == '/' || c == ' ') c = '-';
    int y, m, d, used = 0;
    if (std::sscanf(s.c_str(), "%d-%d-%d%n", &y, &m, &d, &used) != 3 ||
        static_cast<size_t>(used) != s.size()) {
      ERROR_MSG("invalid date '" << date << "', ISO 8601 format required (YYYY-MM-DD)");
      ok = false;
      continue;
    }
    POgroup& p = prj.pogroups[g];
    if (m < 1 || m > 12 || d < 1 || d > 31 || y >= 9999 || y < 0 ||
        !date2gweekday(y, m, d, p.gweek, p.gday)) {
      ERROR_MSG("date '" << date << "' out of range");
      ok = false;
    }
  }
  for (size_t g = 0; g < ngrp; g++) {
    POgroup& p = prj.pogroups[g];
    if (n == 1) p.gweek = prj.pogroups[0].gweek, p.gday = prj.pogroups[0].gday;
    if (ok) LOG_LINE("g=" << g + 1 << " w=" << p.gweek << " d=" << p.gday);
  }
  return ok;
}

bool get_mount_files(const Options& o, const PathRules& rules, Project& prj) {
  const MountOwners owners(prj);
  LOG_ENTER("get_mount_files argM.size()="
            << o.mount.size() << " BORE.size()=" << o.bore.size() << " IMU.size()=" << o.imu.size()
            << " ngrpPO=" << prj.pogroups.size() << " nmgrp=" << owners.ngrp << " nch=" << owners.nch);
  prj.mounts.assign(owners.ngrp, Mount());
  const bool angles = !o.bore.empty() || !o.imu.empty();
  if (!o.mount.empty() && angles) {
    ERROR_MSG("option -mount cannot be used together with -bore or -imu");
    return false;
  }
  if (o.mount.empty() && !angles) {
    LOG_MSG("no -mount, -bore or -imu options found, using IMU=0 and Bore=0");
    return true;
  }
  if (angles) {
    bool triplets = true;
    for (const auto& [v, name] : {std::pair(&o.imu, "-imu"), std::pair(&o.bore, "-bore")})
      if (v->size() % 3 != 0) {
        ERROR_MSG("option " << name << " has " << v->size() << " arguments, multiple of 3 required");
        triplets = false;
      }
    if (!triplets) return false;
    const bool ok = spread_angles(o.bore, "Bore", owners, prj.mounts, &Mount::Bore);
    if (!spread_angles(o.imu, "IMU", owners, prj.mounts, &Mount::IMU) || !ok) return false;
    log_mounts(prj.mounts);
    return true;
  }
  const size_t n = o.mount.size();
  if (!owners.takes(n)) {
    ERROR_MSG(n << " mount files" << owners.expected());
    return false;
  }
  if (n == 1 && owners.ngrp > 1) WARNING_MSG("using mount file " << o.mount[0] << " for all groups");
  std::vector<Mount> records(n);
  if (read_group_files(o.mount, rules, records)) {
    for (size_t g = 0; g < prj.mounts.size(); g++) prj.mounts[g] = records[owners.record_of(g, n)];
    log_mounts(prj.mounts);
    return true;
  }
  ERROR_MSG("missing mount files, cannot proceed");
  return false;
}

bool get_shift_calib_files(const Options& o, const PathRules& rules, Project& prj) {
  LOG_ENTER("get_shift_calib_files shift.size()=" << o.shift_corr.size() << " calib.size()="
                                                  << o.calib_corr.size() << " nmgrp=" << prj.nmgrp);
  const size_t ngrp = static_cast<size_t>(std::max(prj.nmgrp, 1));
  std::vector<chShift> shifts(o.shift_corr.empty() ? 0 : ngrp);
  std::vector<Calib> calibs(o.calib_corr.empty() ? 0 : ngrp);
  const bool shifts_ok = group_files(o.shift_corr, "shift", rules, shifts);
  const bool calibs_ok = group_files(o.calib_corr, "calibration", rules, calibs);
  prj.shifts.assign(shifts.begin(), shifts.end());
  prj.calibs.swap(calibs);
  return shifts_ok && calibs_ok;
}
}  // namespace veld
