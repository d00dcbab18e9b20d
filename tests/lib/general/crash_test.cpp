#include "lib/general/crash.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "tests/lib/general/log_capture.h"
#include "tests/support/signal_cases.h"

#ifndef VELD_SANITIZED  // sanitizers have handlers of their own
namespace {
void start(const std::string& base) {
  install_crash_handlers();
  if (!take_lock(base, "prog")) std::exit(99);
  open_logs(base, "prog", base, "none");
}
}  // namespace

TEST(CrashDeathTest, SignalsEndWithTheirValueAReportAndNoLock) {
  for (const SignalCase& c : SIGNAL_CASES) {
    SCOPED_TRACE(c.label);
    TempDir dir;
    const std::string base = dir.path + "/prog";
    const std::string first = std::string("[") + c.label + " - ABNORMAL TERMINATION]\n";
    EXPECT_EXIT((start(base), std::raise(c.number)), testing::ExitedWithCode(c.code),
                std::string("\\") + "[" + c.label + " - ABNORMAL TERMINATION\\]");
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
