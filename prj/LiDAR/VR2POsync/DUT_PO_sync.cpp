// The sequences of a synchronisation: with and without registration data.
#include <algorithm>

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

// Sizes and start values of everything that is indexed by swath, file or group.
void start_result(const Project& prj, POsync& res) {
  const uint64_t nsw = res.idx.swaths.size();
  res.sw2fl.resize(nsw, -1);
  res.TimeCorr.resize(nsw, 0.0);
  res.tmin.resize(nsw);
  res.tmax.resize(nsw);
  res.adj.resize(nsw);
  res.AREC.resize(nsw, 0);
  res.mainch.resize(nsw, -1);
  res.min.assign(nsw, {99999999, 99999999, 9999});
  res.max.assign(nsw, {-99999999, -99999999, -9999});
  res.files.assign(prj.pofiles.size(), POfileState());
  res.groups.assign(prj.pogroups.size(), POgroupState());
  for (uint64_t sw = 0; sw < nsw; sw++) {
    const DUTswath& s = res.idx.swaths[sw];
    res.tmin.val[sw] = s.tmin;
    res.tmax.val[sw] = s.tmax;
    res.adj.val[sw] = s.adj;
  }
}

// Checks the lists against each other. False after an ERROR line.
bool check_groups(const Project& prj, const DUTidx& idx) {
  int ngrpm = 0;
  for (const DUTswath& s : idx.swaths)
    if (!s.fixed) ngrpm = std::max(ngrpm, s.group);
  const int ngrpPO = static_cast<int>(prj.pogroups.size());
  LOG_MSG("ngrpm=" << ngrpm << " ngrpPO=" << ngrpPO << " nsw=" << idx.nsw() << " nint=" << idx.nint()
                   << " nreg=" << idx.nreg);
  for (const POfile& file : prj.pofiles) ASSERT(file.group >= 1 && file.group <= ngrpPO);
  if (ngrpPO != 1 && ngrpPO != ngrpm) {
    ERROR_MSG("group size mismatch, " << ngrpPO << " PO groups and " << ngrpm << " mobile swaths groups");
    return false;
  }
  if (idx.swaths.size() != prj.swaths.size()) {
    ERROR_MSG("incompatible DUT file, " << idx.swaths.size() << " swaths, project has " << prj.swaths.size());
    return false;
  }
  return true;
}

// The displacement file must be of these swaths, by their names and main channels. False after an ERROR line.
bool check_swaths(const Project& prj, const DUTidx& idx) {
  for (size_t i = 0; i < prj.swaths.size(); i++) {
    const Swath& s = prj.swaths[i];
    const DUTswath& line = idx.swaths[i];
    const std::string name = swath_name(s);
    if (base_name(name) != base_name(line.path) && !same_file(name, line.path)) {
      ERROR_MSG("incompatible DUT file, swath " << i << " is " << line.path << ", in the project " << name);
      return false;
    }
    const bool is_main = s.mainch == static_cast<int>(i);
    if (s.fixed || line.mainch == is_main) continue;
    ERROR_MSG("incompatible DUT file, swath " << i << " is " << (is_main ? "no" : "a")
                                              << " main channel, in the project it is "
                                              << (is_main ? "one" : "none") << ", " << name);
    return false;
  }
  return true;
}

bool matches(const SyncJob& job, int f, int sw) {
  const double tol = job.par.tol;
  return job.mobile(sw) && job.po_group(sw) == job.file_group(f) &&
         job.file(f).tmin - tol < job.res.tmin(sw) && job.file(f).tmax + tol > job.res.tmax(sw);
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

// Reads the part of a file that its group needs. False: the file takes part in nothing more.
bool load_file(SyncJob& job, int f, Vector<PO>& po) {
  POfileState& file = job.file(f);
  const POgroupState& group = job.group(job.file_group(f));
  const double margin = END_TOL + job.par.buf;
  POread par = PO_read_param(job.file_param(f));
  par.deltat = file.TimeCorr;
  par.unroll = false;  // whole turns are a matter of each swath
  par.tinf = std::max(file.tmin, group.Tmin) - margin;
  par.tsup = std::min(file.tmax, group.Tmax) + margin;
  bool adj = false;
  file.ok = read_PO(job.file_path(f), par, po, adj);
  if (!file.ok) return false;
  const POstat stat = comp_PO_dt_stat(po, PO_file_coord(file.scan.fmt, par.proj), adj);
  file.dt = stat.dt;
  file.AREC = recomputed_attitude(job.file_param(f), file.scan, po, job.file_path(f));
  file.tmin = po.val[0].t;
  file.tmax = po.val[po.size() - 1].t;
  return true;
}

// Gives a swath to a file, or marks it as claimed twice. The file is projected at its first match.
bool match_swath(SyncJob& job, int f, int sw, Vector<PO>& po, bool& projected) {
  POfileState& file = job.file(f);
  int& fl = job.res.sw2fl(sw);
  if (!projected) {
    const int proj = PO_file_coord(file.scan.fmt, job.file_param(f).geo);
    if (!proj_PO(po, proj, job.prj.georef, job.file_path(f), file.min, file.max)) return false;
    projected = true;
  }
  if (fl == f || fl == -2) return true;
  if (fl >= 0) {
    fl = -2;
    return true;
  }
  job.res.AREC(sw) = file.AREC;
  bool cached = false;
  if (!cache_PO_sw(job, sw, f, po, cached)) return false;
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
    Vector<PO> po;
    if (!load_file(job, f, po)) return true;
    bool projected = false;
    std::vector<uint8_t> done(job.res.idx.swaths.size(), 0);
    const auto visit = [&](int sw) {
      if (done[static_cast<size_t>(sw)] || !matches(job, f, sw)) return true;
      done[static_cast<size_t>(sw)] = 1;
      any = true;
      return match_swath(job, f, sw, po, projected);
    };
    for (const DUTinter& pair : job.res.idx.pairs)
      if (!visit(pair.sw1) || !visit(pair.sw2)) return false;
    if (job.par.ALL || !any)
      for (int sw = 0; sw < job.res.idx.nsw(); sw++)
        if (!visit(sw)) return false;
  }
  if (!any)
    WARNING_MSG("no matching swath for PO file " << job.file_path(f) << " in group " << g + 1 << ", channel "
                                                 << job.channel_of_group(g));
  return true;
}

// Position and attitude at every vector, from the caches.
bool interp_pairs(SyncJob& job) {
  POsync& res = job.res;
  const size_t np = res.pairs.size();
  res.O1.resize(np), res.O2.resize(np), res.Att1.resize(np), res.Att2.resize(np);
  std::vector<std::vector<std::pair<size_t, int>>> of_swath(res.idx.swaths.size());  // entries of pairs, side
  for (size_t k = 0; k < np; k++) {
    DUTpair& p = res.pairs[k];
    res.O1[k].resize(p.size(), NO_PO);
    res.O2[k].resize(p.size(), NO_PO);
    res.Att1[k].resize(p.size(), xyz{1000, 1000, 1000});
    res.Att2[k].resize(p.size(), xyz{1000, 1000, 1000});
    for (double& t : p.t1) t += res.TimeCorr(p.sw1);
    for (double& t : p.t2) t += res.TimeCorr(p.sw2);
    of_swath[static_cast<size_t>(p.sw1)].push_back({k, 1});
    of_swath[static_cast<size_t>(p.sw2)].push_back({k, 2});
  }
  const int64_t bad = run_units(res.idx.nsw(), NTHREADSIO, [&](int64_t sw, int) {
    if (res.sw2fl(sw) < 0 || of_swath[static_cast<size_t>(sw)].empty()) return true;
    Vector<PO> po;
    double dt = 0;
    if (!load_POC_TMP(job.prj.swaths[static_cast<size_t>(sw)].cache, static_cast<int>(sw), po, dt))
      return false;
    for (const auto& [k, side] : of_swath[static_cast<size_t>(sw)])
      interp_O_Att(po, side == 1 ? res.pairs[k].t1 : res.pairs[k].t2, res.AREC(sw) != 0,
                   side == 1 ? res.O1[k] : res.O2[k], side == 1 ? res.Att1[k] : res.Att2[k]);
    return true;
  });
  if (bad >= 0) ERROR_MSG("failed to read trajectory cache of swath " << bad);
  return bad < 0;
}
// All files in order, each for the swaths of its group. False after an ERROR that ends the run.
bool sync_files(SyncJob& job) {
  POsync& res = job.res;
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
  for (int sw = 0; sw < res.idx.nsw(); sw++)
    if (res.sw2fl(sw) >= 0) job.file(res.sw2fl(sw)).used = true;
  return true;
}

// Reports and judgement. The number of usable swaths; 0 after an ERROR.
int finish_sync(SyncJob& job, const Stopwatch& watch) {
  const SyncVerdict verdict = judge_sync(job);
  if (!log_posync(job)) return 0;
  const bool valid = report_verdict(job, verdict) && job.res.nswok > 0;
  apply_verdict(job, verdict);
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

int DUT_PO_sync(const std::string& dutname, const Project& prj, const POsyncParam& par, POsync& res) {
  LOG_MSG1("TRAJECTORY/ATTITUDE PROCESSING:");
  LOG_ENTER("DUT_PO_sync " << param_text(par));
  const Stopwatch watch;
  res = POsync();
  if (!read_DUT_IDX(dutname, res.idx) || !check_groups(prj, res.idx) || !check_swaths(prj, res.idx)) return 0;
  if (res.idx.nreg == 0) {
    ERROR_MSG("no registration data in DUT file " << dutname);
    return 0;
  }
  start_result(prj, res);
  SyncJob job{prj, par, res, {}};
  if (!comp_multich(job) || !set_max_interval_ch(job)) return 0;
  if (!read_DUT(dutname, res.idx, res.pairs)) return 0;
  job.regsw.assign(res.idx.swaths.size(), 0);
  for (const DUTpair& p : res.pairs) {
    job.regsw[static_cast<size_t>(p.sw1)] = 1;
    job.regsw[static_cast<size_t>(p.sw2)] = 1;
  }
  if (!grp_sync_time(job)) {
    ERROR_MSG("failed to sync GPS time for DUT file " << dutname);
    return 0;
  }
  if (!sync_files(job) || !interp_pairs(job)) return 0;
  return finish_sync(job, watch);
}

int IDX_PO_sync(const DUTidx& idx, const Project& prj, const POsyncParam& par, POsync& res) {
  LOG_MSG1("TRAJECTORY/ATTITUDE PROCESSING:");
  POsyncParam all = par;
  all.ALL = true;
  LOG_ENTER("IDX_PO_sync " << param_text(all));
  const Stopwatch watch;
  res = POsync();
  res.idx = idx;
  if (!check_groups(prj, res.idx)) return 0;
  start_result(prj, res);
  SyncJob job{prj, all, res, std::vector<uint8_t>(idx.swaths.size(), 0)};
  if (!comp_multich(job) || !set_max_interval_ch(job)) return 0;
  if (!grp_sync_time(job)) {
    ERROR_MSG("failed to sync GPS time of swaths and PO files");
    return 0;
  }
  if (!sync_files(job)) return 0;
  return finish_sync(job, watch);
}
}  // namespace veld
