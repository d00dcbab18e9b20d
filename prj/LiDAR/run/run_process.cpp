// The sequences by command: scan, registration, inversion and correction, in one or two steps.
#include <algorithm>

#include "lib/general/log.h"
#include "prj/LiDAR/VR2proc/sequence_po.h"
#include "prj/LiDAR/VR2proc/undo_swaths.h"
#include "prj/LiDAR/options/steer_opt.h"
#include "prj/LiDAR/run/align2.h"
#include "prj/LiDAR/run/check_first.h"
#include "prj/LiDAR/run/dut_inputs.h"
#include "prj/LiDAR/run/dut_swaths.h"
#include "prj/LiDAR/run/report_input.h"
#include "prj/LiDAR/run/run_internal.h"
#include "prj/LiDAR/run/sequence.h"
#include "prj/LiDAR/run/verdict.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t TRACK_SHARE = 16;  // of -mem, for trajectories that the check has read

// The calibration that the swaths were made with (-calib_param), if it is given.
bool read_initial(const Options& o, const PathRules& rules, InvParam& inv) {
  std::string file = o.calib_param;
  inv.has_initial = !file.empty();
  return file.empty() || (update_check_file(file, rules) && inv.initial.read_file(file));
}

// The options that the steps of a run work with, checked before the first of them starts.
bool prepare_correction(const Run& run, std::string& dut) {
  const Options& o = run.cl.o;
  dut.clear();
  if (!run.cmd.corrects()) return true;
  CorrParam corr = o.correction;
  const bool ok = steer_correction(o, corr) && read_beams(o, run.cl.in.rules, corr.beams) &&
                  read_initial(o, run.cl.in.rules, corr.inv);
  const InvParam& i = corr.inv;
  const bool calibrates = i.Fx || i.Fy || i.Fz || i.Fw || i.Fp || i.Fk ||
                          std::any_of(i.FE, i.FE + N_INTERNAL, [](bool f) { return f; });
  if (ok && run.cmd.inv_corr && calibrates && o.calib_param.empty())
    LOG_MSG(
        "no initial geometric calibration file specified, output will be calibration corrections, not "
        "update");
  if (ok && !corr.nil) show_output_name(corr.out, o);
  const std::vector<std::string>& arg = run.cmd.calib ? o.calib : o.corr;
  return (run.cmd.reg || arg.empty() || find_DUT(arg[0], run.cl.in.rules, dut)) && ok;
}

// The correction by hand; without one, trajectories that are given are checked against the swaths.
bool correct_by_hand(Project& prj, const ScanResult& scanned, const CorrParam& corr, CorrResult& corrected) {
  if (!corr.manual.on && prj.pofiles.empty()) return true;
  if (DUT_PO_QC_CORR(prj, scanned.index, scanned.pairs, corr, corrected)) return true;
  ERROR_MSG("manual correction or scan failed");
  return false;
}

// What is given by hand is applied as it is: flat effects of the range stay unless their options say otherwise.
void steer_by_hand(const Run& run, CorrParam& corr) {
  const std::vector<double>& s = run.cl.o.shift;
  corr.manual.on = true;
  corr.manual.shift = {static_cast<float>(s[0]), static_cast<float>(s[1]), static_cast<float>(s[2])};
  corr.CD = corr.CD && (run.cl.given.count("d_dz") || run.cl.given.count("r_dz"));
}

// What pictures need to know of the project.
void place_maps(const Project& prj, MapParam& map) {
  map.img.crs = make_ImgCRS(prj.georef);
  map.img.OUTDATAUNIT = OUTDATAUNIT;
  map.img.nthreads = NTHREADS;
}

// The swaths as they were before their correction.
Step undo(const Run& run) {
  const Options& o = run.cl.o;
  UndoParam par{{}, OUTDIR, o.correction.lax, o.correction.lax_append};
  if (!parse_output_name(o.out, par.out)) return Step::failed;
  show_output_name(par.out, o);
  return undo_corr_swaths(run.prj, par) ? Step::done : Step::failed;
}

// What a run carries from step to step.
struct Progress {
  ControlPoints points;  // targets lie where the swaths of the coming step have them
  int nmemory = 0;       // swaths that -mem is too small for
  bool complete = true;  // nothing was left out or is uncertain
};

// Options of control points that a run has none of have no effect, which is a mistake.
bool check_control_options(const GivenSet& given, const ControlParam& par) {
  const bool heights = !par.gcp.file.empty(), targets = !par.xyz.file.empty();
  const struct {
    bool missing;
    const char* file;
    std::vector<const char*> names;
  } kinds[] = {
      {!heights,
       "-gcp",
       {"gcp_parse", "gcp_check", "gcp_last", "gcp_sigma", "gcp_equal", "gcp_r_max", "gcp_d_min", "gcp_out",
        "gcp_dz", "ogcp_pc", "ogcp_tin"}},
      {!targets,
       "-xyz_gcp",
       {"xyz_gcp_parse", "xyz_gcp_check", "xyz_gcp_sxy", "xyz_gcp_sz", "xyz_gcp_equal", "xyz_gcp_corr"}},
      {!heights && !targets, "-gcp or -xyz_gcp", {"gcp_grp", "json"}}};
  bool ok = true;
  for (const auto& kind : kinds)
    for (const char* const name : kind.names)
      if (kind.missing && given.count(name)) {
        ERROR_MSG("option -" << name << " needs control points: " << kind.file);
        ok = false;
      }
  return ok;
}

// Control points of the options, else those that the displacement file names. Read before the work, so that a wrong
// file does not end it.
bool read_control(const std::string& dut, const GivenSet& given, const GeoRefParam& georef, ControlParam& par,
                  ControlPoints& points) {
  DUTidx idx;
  if (!dut.empty() && !read_DUT_IDX(dut, idx)) return false;
  if (!dut.empty())
    take_DUT_control(
        idx, [&](const char* option) { return given.count(option) > 0; }, par);
  return check_control_options(given, par) && load_control(par, georef, points);
}

// The page of a correction, and the closing lines.
bool report_correction(const Project& prj, const Options& o, const ScanResult& scanned, const CorrParam& par,
                       const CorrResult& corrected, bool complete) {
  if (o.report &&
      !write_report(prj, corrected, make_ReportInput(prj, scanned, par.control, par.map, complete)))
    return false;
  show_absolute(prj, scanned.control, corrected.control,
                o.report ? prj.name + "_report.html" : std::string());
  return true;
}

// One pass over the project.
Step process_step(Run& run, const Options& o, const std::string& dut, Progress& progress) {
  Project& prj = run.prj;
  Verdict verdict = begin_verdict(prj);
  CorrParam corr = o.correction;
  corr.dut = dut.empty() ? prj.name : dut;
  corr.odir = o.odir;
  if (run.cmd.corrects() && !(steer_correction(o, corr) && read_beams(o, run.cl.in.rules, corr.beams) &&
                              read_initial(o, run.cl.in.rules, corr.inv)))
    return Step::failed;
  if (run.cmd.man) steer_by_hand(run, corr);

  place_maps(prj, corr.map);
  ScanParam scan = o.scanning;
  place_maps(prj, scan.map);
  scan.points = progress.points;
  scan.tiling.xcls = scan.map.xcls = corr.map.xcls = run.xcls;
  if (!scan.drop_map.empty()) scan.drop_map = complete_path(scan.drop_map, run.cl.in.rules);
  scan.SWMAPS = o.scan;
  scan.REG = run.cmd.reg;
  scan.QCRUN = run.cmd.man || (!run.cmd.reg && !run.cmd.inv_corr && !o.scan && !o.fastqc);
  scan.FASTQC = o.fastqc && (!o.scan || draws_maps(scan.map));  // of a scan the maps are wanted, if given
  scan.CORR = run.cmd.corrects();
  scan.REG2 = corr.REG2 && run.cmd.inv_corr;
  RunReport::Pass& pass = run.report.passes.emplace_back();
  ScanResult& scanned = pass.scan;
  pass.scanned = SCAN_REG_QC(prj, scan, scanned);
  pass.swaths = prj.swaths;
  pass.scale = prj.scale;
  if (!pass.scanned) {
    ERROR_MSG("registration or QC failed");
    return Step::failed;
  }
  progress.nmemory += scanned.nmemory;
  corr.control = scan.control;
  corr.points = scanned.points;
  if (!run.cmd.corrects() && !correct_by_hand(prj, scanned, corr, pass.corr)) return Step::failed;
  const bool corrects = run.cmd.corrects() && !scanned.finished;
  const bool ok = !corrects || (run.cmd.man ? correct_by_hand(prj, scanned, corr, pass.corr)
                                            : DUT_PO_INV_QC_CORR(prj, corr, pass.corr));
  pass.swaths = prj.swaths;
  pass.corrected = corrects && ok;
  if (!corrects || pass.corr.reached) show_verdict(prj, pass.corr, corrects, corr, verdict);
  progress.complete = progress.complete && verdict.complete;
  if (ok && corrects && pass.corr.reached &&
      !report_correction(prj, o, scanned, corr, pass.corr, verdict.complete))
    return Step::failed;
  if (corrects) progress.points = pass.corr.points;
  if (!ok) {
    ERROR_MSG("correction failed");
    return Step::failed;
  }
  return Step::on;
}
}  // namespace

Step process(Run& run) {
  run.tracks.max_bytes = static_cast<uint64_t>(MEM_MB) * (1 << 20) / TRACK_SHARE;
  run.cl.o.correction.sync.tracks = &run.tracks;
  Options& o = run.cl.o;
  if (o.undo) return undo(run);
  std::string dut;
  Progress progress;
  if (!prepare_correction(run, dut)) return Step::failed;
  if (!dut.empty() && !complete_DUT_swaths(dut, run.prj)) return Step::failed;
  if (!read_control(dut, run.cl.given, run.prj.georef, o.scanning.control, progress.points))
    return Step::failed;
  if (!check_first(run.prj, o, run.xcls, run.cmd.corrects() && !o.correction.nil)) return Step::failed;
  if (o.check) return Step::done;
  const int nsteps = o.align2 ? 2 : 1;
  for (int step = 0; step < nsteps; step++) {
    const Options step_options = align2_options(o, step);
    if (o.align2) {
      LOG_MSG("ALIGNMENT STEP " << step + 1);
      if (!align2_proc_fxnames(step, run.prj.swaths)) return Step::failed;
    }
    run.prj.name = step_options.odir + o.name;
    const Step done = process_step(run, step_options, dut, progress);
    if (done != Step::on) return done;
  }
  if (o.strict && !progress.complete) {
    ERROR_MSG("the result is incomplete, see the WARNINGs above (option -strict)");
    return Step::failed;
  }
  if (progress.nmemory == 0) return Step::on;
  ERROR_MSG(progress.nmemory << " swaths need more memory than the " << MEM_MB
                             << " MB reserved (use option -mem): the results are without them");
  return Step::failed;
}
}  // namespace veld
