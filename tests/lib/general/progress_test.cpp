#include "lib/general/progress.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <regex>

#include "lib/general/logfiles.h"
#include "tests/support/temp_dir.h"

namespace veld {
TEST(Progress, FileHoldsPercentAndText) {
  TempDir dir;
  const std::string path = dir.path + "/p_gui.prog";
  set_progress_file(path);
  set_progress_mode(ProgressMode::file);
  progress_start(8);
  progress_step(2, "quarter");
  EXPECT_EQ(read_text(path), "\x19quarter");
  progress_step(8, std::string(300, 'x'));
  progress_end("");
  EXPECT_EQ(read_text(path), "d" + std::string(255, 'x'));
  set_progress_file(dir.path + "/absent/p");
  progress_step(1, "nowhere");  // passed over
  progress_end("");
  set_progress_mode(ProgressMode::console);
  set_progress_file("");
}

// A stage of more than a second tells units of total, time passed and left; a shorter text covers a longer
// one.
TEST(Progress, LongStagesTellTheirTime) {
  set_progress_columns(80);
  testing::internal::CaptureStdout();
  progress_start(4);
  progress_step(0, "TILED 0 swaths");
  progress_step(-3, "TILED");
  usleep(1100000);
  progress_step(2, "TILED 2 swaths");
  progress_end("done");
  const std::string time = "[0-9]{2}:[0-9]{2}:[0-9]{2}", zero = R"(\[-{25}\]   0% )";
  EXPECT_TRUE(std::regex_match(testing::internal::GetCapturedStdout(),
                               std::regex(zero + "TILED 0 swaths\r" + zero + "TILED {9}\r" +
                                          R"(\[\*{12}-{13}\]  50% TILED 2 swaths )" + R"(\| 2/4 \| )" + time +
                                          ", left " + time + "\r" + R"(\[\*{25}\] 100% done {42}\n)")));
}

TEST(Progress, FitsTheTerminal) {
  set_progress_columns(50);
  testing::internal::CaptureStdout();
  progress_start(2);
  progress_step(1, std::string(100, 'x'));
  progress_end(std::string(100, 'y'));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[************-------------]  50% " + std::string(16, 'x') +
                "\r[*************************] 100% " + std::string(16, ' ') + "\n" + std::string(100, 'y') +
                "\n");
  set_progress_columns(ASK_TERMINAL);
}

// Captured output is no terminal.
TEST(Progress, TenthsWithoutATerminal) {
  testing::internal::CaptureStdout();
  progress_start(1000);
  for (int i = 0; i <= 1000; i++) progress_step(i, "at " + std::to_string(i));
  progress_end("end");
  const std::string text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 11) << text;
  EXPECT_EQ(text.find('\r'), std::string::npos);
  EXPECT_TRUE(holds(text, "\n[**-----------------------]  10% at 100\n")) << text;
}
}  // namespace veld
