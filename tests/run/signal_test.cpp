// A run that is killed: exit value, lock, logs, files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/run/program.h"
#include "tests/support/signal_cases.h"

#ifndef VELD_SANITIZED
TEST(Signals, EachOfTenEndsTheRunWithAReport) {
  const Program program;
  const std::string& work = program.work.path;
  ASSERT_TRUE(simulate(work));
  for (const SignalCase& s : SIGNAL_CASES) {
    SCOPED_TRACE(s.label);
    const std::string heading = std::string("[") + s.label + " - ABNORMAL TERMINATION]\n0  ";
    RunOutput r;
    // A signal in the middle of an allocation leaves no report, only its exit value and no lock: then again.
    for (int attempt = 0; attempt < 4 && !holds(r.err, heading); attempt++) {
      for (const char* const dir : {"/t", "/o"}) {
        std::filesystem::remove_all(work + dir);
        std::filesystem::create_directory(work + dir);
      }
      std::filesystem::remove(program.base + ".log");
      const pid_t pid = program.start({"-align", "-utm", "33", "-po", "traj.out", "-i", "L*.las", "-tmpdir",
                                       "t", "-odir", "o", "-out", "*_c.las", "-log_flush", "-nthreads", "1"});
      for (int i = 0; i < 5000 && !holds(program.log(), "TILING: swaths"); i++) usleep(1000);
      ASSERT_EQ(kill(pid, s.number), 0);
      r = program.finish(pid);
      EXPECT_EQ(r.code, s.code);
      EXPECT_FALSE(exists(program.base + ".lock"));
    }
    EXPECT_TRUE(holds(r.err, heading)) << r.err;
    EXPECT_TRUE(
        holds(r.err, "WARNING: logs not copied to output directory, see " + program.base + "*.log\n"));
    const std::string log = program.log();
    EXPECT_TRUE(holds(log, "\n" + heading));
    EXPECT_TRUE(holds(log, "\nEXIT=FAIL\nTOTAL TIME: Clock=") && holds(log, "\nLog ended: ")) << log;
    EXPECT_TRUE(holds(read_text(program.base + "_b.log"), "\nEXIT_CODE=1\n"));
    for (const auto& entry : std::filesystem::directory_iterator(work + "/o"))
      EXPECT_NE(entry.path().extension(), ".las") << entry.path();
  }
  // What was left lying about is no obstacle to the next run.
  const RunOutput r = program.run({"-align", "-utm", "33", "-po", "traj.out", "-i", "L*.las", "-tmpdir", "t",
                                   "-odir", "o", "-out", "*_c.las"});
  EXPECT_EQ(r.code, 0) << r.err;
}
#endif
