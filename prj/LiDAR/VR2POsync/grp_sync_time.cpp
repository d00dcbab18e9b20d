// One time base for the swaths and the trajectory files of a group.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"
#include "prj/LiDAR/swath/swath_clock.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
struct Counts {
  int nswa = 0, nPOa = 0;  // flags that changed to adjusted time
  int nswc = 0, nPOc = 0;  // times that were shifted
  int ngrpa = 0, ngrpc = 0;
};

// One time of a group: a swath's first or a file's first.
struct Stamp {
  double t = 0;   // s, GPS seconds if adjusted, else as it is
  double dT = 0;  // s, shift found
  bool adj = false;
};

// Steps over all stamps of a group: whole periods towards the latest, the week, the user's week.
void sync_group(int g, const POgroup& user, double P, std::vector<Stamp>& sw, std::vector<Stamp>& po,
                POgroupState& state) {
  double Tmax = -2e307;
  for (const Stamp& s : sw) Tmax = std::max(Tmax, s.t);
  for (const Stamp& s : po) Tmax = std::max(Tmax, s.t);
  uint32_t week = 0xFFFFFFFF;
  bool ok = true;
  const auto align = [&](std::vector<Stamp>& stamps, double period) {
    for (Stamp& s : stamps) {
      if (!s.adj) s.dT = std::round((Tmax - s.t) / period) * period;
      week = std::min(week, gps_week(s.t + s.dT));
      ok = ok && std::fabs(s.t + s.dT - Tmax) < FLIGHT_SPAN;
    }
  };
  align(sw, P);
  align(po, WEEK_S);  // trajectories are week-based whatever the swaths are
  if (!ok) WARNING_MSG("swath and PO timestamps span more than 12 hours (group " << g + 1 << ")");
  double offset = 0;
  if (user.gweek != 0) {
    if (week == 0)
      offset = user.gweek * WEEK_S;
    else if (week != user.gweek)
      WARNING_MSG("different GPS weeks: user=" << user.gweek << ", data=" << week << " (group " << g + 1
                                               << ")");
  }
  const auto finish = [&](std::vector<Stamp>& stamps) {
    for (Stamp& s : stamps) {
      if (s.adj) continue;
      s.dT += offset;
      if (is_adjusted(s.t + s.dT)) {
        s.adj = true;
        s.dT -= ADJ_S;
      }
    }
  };
  finish(sw);
  finish(po);
  state.week = week;
}
}  // namespace

POread PO_read_param(const POgroup& group) {
  POread par;
  par.proj = group.geo;
  par.time = group.time;
  par.gweek = group.gweek;
  par.gday = group.gday;
  par.rad = group.rad != 0;
  par.sbetw0 = group.att == 2;
  par.col = group.col;
  return par;
}

namespace {
// Scans one file, with the time scale of the options, or of the swaths when there is no such option.
bool scan_file(const SyncJob& job, int f) {
  POfileState& file = job.file(f);
  file.read = PO_read_param(job.file_param(f));
  if (!job.file_param(f).has_time && !AUTO_ADJ && !job.par.DAY) {
    TimeGuess guess;
    POread raw = file.read;
    raw.raw_time = true;
    if (!scan_PO(job.file_path(f), raw, file.scan)) return false;
    if (file.scan.own_time) return true;
    if (guess_time(job, f, file.scan, guess)) {
      if (guess.time == WKS_GPS_DEC) return true;
      file.read.time = guess.time;
      if (file.read.gweek == 0)
        file.read.gweek = guess.gweek, file.read.gday = guess.gday, file.read.has_day = true;
    }
  }
  return scan_PO(job.file_path(f), file.read, file.scan);
}
}  // namespace

bool scan_PO_time(SyncJob& job) {
  LOG_ENTER("scan_PO_time npo=" << job.nfiles());
  ResultFile out;
  if (job.par.reports && !out.open(job.prj.name + "_PO_stat.log")) return false;
  out.fs << "POFile# Group# Format Coord TimeFormat Att AdjGPSFile DateTime0 [Angle Parse] FileName\n";
  bool any = false;
  for (int f = 0; f < job.nfiles(); f++) {
    POfileState& file = job.file(f);
    const POgroup& par = job.file_param(f);
    if (file.dup >= 0) {
      file.read = job.file(file.dup).read;
      file.scan = job.file(file.dup).scan;
      file.ok = job.file(file.dup).ok;
    } else {
      file.ok = scan_file(job, f);
    }
    if (!file.ok) continue;
    any = true;
    std::string group = std::to_string(job.file_group(f) + 1);
    group.insert(0, group.size() < 3 ? 3 - group.size() : 0, ' ');
    out.fs << f << ' ' << group << ' ' << PO_format_word(file.scan.fmt) << ' '
           << PO_coord_word(file.scan.coord) << ' ' << PO_time_word(file.read.time) << ' '
           << (file.scan.yaw ? par.att : 1) << ' ' << file.scan.tadj << ' '
           << date_word(file.scan.t0, file.scan.tadj) << ' ';
    if (file.scan.fmt == PO_TXT)
      out.fs << (par.rad ? "RAD " : "DEG ") << (par.col.empty() ? "txyzwpk" : par.col) << ' ';
    out.fs << real_path(job.file_path(f)) << '\n';
  }
  return (!job.par.reports || out.commit()) && any;
}

bool grp_sync_time(SyncJob& job) {
  POsync& res = job.res;
  const double P = job.par.DAY ? DAY_S : WEEK_S;
  LOG_ENTER("grp_sync_time nsw=" << job.swaths().size() << " npo=" << job.nfiles() << " P=" << P);
  if (!scan_PO_time(job)) return false;
  check_geoid_ends(job);
  Counts n;
  for (int g = 0; g < static_cast<int>(res.groups.size()); g++) {
    std::vector<Swath*> swaths;
    std::vector<int> files;
    std::vector<Stamp> sw, po;
    for (Swath& s : job.swaths()) {
      if (!s.mobile() || job.po_group(s) != g) continue;
      swaths.push_back(&s);
      sw.push_back({s.clock.begin + (s.clock.adj ? ADJ_S : 0), 0, s.clock.adj});
    }
    for (int f = 0; f < job.nfiles(); f++) {
      if (job.file_group(f) != g || !job.file(f).ok) continue;
      const POscan& scan = job.file(f).scan;
      files.push_back(f);
      po.push_back({scan.t0 + (scan.tadj ? ADJ_S : 0), 0, scan.tadj});
    }
    if (swaths.empty() || files.empty()) continue;
    POgroupState& group = job.group(g);
    sync_group(g, job.prj.pogroups[static_cast<size_t>(g)], P, sw, po, group);
    bool flags = false, shifts = false;
    for (size_t i = 0; i < swaths.size(); i++) {
      SwathClock& clock = swaths[i]->clock;
      const bool changed = sw[i].adj != clock.adj;
      n.nswa += changed, flags = flags || changed;
      n.nswc += sw[i].dT != 0, shifts = shifts || sw[i].dT != 0;
      clock.shift = sw[i].dT;
      clock.adj = sw[i].adj;
      clock.begin = clock.sync(clock.begin);
      clock.end = clock.sync(clock.end);
      group.Tmin = std::min(group.Tmin, clock.begin);
      group.Tmax = std::max(group.Tmax, clock.end);
      group.adj = group.adj || sw[i].adj;
    }
    for (size_t i = 0; i < files.size(); i++) {
      POfileState& file = job.file(files[i]);
      const bool changed = po[i].adj != file.scan.tadj;
      n.nPOa += changed, flags = flags || changed;
      n.nPOc += po[i].dT != 0, shifts = shifts || po[i].dT != 0;
      file.scan.tadj = po[i].adj;
      file.TimeCorr = po[i].dT;
      file.tmin = file.scan.t0 + po[i].dT;
      file.tmax = file.scan.t1 + po[i].dT;
    }
    n.ngrpa += flags;
    n.ngrpc += shifts;
    LOG_LINE("g=" << g + 1 << " week=" << group.week << " Tmin=" << group.Tmin << " Tmax=" << group.Tmax);
  }
  LOG_LINE("nswa=" << n.nswa << " nPOa=" << n.nPOa << " nswc=" << n.nswc << " nPOc=" << n.nPOc);
  if (n.nswa + n.nPOa > 0)
    LOG_MSG("GPS time converted to adjusted: " << n.nswa << " swaths, " << n.nPOa << " PO files in "
                                               << n.ngrpa << " groups");
  if (n.nswc + n.nPOc > 0)
    LOG_MSG("GPS time corrected: " << n.nswc << " swaths, " << n.nPOc << " PO files in " << n.ngrpc
                                   << " groups");
  return true;
}
}  // namespace veld
