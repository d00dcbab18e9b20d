// The sequences of a synchronisation: with and without registration data.
#include <algorithm>
#include <utility>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double END_TOL = 0.1;  // s, beyond which interpolation fails at the ends

// Start values of what the synchronisation finds. Intervals are those of the index: microseconds, so that a later run
// that corrects from the file does the same as the one that wrote it.
void start_result(Project& prj, POsync& res) {
  res.files.assign(prj.pofiles.size(), POfileState());
  res.groups.assign(prj.pogroups.size(), POgroupState());
  for (Swath& s : prj.swaths) {
    const DUTswath& line = res.idx.swaths[s.id];
    s.track = SwathTrack();
    if (s.state == SwathState::no_track) s.state = SwathState::used;
    s.clock.shift = 0;
    s.clock.adj = line.adj;
    s.clock.begin = line.tmin;
    s.clock.end = line.tmax;
  }
}

// Checks the lists against each other. False after an ERROR line.
bool check_groups(const Project& prj, const DUTidx& idx) {
  int ngrpm = 0;
  for (const Swath& s : prj.swaths)
    if (s.mobile()) ngrpm = std::max(ngrpm, s.group);
  const int ngrpPO = static_cast<int>(prj.pogroups.size());
  LOG_MSG("ngrpm=" << ngrpm << " ngrpPO=" << ngrpPO << " nsw=" << idx.nsw() << " nint=" << idx.nint()
                   << " nreg=" << idx.nreg);
  for (const POfile& file : prj.pofiles) ASSERT(file.group >= 1 && file.group <= ngrpPO);
  if (ngrpPO != 1 && ngrpPO != ngrpm) {
    ERROR_MSG("group size mismatch, " << ngrpPO << " PO groups and " << ngrpm << " mobile swaths groups");
    return false;
  }
  if (idx.nsw() != prj.swaths.size()) {
    ERROR_MSG("incompatible DUT file, " << idx.nsw() << " swaths, project has " << prj.swaths.size());
    return false;
  }
  return true;
}

// The displacement file must be of these swaths, by their names, uses and main channels. False after an ERROR line.
bool check_swaths(const SwathTable& swaths, const DUTidx& idx) {
  for (const Swath& s : swaths) {
    const DUTswath& line = idx.swaths[s.id];
    const std::string name = swaths.name(s.id);
    if (!is_row(line, swaths, s.id)) {
      ERROR_MSG("incompatible DUT file, swath " << s.id << " is " << line.path << ", in the project "
                                                << name);
      return false;
    }
    if (s.present() != line.present()) {
      ERROR_MSG("incompatible DUT file, swath " << s.id << (line.present() ? " is" : " is not")
                                                << " part of it, of the project it "
                                                << (s.present() ? "is, " : "is not, ") << name);
      return false;
    }
    if (!s.mobile() || line.mainch == s.is_main()) continue;
    ERROR_MSG("incompatible DUT file, swath " << s.id << " is " << (s.is_main() ? "no" : "a")
                                              << " main channel, in the project it is "
                                              << (s.is_main() ? "one" : "none") << ", " << name);
    return false;
  }
  return true;
}

bool matches(const SyncJob& job, int f, const Swath& s) {
  const double tol = job.par.tol;
  return s.mobile() && job.po_group(s) == job.file_group(f) && job.file(f).tmin - tol < s.clock.begin &&
         job.file(f).tmax + tol > s.clock.end;
}

// Whether attitudes come from the track: by the option, or because the file has none. Says what is missing.
bool recomputed_attitude(const POgroup& group, const POscan& scan, const Vector<PO>& po,
                         const std::string& path) {
  if (group.att == 1) return true;
  const auto level = [](const PO& rec) { return rec.roll == 0 && rec.pitch == 0 && rec.yaw == 0; };
  if (!scan.yaw || std::all_of(po.begin(), po.end(), level)) {
    WARNING_MSG("no attitude in PO file " << path << ", using the direction of the track and level flight");
    return true;
  }
  if (!scan.roll || !scan.pitch)
    WARNING_MSG("no " << (scan.pitch  ? "roll"
                          : scan.roll ? "pitch"
                                      : "roll and pitch")
                      << " in PO file " << path << ", using 0");
  return false;
}

// The part of a file that its group needs, read unless it is at hand. False: the file takes part in nothing more.
bool load_file(SyncJob& job, int f, StoredTrack& track) {
  POfileState& file = job.file(f);
  const POgroupState& group = job.group(job.file_group(f));
  const double margin = END_TOL + job.par.buf + job.par.more;
  POread par = file.read;
  par.deltat = file.TimeCorr;
  par.unroll = false;  // whole turns are a matter of each swath
  par.tinf = std::max(file.tmin, group.Tmin) - margin;
  par.tsup = std::min(file.tmax, group.Tmax) + margin;
  Vector<PO>& po = track.po;
  if (!find_track(job.par.tracks, job.file_path(f), par, track)) {
    track.path = job.file_path(f);
    track.stamp = file_stamp(track.path);
    track.par = par;
    file.ok = read_PO(track.path, par, po, track.adj);
    if (!file.ok) return false;
  }
  const POstat stat = comp_PO_dt_stat(po, file.scan.coord, track.adj);
  file.dt = stat.dt;
  file.AREC = recomputed_attitude(job.file_param(f), file.scan, po, job.file_path(f));
  file.tmin = po[0].t;
  file.tmax = po[po.size() - 1].t;
  return true;
}

// Gives a swath to a file, or marks it as claimed twice. The file is projected at its first match.
bool match_swath(SyncJob& job, int f, Swath& s, StoredTrack& track, bool& boxed) {
  POfileState& file = job.file(f);
  int& fl = s.track.file;
  if (!boxed) {
    const int proj = track.projected ? int{PO_PROJ} : file.scan.coord;
    if (!proj_PO(track.po, proj, job.prj.georef, job.file_path(f), file.min, file.max)) return false;
    track.projected = boxed = true;
  }
  if (fl == f || fl == -2) return true;
  if (fl >= 0) {
    fl = -2;
    return true;
  }
  s.track.AREC = file.AREC;
  bool cached = false;
  if (!cache_PO_sw(job, s, f, track.po, cached)) return false;
  if (cached) fl = f;
  return true;
}

// One file: read, match with the swaths of the pairs, or with all. False after an ERROR that ends the run.
bool sync_file(SyncJob& job, int f) {
  POfileState& file = job.file(f);
  const int g = job.file_group(f);
  const POgroupState& group = job.group(g);
  LOG_ENTER("sync_file f=" << f << " g=" << g + 1 << " t:[" << file.tmin << " " << file.tmax << "]");
  bool any = false;
  const double tol = job.par.tol;
  if (file.tmin - tol < group.Tmax && file.tmax + tol > group.Tmin) {  // else no swath can lie in it
    StoredTrack track;
    if (!load_file(job, f, track)) return true;
    bool boxed = false;
    SwathVector<uint8_t> done(job.swaths());
    const auto visit = [&](SwathId id) {
      Swath& s = job.swaths()[id];
      if (done[id] || !matches(job, f, s)) return true;
      done[id] = 1;
      any = true;
      return match_swath(job, f, s, track, boxed);
    };
    for (const DUTinter& pair : job.res.idx.pairs)
      if (!visit(pair.sw1) || !visit(pair.sw2)) return false;
    if (job.par.ALL || !any)
      for (const SwathId id : job.swaths().ids())
        if (!visit(id)) return false;
    keep_track(job.par.tracks, std::move(track));
  }
  if (!any)
    WARNING_MSG("no matching swath for PO file " << job.file_path(f) << " in group " << g + 1 << ", channel "
                                                 << job.channel_of_group(g));
  return true;
}

// Times of a registration are those at its vertices, where the second swath has what was measured; the first has it at
// the displacement from there.
void times_at_displacement(const Vector<PO>& po, bool AREC, const DUTpair& p, Vector<double>& t) {
  const double dt = mean_dt_PO(po);
  for (uint64_t i = 0; i < t.size(); i++) t[i] = time_at_displacement(po, dt, AREC, t[i], p.disp[i]);
}

// Position and attitude at every vector, from the caches.
bool interp_pairs(const SwathTable& swaths, POsync& res) {
  const size_t np = res.pairs.size();
  res.O1.resize(np), res.O2.resize(np), res.Att1.resize(np), res.Att2.resize(np);
  SwathVector<std::vector<std::pair<size_t, int>>> of_swath(swaths);  // entries of pairs, side
  for (size_t k = 0; k < np; k++) {
    DUTpair& p = res.pairs[k];
    res.O1[k].resize(p.size(), NO_PO);
    res.O2[k].resize(p.size(), NO_PO);
    res.Att1[k].resize(p.size(), xyz{1000, 1000, 1000});
    res.Att2[k].resize(p.size(), xyz{1000, 1000, 1000});
    for (double& t : p.t1) t = swaths[p.sw1].clock.sync(t);
    for (double& t : p.t2) t = swaths[p.sw2].clock.sync(t);
    of_swath[p.sw1].push_back({k, 1});
    of_swath[p.sw2].push_back({k, 2});
  }
  const std::vector<SwathId> ids = swaths.ids();
  const int64_t bad = run_units(static_cast<int64_t>(ids.size()), NTHREADSIO, [&](int64_t i, int) {
    const Swath& s = swaths[ids[static_cast<size_t>(i)]];
    if (s.track.file < 0 || of_swath[s.id].empty()) return true;
    Vector<PO> po;
    double dt = 0;
    if (!load_POC_TMP(s.cache, s.id, po, dt)) return false;
    for (const auto& [k, side] : of_swath[s.id])
      if (side == 1) times_at_displacement(po, s.track.AREC, res.pairs[k], res.pairs[k].t1);
    for (const auto& [k, side] : of_swath[s.id])
      interp_O_Att(po, side == 1 ? res.pairs[k].t1 : res.pairs[k].t2, s.track.AREC,
                   side == 1 ? res.O1[k] : res.O2[k], side == 1 ? res.Att1[k] : res.Att2[k]);
    return true;
  });
  if (bad >= 0) ERROR_MSG("failed to read trajectory cache of swath " << ids[static_cast<size_t>(bad)]);
  return bad < 0;
}

// All files in order, each for the swaths of its group. False after an ERROR that ends the run.
bool sync_files(SyncJob& job) {
  if (job.nfiles() > 0) progress_start(job.nfiles());
  for (int f = 0; f < job.nfiles(); f++) {
    if (job.nfiles() > 1) progress_step(f, "SYNCHRONISED " + std::to_string(f) + " PO files");
    POfileState& file = job.file(f);
    const bool same_group = file.dup >= 0 && job.file_group(file.dup) == job.file_group(f);
    if (same_group) {  // its swaths belong to the first of the two
      const POfileState& first = job.file(file.dup);
      file.ok = first.ok, file.tmin = first.tmin, file.tmax = first.tmax, file.dt = first.dt;
    } else if (file.ok && !sync_file(job, f)) {
      return false;
    }
  }
  if (job.nfiles() > 0) progress_end("SYNCHRONISED " + std::to_string(job.nfiles()) + " PO files");
  for (const Swath& s : job.swaths())
    if (s.track.file >= 0) job.file(s.track.file).used = true;
  return true;
}

// Reports and judgement. The number of usable swaths; 0 after an ERROR.
int finish_sync(SyncJob& job, const Stopwatch& watch) {
  const SyncVerdict verdict = judge_sync(job);
  if (!log_posync(job) || !traj_swaths_fp(job) || !save_PO_records(job)) return 0;
  const bool valid = report_verdict(job, verdict) && job.res.nswok > 0;
  for (Swath& s : job.swaths())  // the reports name the file of the channel's own group
    if (s.track.file >= 0) s.track.file = job.first_file(s.track.file);
  if (valid && !display_traj_proc(job)) return 0;
  LOG_MSG(job.nfiles() << " PO files processed, time tolerance=" << job.par.tol << " | " << watch.text());
  LOG_LINE("/// SYNC_TIME=" << watch.text());
  if (!valid) {
    ERROR_MSG("PO file synchronization failed");
    return 0;
  }
  return job.res.nswok;
}

std::string param_text(const POsyncParam& par) {
  return LOG_STR("tol=" << par.tol << " buf=" << par.buf << " AROT=" << par.AROT << " DAY=" << par.DAY
                        << " ALL=" << par.ALL << " ICH=" << par.ICH);
}
}  // namespace

int DUT_PO_sync(const std::string& dutname, Project& prj, const POsyncParam& par, POsync& res) {
  LOG_MSG1("TRAJECTORY/ATTITUDE PROCESSING:");
  LOG_ENTER("DUT_PO_sync " << param_text(par));
  const Stopwatch watch;
  res = POsync();
  if (!read_DUT_IDX(dutname, res.idx) || !check_groups(prj, res.idx) || !check_swaths(prj.swaths, res.idx))
    return 0;
  if (res.idx.nreg == 0) {
    ERROR_MSG("no registration data in DUT file " << dutname);
    return 0;
  }
  start_result(prj, res);
  SyncJob job{prj, par, res};
  if (!comp_multich(job) || !set_max_interval_ch(job)) return 0;
  if (!read_DUT(dutname, res.idx, res.pairs)) return 0;
  for (const DUTpair& p : res.pairs) job.regsw[p.sw1] = job.regsw[p.sw2] = 1;
  if (!grp_sync_time(job)) {
    ERROR_MSG("failed to sync GPS time for DUT file " << dutname);
    return 0;
  }
  if (!sync_files(job) || !interp_pairs(job.swaths(), res)) return 0;
  return finish_sync(job, watch);
}

bool replace_sync_pairs(const std::string& dutname, const Project& prj, POsync& res) {
  LOG_ENTER("replace_sync_pairs dut='" << dutname << "'");
  DUTidx idx;
  return read_DUT_IDX(dutname, idx) && read_DUT(dutname, idx, res.pairs) && interp_pairs(prj.swaths, res);
}

int IDX_PO_sync(const DUTidx& idx, Project& prj, const POsyncParam& par, POsync& res) {
  LOG_MSG1("TRAJECTORY/ATTITUDE PROCESSING:");
  POsyncParam all = par;
  all.ALL = true;
  LOG_ENTER("IDX_PO_sync " << param_text(all));
  const Stopwatch watch;
  res = POsync();
  res.idx = idx;
  if (!check_groups(prj, res.idx)) return 0;
  start_result(prj, res);
  SyncJob job{prj, all, res};
  if (!comp_multich(job) || !set_max_interval_ch(job)) return 0;
  if (!grp_sync_time(job)) {
    ERROR_MSG("failed to sync GPS time of swaths and PO files");
    return 0;
  }
  if (!sync_files(job)) return 0;
  return finish_sync(job, watch);
}
}  // namespace veld
