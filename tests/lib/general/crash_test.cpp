#include "lib/general/crash.h"

#include <gtest/gtest.h>

#include <csignal>
#include <thread>
#include <vector>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "tests/lib/general/log_capture.h"

#ifndef VELD_SANITIZED  // sanitizers have handlers of their own
namespace {
void start(const std::string& base) {
  install_crash_handlers();
  if (!take_lock(base, "prog")) std::exit(99);
  open_logs(base, "prog", base, "none");
}
}  // namespace

TEST(CrashDeathTest, SignalsEndWithTheirValueAReportAndNoLock) {
  const struct {
    int number;
    const char* text;
    int code;
  } cases[] = {{SIGABRT, "ABRT 6", 134}, {SIGFPE, "FPE 8", 136},    {SIGILL, "ILL 4", 132},
               {SIGINT, "INT 2", 130},   {SIGSEGV, "SEGV 11", 139}, {SIGTERM, "TERM 15", 143},
               {SIGTRAP, "TRAP 5", 133}, {SIGQUIT, "QUIT 3", 131},  {SIGSYS, "SYS 31", 140},
               {SIGBUS, "BUS 7", 138}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    TempDir dir;
    const std::string base = dir.path + "/prog";
    const std::string first = std::string("[") + c.text + " - ABNORMAL TERMINATION]\n";
    EXPECT_EXIT((start(base), std::raise(c.number)), testing::ExitedWithCode(c.code),
                std::string("\\") + "[" + c.text + " - ABNORMAL TERMINATION\\]");
    EXPECT_FALSE(exists(base + ".lock"));
    const std::string log = read_text(base + ".log");
    EXPECT_TRUE(holds(log, "\n" + first + "0  ")) << log;
    EXPECT_TRUE(holds(log, "EXIT=FAIL\n"));
  }
}

TEST(CrashDeathTest, AnExceptionIsNamedAndExitsWithOne) {
  TempDir dir;
  const std::string base = dir.path + "/prog";
  const auto thrower = [&base]() noexcept {
    start(base);
    std::vector<int>().at(3);
  };
  EXPECT_EXIT(thrower(), testing::ExitedWithCode(1), "\\[vector::_M_range_check.* - ABNORMAL TERMINATION\\]");
  EXPECT_FALSE(exists(base + ".lock"));
}

TEST(CrashDeathTest, AnAssertOnAWorkerIsInTheBackgroundLog) {
  TempDir dir;
  const std::string base = dir.path + "/prog";
  const auto worker = [&base] {
    start(base);
    std::thread([] { ASSERT(1 > 2); }).join();
  };
  EXPECT_EXIT(worker(), testing::ExitedWithCode(134), "ERROR: ASSERT \\(1>2\\) in operator\\(\\)");
  EXPECT_TRUE(holds(read_text(base + "_b.log"), ":   / > @ ERROR: ASSERT (1>2)"));
  EXPECT_TRUE(holds(read_text(base + ".log"), "[ABRT 6 - ABNORMAL TERMINATION]"));
}
#endif
