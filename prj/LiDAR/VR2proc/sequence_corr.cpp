#include "prj/LiDAR/VR2proc/sequence_corr.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/VR2proc/control_shift.h"
#include "prj/LiDAR/VR2proc/corr_at.h"
#include "prj/LiDAR/VR2proc/corr_run.h"
#include "prj/LiDAR/VR2proc/drift_accuracy.h"
#include "prj/LiDAR/VR2proc/global_shift.h"
#include "prj/LiDAR/VR2proc/independent_groups.h"
#include "prj/LiDAR/VR2proc/inv_input.h"
#include "prj/LiDAR/VR2proc/residual_maps.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
void log_args(const CorrParam& p) {
  const InvParam& i = p.inv;
  LOG_LINE("CORR=" << !p.nil << " ICH=" << p.sync.ICH << " AROT=" << p.sync.AROT << " QC=" << p.QC
                   << " ALLDZ=" << p.qc.ALLDZ << " GRPQC=" << p.qc.GRP << " REFQC=" << p.qc.REF
                   << " CHQC=" << p.qc.CH << " ICS=" << p.geometry.ICS);
  LOG_LINE("dcc=" << i.DCC << " CAL1=" << i.CAL1 << " CALGI=" << !i.INTSW << " CALGE=" << !i.EXTSW
                  << " CALR=" << i.CALR << " Fx=" << i.Fx << " Fy=" << i.Fy << " Fz=" << i.Fz
                  << " Fw=" << i.Fw << " Fp=" << i.Fp << " Fk=" << i.Fk << " CALINTGEN=" << i.CALINTGEN
                  << " CALINTNOB=" << i.CALINTNOB);
  LOG_LINE("Ftx=" << i.Ftx << " Fty=" << i.Fty << " Ftz=" << i.Ftz << " Faw=" << i.Faw << " Fap=" << i.Fap
                  << " Fak=" << i.Fak << " NOZ=" << i.NOZ << " FM=" << i.FM << " FA=" << i.FA
                  << " FGM=" << p.CGM);
  LOG_LINE("Cpri=" << i.Cpri0 << " Spri=" << i.Spri << " PriBoost=" << i.PriBoost << " Epri=" << i.Epri
                   << " Umax=" << i.Umax << " XUmax=" << i.XUmax << " XFUmax=" << i.XFUmax
                   << " GRPC=" << i.GRPC << " REFC=" << i.REFC << " dt=" << (p.auto_dt ? -1.0 : i.dt)
                   << " UADJ=" << i.UADJ << " CD=" << p.CD << " CR=" << p.CR << " RMS95=" << !i.RMSALL
                   << " AGL=" << p.AGL << " fill=" << p.fill << " CZ=" << p.CZ << " CXYZ=" << p.CXYZ
                   << " GCPG=" << p.GCPG);
}

// Step 1: trajectories, mounts, order of swaths, samples, check of the geometry.
bool prepare(Project& prj, CorrRun& run) {
  if (DUT_PO_sync(run.par.dut, prj, run.par.sync, run.sync) == 0) return false;
  return comp_swath_geometry(prj, run.par.geometry, run);
}

// Whether the inversion gets displacements between mobile swaths and references.
bool has_reference_pairs(const Project& prj, const CorrRun& run) {
  const auto fixed = [&](SwathId sw) { return prj.swaths[sw].fixed; };
  return run.par.inv.REFC != 0 && std::any_of(run.sync.pairs.begin(), run.sync.pairs.end(),
                                              [&](const DUTpair& p) { return fixed(p.sw1) != fixed(p.sw2); });
}

// Step 2: what was asked for against what the data allow.
void reconcile(const Project& prj, CorrRun& run) {
  const bool ref = std::ranges::any_of(prj.swaths.present(), &Swath::fixed);
  InvParam& inv = run.par.inv;
  if (ref && inv.REFC == 0) WARNING_MSG("registration data with reference swaths disabled (option -Y 0)");
  if (prj.nmgrp > 1 && inv.GRPC == 0) WARNING_MSG("registration data between groups disabled (option -X 0)");
  if (ref && run.par.CZ && !run.par.points.gcp.empty())
    WARNING_MSG("global GCP Z-bias correction disabled, not compatible with reference data");
  if (ref && run.par.CGM) {
    WARNING_MSG("mean disabled, not compatible with reference data");
    run.par.CGM = false;
  }
  if (ref && run.par.CXYZ && !run.par.points.xyz.empty())
    WARNING_MSG("global GCP XYZ-bias correction disabled, not compatible with reference data");
  if (ref) run.par.CZ = run.par.CXYZ = false;
  if (ref && inv.FM) inv.FM = false;  // the references hold the datum, so a mean drift is real
  if (run.par.CD && has_reference_pairs(prj, run)) {
    if (inv.FE[0] || inv.FE[1])
      LOG_MSG("flat effect of range bias and scale is kept, reference data determine heights");
    run.par.CD = false;
  }
  const bool channels =
      std::ranges::any_of(prj.swaths, [](const Swath& s) { return s.mobile() && s.channel != 0; });
  if (run.par.GCPG && prj.nmgrp <= 1) {
    WARNING_MSG("independent group GCP bias correction disabled, needs multiple groups");
    run.par.GCPG = false;
  }
  if (inv.CALR && !channels) {
    WARNING_MSG("relative calibration disabled, needs several channels (options -cal_rel -chgrp)");
    inv.CALR = false;
  }
  if (prj.nmgrp <= 1 && !inv.CAL1 && !inv.INTSW && !inv.EXTSW) {
    LOG_LINE("<!> CAL1=1 override");
    inv.CAL1 = true;
  }
}

bool any_internal(const InvParam& p) {
  return std::any_of(p.FE, p.FE + N_INTERNAL, [](bool b) { return b; });
}

// Steps 3 and 4: the list of corrections.
void show_requested(const CorrRun& run) {
  const InvParam& i = run.par.inv;
  const bool lever = i.Fx || i.Fy || i.Fz, bore = i.Fw || i.Fp || i.Fk, inte = any_internal(i);
  const bool pos = i.Ftx || i.Fty || i.Ftz, att = i.Faw || i.Fap || i.Fak;
  const auto word = [&](bool on) { return on ? (i.CALR ? "rel" : "yes") : "no"; };
  LOG_MSG("Requested corrections: CL="
          << word(lever) << " CB=" << word(bore) << " CI=" << (inte ? "yes" : "no")
          << " BeamCal=no CT=" << (pos ? "yes" : "no") << " CA=" << (att ? "yes" : "no")
          << " CD=" << (run.par.CD ? "yes" : "no") << " DT="
          << (run.par.auto_dt ? "auto"
              : i.dt > 0      ? "man"
                              : "const")
          << " DCC=" << (i.DCC ? "yes" : "no") << " CGM=" << (run.par.CGM ? "yes" : "no")
          << " ICH=" << (run.par.sync.ICH ? "yes" : "no") << " | FileOut=" << (run.par.nil ? "no" : "yes")
          << " Undo=" << (run.par.undo && !run.par.nil ? "yes" : "no"));
  std::string row;
  if (lever || bore || inte) {
    row += "Calib(";
    if (lever) row += "Lever ";
    if (bore) row += "Bore ";
    if (inte) row += "Int ";
    row.back() = ')';
    row += ' ';
  }
  if (pos || att) {
    row += i.HF ? "HF_Drift(" : "Drift(";
    if (pos) row += "Pos ";
    if (att) row += "Att ";
    row.back() = ')';
    row += ' ';
  }
  const char* const how = run.par.GCPG ? "group) " : "global) ";
  if (run.par.CXYZ && !run.par.points.xyz.empty())
    row += std::string("GCP_DXYZ(") + how;
  else if (run.par.CZ && !run.par.points.gcp.empty())
    row += std::string("GCP_DZ(") + how;
  LOG_LINE("Corrections: " << row);
  const PointRewrite& w = run.par.rewrite;
  if (row.empty() && (w.time || w.las_angle || w.int_angle || w.pitch))
    LOG_MSG("geometric corrections disabled (use manual mode for LAS attribute correction)");
}

// Step 5: the interval of the drift. Two tiles' worth of ground along the track give a node enough vectors
// (the time resolution is the time it takes to pass a microtile), but a slow carrier's drift changes meanwhile.
void settle_dt(CorrRun& run) {
  if (!run.par.auto_dt) return;
  constexpr double MICROTILES_PER_NODE = 64, DT_MIN = 1, DT_MAX = 3;
  const double tr = run.sync.idx.time_res;
  if (!(tr > 0)) {
    WARNING_MSG("HF corrections disabled, cannot estimate period (missing time resolution)");
    run.par.inv.HF = false;
    run.par.inv.dt = 0;
    return;
  }
  run.par.inv.dt = std::clamp(MICROTILES_PER_NODE * tr, DT_MIN, DT_MAX);
  LOG_MSG("Drift interval dt=" << run.par.inv.dt << " s (time resolution " << tr << " s)");
}

// files: the logs and results too.
bool invert_pairs(const Project& prj, CorrRun& run, const InvInput& in, bool files) {
  if (inv_CalTAWarp(files ? prj.name : "", in, run.par.inv, run.res)) return true;
  ERROR_MSG("inversion failed");
  return false;
}

// Puts displacements that were measured about what was found in the place of those that it was found from.
bool register_again(const Project& prj, CorrRun& run) {
  SwathVector<SCorrTbl> model;
  constexpr bool FILL = true;  // whatever the check shows, points are the same
  const CorrSource source{run.res, run.par.inv, run.par.manual, run.rot};
  if (!corr_tbl_swaths(prj, source, run.swc, run.samples, run.index, FILL, NTHREADS, model)) return false;
  init_T0_SCorr(run.res, run.swc, model);
  add_group_shifts(prj, run.groups, run.swc, model);
  const std::string dut = prj.name + "_2";
  InterResult reg;
  const CorrAtOf corr_at = make_corr_at(prj, source, run.samples, run.index, model);
  if (!rereg_inter_LmT(prj, run.sync.idx, model, corr_at, dut, NTHREADS, reg)) {
    ERROR_MSG("second registration failed");
    return false;
  }
  return replace_sync_pairs(reg.nreg > 0 ? dut : run.par.dut, prj, run.sync);
}

// The vectors, less what the known shifts of groups make of them, and the accuracy of the trajectories.
InvInput take_vectors(const Project& prj, CorrRun& run) {
  InvInput in = make_InvInput(prj, run.rot, run.samples, run.sync);
  for (const SwathId s : prj.swaths.ids())
    if (run.par.accuracy) in.swaths[s].accuracy = run.accuracy[s];
  in.shift0 = pair_shifts(prj, in.pairs, run.groups);
  return in;
}

// Each group to its control points first, without what ties it to the others.
bool shift_groups(const Project& prj, CorrRun& run, InvInput& in) {
  const ControlShift shift = control_shift(run.par);
  if (!shift.groups || (!shift.CZ && !shift.CXYZ)) return true;
  if (!comp_independent_shifts(prj, run, in, run.groups)) return false;
  in.shift0 = pair_shifts(prj, in.pairs, run.groups);
  return true;
}

bool invert(const Project& prj, CorrRun& run) {
  const Stopwatch watch;
  if (run.par.accuracy) run.accuracy = read_drift_accuracy(prj, run.sync);
  InvInput in = take_vectors(prj, run);
  if (!shift_groups(prj, run, in)) return false;
  if (run.par.REG2) {
    if (!invert_pairs(prj, run, in, false)) return false;
    const InvResult& r = run.res;
    if (r.significant && (r.CL || r.CB || r.CI || r.CT || r.CA)) {
      if (!register_again(prj, run)) return false;
      in = take_vectors(prj, run);
    }
  }
  if (!invert_pairs(prj, run, in, true)) return false;
  if (!run.groups.empty()) LOG_LINE("TOTAL IG+DG INV_TIME=" << watch.text());
  LOG_MSG("All inversion steps completed | " << watch.text());
  return save_residual_maps(prj, run.sync.idx, run.par.map, in, run.res);
}
}  // namespace

bool DUT_PO_INV_QC_CORR(Project& prj, const CorrParam& par, CorrResult& result) {
  LOG_ENTER("DUT_PO_INV_QC_CORR name='" << prj.name << "' dut='" << par.dut << "'");
  log_args(par);
  CorrRun run;
  run.par = par;
  if (!prepare(prj, run)) return false;
  reconcile(prj, run);
  show_requested(run);
  settle_dt(run);
  if (!invert(prj, run)) return false;
  choose_qc_pairs(prj, run);
  return QC_OUT_CORR(prj, run, result);
}
}  // namespace veld
