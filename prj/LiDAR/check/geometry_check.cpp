#include "prj/LiDAR/check/geometry_check.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "lib/general/console.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/swath/gps_time.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double WIDE = LATE_MAX + 5;  // s of trajectory on each side of a swath for the search
constexpr float TRACK_MORE =
    60;  // s, the last places that were looked at may lie so far from the ends of a swath
constexpr double SPAN_MAX = 32400;  // s; longer swaths have a rollover or are refused by the tiling
constexpr size_t NAMES_SHOWN = 4;

bool can_check(const SwathProbe& p) { return p.fault.empty() && p.timed && p.tmax - p.tmin < SPAN_MAX; }

// The project with those swaths present that can be synchronised, and an index of it.
Project make_part(const Project& prj, const SwathVector<SwathProbe>& probes, DUTidx& idx) {
  Project part = prj;
  const double mTsize = static_cast<double>(prj.scale.mTsize);
  dxyz lo = {1e18, 1e18, 1e18}, hi = {-1e18, -1e18, -1e18};
  for (Swath& s : part.swaths) {
    const SwathProbe& p = probes[s.id];
    if (!s.mobile() || !can_check(p)) {
      part.swaths.reject(s.id, SwathState::absent, "not checked");
    } else {
      s.clock.raw_adj = p.adj;
      s.clock.tmin = p.tmin;
      s.clock.tmax = p.tmax;
      for (const Beam& b : p.beams) grow_box(lo, hi, b.P);
    }
    idx.swaths.push_back(make_DUTswath(part.swaths, s.id));
  }
  const auto index = [mTsize](double v) {
    return static_cast<int64_t>(std::floor((v - GROUND_ORIGIN) / mTsize));
  };
  idx.level = prj.scale.level;
  idx.area = {index(lo.x), index(lo.y), index(hi.x), index(hi.y)};
  return part;
}

Attitude attitude_of(const Project& part, const POsync& sync, const Swath& swath) {
  const size_t f = static_cast<size_t>(swath.track.file);
  const POgroup& group = part.pogroups[static_cast<size_t>(part.pofiles[f].group - 1)];
  const auto has = [&](char column) { return group.col.find(column) != std::string::npos; };
  const bool positions_only = !group.col.empty() && !(has('w') && has('p'));
  if (group.att == 1 || positions_only) return Attitude::level;
  const POscan& scan = sync.files[f].scan;
  return !swath.track.AREC && scan.roll && scan.pitch ? Attitude::recorded : Attitude::missing;
}

// False when there is nothing to compare.
bool check_swath(const Project& part, const POsync& sync, const POsyncParam& par, const SwathProbe& probe,
                 const Swath& swath, TrajFault& fault) {
  Vector<PO> po, wide;
  double dt = 0;
  if (!load_POC_TMP(swath.cache, swath.id, po, dt)) return false;
  const SwRot rot = chMount2R(swath.group, part.mounts, par.AROT);
  const double shift = swath.clock.shift;
  const Attitude attitude = attitude_of(part, sync, swath);
  const ScanPattern now = comp_ScanPattern(probe.beams, shift, probe.angled, po, swath.track.AREC, rot, {});
  if (now.n < 100) return false;
  if (attitude == Attitude::recorded && !pattern_is_clean(now) &&
      !read_swath_track(part, sync, par, swath, WIDE, wide))
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

// What it may be when a swath has no trajectory although there are some: one that ends shortly before or behind it.
std::string unmatched_cause(const Project& part, const POsync& sync, const SwathClock& clock) {
  constexpr double SHORTLY = 1800;  // s
  for (size_t f = 0; f < part.pofiles.size(); f++) {
    const POfileState& file = sync.files[f];
    const double behind = clock.end - file.tmax, before = file.tmin - clock.begin;
    const double missing = std::max(behind, before);
    if (file.dup >= 0 || file.tmax <= file.tmin || missing <= 0 || missing > SHORTLY) continue;
    return LOG_STR(part.pofiles[f].path << (behind > before ? " ends " : " begins ") << missing
                                        << (behind > before ? " s too early" : " s too late")
                                        << ": cut short, copy it again? Else another flight, or another time "
                                           "scale (-po_time, -gps_date, -daysec, -auto_adj)");
  }
  return "another flight, or another time scale (-po_time, -gps_date, -daysec, -auto_adj)";
}

// A zone that takes a trajectory to the swaths when that of the run does not: "it fits zone 33, ...". Empty for none.
std::string zone_hint(const Project& part, const POsync& sync) {
  constexpr double NEAR = 50000;  // m
  const GeoRefParam& g = part.georef;
  if (g.kind != ProjKind::UTM) return "";
  const double mTsize = std::ldexp(1.0, sync.idx.level - 5);
  const mTbox& a = sync.idx.area;
  const auto beside = [&](double v, int64_t lo, int64_t hi) {
    const double from = static_cast<double>(lo) * mTsize - 10240000,
                 to = static_cast<double>(hi) * mTsize - 10240000;
    return std::max({from - v, v - to, 0.0}) / NEAR;
  };
  for (const POfileState& file : sync.files) {
    const dxyz centre = (file.min + file.max) * 0.5;
    double lon = 0, lat = 0, h = 0;
    if (file.min.x > file.max.x ||
        !geo_inverse(g, {centre.x / g.unit, centre.y / g.unit, centre.z / g.unit_z}, lon, lat, h))
      continue;
    const int sign = lat < 0 ? -1 : 1, of_place = static_cast<int>(std::floor((lon + 180) / 6)) + 1;
    for (const int zone : {sign * of_place, sign * (of_place + 1), sign * (of_place - 1)}) {
      GeoRefParam other;
      dxyz p;
      if (zone == g.Zone || std::abs(zone) < 1 || std::abs(zone) > 60 || !other.init(zone, "", 0, "", true) ||
          !geo_forward(other, lon, lat, 0, p) || beside(p.x * g.unit, a.xmin, a.xmax) > 1 ||
          beside(p.y * g.unit, a.ymin, a.ymax) > 1)
        continue;
      return LOG_STR("it fits zone " << zone << ", the run has zone " << g.Zone << ": give -utm " << zone);
    }
  }
  return "";
}

// Trajectories of which not even the first record could be read; the ERROR line of the reader has the reason.
std::vector<std::string> unreadable_files(const Project& part, const POsync& sync) {
  std::vector<std::string> names;
  for (size_t f = 0; f < part.pofiles.size(); f++)
    if (!sync.files[f].ok && sync.files[f].scan.t1 <= sync.files[f].scan.t0)
      names.push_back(part.pofiles[f].path);
  return names;
}

// Swaths that no trajectory serves, with the times of both; trajectories that lie elsewhere.
void report_unmatched(const Project& part, const POsync& sync, bool ok) {
  std::vector<std::string> none, several, files;
  std::string spans, cause;
  int nswaths = 0;
  for (const Swath& s : part.swaths.present()) {
    nswaths++;
    if (s.track.file >= 0) continue;
    (s.track.file == -2 ? several : none).push_back(s.path());
    if (s.track.file == -1 && none.size() == 1) cause = unmatched_cause(part, sync, s.clock);
    if (s.track.file == -1 && none.size() == 1)
      spans = s.path() + " " + span_text(s.clock.begin, s.clock.end, s.clock.adj);
  }
  for (size_t f = 0; f < part.pofiles.size(); f++) {
    const POfileState& file = sync.files[f];
    if (file.dup >= 0) continue;
    files.push_back(part.pofiles[f].path);
    if (files.size() == 1 && file.tmax > file.tmin)
      spans += ", " + files[0] + " " + span_text(file.tmin, file.tmax, file.scan.tadj);
  }
  const auto show = [&](const std::string& text) {
    if (ok)
      WARNING_MSG(text);
    else
      ERROR_MSG(text);
  };
  const std::vector<std::string> unreadable = unreadable_files(part, sync);
  if (!unreadable.empty())
    show(list_text(unreadable) +
         " cannot be used as trajectory: copy or export it again, or leave it out of -po");
  if (!none.empty() && unreadable.size() < files.size())
    show("no trajectory has the times of " + list_text(none) + " (" + spans + "): " + cause);
  if (!several.empty())
    show("more than one trajectory has the times of " + list_text(several) + ": leave one out of " +
         list_text(files));
  const std::string zone = ok ? std::string() : zone_hint(part, sync);
  if (!ok && none.empty() && several.empty())
    show("cannot use " + list_text(files) + " for " + std::to_string(nswaths) + " swaths: " +
         (zone.empty() ? "check its coordinates (-utm, -wkt, -po_geo), columns (-po_parse) and that it is a "
                         "trajectory"
                       : zone));
}

// Faults of one trajectory that read the same are one line.
void report(const Project& prj, const GeometryCheck& check, bool error) {
  struct Line {
    std::vector<std::string> names;
    SwathId worst;
  };
  std::map<std::pair<int, std::string>, Line> lines;
  for (const Swath& s : prj.swaths) {
    const TrajFault& f = check.swaths[s.id].fault;
    if (f.kind == TrajFaultKind::none) continue;
    // The same shift varies by hundredths from swath to swath.
    const double size = f.kind == TrajFaultKind::late  ? std::round(f.change.late * 2)
                        : f.kind == TrajFaultKind::low ? std::round(f.change.low / 4)
                                                       : 0;
    const std::string what = f.kind == TrajFaultKind::angles ? fault_text(f) : std::string();
    Line& line = lines[{check.swaths[s.id].file, LOG_STR(static_cast<int>(f.kind) << what << size)}];
    if (line.names.empty() || f.now.spread > check.swaths[line.worst].fault.now.spread) line.worst = s.id;
    line.names.push_back(s.path());
  }
  for (const auto& [key, line] : lines) {
    const TrajFault& f = check.swaths[line.worst].fault;
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

GeometryCheck check_geometry(const Project& prj, const SwathVector<SwathProbe>& probes,
                             const GeometryCheckParam& par) {
  LOG_ENTER("check_geometry nsw=" << prj.swaths.size() << " error=" << par.error);
  const Stopwatch watch;
  GeometryCheck check;
  check.swaths = SwathVector<SwathGeometryCheck>(prj.swaths);
  DUTidx idx;
  Project part = make_part(prj, probes, idx);
  const std::vector<SwathId> ids = part.swaths.ids();
  if (ids.empty() || prj.pofiles.empty()) return check;
  POsync sync;
  POsyncParam sync_par = par.sync;
  sync_par.more = TRACK_MORE;
  {
    const ConsoleQuiet quiet;
    check.ok = IDX_PO_sync(idx, part, sync_par, sync) > 0;
  }
  report_unmatched(part, sync, check.ok);
  if (!check.ok) return check;
  run_units(static_cast<int64_t>(ids.size()), NTHREADSIO, [&](int64_t k, int) {
    const Swath& s = part.swaths[ids[static_cast<size_t>(k)]];
    if (!s.has_track()) return true;
    SwathGeometryCheck& c = check.swaths[s.id];
    c.file = s.track.file;
    c.checked = check_swath(part, sync, par.sync, probes[s.id], s, c.fault);
    return true;
  });
  for (size_t f = 0; f < prj.pofiles.size(); f++) {
    std::vector<TrajFault*> faults;
    for (const SwathId id : ids)
      if (check.swaths[id].file == static_cast<int>(f)) faults.push_back(&check.swaths[id].fault);
    agree_on_angles(faults);
  }
  int nfaults = 0;
  for (const SwathId id : ids) {
    if (check.swaths[id].checked) log_swath(prj.swaths[id].path(), check.swaths[id].fault);
    nfaults += check.swaths[id].fault.kind != TrajFaultKind::none;
  }
  report(prj, check, par.error);
  if (nfaults > 0 && par.error) check.ok = false;
  LOG_LINE("/// GEOMETRY_CHECK_TIME=" << watch.text());
  return check;
}
}  // namespace veld
