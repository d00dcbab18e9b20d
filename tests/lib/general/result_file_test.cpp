#include "lib/general/result_file.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "lib/general/path.h"
#include "tests/support/temp_dir.h"

namespace veld {
TEST(ResultFile, AppearsWithCommitAndNotBefore) {
  TempDir dir;
  const std::string name = dir.path + "/r.txt";
  write_text(name, "older");
  {
    ResultFile file;
    ASSERT_TRUE(file.open(name));
    file.fs << 1.5 << '\n';
    EXPECT_EQ(read_text(name), "older");
    EXPECT_TRUE(exists(file.part()));
  }
  EXPECT_EQ(read_text(name), "older") << "given up";
  EXPECT_FALSE(exists(name + ".part"));
  ResultFile file;
  ASSERT_TRUE(file.open(name));
  file.fs << 1.5 << '\n';
  ASSERT_TRUE(file.commit());
  EXPECT_EQ(read_text(name), "1.500\n");
  EXPECT_FALSE(exists(name + ".part"));
  file.begin(name);  // by a writer of its own, with the same object
  write_text(file.part(), "own");
  ASSERT_TRUE(file.commit());
  EXPECT_EQ(read_text(name), "own");
}

TEST(ResultFile, BytesAppearWithCommitAndNotBefore) {
  TempDir dir;
  const std::string name = dir.path + "/r.bin";
  write_text(name, "older");
  for (const bool commits : {false, true}) {
    BinResultFile file;
    ASSERT_TRUE(file.open(name));
    ASSERT_TRUE(file.write("bytes", 5));
    ASSERT_TRUE(!commits || file.commit());
    EXPECT_EQ(read_text(name), commits ? "bytes" : "older");
  }
  EXPECT_EQ(read_text(name), "bytes");
  EXPECT_FALSE(exists(name + ".part"));
  testing::internal::CaptureStderr();
  BinResultFile nowhere;
  EXPECT_FALSE(nowhere.open(dir.path + "/none/r"));
  EXPECT_FALSE(nowhere.is_open());
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

TEST(ResultFile, FailuresAreOneLineAndLeaveNothing) {
  TempDir dir;
  const std::string directory = dir.path + "/d";
  std::filesystem::create_directory(directory);
  write_text(directory + "/x", "x");
  const auto errors_of = [](const std::string& name, const char* text) {
    testing::internal::CaptureStderr();
    ResultFile file;
    const bool good = file.open(name);
    if (good) file.fs << text << std::flush;
    EXPECT_FALSE(good && file.commit());
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(errors_of(dir.path + "/none/r", ""), "ERROR: TxtFileOut: open failed, file='" + dir.path +
                                                     "/none/r.part': No such file or directory\n");
  EXPECT_EQ(errors_of(directory, "text"),
            "ERROR: renaming failed, file='" + directory + "': Is a directory\n");
  EXPECT_FALSE(exists(directory + ".part"));
  std::filesystem::create_symlink("/dev/full", dir.path + "/full.part");
  EXPECT_EQ(errors_of(dir.path + "/full", "text"),
            "ERROR: TxtFileOut: close failed, file='" + dir.path + "/full.part': No space left on device\n");
  EXPECT_FALSE(exists(dir.path + "/full"));
}
}  // namespace veld
