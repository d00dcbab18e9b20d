#include "lib/general/crash.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/result_file.h"
#include "tests/lib/general/log_capture.h"

namespace veld {
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
    const char* label;
    int code;
  } cases[] = {{SIGABRT, "ABRT 6", 134},  {SIGFPE, "FPE 8", 136},    {SIGILL, "ILL 4", 132},
               {SIGINT, "INT 2", 130},    {SIGSEGV, "SEGV 11", 139}, {SIGTERM, "TERM 15", 143},
               {SIGTRAP, "TRAP 5", 133},  {SIGQUIT, "QUIT 3", 131},  {SIGSYS, "SYS 31", 140},
               {SIGBUS, "BUS 7", 138},    {SIGHUP, "HUP 1", 129},    {SIGUSR1, "USR1 10", 138},
               {SIGALRM, "ALRM 14", 142}, {SIGXCPU, "XCPU 24", 152}, {SIGVTALRM, "VTALRM 26", 154}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    TempDir dir;
    const std::string base = dir.path + "/prog";
    const bool asked_for = c.number == SIGINT;  // the user knows why: no stack
    const std::string what = asked_for ? " - interrupted" : " - ABNORMAL TERMINATION";
    const std::string first = std::string("[") + c.label + what + "]\n" + (asked_for ? "" : "0  ");
    EXPECT_EXIT((start(base), std::raise(c.number)), testing::ExitedWithCode(c.code),
                std::string("\\") + "[" + c.label + what + "\\]");
    EXPECT_FALSE(exists(base + ".lock"));
    const std::string log = read_text(base + ".log");
    EXPECT_TRUE(holds(log, "\n" + first)) << log;
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

TEST(CrashDeathTest, AnAllocationThatFailsNamesItsSizeWithoutAStack) {
  const struct {
    void (*allocate)();
    const char* message;
  } cases[] = {
      {[] { Vector<double> v(uint64_t{1} << 50); },
       "ERROR: Vector/V0 allocation failed, size 1125899906842624 x 8\n"},
      {[] { Image<float> i(1 << 29, 1 << 29); }, "ERROR: Image/"},
      {[] { std::vector<char> v(size_t{1} << 60); },
       "ERROR: new allocation failed, size 1152921504606846976 x 1\n"},
  };
  for (const auto& c : cases)
    for (const bool worker : {false, true}) {
      SCOPED_TRACE(c.message);
      TempDir dir;
      const std::string base = dir.path + "/prog";
      const auto run = [&]() noexcept {
        start(base);
        if (worker)
          std::thread([&c]() noexcept { c.allocate(); }).join();
        else
          c.allocate();
      };
      EXPECT_EXIT(run(), testing::ExitedWithCode(1), std::string("^") + c.message);
      EXPECT_FALSE(exists(base + ".lock"));
      const std::string log = read_text(base + ".log");
      EXPECT_TRUE(holds(worker ? read_text(base + "_b.log") : log, c.message)) << log;
      EXPECT_TRUE(holds(log, "EXIT=FAIL\n"));
      EXPECT_FALSE(holds(log, "ABNORMAL TERMINATION"));
    }
}

// A signal in the middle of an allocation, a log line and a result file: each has its lock, and none may stop
// the report.
TEST(CrashDeathTest, SignalsInTheMiddleOfWorkCloseTheLogAndLeaveNoPartOfAResult) {
  for (int round = 0; round < 10; round++) {
    TempDir dir;
    const std::string base = dir.path + "/prog";
    const auto work = [&base](int delay_us) {
      start(base);
      const pid_t self = getpid();
      if (fork() == 0) {
        usleep(static_cast<useconds_t>(delay_us));
        kill(self, SIGTERM);
        _exit(0);
      }
      for (int i = 0;; i++) {
        LOG_ENTER("work " << i);
        std::vector<std::string> texts(50, std::string(100, 'x'));
        ResultFile file;
        if (file.open(base + "_result.txt")) file.fs << texts[7] << '\n';
        if (i % 2 == 0 && !file.commit()) std::exit(98);
      }
    };
    EXPECT_EXIT(work(2000 + 1400 * round), testing::ExitedWithCode(143), "TERM 15 - ABNORMAL TERMINATION");
    EXPECT_FALSE(exists(base + ".lock"));
    EXPECT_FALSE(exists(base + "_result.txt.part"));
    const std::string result = read_text(base + "_result.txt");
    EXPECT_TRUE(result.empty() || result.size() == 101);
    EXPECT_TRUE(holds(read_text(base + ".log"), "\nEXIT=FAIL\n"));
    EXPECT_TRUE(holds(read_text(base + "_b.log"), "EXIT_CODE=1\n"));
  }
}
#endif

namespace {
// The process number of a child that has ended.
long ended_process() {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  int status = 0;
  waitpid(child, &status, 0);
  return child;
}
}  // namespace

TEST(Lock, OfAProcessThatHasEndedIsTakenOverAndNoOther) {
  TempDir dir;
  const std::string base = dir.path + "/prog", lock = base + ".lock";
  const std::string ended = std::to_string(ended_process()), self = std::to_string(getpid());
  const std::string refused =
      "ERROR: one instance of prog is already running!\nfile \"" + lock + "\" found.\n";
  const struct {
    const char* what;
    std::string content;
    bool taken;
    std::string message;
  } cases[] = {
      {"ended", ended + " 12345 " + host_name() + "\n", true,
       "WARNING: lock of process " + ended + " taken over, it ended without removing it\n"},
      {"number used again", self + " 1 " + host_name() + "\n", true,
       "WARNING: lock of process " + self + " taken over, it ended without removing it\n"},
      {"alive, start unknown", self + " - " + host_name() + "\n", false,
       refused + "held by process " + self + " on " + host_name() + "\n"},
      {"another host", ended + " 12345 elsewhere\n", false,
       refused + "held by process " + ended + " on elsewhere\n"},
      {"nobody named", "", false, refused},
      {"not a lock", "something else\n", false, refused},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    write_text(lock, c.content);
    testing::internal::CaptureStderr();
    EXPECT_EQ(take_lock(base, "prog"), c.taken);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
    EXPECT_EQ(read_text(lock) == c.content, !c.taken);
    if (!c.taken) continue;
    open_logs(base, "prog", base, "none");
    testing::internal::CaptureStdout();
    end_logs("", false, false, 0);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(holds(read_text(base + ".log"), c.message));
    EXPECT_FALSE(exists(lock));
  }
}

// Many processes at once on a lock that a dead one left: one gets it.
TEST(Lock, OneOfManyTakesADeadLockOver) {
  TempDir dir;
  const std::string base = dir.path + "/prog";
  for (int round = 0; round < 5; round++) {
    write_text(base + ".lock", std::to_string(ended_process()) + " 12345 " + host_name() + "\n");
    std::vector<pid_t> children;
    for (int i = 0; i < 8; i++) {
      const pid_t child = fork();
      if (child == 0) {
        const bool got = take_lock(base, "prog", false);
        usleep(got ? 300000 : 0);  // alive while the others look
        _exit(got);
      }
      children.push_back(child);
    }
    int ngot = 0;
    for (const pid_t child : children) {
      int status = 0;
      waitpid(child, &status, 0);
      ngot += WEXITSTATUS(status);
    }
    EXPECT_EQ(ngot, 1);
  }
}
}  // namespace veld
