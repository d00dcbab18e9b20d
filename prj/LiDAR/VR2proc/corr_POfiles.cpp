#include "prj/LiDAR/VR2proc/corr_POfiles.h"

#include <algorithm>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/result_file.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/VR2proc/corr_PO.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
double wide(float v) { return static_cast<double>(v); }

std::string segment_name(const Project& prj, const char* kind, SwathId sw) {
  return prj.name + kind + to_string(sw) + ".txt";
}

// A record of a swath's cache and what it gets.
struct Sample {
  PO rec;
  xyz T, A_deg;
};

// What a time delay makes of a sample: that of a later time.
void add_delay(const SwathCorr& corr, Sample& s) {
  PO later;
  if (!InterpPO(*corr.po, s.rec.t + corr.tcorr, corr.po_dt, later)) return;
  s.T += to_xyz(position(later) - position(s.rec));
  s.A_deg += {later.roll - s.rec.roll, later.pitch - s.rec.pitch, later.yaw - s.rec.yaw};
}

std::string position_line(const Sample& s) {
  char text[200];
  std::snprintf(text, sizeof text, "%.3f  %7.3f %7.3f %7.3f  %7.4f %7.4f %7.4f\n", s.rec.t,
                (s.rec.x + wide(s.T.x)) / OUTDATAUNIT, (s.rec.y + wide(s.T.y)) / OUTDATAUNIT,
                (s.rec.z + wide(s.T.z)) / OUTDATAUNIT_Z, wide(s.rec.roll + s.A_deg.x),
                wide(s.rec.pitch + s.A_deg.y), wide(s.rec.yaw + s.A_deg.z));
  return text;
}

std::string correction_line(const Sample& s) {
  char text[240];
  std::snprintf(text, sizeof text, "%.3f  %.3f %.3f %.3f  %7.3f %7.3f %7.3f  %7.4f %7.4f %7.4f\n", s.rec.t,
                s.rec.x, s.rec.y, s.rec.z, wide(s.T.x), wide(s.T.y), wide(s.T.z), wide(s.A_deg.x),
                wide(s.A_deg.y), wide(s.A_deg.z));
  return text;
}

// The main channels of swc that lie in a trajectory file, or in an earlier one of its path.
std::vector<SwathId> main_swaths(const Project& prj, const std::vector<SwathId>& swc, int file) {
  std::vector<SwathId> list;
  for (const SwathId sw : swc)
    if (prj.swaths[sw].track.file == file && prj.swaths[sw].is_main()) list.push_back(sw);
  return list;
}

// What a swath brings into the file that it lies in.
bool make_part(const Project& prj, const InvResult& res, const xyz& T0, SwathId sw, TrackPart& part) {
  const Swath& swath = prj.swaths[sw];
  const InvCorr& found = res.swaths[sw];
  part.begin = swath.clock.begin;
  part.end = swath.clock.end;
  part.S = T0;
  if (!found.Tt.empty()) {
    if (res.CT) part.Tt = &found.Tt;
    if (res.CA) part.At = &found.At;
    part.t0 = found.t0;
    part.Dt = found.Dt;
  }
  part.AREC = swath.track.AREC;
  if (!part.AREC) return true;
  Vector<PO> po;
  double dt;
  if (!load_POC_TMP(swath.cache, sw, po, dt)) {
    ERROR_MSG("missing or bad trajectory cache, swath " << swath.path());
    return false;
  }
  part.yaw = po(0).yaw;
  return true;
}

bool corr_PO_sw(const Project& prj, const CorrParam& par, const POsync& sync, const InvResult& res, int file,
                const std::vector<SwathId>& swaths, const SwathVector<SCorrTbl>& tables) {
  const POfile& source = prj.pofiles[static_cast<size_t>(file)];
  const POfileState& state = sync.files[static_cast<size_t>(file)];
  TrackCorr corr;
  for (const SwathId sw : swaths) {
    corr.parts.emplace_back();
    if (!make_part(prj, res, tables[sw].T0, sw, corr.parts.back())) return false;
  }
  corr.tcorr = static_cast<double>(par.manual.tcorr);
  settle_parts(corr.parts, static_cast<double>(par.sync.tol));
  if (const Mount* const mount = mount_of_swath(prj, prj.swaths[swaths[0]]); mount && par.sync.AROT)
    corr.M = mount_rows(mount->IMU);
  PoCorrJob job;
  job.path = source.path;
  job.stem = prj.name + "_po_" + std::to_string(file);
  job.coord = state.scan.coord;
  job.read = state.read;
  job.read.deltat = state.TimeCorr;
  job.read.unroll = false;
  job.georef = &prj.georef;
  job.corr = &corr;
  LOG_ENTER("corr_PO_sw sw=" << swaths[0] << " proj=" << job.coord << " -> '" << job.stem << "' deltatPO="
                             << state.TimeCorr << " PO t:[" << state.tmin << ' ' << state.tmax << "] ");
  PoCorrResult result;
  if (!corr_PO_file(job, result)) return false;
  LOG_MSG("Corrected " << result.corrected << " s out of " << result.seconds << " s -> PO file "
                       << result.out);
  return true;
}
}  // namespace

bool corr_traj_out(const Project& prj, const CorrParam& par, const SwathCorr& corr, SwathId sw) {
  if ((!par.oposeg && !par.ocorr) || !corr.po) return true;
  LOG_ENTER("corr_traj_out sw=" << sw << " OTRAJC=" << par.ocorr << " OCTRAJ=" << par.oposeg
                                << " CT=" << corr.CT << " CA=" << corr.CA << " FC=0 FT=1 sub=" << par.po_sub);
  ResultFile positions, corrections;
  if ((par.oposeg && !positions.open(segment_name(prj, "_PO_sw_", sw))) ||
      (par.ocorr && !corrections.open(segment_name(prj, "_P_TA_sw_", sw))))
    return false;
  if (par.oposeg) positions.fs << "Time X Y Z Roll Pitch Yaw\n";
  if (par.ocorr) corrections.fs << "Time X Y Z TrajCorr{X Y Z} AttCorr{Roll Pitch Yaw}\n";
  uint64_t n = 0;
  for (uint64_t i = 0; i < corr.po->size(); i += static_cast<uint64_t>(par.po_sub), n++) {
    Sample s{(*corr.po)[i], corr.S, {0, 0, 0}};
    if (corr.CT) s.T += InterpVt(s.rec.t, corr.t0, corr.Dt, *corr.Tt);
    if (corr.CA) s.A_deg = InterpVt(s.rec.t, corr.t0, corr.Dt, *corr.At) * RAD2DEG;
    if (corr.CDT) add_delay(corr, s);
    if (par.oposeg) positions.fs << position_line(s);
    if (par.ocorr) corrections.fs << correction_line(s);
  }
  LOG_LINE(n << " records written");
  return (!par.oposeg || positions.commit()) && (!par.ocorr || corrections.commit());
}

bool corr_POfiles(const Project& prj, const CorrParam& par, const POsync& sync, const InvResult& res,
                  const std::vector<SwathId>& swc, const SwathVector<SCorrTbl>& tables) {
  LOG_ENTER("corr_POfiles swc.size()=" << swc.size() << " namePO.size()=" << prj.pofiles.size()
                                       << " CT=" << res.CT << " CA=" << res.CA << " tol=" << par.sync.tol
                                       << " AROT=" << par.sync.AROT);
  const Stopwatch watch;
  const int nfiles = static_cast<int>(prj.pofiles.size());
  const auto used = [&](int f) {
    return std::ranges::any_of(prj.swaths, [f](const Swath& s) { return s.mobile() && s.track.file == f; });
  };
  LOG_MSG("PO FILE CORRECTION: " << nfiles << " PO files");
  if (res.CA && par.inv.NOZ)
    WARNING_MSG("corrected trajectories cannot hold attitude drift without its height effect (option -noz)");
  int ncorrected = 0, nfailed = 0;
  progress_start(nfiles);
  for (int f = 0; f < nfiles; f++) {
    progress_step(f, LOG_STR("CORRECTED " << ncorrected << " PO files"));
    if (!used(f)) continue;
    const std::string& path = prj.pofiles[static_cast<size_t>(f)].path;
    const std::vector<SwathId> swaths = main_swaths(prj, swc, f);
    const auto all = std::ranges::count_if(
        prj.swaths, [f](const Swath& s) { return s.mobile() && s.track.file == f && s.is_main(); });
    if (swaths.empty() || !corr_PO_sw(prj, par, sync, res, f, swaths, tables)) {
      ERROR_MSG("failed to correct PO file " << path);
      nfailed++;
      continue;
    }
    ncorrected++;
    if (static_cast<int64_t>(swaths.size()) < all)
      WARNING_MSG("only used " << swaths.size() << " out of " << all << " swaths to correct PO file "
                               << path);
  }
  progress_end(LOG_STR("CORRECTED " << ncorrected << " PO files"));
  LOG_MSG(ncorrected << " PO files, time tolerance=" << par.sync.tol << " | " << watch.text());
  LOG_LINE("N PO corrected: " << ncorrected);
  return nfailed == 0;
}
}  // namespace veld
