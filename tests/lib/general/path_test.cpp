#include "lib/general/path.h"

#include <gtest/gtest.h>

#include "tests/lib/general/log_capture.h"

namespace veld {
TEST(Path, Parts) {
  EXPECT_EQ(change_extension("d.1/a.b.las", ".laz"), "d.1/a.b.laz");
  EXPECT_EQ(change_extension("d.1/a", ".laz"), "d.1/a.laz");
  EXPECT_EQ(change_extension("a.las", ""), "a");
  EXPECT_EQ(get_extension("d.1/a"), "");
  EXPECT_EQ(get_extension("d/.a.LAS"), ".LAS");
  EXPECT_EQ(change_directory("x/y/f", "z/"), "z/f");
  EXPECT_EQ(change_directory("f", "z"), "z/f");
  EXPECT_EQ(base_name("a/b"), "b");
  EXPECT_EQ(with_slash(""), "");
  std::string dir, name;
  split_path("/a/b", dir, name);
  EXPECT_EQ(dir + "|" + name, "/a/|b");
}

TEST(Path, OnlyBareRelativePathsGetTheInputDirectory) {
  for (const char* const absolute : {"/a", "./a", "../a", "c:a"})
    EXPECT_EQ(add_input_directory(absolute, "in"), absolute);
  EXPECT_EQ(add_input_directory("a/b", "in"), "in/a/b");
  EXPECT_EQ(add_input_directory(".a", "in/"), "in/.a");
  EXPECT_EQ(add_input_directory("a", ""), "a");
}

TEST(Path, WildcardMatch) {
  const struct {
    const char *pattern, *text;
    bool match;
  } cases[] = {
      {"*.las", "a.las", true},
      {"*.las", ".las", true},
      {"*.las", "a.LAS", false},
      {"a?c", "abc", true},
      {"a?c", "ac", false},
      {"?", "", false},
      {"*", "", true},
      {"", "", true},
      {"", "a", false},
      {"a*b*c", "aXbYbZc", true},
      {"a*b*c", "aXbYbZ", false},
      {"**?", "x", true},
      {"L0?_*.laz", "L01_x.laz", true},
      {"abc", "abcd", false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(wildcard_match(c.pattern, c.text), c.match) << c.pattern << " " << c.text;
  EXPECT_TRUE(wildcard_match(std::string(128, '*') + "a", std::string(255, 'b') + "a"));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(wildcard_match("*", std::string(300, 'a')));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: MAX_INPUT_SIZE in wildcard_match\n");
}

TEST(Path, DeletionIsGuardedAndCounts) {
  TempDir dir;
  for (const char* const name : {"/a.idx", "/b.idx", "/c.dat"}) write_text(dir.path + name, "12345");
  uint64_t nfiles = 0, nbytes = 0;
  testing::internal::CaptureStderr();
  for (const std::string& pattern : {std::string(), dir.path + "/*", dir.path + "/a*"})
    EXPECT_FALSE(delete_files(pattern, nfiles, nbytes));
  EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), "WARNING: attempt to delete '' blocked\n"));
  EXPECT_EQ(nfiles, 0u);
  EXPECT_TRUE(delete_files(dir.path + "/*.idx", nfiles, nbytes));
  EXPECT_TRUE(delete_files(dir.path + "/absent", nfiles, nbytes));
  EXPECT_EQ(nfiles, 2u);
  EXPECT_EQ(nbytes, 10u);
  EXPECT_TRUE(exists(dir.path + "/c.dat"));
}
}  // namespace veld
