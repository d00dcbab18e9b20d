// From options to the project: coordinate system, tagged tree, commands, lists of files.
#include <algorithm>
#include <functional>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"
#include "prj/LiDAR/VR2POsync/traj_commands.h"
#include "prj/LiDAR/VR2proc/cut_swaths.h"
#include "prj/LiDAR/inputs/georef_setup.h"
#include "prj/LiDAR/inputs/own_outputs.h"
#include "prj/LiDAR/inputs/tag_tree.h"
#include "prj/LiDAR/options/availability.h"
#include "prj/LiDAR/options/steer_opt.h"
#include "prj/LiDAR/run/dut_inputs.h"
#include "prj/LiDAR/run/run_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Tests that end the run.
Step hidden_tests(Run& run) {
  const Options& o = run.cl.o;
  const auto ends = [](bool ok) { return ok ? Step::done : Step::failed; };
  for (const std::vector<double>* const values : {&o.test_proj2, &o.test_proj3})
    if (!values->empty()) {
      test_proj(run.prj.georef, *values);
      return Step::done;
    }
  if (!o.las_read_check.empty()) {
    std::string file = o.las_read_check;
    return ends(update_check_file(file, run.cl.in.rules) && las_read_check(file, INPARSE));
  }
  if (!o.export_dut.empty()) return ends(export_DUT(DUT_base(complete_path(o.export_dut, run.cl.in.rules))));
  return Step::on;
}

void warn_overridden(const GivenSet& given) {
  const struct {
    const char* text;
    std::vector<const char*> options;
  } overrides[] = {
      {"tagged option file overrides LiDAR input options -i -l -r -ref_list -chgrp",
       {"input", "input_list", "ref", "ref_list", "chgrp"}},
      {"tagged option file overrides PO input options -po -po_list", {"po", "po_list"}},
      {"tagged option file overrides PO parameter options -po_parse -G -R -A -gps_date -attrec -mount",
       {"po_parse", "po_geo", "po_rad", "po_time", "gps_date", "po_att", "mount"}},
      {"tagged option file overrides split options -split -splitgrp -split_mount",
       {"split", "splitgrp", "split_mount"}},
  };
  for (const auto& o : overrides)
    for (const char* const option : o.options)
      if (given.count(option)) {
        WARNING_MSG(o.text);
        break;
      }
}

void decide_commands(Run& run) {
  const Options& o = run.cl.o;
  const GivenSet& given = run.cl.given;
  Commands& c = run.cmd;
  c.calib = given.count("calib") > 0;
  c.corr = given.count("corr") > 0;
  c.align = o.align || o.align2;
  c.man = c.corr && !c.calib && o.corr.empty();
  c.inv_corr = (c.corr && !c.man) || c.calib || c.align;
  c.reg = o.reg || c.align || (c.calib && o.calib.empty());
  c.reg_qc = true;  // a correction from a displacement file needs the tiles too
  LOG_LINE("reg_qc=" << c.reg_qc << " corr=" << c.corr << " align=" << c.align << " man=" << c.man
                     << " inv_corr=" << c.inv_corr);
}

bool check_split(Run& run) {
  SplitOpt split;
  if (!parse_split_opt(run.cl.o.split, split)) return false;
  if (run.cl.in.split.empty()) return true;
  report_unavailable("split");
  return false;
}

// What the defaults promise and the run leaves out.
void show_left_out(const Options& o, const GivenSet& given) {
  std::string text;
  for (const std::string& subject : left_out(o, given)) text += (text.empty() ? "" : ", ") + subject;
  if (!text.empty()) LOG_MSG("Not available yet, left out: " << text);
}

// What the options say among themselves.
bool check_options(Run& run) {
  const Options& o = run.cl.o;
  const GivenSet& given = run.cl.given;
  bool ok = check_exclusions(o, given);
  ok = check_split(run) && ok;
  ok = check_available(o, given) && ok;
  warn_no_effect(given);
  if (!run.cmd.corrects()) ok = check_steering(o) && ok;
  if (ok) show_left_out(o, given);
  return ok;
}

// Commands that work on swaths or trajectories as they are, without a registration.
bool check_single_commands(const Run& run) {
  const Options& o = run.cl.o;
  const bool references = !run.cl.in.fixed.empty();
  if (o.undo && references) WARNING_MSG("ignoring fixed swaths for undo command");
  if (o.cut && references) WARNING_MSG("ignoring fixed swaths for cut command");
  if (!o.cut && !o.plot_po) return true;
  if (run.prj.pofiles.size() == 1) return true;
  ERROR_MSG("commands -cut and -plot_po require a single PO file input");
  return false;
}

bool list_trajectories(Run& run) {
  const Options& o = run.cl.o;
  Project& prj = run.prj;
  const PointRewrite& rewrite = o.correction.rewrite;
  const bool shift_alone = run.cmd.man && o.calib_corr.empty() && o.beam_calib_corr.empty() &&
                           o.correction.manual.tcorr == 0 && !rewrite.time && !rewrite.las_angle &&
                           !rewrite.int_angle && !rewrite.pitch;
  bool ok = get_PO_files(run.cl.in, run.cmd.corrects() && !shift_alone, prj);
  ok = get_PO_param(o, prj) && ok;
  ok = GPSdate2gweekday(o, prj) && ok;
  if (ok) log_PO_param(prj);
  return ok;
}

// Behind the lists of swaths and trajectories: a mount for each group, a trajectory group for all or for each.
bool list_mounts(Run& run) {
  const Options& o = run.cl.o;
  Project& prj = run.prj;
  const bool mounts =
      run.cmd.inv_corr || !prj.pofiles.empty() || !o.mount.empty() || !o.imu.empty() || !o.bore.empty();
  const bool ok = !mounts || get_mount_files(o, run.cl.in.rules, prj);
  const size_t ngrpPO = prj.pogroups.size();
  if (ngrpPO <= 1 || static_cast<int>(ngrpPO) == prj.nmgrp) return ok;
  ERROR_MSG("group size mismatch, " << ngrpPO << " PO groups and " << prj.nmgrp << " mobile swaths groups");
  return false;
}

// Corrected files have the names of the swaths when no -out says otherwise. Where these are the swaths themselves they
// get "_c" behind their names, those of an undo "_u".
void keep_sources_apart(const Project& prj, Options& o) {
  if (o.correction.nil && !o.align2 && !o.undo) return;
  const auto is_source = [&o](const Swath& s) {
    const std::string name = base_name(s.path());
    return same_file(OUTDIR + name, s.path()) || (o.align2 && same_file(o.odir_1 + name, s.path()));
  };
  if (std::none_of(prj.swaths.begin(), prj.swaths.end(), is_source)) return;
  o.out = o.undo ? "*_u" : "*_c";
  LOG_MSG("no option -out: the files written lie beside the swaths and get " << o.out.substr(1)
                                                                             << " behind their names");
}

bool list_swaths(Run& run) {
  Options& o = run.cl.o;
  const std::vector<std::string>& dut_arg = run.cmd.calib ? o.calib : o.corr;
  const auto none = [&run] { return run.cl.in.mobile.empty() && run.cl.in.fixed.empty(); };
  std::string dut;
  if (none() && !dut_arg.empty() &&
      !(find_DUT(dut_arg[0], run.cl.in.rules, dut) && take_DUT_inputs(dut, run.cl.in, o.chgrp)))
    return false;
  if (none()) {
    if (o.cut || o.plot_po) return true;
    ERROR_MSG("missing input files, cannot proceed");
    return false;
  }
  if (!get_swath_files(run.cl.in, o, run.prj)) return false;
  if (!leave_out_undo_data(run.prj)) return false;
  if (o.undo) leave_out_uncorrected(run.prj);
  if ((run.cmd.corrects() || o.undo) && !run.cl.given.count("out")) keep_sources_apart(run.prj, o);
  OutputName out;
  if (!o.undo && parse_output_name(o.out, out)) leave_out_own_outputs(out, OUTDIR, run.prj);
  return chk_ch_grp(o, run.prj);
}

bool check_name_length(const std::string& path, const char* what, const char* remedy) {
  if (name_fits(path)) return true;
  ERROR_MSG("name too long for " << what << ", use " << remedy << ": " << path);
  return false;
}

// Names that only the end of the run would find to be too long. The endings are the longest of their kind.
bool check_name_lengths(const Run& run) {
  bool ok = check_name_length(ResultFile::part_of(OUTDIR + run.cl.o.name + "_DXYZcorr_stat.log"),
                              "the results", "a shorter -name");
  for (const Swath& s : run.prj.swaths)
    ok = check_name_length(s.cache.file(EXT_GMTLOCK) + "." + own_tag() + "-9999.gone", "the cache of a swath",
                           "a shorter name of the swath or another -tmpdir") &&
         ok;
  return ok;
}

// The files of control points, as the rules for inputs find them.
bool find_control(Run& run) {
  bool ok = true;
  for (std::string* const file : {&run.cl.o.scanning.control.gcp.file, &run.cl.o.scanning.control.xyz.file})
    if (!file->empty()) ok = update_check_file(*file, run.cl.in.rules) && ok;
  return ok;
}

// No corrected file may take the place of a source. False after an ERROR line for each.
bool check_outputs(const Run& run) {
  const Options& o = run.cl.o;
  const Project& prj = run.prj;
  OutputName out;
  const bool fits = check_name_lengths(run);
  const bool writes = o.undo || (run.cmd.corrects() && (!o.correction.nil || o.align2));
  if (!writes || !parse_output_name(o.out, out)) return fits;
  std::vector<SwathId> mobile;
  for (const Swath& s : prj.swaths)
    if (s.mobile()) mobile.push_back(s.id);
  int ndup = 0;
  bool ok = fits;
  for (const std::string& dir : {o.align2 ? o.odir_1 : OUTDIR, OUTDIR})
    for (const std::string& name : comp_output_names(out, dir, prj, mobile, ndup)) {
      ok = ok && check_name_length(ResultFile::part_of(name), "a corrected swath", "-out");
      if (file_mode(name) < 0) continue;  // most are no file yet
      for (const Swath& s : prj.swaths)
        if (ok && same_file(name, s.path())) {
          ERROR_MSG("output file " << name << " would overwrite an input file, use -out or -odir");
          ok = false;
        }
    }
  return ok;
}
}  // namespace

Step prepare_project(Run& run) {
  Options& o = run.cl.o;
  const bool ok = setup_georef(o, run.cl.in.rules, run.prj.georef);
  const bool test =
      !o.test_proj2.empty() || !o.test_proj3.empty() || !o.las_read_check.empty() || !o.export_dut.empty();
  if (test) return ok ? hidden_tests(run) : Step::failed;
  decide_commands(run);
  run.prj.scale = make_tile_scale(o.scanning.tiling.large, o.scanning.tiling.xlevel);
  run.mistake = !ok;
  return Step::on;
}

Step trajectory_commands(Run& run) {
  const Options& o = run.cl.o;
  TrajCut lines;
  if (o.plot_po)
    return plot_PO(run.prj, o.correction.sync, o.correction.po_sub, run.prj.name) ? Step::done : Step::failed;
  if (!o.cut) return Step::on;
  CutParam par{{}, OUTDIR, "CUT", static_cast<double>(o.cut_gap)};
  if (!parse_output_name(o.out, par.out) ||
      !cut_PO_smooth(run.prj, o.correction.sync, o.lines, OUTDIR, lines))
    return Step::failed;
  const bool swaths = std::any_of(run.prj.swaths.begin(), run.prj.swaths.end(), std::mem_fn(&Swath::mobile));
  return !swaths || cut_swaths_las(run.prj, lines, par) ? Step::done : Step::failed;
}

Step list_inputs(Run& run) {
  Options& o = run.cl.o;
  Project& prj = run.prj;
  bool tree = true;
  if (!run.cl.parser.taglist.empty()) {
    warn_overridden(run.cl.given);
    tree = get_tag_tree_input(run.cl.parser.taglist, run.cl.in, o);
  }
  bool ok = check_options(run) && tree && !run.mistake;
  if (!tree) return Step::failed;  // there are no lists
  ok = list_trajectories(run) && ok;
  ok = check_single_commands(run) && ok;
  const bool swaths = list_swaths(run);
  ok = swaths && ok;
  if (!swaths) {  // the groups as they were given, so that faults of mounts are found in the same run
    prj.nmgrp = static_cast<int>(run.cl.in.mobile.size());
    prj.chgrp = o.chgrp.size() == run.cl.in.mobile.size() ? o.chgrp : std::vector<int>();
  }
  if (swaths && ok && prj.swaths.size() > 0) ok = adopt_swath_system(o, prj);
  ok = list_mounts(run) && ok;
  if (run.cmd.man) ok = get_shift_calib_files(o, run.cl.in.rules, prj) && ok;
  ok = find_control(run) && ok;
  if (swaths) ok = check_outputs(run) && ok;
  ok = xclsf2xcls(o, run.xcls) && ok;
  set_xcls_gnd(o, run.xcls);
  if (ok && (o.exp_reg || o.exp_grid || o.keystone)) return Step::done;
  return step_of(ok);
}
}  // namespace veld
