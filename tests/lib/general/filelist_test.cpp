#include "lib/general/filelist.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "lib/general/path.h"
#include "tests/lib/general/log_capture.h"

namespace veld {
namespace {
struct FileListTest : testing::Test {
  TempDir dir;
  PathRules rules{"", dir.path};
  FileList list;
  FileListTest() {
    for (const char* const name : {"/b.las", "/a.las", "/A2.las", "/c.laz"}) write_text(dir.path + name, "x");
  }
  std::string names() const {
    std::string text;
    for (const std::string& name : list.name) text += base_name(name) + " ";
    return text;
  }
};
}  // namespace

TEST_F(FileListTest, PatternsAreSortedByBytesAndNothingEntersTwice) {
  ASSERT_TRUE(update_file_list(list, {}, "c.laz", 1, true, rules));
  ASSERT_TRUE(update_file_list(list, {}, "*.la?", 2, true, rules));
  EXPECT_EQ(names(), "c.laz A2.las a.las b.las ");
  EXPECT_EQ(list.idx, (std::vector<int>{1, 2, 2, 2}));
}

TEST_F(FileListTest, ExclusionsOfAPatternAreLeftOut) {
  FileList excl;
  ASSERT_TRUE(update_file_list(excl, {}, "a*.las", 0, false, rules));
  ASSERT_TRUE(update_file_list(list, excl, "*.las", 1, true, rules));
  EXPECT_EQ(names(), "A2.las b.las ");
}

TEST_F(FileListTest, EveryFailureSaysWhy) {
  FileList all;
  ASSERT_TRUE(update_file_list(all, {}, "*.las", 0, false, rules));
  const struct {
    const char* pattern;
    const FileList* excl;
    std::string text;
  } cases[] = {
      {"no.las", nullptr, "could not find file " + dir.path + "/no.las"},
      {"*.txt", nullptr, "no match for *.txt in directory " + dir.path + "/"},
      {"absent/*.las", nullptr, "could not open directory " + dir.path + "/absent/"},
      {"*.las", &all, "no match for *.las in directory " + dir.path + "/ (all files were excluded)"},
      {"A.LAS", nullptr, "could not find file"},
      {"b.las", &all, "could not add file b.las in directory " + dir.path + "/ (excluded)"},
      {"c.laz", nullptr, "duplicate file " + dir.path + "/c.laz"},
      {"./c.laz", nullptr, "could not find file ./c.laz"},
  };
  ASSERT_TRUE(update_file_list(list, {}, "c.laz", 1, true, rules));
  for (const auto& c : cases) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(update_file_list(list, c.excl ? *c.excl : FileList(), c.pattern, 1, true, rules))
        << c.pattern;
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(holds(text, "ERROR: " + c.text)) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
  }
  EXPECT_EQ(list.size(), 1u);
  EXPECT_TRUE(update_file_list(list, {}, "c.laz", 1, false, rules)) << "without DUP it is passed over";
  EXPECT_EQ(list.size(), 1u);
}

// One file under several names counts once; names that differ in case are two files.
TEST_F(FileListTest, NamesOfOneFileAreDuplicates) {
  std::filesystem::create_symlink(dir.path, dir.path + "/again");
  std::filesystem::create_symlink("b.las", dir.path + "/soft.las");
  std::filesystem::create_hard_link(dir.path + "/b.las", dir.path + "/hard.las");
  write_text(dir.path + "/B.LAS", "x");
  ASSERT_TRUE(update_file_list(list, {}, "b.las", 1, true, rules));
  EXPECT_TRUE(update_file_list(list, {}, "B.LAS", 1, true, rules));
  for (const char* const name : {"again/b.las", "soft.las", "hard.las", "*.las"}) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(update_file_list(list, {}, name, 1, true, rules)) << name;
    EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), "ERROR: duplicate file ")) << name;
  }
  FileList fresh;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(update_file_list(fresh, {}, "*.las", 1, true, rules));  // link and file by one pattern
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: duplicate file " + dir.path + "/hard.las (another name of " + dir.path + "/b.las)\n" +
                "ERROR: duplicate file " + dir.path + "/soft.las (another name of " + dir.path + "/b.las)\n");
  EXPECT_TRUE(update_file_list(fresh, {}, "*.las", 2, false, rules)) << "passed over without DUP";
  EXPECT_EQ(fresh.size(), 3u);
}

// What matches and is no file is named, and the files beside it are taken.
TEST_F(FileListTest, MatchesThatAreNoFilesAreNamed) {
  std::filesystem::create_directory(dir.path + "/d.las");
  std::filesystem::create_symlink("nowhere", dir.path + "/l.las");
  ASSERT_EQ(mkfifo((dir.path + "/p.las").c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/null", dir.path + "/z.las");
  const struct {
    const char *name, *kind;
  } cases[] = {
      {"d.las", "a directory"}, {"l.las", "a link to nothing"}, {"p.las", "a FIFO"}, {"z.las", "a device"}};
  std::string expected;
  for (const auto& c : cases)
    expected += "WARNING: " + dir.path + "/" + c.name + " matches *.las but is " + c.kind + ", passed over\n";
  testing::internal::CaptureStderr();
  EXPECT_TRUE(update_file_list(list, {}, "*.las", 1, true, rules));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
  EXPECT_EQ(names(), "A2.las a.las b.las ");
  for (const auto& c : cases) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(update_file_list(list, {}, c.name, 1, true, rules));
    const std::string path = dir.path + "/" + c.name;
    const std::string remedy =
        std::string(c.kind) == "a directory" ? ": give a pattern such as " + path + "/*" : "";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: could not find file " + path + ", it is " + c.kind + remedy + "\n");
  }
}

TEST_F(FileListTest, ListsOfFiles) {
  write_text(dir.path + "/l.txt", "a.las\r\n\nb.las\n");
  write_text(dir.path + "/bad.txt", "c.laz\nabsent.las\n");
  write_text(dir.path + "/empty.txt", "\n\n");
  ASSERT_TRUE(update_file_list_lof(list, {}, "l.txt", 3, true, rules));
  EXPECT_EQ(names(), "a.las b.las ");
  testing::internal::CaptureStderr();
  for (const char* const name : {"bad.txt", "empty.txt", "no.txt"})
    EXPECT_FALSE(update_file_list_lof(list, {}, name, 1, true, rules));
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_EQ(text, "ERROR: could not find file " + dir.path + "/absent.las\n" +
                      "ERROR: no file found in list of files empty.txt\n" +
                      "ERROR: could not find list of files no.txt\n");
}

TEST_F(FileListTest, CheckedFileIsTheFirstMatch) {
  std::string file = "*.las";
  testing::internal::CaptureStderr();
  ASSERT_TRUE(update_check_file(file, rules));
  EXPECT_EQ(file, dir.path + "/A2.las");
  file = "x*.las";
  EXPECT_FALSE(update_check_file(file, rules));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "WARNING: found 3 matches for *.las in directory " +
                                                        dir.path + "/ - using A2.las\n" +
                                                        "ERROR: no match for x*.las in " + dir.path + "/\n");
}

TEST_F(FileListTest, CopiesAndDirectories) {
  TempDir to;
  const std::string from = dir.path + "/a.las";
  EXPECT_TRUE(copy_file(from, to.path + "/a.las"));
  EXPECT_EQ(read_text(to.path + "/a.las"), "x");
  EXPECT_TRUE(copy_file(from, dir.path + "/../" + base_name(dir.path) + "/a.las")) << "nothing to do";
  EXPECT_EQ(read_text(from), "x");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(copy_file(from, to.path + "/absent/a.las"));
  testing::internal::GetCapturedStderr();
  EXPECT_TRUE(dum_chk_dir_eq(dir.path, dir.path + "/../" + base_name(dir.path)));
  EXPECT_FALSE(dum_chk_dir_eq(dir.path, to.path));
  EXPECT_TRUE(dir_writable(to.path));
  EXPECT_FALSE(dir_writable(to.path + "/absent"));
  EXPECT_FALSE(dir_writable("/proc"));
}

TEST(FileListRules, ReferenceDirectory) {
  EXPECT_EQ(expand_refdir("$/a", "/r"), "/r/a");
  EXPECT_EQ(expand_refdir("$", "/r"), "/r");
  EXPECT_EQ(expand_refdir("$x", "/r"), "$x");
  EXPECT_EQ(expand_refdir("$/a", ""), "$/a");
  EXPECT_EQ(complete_path("$/a", {"/r", "in"}), "/r/a");
}
}  // namespace veld
