// A run that is killed: exit value, lock, logs, files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tests/run/program.h"

namespace veld {
#ifndef VELD_SANITIZED
namespace {
const Args ALIGN = "-align -utm 33 -po traj.out -i L*.las -tmpdir t -odir o -out *_c.las";

// Neither corrected swaths nor parts of results.
void ExpectNoResults(const std::string& dir) {
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    EXPECT_NE(entry.path().extension(), ".las") << entry.path();
    EXPECT_NE(entry.path().extension(), ".part") << entry.path();
  }
}
}  // namespace

TEST(Signals, EachEndsTheRunWithAReport) {
  const Program program;
  const std::string& work = program.work.path;
  ASSERT_TRUE(simulate(work));
  const struct {
    int number;
    const char* label;
    int code;
  } cases[] = {{SIGINT, "INT 2", 130}, {SIGSEGV, "SEGV 11", 139}, {SIGTERM, "TERM 15", 143}};
  for (const auto& s : cases) {
    SCOPED_TRACE(s.label);
    const std::string heading = std::string("[") + s.label +
                                (s.number == SIGINT ? " - interrupted]\n" : " - ABNORMAL TERMINATION]\n0  ");
    for (const char* const dir : {"/t", "/o"}) {
      std::filesystem::remove_all(work + dir);
      std::filesystem::create_directory(work + dir);
    }
    std::filesystem::remove(program.base + ".log");
    const pid_t pid = program.start(ALIGN + "-log_flush -nthreads 1");
    for (int i = 0; i < 5000 && !holds(program.log(), "TILING: swaths"); i++) usleep(1000);
    ASSERT_EQ(kill(pid, s.number), 0);
    const RunOutput r = program.finish(pid);
    EXPECT_EQ(r.code, s.code);
    EXPECT_FALSE(exists(program.base + ".lock"));
    EXPECT_TRUE(holds(r.err, heading)) << r.err;
    EXPECT_TRUE(
        holds(r.err, "WARNING: logs not copied to output directory, see " + program.base + "*.log\n"));
    const std::string log = program.log();
    EXPECT_TRUE(holds(log, "\n" + heading));
    EXPECT_TRUE(holds(log, "\nEXIT=FAIL\nTOTAL TIME: Clock=") && holds(log, "\nLog ended: ")) << log;
    EXPECT_TRUE(holds(read_text(program.base + "_b.log"), "\nEXIT_CODE=1\n"));
    ExpectNoResults(work + "/o");
  }
  // What was left lying about is no obstacle to the next run.
  const RunOutput r = program.run(ALIGN);
  EXPECT_EQ(r.code, 0) << r.err;
}

// Signals at any moment of the start: in an allocation, in the parser, while logs are opened. Before the handlers
// stand the process simply dies, and has no lock yet.
TEST(Signals, EarlyOnesLeaveNoLockAndAClosedLog) {
  const Program program;
  const std::string& work = program.work.path;
  ASSERT_TRUE(simulate(work));
  for (const char* const dir : {"/t", "/o"}) std::filesystem::create_directory(work + dir);
  int nreported = 0;
  for (int i = 0; i < 40 || (nreported <= 10 && i < 200); i++) {  // a busy machine starts the program later
    std::filesystem::remove(program.base + ".log");
    const pid_t pid = program.start(ALIGN);
    usleep(static_cast<useconds_t>(1500 * i));
    kill(pid, SIGTERM);
    const RunOutput r = program.finish(pid);
    EXPECT_TRUE(r.code == 143 || r.code == -1 || r.code == 0) << r.code;
    EXPECT_FALSE(exists(program.base + ".lock"));
    const std::string log = program.log();
    EXPECT_TRUE(log.empty() || holds(log, "\nLog ended: ")) << log;
    nreported += r.code == 143;
  }
  EXPECT_GT(nreported, 10);
}
#endif
}  // namespace veld
