#include "prj/LiDAR/check/geometry_check.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "lib/general/console.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/swath/gps_time.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double WIDE = LATE_MAX + 5;  // s of trajectory on each side of a swath for the search
constexpr double SPAN_MAX = 32400;     // s; longer swaths have a rollover or are refused by the tiling
constexpr size_t NAMES_SHOWN = 4;

bool can_check(const SwathProbe& p) { return p.fault.empty() && p.timed && p.tmax - p.tmin < SPAN_MAX; }

// The swaths that can be synchronised, as a project and an index of their own. number: their swath numbers.
Project make_part(const Project& prj, const std::vector<SwathProbe>& probes, DUTidx& idx,
                  std::vector<int>& number) {
  Project part = prj;
  part.swaths.clear();
  const double mTsize = static_cast<double>(prj.scale.mTsize);
  dxyz lo = {1e18, 1e18, 1e18}, hi = {-1e18, -1e18, -1e18};
  for (size_t i = 0; i < prj.swaths.size(); i++) {
    const Swath& s = prj.swaths[i];
    const SwathProbe& p = probes[i];
    if (s.fixed || !can_check(p)) continue;
    number.push_back(static_cast<int>(i));
    Swath copy = s;
    copy.mainch = static_cast<int>(part.swaths.size());
    part.swaths.push_back(copy);
    DUTswath d;
    d.group = s.group;
    d.ch = s.channel;
    d.mainch = s.channel == 0;
    d.adj = p.adj;
    d.tmin = p.tmin;
    d.tmax = p.tmax;
    d.path = s.path();
    idx.swaths.push_back(d);
    for (const Beam& b : p.beams) grow_box(lo, hi, b.P);
  }
  const auto index = [mTsize](double v) {
    return static_cast<int64_t>(std::floor((v + 10240000.0) / mTsize));
  };
  idx.level = prj.scale.level;
  idx.area = {index(lo.x), index(lo.y), index(hi.x), index(hi.y)};
  return part;
}

Attitude attitude_of(const Project& part, const POsync& sync, int sw) {
  const size_t f = static_cast<size_t>(sync.sw2fl(sw));
  const POgroup& group = part.pogroups[static_cast<size_t>(part.pofiles[f].group - 1)];
  const auto has = [&](char column) { return group.col.find(column) != std::string::npos; };
  const bool positions_only = !group.col.empty() && !(has('w') && has('p'));
  if (group.att == 1 || positions_only) return Attitude::level;
  const POscan& scan = sync.files[f].scan;
  return !sync.AREC(sw) && scan.roll && scan.pitch ? Attitude::recorded : Attitude::missing;
}

// Swath sw of the part. False when there is nothing to compare.
bool check_swath(const Project& part, const POsync& sync, const POsyncParam& par, const SwathProbe& probe,
                 int sw, const SwRot& rot, TrajFault& fault) {
  Vector<PO> po, wide;
  double dt = 0;
  if (sync.sw2fl(sw) < 0 || !load_POC_TMP(part.swaths[static_cast<size_t>(sw)].cache, sw, po, dt))
    return false;
  const double shift = sync.TimeCorr(sw);
  const bool AREC = sync.AREC(sw) != 0;
  const Attitude attitude = attitude_of(part, sync, sw);
  const ScanPattern now = comp_ScanPattern(probe.beams, shift, probe.angled, po, AREC, rot, {});
  if (now.n < 100) return false;
  if (attitude == Attitude::recorded && !pattern_is_clean(now) &&
      !read_swath_track(part, sync, par, sw, WIDE, wide))
    wide.clear();
  fault = find_traj_fault(probe.beams, shift, probe.angled, now, wide, attitude, rot);
  return true;
}

void log_swath(const std::string& path, const TrajFault& f) {
  LOG_LINE(path << " n=" << f.now.n << " AGL=" << f.now.AGL << " spread=" << f.now.spread
                << " angle=" << (f.now.angle > 1e8 ? -1.0 : f.now.angle) << " off_nadir=" << f.now.off_nadir
                << " beside=" << f.now.beside << " speed=" << f.now.speed
                << " v_mismatch=" << f.now.v_mismatch << " " << fault_text(f));
}

std::string span_text(double t0, double t1, bool adj) {
  return date_text(t0, adj) + " to " + date_text(t1, adj);
}

// Swaths that no trajectory serves, with the times of both; trajectories that lie elsewhere.
void report_unmatched(const Project& prj, const POsync& sync, const std::vector<int>& number, bool ok) {
  std::vector<std::string> none, several, files;
  std::string spans;
  for (size_t k = 0; k < number.size(); k++) {
    const int sw = static_cast<int>(k), file = sync.sw2fl(sw);
    if (file >= 0) continue;
    const std::string& name = prj.swaths[static_cast<size_t>(number[k])].path();
    (file == -2 ? several : none).push_back(name);
    if (file == -1 && none.size() == 1)
      spans = name + " " + span_text(sync.tmin(sw), sync.tmax(sw), sync.adj(sw) != 0);
  }
  for (size_t f = 0; f < prj.pofiles.size(); f++) {
    const POfileState& file = sync.files[f];
    if (file.dup >= 0) continue;
    files.push_back(prj.pofiles[f].path);
    if (files.size() == 1 && file.tmax > file.tmin)
      spans += ", " + files[0] + " " + span_text(file.tmin, file.tmax, file.scan.tadj);
  }
  const auto show = [&](const std::string& text) {
    if (ok)
      WARNING_MSG(text);
    else
      ERROR_MSG(text);
  };
  if (!none.empty())
    show("no trajectory has the times of " + list_text(none) + " (" + spans +
         "): another flight, or another time scale (-po_time, -gps_date, -daysec, -auto_adj)");
  if (!several.empty())
    show("more than one trajectory has the times of " + list_text(several) + ": leave one out of " +
         list_text(files));
  if (!ok && none.empty() && several.empty())
    show("cannot use " + list_text(files) + " for " + std::to_string(number.size()) +
         " swaths: check its coordinates (-utm, -wkt, -po_geo), columns (-po_parse) and that it is a "
         "trajectory");
}

// Faults of one trajectory that read the same are one line.
void report(const Project& prj, const GeometryCheck& check, bool error) {
  struct Line {
    std::vector<std::string> names;
    size_t worst = 0;
  };
  std::map<std::pair<int, std::string>, Line> lines;
  for (size_t i = 0; i < check.faults.size(); i++) {
    const TrajFault& f = check.faults[i];
    if (f.kind == TrajFaultKind::none) continue;
    // The same shift varies by hundredths from swath to swath.
    const double size = f.kind == TrajFaultKind::late  ? std::round(f.change.late * 2)
                        : f.kind == TrajFaultKind::low ? std::round(f.change.low / 4)
                                                       : 0;
    const std::string what = f.kind == TrajFaultKind::angles ? fault_text(f) : std::string();
    Line& line = lines[{check.file[i], LOG_STR(static_cast<int>(f.kind) << what << size)}];
    if (line.names.empty() || f.now.spread > check.faults[line.worst].now.spread) line.worst = i;
    line.names.push_back(prj.swaths[i].path());
  }
  for (const auto& [key, line] : lines) {
    const TrajFault& f = check.faults[line.worst];
    const std::string text =
        LOG_STR("geometry of " << list_text(line.names) << " against trajectory "
                               << prj.pofiles[static_cast<size_t>(key.first)].path << ": " << fault_text(f)
                               << ": " << fault_remedy(f) << " (" << fault_evidence(f) << ")");
    if (error)
      ERROR_MSG(text);
    else
      WARNING_MSG(text);
  }
  if (error && !lines.empty()) LOG_MSG("Option -ics_err 0 makes this a WARNING and goes on");
}
}  // namespace

std::string list_text(const std::vector<std::string>& names) {
  std::string text;
  const size_t shown = names.size() > NAMES_SHOWN + 1 ? NAMES_SHOWN : names.size();
  for (size_t i = 0; i < shown; i++)
    text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  if (shown < names.size()) text += LOG_STR(" and " << names.size() - shown << " more");
  return text;
}

GeometryCheck check_geometry(const Project& prj, const std::vector<SwathProbe>& probes,
                             const GeometryCheckParam& par) {
  LOG_ENTER("check_geometry nsw=" << prj.swaths.size() << " error=" << par.error);
  const Stopwatch watch;
  GeometryCheck check;
  check.file.assign(prj.swaths.size(), -1);
  check.faults.resize(prj.swaths.size());
  check.checked.assign(prj.swaths.size(), 0);
  std::vector<int> number;
  DUTidx idx;
  const Project part = make_part(prj, probes, idx, number);
  if (number.empty() || prj.pofiles.empty()) return check;
  POsync sync;
  {
    const ConsoleQuiet quiet;
    check.ok = IDX_PO_sync(idx, part, par.sync, sync) > 0;
  }
  report_unmatched(prj, sync, number, check.ok);
  if (!check.ok) return check;
  Vector<int> group(part.swaths.size());
  for (size_t i = 0; i < part.swaths.size(); i++) group.val[i] = part.swaths[i].group;
  std::vector<SwRot> rot;
  chMount2R(group, prj.mounts, par.sync.AROT, rot);
  run_units(static_cast<int64_t>(number.size()), NTHREADSIO, [&](int64_t k, int) {
    const size_t unit = static_cast<size_t>(k), i = static_cast<size_t>(number[unit]);
    check.file[i] = sync.sw2fl(static_cast<int>(k));
    check.checked[i] =
        check_swath(part, sync, par.sync, probes[i], static_cast<int>(k), rot[unit], check.faults[i]);
    return true;
  });
  for (size_t f = 0; f < prj.pofiles.size(); f++) {
    std::vector<TrajFault*> faults;
    for (size_t i = 0; i < check.faults.size(); i++)
      if (check.file[i] == static_cast<int>(f)) faults.push_back(&check.faults[i]);
    agree_on_angles(faults);
  }
  int nfaults = 0;
  for (const int sw : number) {
    const size_t i = static_cast<size_t>(sw);
    if (check.checked[i]) log_swath(prj.swaths[i].path(), check.faults[i]);
    nfaults += check.faults[i].kind != TrajFaultKind::none;
  }
  report(prj, check, par.error);
  if (nfaults > 0 && par.error) check.ok = false;
  LOG_LINE("/// GEOMETRY_CHECK_TIME=" << watch.text());
  return check;
}
}  // namespace veld
