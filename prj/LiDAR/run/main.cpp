// The entry point: handlers, lock, logs, the run, the exit procedure.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iostream>

#include "lib/general/console.h"
#include "lib/general/crash.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "prj/LiDAR/options/identity.h"
#include "prj/LiDAR/run/run_steps.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Takes two dashes before a word for one. True when the run only asks for the help or the version.
bool asks_for_text(int argc, char** argv) {
  bool asks = false;
  for (int i = 1; i < argc; i++) {
    if (argv[i][0] == '-' && argv[i][1] == '-' && std::isalpha(static_cast<unsigned char>(argv[i][2])))
      argv[i]++;
    for (const char* const word : {"-help", "-h", "-version", "-v"})
      asks = asks || std::strcmp(argv[i], word) == 0;
  }
  return asks;
}
}  // namespace
}  // namespace veld

using namespace veld;

int main(int argc, char** argv) {
  install_crash_handlers();
  const bool text_only = asks_for_text(argc, argv);
  bool mul = false;
  for (int i = 1; i < argc; i++) mul = mul || std::strncmp(argv[i], "-mul", 4) == 0;
  const ProgramPaths paths = find_program_paths();
  const bool locked = !mul && take_lock(paths.base, PROGRAM_NAME, !text_only);
  if (!mul && !locked && !text_only) return EXIT_FAILURE;
  std::cout << std::fixed << std::setprecision(3);
  set_console_once(true);
  set_progress_file(paths.base + "_gui.prog");
  // Without the lock the logs may be another run's: help and version then go without.
  if (mul || locked)
    open_logs(paths.base, PROGRAM_NAME, paths.execpath,
              LOG_STR("NTHREADS=" << default_nthreads() << " NTHREADSIO=" << default_nthreads_io()
                                  << " MEM_MB=" << MEM_MB << " mul=" << mul),
              mul);

  CommandLine cl;
  const int code = run_program(argc, argv, paths, cl);
  if (code != 0 && console_on()) std::fputs("EXIT_FAILURE\r\n", stderr);
  end_logs(OUTDIR, cl.o.log != 0, cl.o.clear_log, code);
  return code;
}
