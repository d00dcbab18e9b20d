#include "prj/LiDAR/veldrunner2/run_steps.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/tuning.h"
#include "prj/LiDAR/veldrunner2/cleanup.h"
#include "prj/LiDAR/veldrunner2/fill_param.h"
#include "prj/LiDAR/veldrunner2/georef_setup.h"
#include "prj/LiDAR/veldrunner2/help.h"
#include "prj/LiDAR/veldrunner2/tag_tree.h"

namespace {
enum class Step { on, done, failed };  // go on, finished with success, stop

Step step_of(bool ok) { return ok ? Step::on : Step::failed; }

struct Commands {  // what the run consists of
  bool reg_qc;     // goes through the scan sequence
  bool corr;       // -corr
  bool align;      // -align
  bool calib;      // -calib
  bool reg;        // displacements are measured
  bool inv_corr;   // displacements are inverted
};

struct Run {
  const ProgramPaths& paths;
  CommandLine& cl;
  Project prj;
  Commands cmd = {};
  std::vector<uint8_t> xcls;  // classes to drop
  std::string dut;            // base path of the displacement file
};

void test_gui() {
  const char* const texts[] = {"init...", "first step", "second step", "third step"};
  progress_start(10);
  for (int i = 0; i <= 10; i++) {
    progress_step(i, texts[i * 3 / 10]);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  progress_end("");
}

void set_directories(const Options& o) {
  const auto or_current = [](const std::string& dir) { return with_slash(dir.empty() ? "." : dir); };
  INDIR = o.idir.empty() ? "" : with_slash(o.idir);
  OUTDIR = or_current(o.odir);
  TMPDIR = or_current(o.tmpdir);
  GEODIR = or_current(o.gdir);
}

// What needs nothing but the options: experiments with the console, version and help.
Step early_steps(Run& run) {
  const Options& o = run.cl.o;
  set_progress_mode(static_cast<ProgressMode>(o.progress));
  if (o.testgui) {
    test_gui();
    return Step::done;
  }
  if (o.DEBUG != 0) LOG_MSG("Debug " << o.DEBUG);
  if (o.log_flush) flush_logs_at_once();
  if (o.version || console_on()) std::printf("%s\n", banner().c_str());
  if (!o.version && !o.help && console_on()) std::printf("\n");
  if (o.version) return Step::done;
  if (o.help) {
    std::fputs(help_text(run.cl.help_word).c_str(), stdout);
    return Step::done;
  }
  set_directories(o);
  return step_of(las_check_version(dir_writable(TMPDIR) ? TMPDIR : std::string("/tmp/")));
}

Step defaults_and_directories(Run& run) {
  Options& o = run.cl.o;
  derive_defaults(o, run.cl.given);
  set_tuning(o);
  SOFTINFO = soft_info();
  LOG_LINE("MEM_MB=" << MEM_MB << " NTHREADS=" << NTHREADS << " NTHREADSIO=" << NTHREADSIO
                     << " logflush=" << o.log_flush);
  LOG_LINE("cleanup=" << o.clear_tmp << " cleartile=" << o.clear_xyz << " DELHIST=" << o.clear_log
                      << " UAV=" << o.uav << " QC=" << o.qc << " FASTQC=" << o.fastqc << " FULL=" << o.full);
  if (!dir_check(o.odir_1, o.align2)) {
    OUTDIR.clear();  // nothing can be copied there at the end
    return Step::failed;
  }
  run.cl.in.rules = {run.cl.parser.refdir, INDIR == "./" ? std::string() : INDIR};

  run.prj.name = OUTDIR + o.name;
  std::string current;
  if (!current_directory(current)) current = "./";
  SaveOptionFile(run.cl.parser, run.prj.name + "_opt.xml", SOFTINFO, current);
  LOG_MSG("TMPDIR " << TMPDIR);
  LOG_MSG("GEODIR " << GEODIR);
  LOG_MSG("INDIR " << INDIR);
  LOG_MSG("OUTDIR " << OUTDIR);
  if (o.align2) LOG_MSG("OUTDIR1 " << o.odir_1);
  return Step::on;
}

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
  if (!o.export_dut.empty())
    return ends(export_DUT(change_extension(complete_path(o.export_dut, run.cl.in.rules), "")));
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
       {"po_parse", "po_geo", "po_rad", "po_time", "gps_date", "po_att", "mount", "imu"}},
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

Step decide_commands(Run& run) {
  const Options& o = run.cl.o;
  const GivenSet& given = run.cl.given;
  Commands& c = run.cmd;
  c.calib = given.count("calib") > 0;
  c.corr = given.count("corr") > 0;
  c.align = o.align || o.align2;
  c.inv_corr = c.corr || c.calib || c.align;
  c.reg = o.reg || c.align || (c.calib && o.calib.empty());
  c.reg_qc = true;  // a correction from a displacement file needs the tiles too
  LOG_LINE("reg_qc=" << c.reg_qc << " corr=" << c.corr << " align=" << c.align
                     << " man=0 inv_corr=" << c.inv_corr);

  bool ok = check_exclusions(o, given);
  ok = check_available(o, given) && ok;
  for (const char* const product : {"map", "jpeg", "plot"})
    if (ok && !given.count(product)) LOG_LINE("default -" << product << ": no such files are written");
  return step_of(ok);
}

// The given name may be that of either file of the pair, in the input or the output directory.
bool find_DUT(const std::string& arg, const PathRules& rules, std::string& dut) {
  std::string stem = arg;
  for (const std::string ending : {".dut", "_idx.log"})
    if (stem.size() > ending.size() && stem.compare(stem.size() - ending.size(), ending.size(), ending) == 0)
      stem.resize(stem.size() - ending.size());
  const std::string plain = complete_path(stem, rules);
  for (const std::string& base : {plain, add_input_directory(stem, OUTDIR)})
    if (is_regular_file(base + "_idx.log")) {
      dut = base;
      return true;
    }
  ERROR_MSG("could not find file " << plain << "_idx.log");
  return false;
}

Step list_inputs(Run& run) {
  const Options& o = run.cl.o;
  Project& prj = run.prj;
  prj.scale = make_tile_scale(o.large != 0, o.xlevel);
  if (run.cl.in.mobile.empty() && run.cl.in.fixed.empty()) {
    ERROR_MSG("missing input files, cannot proceed");
    return Step::failed;
  }
  if (!get_PO_files(run.cl.in, run.cmd.inv_corr, prj) || !get_PO_param(o, prj) || !GPSdate2gweekday(o, prj))
    return Step::failed;
  log_PO_param(prj);
  if (run.cmd.inv_corr && !get_mount_files(o, run.cl.in.rules, prj)) return Step::failed;
  if (!get_swath_files(run.cl.in, o, prj) || !chk_ch_grp(o, prj)) return Step::failed;
  if (run.cmd.inv_corr && static_cast<int>(prj.pogroups.size()) != prj.nmgrp) {
    ERROR_MSG("group size mismatch, " << prj.pogroups.size() << " PO groups and " << prj.nmgrp
                                      << " mobile swaths groups");
    return Step::failed;
  }
  if (!xclsf2xcls(o, run.xcls)) return Step::failed;
  set_xcls_gnd(o, run.xcls);
  return Step::on;
}

Step correction(Run& run, const CorrParam& par) {
  CorrResult result;
  if (!DUT_PO_INV_QC_CORR(run.prj, par, result)) {
    ERROR_MSG("correction failed");
    return Step::failed;
  }
  return Step::on;
}

Step process(Run& run) {
  const Options& o = run.cl.o;
  run.dut = run.prj.name;
  const std::vector<std::string>& dut_arg = run.cl.given.count("calib") ? o.calib : o.corr;
  if (run.cmd.inv_corr && !run.cmd.reg && !dut_arg.empty() && !find_DUT(dut_arg[0], run.cl.in.rules, run.dut))
    return Step::failed;
  CorrParam corr;  // filled first, so that a mistake in -cal or -drift stops the run before the long part
  if (run.cmd.inv_corr && !fill_corr_param(o, run.dut, corr)) return Step::failed;

  ScanParam scan;
  fill_scan_param(o, run.xcls, run.cmd.reg, scan);
  scan.QCRUN = !run.cmd.reg && !run.cmd.inv_corr && !o.scan;
  ScanResult result;
  if (!SCAN_REG_QC(run.prj, scan, result)) {
    ERROR_MSG("registration or QC failed");
    return Step::failed;
  }
  return run.cmd.inv_corr && !result.finished ? correction(run, corr) : Step::on;
}

Step prepare_project(Run& run) {
  Options& o = run.cl.o;
  if (!setup_georef(o, run.cl.in.rules, run.prj.georef)) return Step::failed;
  const Step tested = hidden_tests(run);
  if (tested != Step::on) return tested;
  if (run.cl.parser.taglist.empty()) return Step::on;
  warn_overridden(run.cl.given);
  return step_of(get_tag_tree_input(run.cl.parser.taglist, run.cl.in, o));
}

bool only_cleanup(const Run& run) {
  const Options& o = run.cl.o;
  const InputArgs& in = run.cl.in;
  return (o.clear_tmp || o.clear_xyz || o.clear_log) && in.mobile.empty() && in.fixed.empty() &&
         in.po.empty() && !o.reg && !o.align && !o.align2 && !o.scan && !o.fastqc &&
         !run.cl.given.count("corr") && !run.cl.given.count("calib");
}
}  // namespace

int run_program(int argc, char** argv, const ProgramPaths& paths, CommandLine& cl) {
  LOG_LINE("SOFTINFO=" << banner());
  if (paths.per_user) LOG_LINE("directory of the executable not writable, using " << paths.base << ".*");
  if (!InitGetOptAll(cl.parser, argc, argv, paths.options_base, {"map", "bore", "input", "po", "ref"}) ||
      !read_options(cl))
    return 1;

  Run run{paths, cl, {}, {}, {}, {}};
  using StepFunction = Step (*)(Run&);
  const StepFunction before[] = {early_steps, defaults_and_directories};
  const StepFunction work[] = {prepare_project, decide_commands, list_inputs, process};
  for (const StepFunction f : before) {
    const Step step = f(run);
    if (step != Step::on) return step == Step::done ? 0 : 1;
  }
  if (only_cleanup(run)) {
    cleanup(cl.o);
    LOG_MSG("ok");
    return 0;
  }
  for (const StepFunction f : work) {
    const Step step = f(run);
    if (step != Step::on) return step == Step::done ? 0 : 1;
  }
  cleanup(cl.o);
  return 0;
}
