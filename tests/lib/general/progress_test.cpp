#include "lib/general/progress.h"

#include <gtest/gtest.h>

#include "lib/general/logfiles.h"
#include "tests/support/temp_dir.h"

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

TEST(Progress, NoneShowsNothing) {
  testing::internal::CaptureStdout();
  set_progress_mode(ProgressMode::none);
  progress_start(1);
  progress_step(1, "x");
  progress_end("y");
  set_progress_mode(ProgressMode::console);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(ProgressDeathTest, AStageNeedsUnits) {
  EXPECT_DEATH(progress_start(0), R"(ASSERT \(ntotal > 0\) in progress_start)");
}
