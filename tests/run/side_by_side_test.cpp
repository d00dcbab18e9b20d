// Runs side by side on one temporary directory: each gives the undisturbed bytes, and leaves no lock.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <memory>

#include "tests/run/hostile_project.h"

namespace veld {
TEST(SideBySide, EachRunGivesTheUndisturbedBytes) {
  const HostileProject& first = hostile_project();
  ASSERT_FALSE(first.good.empty());
  std::vector<std::unique_ptr<Program>> programs;  // for an output of their own
  for (int n = 2; n <= 4; n++) programs.push_back(std::make_unique<Program>());
  for (int nruns = 2; nruns <= 4; nruns++) {
    SCOPED_TRACE(nruns);
    first.clear();
    std::vector<pid_t> pids = {first.program.start(first.args(1, 2))};
    const auto go_there = [&first] { (void)!chdir(first.dir.c_str()); };
    for (int n = 2; n <= nruns; n++)
      pids.push_back(programs[static_cast<size_t>(n - 2)]->start(first.args(n, n % 2 + 1), go_there));
    for (int n = 1; n <= nruns; n++) {
      const Program& program = n == 1 ? first.program : *programs[static_cast<size_t>(n - 2)];
      const RunOutput r = program.finish(pids[static_cast<size_t>(n - 1)]);
      EXPECT_EQ(r.code, 0) << r.err;
      EXPECT_EQ(first.differences(n), "") << r.err;
    }
    for (const std::string& name : first.caches())
      EXPECT_TRUE(!name.ends_with(".lock") && !name.ends_with(".part") && !name.ends_with(".poc")) << name;
  }
}

TEST(SideBySide, ARunGoesOnWhenAnotherIsKilled) {
  const HostileProject& first = hostile_project();
  ASSERT_FALSE(first.good.empty());
  const Program second;
  for (const int ms : {20, 60, 120}) {
    SCOPED_TRACE(ms);
    first.clear();
    const pid_t one = first.program.start(first.args(1));
    const pid_t two = second.start(first.args(2), [&first] { (void)!chdir(first.dir.c_str()); });
    usleep(static_cast<useconds_t>(1000 * ms));
    kill(one, SIGKILL);
    first.program.finish(one);
    const RunOutput r = second.finish(two);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(first.differences(2), "") << r.err;
    EXPECT_EQ(first.align(1).code, 0);
    EXPECT_EQ(first.differences(1), "");
    for (const std::string& name : first.caches())
      EXPECT_TRUE(!name.ends_with(".lock") && !name.ends_with(".part") && !name.ends_with(".poc")) << name;
  }
}
}  // namespace veld
