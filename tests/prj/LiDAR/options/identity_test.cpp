#include "prj/LiDAR/options/identity.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/temp_dir.h"

namespace veld {
// A directory that does not exist stands for one that cannot be written: root may write to all others.
TEST(ProgramPaths, LieBesideTheExecutableOrInTheHomeDirectory) {
  const TempDir bin, home;
  const std::string state = home.path + "/.local/state/veldrunner/veldrunner";

  const ProgramPaths beside = place_program_files(bin.path + "/veldrunner", home.path + "/");
  EXPECT_EQ(beside.base, bin.path + "/veldrunner");
  EXPECT_EQ(beside.options_base, beside.base);
  EXPECT_FALSE(beside.per_user);
  EXPECT_FALSE(std::filesystem::exists(home.path + "/.local"));

  const std::string closed = bin.path + "/v2.26/veldrunner";
  for (const std::string& no_home : {std::string(), std::string("/proc/none/")}) {
    const ProgramPaths stays = place_program_files(closed, no_home);
    EXPECT_EQ(stays.base, closed) << no_home;
    EXPECT_FALSE(stays.per_user) << no_home;
  }

  const ProgramPaths own = place_program_files(closed, home.path + "/");
  EXPECT_EQ(own.base, state);
  EXPECT_EQ(own.options_base, closed);  // one option file for all users
  EXPECT_TRUE(own.per_user);

  std::ofstream(state + ".opt.txt") << "progress = 0\n";
  EXPECT_EQ(place_program_files(closed, home.path + "/").options_base, state);
}
}  // namespace veld
