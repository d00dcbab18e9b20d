#include "prj/LiDAR/run/run_steps.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include "las/las_access.h"
#include "las/lasreader.h"
#include "lib/Optim/optimCG.h"
#include "lib/general/file_lock.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/options/availability.h"
#include "prj/LiDAR/options/help.h"
#include "prj/LiDAR/run/cleanup.h"
#include "prj/LiDAR/run/run_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr char DEFAULT_NAME[] = "project";  // base name of the outputs without -name

void test_gui() {
  const char* const texts[] = {"init...", "first step", "second step", "third step"};
  progress_start(10);
  for (int i = 0; i <= 10; i++) {
    progress_step(i, texts[i * 3 / 10]);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  progress_end(texts[3]);
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
  if (o.tuning.DEBUG_LEVEL != 0) LOG_MSG("Debug " << o.tuning.DEBUG_LEVEL);
  if (o.log_flush) flush_logs_at_once();
  if (o.exp) {
    warn_no_effect(run.cl.given);
    return Step::done;
  }
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
  TUNING = o.tuning;
  las_set_threads(NTHREADS);
  OPTIM_DEBUG = {DEBUG_LEVEL, TMPDIR};
  SOFTINFO = soft_info();
  LOG_LINE("MEM_MB=" << MEM_MB << " NTHREADS=" << NTHREADS << " NTHREADSIO=" << NTHREADSIO
                     << " logflush=" << o.log_flush);
  LOG_LINE("cleanup=" << o.clear_tmp << " cleartile=" << o.clear_xyz << " DELHIST=" << o.clear_log
                      << " UAV=" << o.uav << " QC=" << o.scanning.QC << " FASTQC=" << o.fastqc
                      << " FULL=" << o.scanning.FULL);
  if (!dir_check(o.odir_1, o.align2)) {
    OUTDIR.clear();  // nothing can be copied there at the end
    return Step::failed;
  }
  remove_orphans(TMPDIR);
  run.cl.in.rules = {run.cl.parser.refdir, INDIR == "./" ? std::string() : INDIR};

  if (o.name.empty()) {
    o.name = DEFAULT_NAME;
    LOG_MSG("NAME " << o.name << " (no option -name)");
  }
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

// Nothing but the removal of files is asked for: no command, no input, by options or by a tree.
bool only_cleanup(const Run& run) {
  const Options& o = run.cl.o;
  const InputArgs& in = run.cl.in;
  if (!o.clear_tmp && !o.clear_xyz && !o.clear_log) return false;
  if (!run.cl.parser.taglist.empty() || !in.mobile.empty() || !in.fixed.empty() || !in.po.empty())
    return false;
  Options defaults;
  for (const OptRow& row : option_rows(defaults)) {
    const bool command = row.theme == Theme::command || row.theme == Theme::voxel;
    if (command && run.cl.given.count(row.name)) return false;
  }
  return !o.osplit;
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
  const StepFunction work[] = {prepare_project, list_inputs, trajectory_commands, process};
  for (const StepFunction f : before) {
    const Step step = f(run);
    if (step != Step::on) return step == Step::done ? 0 : 1;
  }
  if (only_cleanup(run)) {
    cleanup(cl.o);
    LOG_MSG("ok");
    return 0;
  }
  const std::string report = OUTDIR + cl.o.name + "_run.json";
  remove_file(report);  // of an earlier run: none is better than an old one if this run breaks off
  Step step = Step::on;
  for (const StepFunction f : work)
    if (step == Step::on) step = f(run);
  if (step == Step::done) return 0;
  if (step == Step::on) cleanup(cl.o);
  const int code = step == Step::on ? 0 : 1;
  return write_run_report(report, run.report, cl, run.prj, code) ? code : 1;
}
}  // namespace veld
