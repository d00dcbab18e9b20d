#include "prj/LiDAR/VR2proc/corr_run.h"

#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTQCsep/gtile_export.h"
#include "prj/LiDAR/LmTQCsep/separation.h"
#include "prj/LiDAR/VR2proc/copy_swaths.h"
#include "prj/LiDAR/VR2proc/corr_POfiles.h"
#include "prj/LiDAR/VR2proc/corr_maps.h"
#include "prj/LiDAR/VR2proc/corr_stat.h"
#include "prj/LiDAR/VR2proc/corr_swaths.h"
#include "prj/LiDAR/VR2proc/independent_groups.h"
#include "prj/LiDAR/VR2proc/residual_maps.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// The shifts of whole swaths, on top of the tables.
void shift_swaths(const Project& prj, CorrRun& run, double& AGL) {
  const GlobalShiftParam par = global_shift(run);
  AGL = par.AGL;
  init_T0_SCorr(run.res, run.swc, run.tables);
  add_group_shifts(prj, run.groups, run.swc, run.tables);
  if (run.par.manual.on) add_T0_manual(prj, run.par.manual, run.swc, run.tables);
  dzcorr_DR_T0_SCorr(run.res, par, run.swc, run.tables);
}

// And the shifts to the ground control, beside those of groups that are known already.
bool shift_to_control(const Project& prj, CorrRun& run, CorrResult& result) {
  result.control.shifts = run.groups;
  return corr_control_T0_SCorr(prj, run.par.control, run.par.points, control_shift(run.par), run.swc,
                               run.tables, result.control);
}

// The shifts that corrected trajectories contain beside the drift.
void note_shifts(const CorrRun& run) {
  const CorrParam& par = run.par;
  const bool shifted = std::any_of(run.swc.begin(), run.swc.end(), [&](SwathId sw) {
    return !(run.tables[sw].T0 == xyz{0, 0, 0});
  });
  if (shifted && (par.opo || par.oposeg || par.ocorr))
    WARNING_MSG("Swath shifts added to trajectory corrections");
}

void log_output(const CorrParam& par) {
  LOG_MSG("OUTPUT");
  LOG_LINE("LiDAR output: " << (par.nil ? "[skipped]" : par.tile.size > 0 ? "[TILES]" : "[swaths]"));
  if (par.tile.size > 0)
    LOG_LINE("Tile origin and size: " << par.tile.x0() << ' ' << par.tile.y0() << ' ' << par.tile.size);
  const PointRewrite& r = par.rewrite;
  LOG_LINE("Overrides: " << (r.time ? "GPSTime " : "") << (r.las_angle ? "ScanAngle(LAS) " : "")
                         << (r.int_angle ? "ScanAngle(INT) " : "") << (r.pitch ? "UserData(PITCH) " : ""));
}

// Swaths without a correction: counted, and copied where that is wanted.
bool copy_rejected(const Project& prj, const CorrParam& par, CorrResult& result) {
  const std::vector<SwathId> rejected = POget_rej(prj);
  result.nswrej = static_cast<int>(rejected.size());
  if (rejected.empty()) return true;
  WARNING_MSG(rejected.size() << " swaths excluded, incomplete correction, rasters and DZ map affected");
  if (!par.corr_all || par.nil) return true;
  if (par.tile.size > 0) {
    ERROR_MSG("TILING UNCORRECTED SWATHS NOT IMPLEMENTED");
    return false;
  }
  if (copy_swaths(prj, par, rejected, result.copied)) return true;
  ERROR_MSG("at least one swath copy failed");
  return false;
}
// Tables, shifts of whole swaths, the check. False after an ERROR line when there can be no correction; checked: whether
// the check succeeded.
bool comp_corrections(Project& prj, CorrRun& run, CorrResult& result, bool& checked) {
  checked = true;
  const CorrSource source{run.res, run.par.inv, run.par.manual, run.rot};
  if (!corr_tbl_swaths(prj, source, run.swc, run.samples, run.index, run.par.fill, NTHREADS, run.tables))
    return false;
  shift_swaths(prj, run, result.AGL);
  checked = shift_to_control(prj, run, result);
  display_global_shift(run.swc, run.tables);
  if (!Cimg_stat_swaths(prj, run.swc, run.tables) ||
      !save_corr_maps(prj, run.par.map, run.swc, run.index, run.tables) ||
      (run.par.map.ascii && !Cimg_stat_corrtbl(prj, run.swc, run.index, run.tables))) {
    ERROR_MSG("correction grid/stats failed, probably missing temp. files");
    return false;
  }
  const TileInfo frame = frame_of(run.sync.idx.area);
  if (!run.qc_pairs.empty() &&
      !QC_DZ_corr_LmT(prj, run.qc_pairs, run.tables, NTHREADS, run.par.map, frame, result.qc)) {
    ERROR_MSG("post-correction relative QC failed, missing/incompatible temp. grid files");
    checked = false;  // ends the QC only: the corrected files are still written
  }
  if (run.par.map.sep &&
      !save_separation(prj, frame, run.par.map, NTHREADS, &run.tables, result.separation)) {
    ERROR_MSG("swath separation after the correction failed");
    checked = false;
  }
  return true;
}
}  // namespace

GlobalShiftParam global_shift(const CorrRun& run) {
  GlobalShiftParam par;
  par.CGM = run.par.CGM;
  par.CD = run.par.CD;
  par.CR = run.par.CR;
  par.range_model = !run.par.inv.CALINTGEN && !run.par.inv.CALINTNOB;
  par.AGL = run.par.AGL > 0 ? static_cast<double>(run.par.AGL) : comp_mean_AGL(run.samples, run.swc);
  return par;
}

ControlShift control_shift(const CorrParam& par) {
  return {par.CZ && !par.points.gcp.empty(), par.CXYZ && !par.points.xyz.empty(), par.GCPG};
}

void choose_qc_pairs(const Project& prj, CorrRun& run) {
  if (!run.par.QC) return;
  int n0 = 0;
  run.qc_pairs = comp_int_sw_qc(prj, run.sync.idx, run.par.qc, n0);
  std::erase_if(run.qc_pairs, [&](const SwPair& p) {
    const auto has = [&](SwathId sw) { return prj.swaths[sw].fixed || prj.swaths[sw].has_track(); };
    return !has(p.sw1) || !has(p.sw2);
  });
  if (run.qc_pairs.empty())
    WARNING_MSG("post-correction relative QC disabled, insufficient overlap"
                << (run.par.qc.filter ? " or all pairs filtered, check options -qc_grp -qc_ref -qc_ch" : ""));
}

bool QC_OUT_CORR(Project& prj, CorrRun& run, CorrResult& result) {
  LOG_ENTER("QC_OUT_CORR QC=" << run.par.QC);
  const Stopwatch watch;
  bool ok = true;
  if (!comp_corrections(prj, run, result, ok)) return false;
  result.points = moved_control(prj, run.par.points, result.control);
  log_output(run.par);
  note_shifts(run);
  if (run.par.gtile.corr && !export_tiles_corr(prj, frame_of(run.sync.idx.area), run.par.gtile, run.par.map,
                                               NTHREADS, &run.tables)) {
    ERROR_MSG("failed to export corrected gridded tiles");
    ok = false;
  }
  if (!corr_swaths(prj, run, result)) {
    ERROR_MSG("at least one swath correction failed");
    ok = false;
  }
  ok = result.reached && ok;
  if (result.reached) ok = copy_rejected(prj, run.par, result) && ok;
  if (result.reached && run.par.opo)
    ok = corr_POfiles(prj, run.par, run.sync, run.res, result.swc, run.tables) && ok;
  run.res.residuals.clear();
  result.inv = std::move(run.res);
  LOG_LINE("/// QC_OUT_CORR TIME=" << watch.text());
  return ok;
}
}  // namespace veld
