#include "prj/LiDAR/VR2proc/sequence_po.h"

#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/VR2proc/corr_run.h"
#include "prj/LiDAR/VR2proc/corr_swaths.h"
#include "prj/LiDAR/VR2proc/global_shift.h"

namespace veld {
namespace {
struct Requested {  // what the user gave
  bool S = false, CL = false, CB = false, CI = false, CDT = false, beams = false, attributes = false;
  ControlShift control;  // to control points
  bool moves() const { return S || CL || CB || CI || CDT || beams || control.CZ || control.CXYZ; }
  bool needs_track() const { return CL || CB || CI || CDT || beams || attributes; }
};

Requested find_requested(const Project& prj, const CorrParam& par) {
  Requested r;
  const xyz none = {0, 0, 0};
  r.S = !(par.manual.shift == none);
  for (const Shift& s : prj.shifts) r.S = r.S || !(s.S == none);
  for (const Calib& c : prj.calibs) {
    r.CL = r.CL || !(c.L == none);
    r.CB = r.CB || !(c.B == none);
    r.CI = r.CI || std::any_of(c.I.begin(), c.I.end(), [](float v) { return v != 0; });
  }
  r.CDT = par.manual.tcorr != 0;
  r.control = control_shift(par);
  r.beams = !par.beams.sets.empty();
  r.attributes = par.rewrite.las_angle || par.rewrite.int_angle || par.rewrite.pitch || par.rewrite.time;
  return r;
}

void show_requested(const CorrParam& par, const Requested& r) {
  const auto word = [](bool on) { return on ? "yes" : "no"; };
  const PointRewrite& w = par.rewrite;
  LOG_MSG("Requested corrections: CL=" << word(r.CL) << " CB=" << word(r.CB) << " CI=" << word(r.CI)
                                       << " BeamCal=" << word(r.beams) << " CDT=" << par.manual.tcorr
                                       << " | Time=" << word(w.time) << " Angle="
                                       << (w.las_angle   ? "LAS"
                                           : w.int_angle ? "int"
                                                         : "keep")
                                       << " Pitch=" << word(w.pitch) << " | FileOut=" << word(!par.nil)
                                       << " Undo=" << word(par.undo && !par.nil));
  std::string row;
  if (r.CL || r.CB || r.CI)
    row +=
        std::string("Calib(") + (r.CL ? "Lever " : "") + (r.CB ? "Bore " : "") + (r.CI ? "Int " : "") + ") ";
  if (r.beams) row += LOG_STR("BeamCalib(" << par.beams.sets.size() << " ch) ");
  if (r.S) row += "Shift ";
  const char* const how = r.control.groups ? "group) " : "global) ";
  if (r.control.CXYZ)
    row += std::string("GCP_DXYZ(") + how;
  else if (r.control.CZ)
    row += std::string("GCP_DZ(") + how;
  if (r.CDT) row += "Delay ";
  LOG_LINE("Corrections: " << row);
  if (!r.moves()) LOG_MSG("geometric corrections disabled");
}

// The calibrations of the groups in the place of found ones.
InvResult given_result(const Project& prj, const Requested& r) {
  InvResult res;
  res.calib = prj.calibs;
  res.CL = r.CL;
  res.CB = r.CB;
  res.CI = r.CI;
  res.swaths = SwathVector<InvCorr>(prj.swaths);
  for (const Swath& s : prj.swaths)
    if (!prj.calibs.empty() && s.group > 0 && !s.fixed) res.swaths[s.id].cal = s.group - 1;
  return res;
}

// Pairs of the index for the check; their numbers are those of the list.
void take_pairs(const SwPairList& overlap, DUTidx& idx) {
  idx.pairs.clear();
  for (const auto& [a, b] : overlap) idx.pairs.push_back({a, b, 0});
}

// Tables that move nothing by themselves, for swaths at whose control points only the shift counts.
bool make_zero_tables(const Project& prj, const std::vector<SwathId>& swc, SwathVector<SCorrTbl>& tables) {
  for (const SwathId sw : swc) {
    Vector<TIsxy> TI;
    if (!read_LTidx_TI(prj.swaths[sw].cache, TI)) {
      ERROR_MSG("missing/incompatible temp. tile files, swath " << prj.swaths[sw].path());
      return false;
    }
    tables[sw].C.resize(TI.size(), Image<xyz>(mTsub, mTsub, xyz{0, 0, 0}));
  }
  return true;
}

// Shifts of whole swaths, without trajectories: no check of pairs.
bool shift_alone(Project& prj, CorrRun& run, CorrResult& result) {
  for (const Swath& s : prj.swaths)
    if (s.mobile()) run.swc.push_back(s.id);
  run.rot = SwathVector<SwRot>(prj.swaths);
  run.tables = SwathVector<SCorrTbl>(prj.swaths);
  for (const SwathId sw : run.swc) run.tables[sw].T0 = {0, 0, 0};
  add_T0_manual(prj, run.par.manual, run.swc, run.tables);
  if (!run.par.points.gcp.empty() || !run.par.points.xyz.empty()) {
    if (!make_zero_tables(prj, run.swc, run.tables) ||
        !corr_control_T0_SCorr(prj, run.par.control, run.par.points, control_shift(run.par), run.swc,
                               run.tables, result.control))
      return false;
    result.points = moved_control(prj, run.par.points, result.control);
  }
  display_global_shift(run.swc, run.tables);
  if (run.par.opo || run.par.oposeg || run.par.ocorr) {
    ERROR_MSG("corrected trajectories are wanted, but there is none (option -po)");
    return false;
  }
  LOG_MSG("no trajectory: shifts are applied without a check");
  return corr_swaths(prj, run, result);
}
}  // namespace

bool DUT_PO_QC_CORR(Project& prj, const DUTidx& idx, const SwPairList& overlap, const CorrParam& par,
                    CorrResult& result) {
  LOG_ENTER("DUT_PO_QC_CORR name='" << prj.name << "' AROT=" << par.sync.AROT << " SCAN=" << !par.manual.on
                                    << " CORR=" << !par.nil << " ICS=" << par.geometry.ICS
                                    << " ICS_r=" << par.geometry.ICS_r << " QC=" << par.QC << " CD=" << par.CD
                                    << " CR=" << par.CR << " CGM=" << par.CGM << " nsw=" << prj.swaths.size()
                                    << " ngrp=" << prj.nmgrp << " nshift=" << prj.shifts.size()
                                    << " ncalib=" << prj.calibs.size());
  const Stopwatch watch;
  LOG_LINE((par.manual.on ? "manual correction" : "PO scan"));
  CorrRun run;
  run.par = par;
  const Requested requested = find_requested(prj, par);
  if (par.manual.on) {
    if (!requested.moves() && !requested.attributes) {
      ERROR_MSG("all corrections disabled, nothing to do");
      return false;
    }
    show_requested(par, requested);
    run.res = given_result(prj, requested);
    if (prj.pofiles.empty() && !requested.needs_track()) return shift_alone(prj, run, result);
  }
  if (IDX_PO_sync(idx, prj, par.sync, run.sync) == 0 || !comp_swath_geometry(prj, par.geometry, run))
    return false;
  if (!par.manual.on) {
    LOG_LINE("/// PO_SCAN_TIME=" << watch.text());
    return true;
  }
  take_pairs(overlap, run.sync.idx);
  choose_qc_pairs(prj, run);
  return QC_OUT_CORR(prj, run, result);
}
}  // namespace veld
