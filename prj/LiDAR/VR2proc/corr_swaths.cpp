#include "prj/LiDAR/VR2proc/corr_swaths.h"

#include <algorithm>
#include <mutex>
#include <tuple>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/VR2proc/corr_POfiles.h"
#include "prj/LiDAR/VR2proc/corr_log.h"
#include "prj/LiDAR/VR2proc/corr_swath.h"
#include "prj/LiDAR/VR2proc/corr_tiles.h"
#include "prj/LiDAR/VR2proc/undo_file.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// "Auto" or "Man Geom Corr: " and the letters of what is applied: S shift, L B I calibration, T and A drift, D time
// delay.
std::string run_id(const CorrRun& run, const xyz& T0) {
  const InvResult& res = run.res;
  std::string letters;
  if (!(T0 == xyz{0, 0, 0})) letters += 'S';
  if (res.CL || !run.par.beams.sets.empty()) letters += 'L';
  if (res.CB || !run.par.beams.sets.empty()) letters += 'B';
  if (res.CI || !run.par.beams.sets.empty()) letters += 'I';
  if (res.CT) letters += 'T';
  if (res.CA) letters += 'A';
  if (run.par.manual.tcorr != 0) letters += 'D';
  return (run.par.manual.on ? "Man Geom Corr: " : "Auto Geom Corr: ") + letters;
}

CorrJob make_job(const Project& prj, const CorrRun& run, SwathId sw, const std::string& out,
                 const std::vector<std::string>& sources) {
  const CorrParam& par = run.par;
  const SwathClock& clock = prj.swaths[sw].clock;
  CorrJob job;
  job.sw = sw;
  job.path = prj.swaths[sw].path();
  job.out = out;
  job.points.clock = clock;
  job.points.rewrite = par.rewrite;
  job.points.t_out = static_cast<double>(par.manual.tcorr);
  job.points.rewrite.time =
      par.rewrite.time && (clock.rover != Rollover::none || clock.shift + job.points.t_out != 0);
  job.adj = clock.adj;
  job.sid = run_id(run, run.tables[sw].T0);
  job.undo = par.undo;
  job.lax = par.lax;
  job.lax_append = par.lax_append;
  job.sources = &sources;
  return job;
}

void log_corr_inputs(const SwathCorr& corr, size_t nbeam) {
  LOG_LINE("[CS] S: " << corr.S.x << ' ' << corr.S.y << ' ' << corr.S.z);
  if (corr.CL) LOG_LINE("[CL] L: " << corr.L.x << ' ' << corr.L.y << ' ' << corr.L.z);
  if (corr.CB)
    LOG_LINE("[CB] B: " << corr.B.x * RAD2DEG << ' ' << corr.B.y * RAD2DEG << ' ' << corr.B.z * RAD2DEG);
  if (nbeam > 0) LOG_LINE("[CS] ns=" << nbeam << " override");
  if (corr.CT) LOG_LINE("[CT] Tt.size()=" << corr.Tt->size() << " t0=" << corr.t0 << " Dt=" << corr.Dt);
  if (corr.CA) LOG_LINE("[CA] At.size()=" << corr.At->size() << " t0=" << corr.t0 << " Dt=" << corr.Dt);
  if (corr.CDT) LOG_LINE("[CDT] tcorr=" << corr.tcorr);
}

// The corrections of the beams: that of the swath with each beam's calibration on top.
bool make_beams(const BeamParam& beams, const SwathCorr& corr, std::vector<SwathCorr>& made) {
  for (const Calib& set : beams.sets) {
    SwathCorr c = corr;
    c.CL = c.CB = c.CI = true;
    c.L += set.L;
    c.B += set.B;
    for (int k = 0; k < N_INTERNAL; k++) c.I[k] += set.I(k);
    if (!init_SwathCorr(c)) return false;
    made.push_back(c);
  }
  return true;
}

// One swath: its logs, and its file or its share of the tiles when files are wanted.
bool corr_swath(const Project& prj, const CorrRun& run, CorrJob job, CorrTiles* tiles, CorrCount& count) {
  LOG_ENTER("corr_swath sw=" << job.sw << " '" << job.path << "'");
  const Swath& swath = prj.swaths[job.sw];
  const bool tracks = !prj.pofiles.empty();  // shifts alone need no trajectory
  Vector<PO> po;
  double dt;
  if (tracks && !load_POC_TMP(swath.cache, swath.id, po, dt)) {
    ERROR_MSG("missing or bad trajectory cache, swath " << job.path);
    return false;
  }
  SwathCorr corr;
  const xyz T0 = run.tables[job.sw].T0;
  if (!make_SwathCorr({run.res, run.par.inv, run.par.manual, run.rot}, swath, T0, tracks ? &po : nullptr,
                      corr) ||
      !make_beams(run.par.beams, corr, job.points.beams))
    return false;
  log_corr_inputs(corr, job.points.beams.size());
  if (!run.par.manual.on && !log_corr(run.res, job.sw, T0, po)) return false;
  if (!corr_traj_out(prj, run.par, corr, job.sw)) return false;
  if (run.par.nil) return true;
  job.points.corr = &corr;
  if (!job.points.beams.empty()) job.points.split = &run.par.beams.split;
  return tiles ? tile_corr_swath_las(job, *tiles, count) : corr_swath_las(job, count);
}

void show_outputs(const CorrParam& par, size_t n) {
  const bool undo = par.undo && !par.nil;
  if (undo || par.ocorr || par.oposeg)
    LOG_LINE("Extra output: " << (undo ? "Undo " : "") << (par.ocorr ? "SegCorr " : "")
                              << (par.oposeg ? "SegPO " : ""));
  if (undo)
    LOG_MSG("Written point correction files (undo data) '*"
            << undo_name("") << "' xy_scale=" << undo_steps().xy << " z_scale=" << undo_steps().z);
  if (par.ocorr)
    LOG_MSG("Written "
            << n << " position & shift & attitude correction files '*_P_TA_sw_n.txt', segmented, subsampling="
            << par.po_sub);
  if (par.oposeg)
    LOG_MSG("Exported " << n
                        << " corrected position/orientation files '*_PO_sw_n.txt', segmented, subsampling="
                        << par.po_sub);
}

// Names among those of all swaths, so that copies of the others find theirs free.
std::vector<std::string> names_of(const Project& prj, const CorrParam& par, const std::vector<SwathId>& swc,
                                  int& ndup) {
  std::vector<SwathId> all;
  for (const Swath& s : prj.swaths)
    if (s.mobile() && s.corr) all.push_back(s.id);
  const std::vector<std::string> names = comp_output_names(par.out, par.odir, prj, all, ndup);
  std::vector<std::string> chosen;
  for (const SwathId sw : swc) {
    const auto at = std::find(all.begin(), all.end(), sw);
    chosen.push_back(names[static_cast<size_t>(at - all.begin())]);
  }
  return chosen;
}

// The tiles of all swaths that have been corrected, or the line about their files.
bool finish_files(const CorrRun& run, CorrTiles* tiles, const std::vector<SwathId>& good,
                  const Stopwatch& watch, CorrResult& result) {
  if (run.par.nil) {
    LOG_MSG("Processed " << good.size() << " swaths | " << watch.text());
    return true;
  }
  if (!tiles) {
    LOG_MSG("Corrected " << good.size() << " swaths, written total " << result.MB << " MB | "
                         << watch.text());
    LOG_LINE("Corrected data: " << good.size() << " files, " << good.size() << " swaths, total " << result.Mp
                                << " Mp, written " << result.MB << " MB");
    return true;
  }
  TileCount count;
  const bool ok = finish_tiles(*tiles, count);
  result.Mp = static_cast<double>(count.npoints) * 1e-6;
  result.MB = static_cast<double>(count.nbytes) * 1e-6;
  LOG_MSG("Corrected " << good.size() << " swaths, written total " << count.nt << " tiles, " << result.Mp
                       << " Mp, " << result.MB << " MB | " << watch.text());
  LOG_LINE("Corrected/tiled data: " << good.size() << " swaths, " << count.nt << " tiles, " << result.Mp
                                    << " Mp, " << result.MB << " MB");
  return ok;
}
}  // namespace

std::vector<SwathId> POsort_swc(const Project& prj) {
  std::vector<SwathId> swc;
  for (const Swath& s : prj.swaths)
    if (s.has_track()) swc.push_back(s.id);
  const auto key = [&](SwathId id) {
    const Swath& s = prj.swaths[id];
    return std::tuple(s.track.file, s.clock.begin, id);
  };
  std::sort(swc.begin(), swc.end(), [&](SwathId a, SwathId b) { return key(a) < key(b); });
  LOG_LINE("POsort_swc nsw=" << prj.swaths.size() << " ntraj=" << prj.pofiles.size()
                             << " nfx=" << std::ranges::count_if(prj.swaths.present(), &Swath::fixed)
                             << " nswc=" << swc.size());
  return swc;
}

std::vector<SwathId> POget_rej(const Project& prj) {
  std::vector<SwathId> rej;
  if (prj.pofiles.empty()) return rej;  // shifts alone
  for (const Swath& s : prj.swaths)
    if (s.mobile() && s.corr && !s.has_track()) rej.push_back(s.id);
  LOG_LINE("POget_rej nsw=" << prj.swaths.size() << " nswrej=" << rej.size());
  return rej;
}

std::vector<std::string> source_files(const Project& prj) {
  std::vector<std::string> sources;
  for (const Swath& s : prj.swaths)
    if (s.members.empty()) sources.push_back(s.path());
  for (const POfile& f : prj.pofiles) sources.push_back(f.path);
  return sources;
}

bool corr_swaths(Project& prj, const CorrRun& run, CorrResult& result) {
  const CorrParam& par = run.par;
  std::vector<SwathId> swc = run.swc;
  std::erase_if(swc, [&](SwathId sw) { return !prj.swaths[sw].corr; });
  if (swc.empty()) {
    ERROR_MSG("none of the swaths to correct has a trajectory");
    return false;
  }
  const int nswc = static_cast<int>(swc.size());
  const int nthreads = std::min(NTHREADS, nswc);
  const bool tiling = par.tile.size > 0 && !par.nil;
  LOG_ENTER("corr_swaths CORR=" << !par.nil << " nthreads=" << nthreads << " name='" << prj.name
                                << "' nsw=" << prj.swaths.size() << " nswc=" << nswc << " CL=" << run.res.CL
                                << " CB=" << run.res.CB << " CI=" << run.res.CI << " CT=" << run.res.CT
                                << " CA=" << run.res.CA << " CM=" << par.manual.on << " NOZ=" << par.inv.NOZ
                                << " sub=" << par.po_sub << " OTRAJC=" << par.ocorr
                                << " OCTRAJ=" << par.oposeg << " OTIME=" << par.rewrite.time
                                << " OALAS=" << par.rewrite.las_angle << " OAINT=" << par.rewrite.int_angle
                                << " OPITCH=" << par.rewrite.pitch << " TILE=" << tiling);
  const Stopwatch watch;
  if (!par.beams.sets.empty())
    WARNING_MSG("applying multibeam calibration corrections to all swaths, "
                << par.beams.sets.size() << " channels (" << split_word(par.beams.split.type) << ")");
  LOG_MSG("LiDAR FILE CORRECTION" << (tiling ? "/TILING" : "") << ": " << nswc << " swaths [" << nthreads
                                  << " TH]" << (par.nil ? " [SKIPPED]" : ""));
  int ndup = 0;
  const std::vector<std::string> names = names_of(prj, par, swc, ndup), sources = source_files(prj);
  CorrTiles tiles;
  if (tiling && !prepare_tiles(prj, par, swc, sources, run_id(run, run.tables[swc[0]].T0), tiles))
    return false;

  std::vector<CorrCount> counts(swc.size());
  std::vector<uint8_t> oks(swc.size(), 0);
  std::mutex mutex;
  int done = 0;
  const auto totals = [&] {
    return LOG_STR((tiling ? "CORRECTED/TILED " : "CORRECTED ")
                   << done << " swaths, " << result.Mp << " Mp, " << result.MB << " MB");
  };
  progress_start(nswc);
  run_units(nswc, nthreads, [&](int64_t c, int) {
    LOG_ENTER("th_corr_swath id=" << c);
    const size_t i = static_cast<size_t>(c);
    oks[i] = corr_swath(prj, run, make_job(prj, run, swc[i], names[i], sources), tiling ? &tiles : nullptr,
                        counts[i]);
    const std::lock_guard<std::mutex> lock(mutex);
    done++;
    result.Mp += static_cast<double>(counts[i].nwritten) * 1e-6;
    result.MB += static_cast<double>(counts[i].nbytes) * 1e-6;
    progress_step(done, totals());
    return true;  // a failed swath does not stop the others
  });
  progress_end(totals());

  for (size_t c = 0; c < swc.size(); c++) {
    if (!oks[c]) {
      ERROR_MSG("correction failed, swath " << prj.swaths[swc[c]].path());
      remove_log_corr({swc[c]});
      continue;
    }
    result.swc.push_back(swc[c]);
    if (!par.nil) prj.swaths[swc[c]].corrected = tiling ? tiles.out.list : names[c];
  }
  const std::vector<SwathId>& good = result.swc;
  if (ndup > 0)
    LOG_MSG("_g_group#_s_swath# appended to file names to avoid duplicates for " << ndup << " swaths");
  LOG_LINE("/// CORR_SWATHS_TIME=" << watch.text());
  const bool ok =
      finish_files(run, tiling ? &tiles : nullptr, good, watch, result) && good.size() == swc.size();
  result.reached = true;
  show_outputs(par, good.size());
  if (par.manual.on) return ok;
  if (!ok) {
    remove_log_corr(good);  // logs of fewer swaths would pass for the whole
    return false;
  }
  return merge_log_corr(prj, good) && drift_stat_output(prj, run.res, good);
}
}  // namespace veld
