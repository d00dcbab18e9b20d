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
#include "prj/LiDAR/VR2proc/undo_file.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// "Auto Geom Corr: " and the letters of what is applied: S shift, L B I calibration, T and A drift.
std::string run_id(const InvResult& res, const xyz& T0) {
  std::string letters;
  if (!(T0 == xyz{0, 0, 0})) letters += 'S';
  if (res.CL) letters += 'L';
  if (res.CB) letters += 'B';
  if (res.CI) letters += 'I';
  if (res.CT) letters += 'T';
  if (res.CA) letters += 'A';
  return "Auto Geom Corr: " + letters;
}

// One swath: its log, and its file when files are wanted.
bool corr_swath(const Project& prj, const Swath& swath, const CorrParam& par, const InvResult& res,
                const SwRot& rot, const xyz& T0, CorrJob job, CorrCount& count) {
  LOG_ENTER("corr_swath sw=" << job.sw << " '" << job.path << "'");
  Vector<PO> po;
  double dt;
  if (!load_POC_TMP(swath.cache, swath.id, po, dt)) {
    ERROR_MSG("missing or bad trajectory cache, swath " << job.path);
    return false;
  }
  SwathCorr corr;
  if (!make_SwathCorr(res, par.inv, rot, job.sw, T0, po, corr)) return false;
  corr.AREC = swath.track.AREC;  // positions as the inversion interpolated them
  LOG_LINE("[CS] S: " << corr.S.x << ' ' << corr.S.y << ' ' << corr.S.z);
  if (corr.CL) LOG_LINE("[CL] L: " << corr.L.x << ' ' << corr.L.y << ' ' << corr.L.z);
  if (corr.CB)
    LOG_LINE("[CB] B: " << corr.B.x * RAD2DEG << ' ' << corr.B.y * RAD2DEG << ' ' << corr.B.z * RAD2DEG);
  if (corr.CT) LOG_LINE("[CT] Tt.size()=" << corr.Tt->size() << " t0=" << corr.t0 << " Dt=" << corr.Dt);
  if (corr.CA) LOG_LINE("[CA] At.size()=" << corr.At->size() << " t0=" << corr.t0 << " Dt=" << corr.Dt);
  if (!log_corr(res, job.sw, T0, po) || !corr_traj_out(prj, par, corr, job.sw)) return false;
  if (par.nil) return true;
  job.points.corr = &corr;
  return corr_swath_las(job, count);
}
void show_trajectory_outputs(const CorrParam& par, size_t n) {
  if (par.ocorr)
    LOG_MSG("Written "
            << n << " position & shift & attitude correction files '*_P_TA_sw_n.txt', segmented, subsampling="
            << par.po_sub);
  if (par.oposeg)
    LOG_MSG("Exported " << n
                        << " corrected position/orientation files '*_PO_sw_n.txt', segmented, subsampling="
                        << par.po_sub);
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
  for (const Swath& s : prj.swaths)
    if (s.mobile() && s.corr && !s.has_track()) rej.push_back(s.id);
  LOG_LINE("POget_rej nsw=" << prj.swaths.size() << " nswrej=" << rej.size());
  return rej;
}

bool corr_swaths(Project& prj, const CorrParam& par, const InvResult& res, const SwathVector<SwRot>& rot,
                 const std::vector<SwathId>& swc_all, const SwathVector<SCorrTbl>& tables,
                 CorrResult& result) {
  std::vector<SwathId> swc = swc_all;
  std::erase_if(swc, [&](SwathId sw) { return !prj.swaths[sw].corr; });
  if (swc.empty()) {
    ERROR_MSG("none of the swaths to correct has a trajectory");
    return false;
  }
  const int nswc = static_cast<int>(swc.size());
  const int nthreads = std::min(NTHREADS, std::max(nswc, 1));
  LOG_ENTER("corr_swaths CORR=" << !par.nil << " nthreads=" << nthreads << " name='" << prj.name
                                << "' nsw=" << prj.swaths.size() << " nswc=" << nswc << " CL=" << res.CL
                                << " CB=" << res.CB << " CI=" << res.CI << " CT=" << res.CT
                                << " CA=" << res.CA << " CM=0 NOZ=" << par.inv.NOZ);
  const Stopwatch watch;
  LOG_MSG("LiDAR FILE CORRECTION: " << nswc << " swaths [" << nthreads << " TH]"
                                    << (par.nil ? " [SKIPPED]" : ""));
  int ndup = 0;
  const std::vector<std::string> names = comp_output_names(par.out, par.odir, prj, swc, ndup);
  std::vector<std::string> sources;
  for (const Swath& s : prj.swaths)
    if (s.members.empty()) sources.push_back(s.path());
  for (const POfile& f : prj.pofiles) sources.push_back(f.path);
  std::vector<CorrJob> jobs(swc.size());
  for (size_t c = 0; c < swc.size(); c++) {
    const SwathClock& clock = prj.swaths[swc[c]].clock;
    jobs[c].sw = swc[c];
    jobs[c].path = prj.swaths[swc[c]].path();
    jobs[c].points.clock = clock;
    jobs[c].points.rewrite = par.rewrite;
    jobs[c].points.rewrite.time = par.rewrite.time && (clock.rover != Rollover::none || clock.shift != 0);
    jobs[c].adj = clock.adj;
    jobs[c].undo = par.undo;
    jobs[c].out = names[c];
    jobs[c].sid = run_id(res, tables[swc[c]].T0);
    jobs[c].lax = par.lax;
    jobs[c].lax_append = par.lax_append;
    jobs[c].sources = &sources;
  }

  std::vector<CorrCount> counts(swc.size());
  std::vector<uint8_t> oks(swc.size(), 0);
  std::mutex mutex;
  int done = 0;
  CorrResult sum;
  progress_start(std::max(nswc, 1));
  run_units(nswc, nthreads, [&](int64_t c, int) {
    LOG_ENTER("th_corr_swath id=" << c);
    const size_t i = static_cast<size_t>(c);
    const SwathId sw = swc[i];
    oks[i] = corr_swath(prj, prj.swaths[sw], par, res, rot[sw], tables[sw].T0, jobs[i], counts[i]) ? 1 : 0;
    const std::lock_guard<std::mutex> lock(mutex);
    done++;
    sum.Mp += static_cast<double>(counts[i].nwritten) * 1e-6;
    sum.MB += static_cast<double>(counts[i].nbytes) * 1e-6;
    progress_step(done, LOG_STR("CORRECTED " << done << " swaths, " << sum.Mp << " Mp, " << sum.MB << " MB"));
    return true;  // a failed swath does not stop the others
  });
  progress_end(LOG_STR("CORRECTED " << done << " swaths, " << sum.Mp << " Mp, " << sum.MB << " MB"));

  std::vector<SwathId> good;
  for (size_t c = 0; c < swc.size(); c++) {
    if (!oks[c]) {
      remove_log_corr({swc[c]});
      continue;
    }
    good.push_back(swc[c]);
    if (!par.nil) prj.swaths[swc[c]].corrected = names[c];
  }
  const bool ok = good.size() == swc.size();
  if (ndup > 0)
    LOG_MSG("_g_group#_s_swath# appended to file names to avoid duplicates for " << ndup << " swaths");
  LOG_LINE("/// CORR_SWATHS_TIME=" << watch.text());
  if (!par.nil)
    LOG_MSG("Corrected " << good.size() << " swaths, written total " << sum.MB << " MB | " << watch.text());
  else
    LOG_MSG("Processed " << good.size() << " swaths | " << watch.text());
  result.reached = true;
  result.swc = good;
  result.Mp = sum.Mp;
  result.MB = sum.MB;
  if (par.undo && !par.nil) LOG_MSG("Written point correction files (undo data) '*" << undo_name("") << "'");
  show_trajectory_outputs(par, good.size());
  if (!ok) {
    remove_log_corr(good);  // logs of fewer swaths would pass for the whole
    return false;
  }
  return merge_log_corr(prj, good) && drift_stat_output(prj, res, good);
}
}  // namespace veld
