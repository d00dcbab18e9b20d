#include "lib/general/log.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "lib/general/console.h"
#include "lib/general/filelist.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "tests/lib/general/log_capture.h"

namespace veld {
namespace {
void inner() {
  LOG_ENTER("inner n=" << 3);
  LOG_LINE("x=" << 0.5);
  LOG_MSG("seen");
}
}  // namespace

TEST(Log, LinesShowTheTreeOfScopes) {
  LogCapture log;
  testing::internal::CaptureStdout();
  {
    LOG_LINE("top");
    LOG_ENTER("outer file='a'");
    inner();
    LOG_MSG1("one");
  }
  LOG_MSG("outside");
  const std::string console = testing::internal::GetCapturedStdout();
  EXPECT_EQ(console, "seen\none\noutside\n");
  EXPECT_TRUE(holds(log.main_text(),
                    "| top\n"
                    ".   / outer file='a'\n"
                    ".   |   / inner n=3\n"
                    ".   |   | x=0.500\n"
                    ".   |   | @ seen\n"
                    ".   |   > @ one\n"
                    ".   > @ outside\n"));
}

TEST(Log, OtherThreadsWriteToTheBackgroundLog) {
  LogCapture log;
  std::thread([] {
    LOG_ENTER("body");
    LOG_ENTER("deeper");
    LOG_LINE("said beside");
  }).join();
  const std::string back = log.back_text();
  EXPECT_EQ(back.rfind("[background thread log]\n", 0), 0u);
  const size_t line = back.find("/ body");
  ASSERT_NE(line, std::string::npos);
  EXPECT_EQ(back.find_last_of('\n', line), line - 21) << "16 digits and 4 signs in front";
  EXPECT_TRUE(holds(back, ":   |   | said beside\n"));
  EXPECT_FALSE(holds(log.main_text(), "said beside"));
}

TEST(Log, ErrorsGoToStandardErrorOnceAndQuietSilencesTheRest) {
  LogCapture log;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  ERROR_MSG("bad " << 1);
  set_console(false);
  ERROR_MSG("quiet");
  WARNING_MSG("too");
  set_console(true);
  set_console_once(true);
  WARNING_MSG("loud");
  WARNING_MSG("loud");
  set_console_once(false);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: bad 1\nERROR: quiet\nWARNING: loud\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  const std::string text = log.main_text();
  EXPECT_TRUE(holds(text, "> @ ERROR: bad 1\n"));
  EXPECT_TRUE(holds(text, "> @ ERROR: quiet\n.   > @ WARNING: too\n"));
}

TEST(Log, TextIsNotComposedWithoutLogFiles) {
  int composed = 0;
  const auto count = [&composed] { return ++composed; };
  LOG_LINE(count());
  LOG_ENTER(count());
  EXPECT_EQ(composed, 0);
  LogCapture log;
  LOG_LINE(count());
  EXPECT_EQ(composed, 1);
}

TEST(Log, AMessageEndsAPendingProgressLine) {
  set_progress_columns(80);
  testing::internal::CaptureStdout();
  progress_start(4);
  progress_step(1, "a");
  LOG_MSG("text");
  progress_step(9, "b");
  progress_step(-1, "c");
  progress_end("end");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[******-------------------]  25% a\r"
            "\ntext\n"
            "[*************************] 100% b\r"
            "[-------------------------]   0% c\r"
            "[*************************] 100% end\n");
  set_progress_columns(ASK_TERMINAL);
}

TEST(Log, FilesOfEarlierRunsAreKeptUnderTheirTime) {
  TempDir dir;
  const std::string base = dir.path + "/prog";
  write_text(base + ".log", "old");
  write_text(base + "_b.log", "old b");
  const std::string old = "touch -d '2025-03-23 20:50:50' " + base + ".log " + base + "_b.log";
  ASSERT_EQ(std::system(old.c_str()), 0);
  open_logs(base, "prog", base, "none");
  EXPECT_EQ(read_text(base + ".250323-205050.log"), "old");
  EXPECT_EQ(read_text(base + "_b.250323-205050.log"), "old b");
  testing::internal::CaptureStdout();
  end_logs("", false, true, 1);  // old logs are deleted at the end
  EXPECT_TRUE(holds(testing::internal::GetCapturedStdout(), "TOTAL PROCESSING TIME: 00:00:0"));
  EXPECT_FALSE(exists(base + ".250323-205050.log"));
  EXPECT_FALSE(exists(base + "_b.250323-205050.log"));
  const std::string text = read_text(base + ".log");
  EXPECT_EQ(text.rfind("Log started: ", 0), 0u);
  EXPECT_TRUE(holds(text, "Renamed existing prog.log using timestamp\n"));
  EXPECT_TRUE(holds(text, "Deleted " + base + ".*.log 1 files, 0.000 Mb\n"));
  EXPECT_TRUE(holds(text, "EXIT=FAIL\nTOTAL TIME: Clock=00:00:0"));
  EXPECT_TRUE(holds(read_text(base + "_b.log"), "EXIT_CODE=1\n"));
}

TEST(Log, RunsOfOneSecondKeepAllTheirLogs) {
  TempDir dir, out;
  const std::string base = dir.path + "/prog";
  testing::internal::CaptureStdout();
  for (const char* const run : {"run 1", "run 2", "run 3", "run 4"}) {
    open_logs(base, "prog", base, run);
    write_text(dir.path + "/prog.zzz.log", "another program's");
    end_logs(out.path, true, false, 0);
    const std::string touch = "touch -d '2025-03-23 20:50:50' " + base + ".log " + out.path + "/prog.log";
    ASSERT_EQ(std::system(touch.c_str()), 0);
  }
  testing::internal::GetCapturedStdout();
  for (const std::string& place : {dir.path, out.path}) {
    EXPECT_TRUE(holds(read_text(place + "/prog.250323-205050.log"), "Default run 1\n"));
    EXPECT_TRUE(holds(read_text(place + "/prog.250323-205050-2.log"), "Default run 2\n"));
    EXPECT_TRUE(holds(read_text(place + "/prog.250323-205050-3.log"), "Default run 3\n"));
    EXPECT_TRUE(holds(read_text(place + "/prog.log"), "Default run 4\n"));
  }
  EXPECT_FALSE(exists(out.path + "/prog.zzz.log")) << "only the run's own logs are copied";
}

// Two processes that run side by side, then a third that clears up behind them.
TEST(Log, OwnLogsAreApartAndGoOnceTheirProcessHasEnded) {
  TempDir dir;
  const std::string base = dir.path + "/prog";
  const auto logs = [&dir](const char* pattern) {
    std::vector<std::string> files;
    EXPECT_TRUE(match_files(dir.path + "/" + pattern, files));
    return files;
  };
  testing::internal::CaptureStdout();
  const pid_t child = fork();
  if (child == 0) {
    open_logs(base, "prog", base, "child", true);
    end_logs("", false, false, 0);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  open_logs(base, "prog", base, "parent", true);
  ASSERT_EQ(logs("prog_mul_*.log").size(), 4u);
  end_logs("", false, true, 0);
  testing::internal::GetCapturedStdout();
  const std::vector<std::string> left = logs("prog_mul_*.log");
  ASSERT_EQ(left.size(), 2u);
  EXPECT_TRUE(holds(read_text(left[0]), "Default parent\n"));
}

TEST(Timing, HoursAreNotWrapped) {
  EXPECT_EQ(hms_text(0), "00:00:00");
  EXPECT_EQ(hms_text(3599.6), "01:00:00");
  EXPECT_EQ(hms_text(360000 + 61), "100:01:01");
}
}  // namespace veld
