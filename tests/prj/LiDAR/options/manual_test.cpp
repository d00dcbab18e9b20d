#include "prj/LiDAR/options/manual.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>

#include "prj/LiDAR/options/option_text.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
struct Shell {
  int code = -1;
  std::string out;  // both streams
};

Shell shell(const std::string& command) {
  Shell result;
  FILE* const pipe = popen(("( " + command + " ) 2>&1").c_str(), "r");
  if (!pipe) return result;
  std::array<char, 4096> text;
  while (std::fgets(text.data(), text.size(), pipe)) result.out += text.data();
  result.code = pclose(pipe);
  return result;
}

bool installed(const std::string& program) { return shell("command -v " + program).code == 0; }

void save(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

std::multiset<std::string> words(const std::string& text) {
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in), {}};
}
}  // namespace

TEST(ManPage, HoldsEveryOptionOnceWithRangeAndDefault) {
  const std::string page = man_page_text();
  Options o;
  const std::vector<OptRow> rows = documented_rows(o);
  EXPECT_EQ(rows.size(), option_rows(o).size() + 3);  // those that the parser asks by itself
  for (const OptRow& row : rows) {
    std::string head = "\n.TP\n.B ";
    for (const char c : names_text(row)) head += c == '-' ? "\\-" : std::string(1, c);
    const size_t at = page.find(head + "\n");
    ASSERT_NE(at, std::string::npos) << row.name;
    EXPECT_EQ(page.find(head + "\n", at + 1), std::string::npos) << row.name;
  }
  EXPECT_TRUE(holds(page, "\ninteger 1024 to 262144; default 4096.\n"));
  EXPECT_TRUE(holds(page, "\n.SS registration\n"));
}

TEST(ManPage, FormatsWithoutWarnings) {
  if (!installed("groff")) GTEST_SKIP() << "no groff";
  const TempDir dir;
  save(dir.path + "/veldrunner.1", man_page_text());
  const Shell groff = shell("groff -man -ww -Tutf8 -z " + dir.path + "/veldrunner.1");
  EXPECT_EQ(groff.code, 0);
  EXPECT_EQ(groff.out, "");
}

TEST(Completion, OffersWhatTheOptionTakes) {
  if (!installed("bash")) GTEST_SKIP() << "no bash";
  const TempDir dir;
  save(dir.path + "/completion", bash_completion_text());
  for (const char* const name : {"a.las", "B.LAZ", "c.txt", "r.dut", "two words.las", "map.tif"})
    save(dir.path + "/" + name, "");
  ASSERT_EQ(shell("mkdir " + dir.path + "/odd.las " + dir.path + "/sub").code, 0);
  const struct {
    const char* line;    // words behind the program; the last one is completed
    const char* offers;  // words of all that is offered
  } cases[] = {
      {"-nth", "-nthreads -nthreads_io"},
      {"-align -i ''", "B.LAZ a.las odd.las sub two words.las"},
      {"-i a.las s", "sub"},
      {"-i a.las -ali", "-align -align2"},
      {"-P ''", "odd.las sub"},
      {"-export_dut r", "r.dut"},
      {"-gcp c", "c.txt"},
      {"-drop_map m", "map.tif"},
      {"-q ''", "0 1"},
      {"-fav_att ''", "0 1 2"},
      {"-D ''", "auto con"},
      {"-split b", "bi"},
      {"-mem ''", ""},
      {"-bbox_x -5 ''", ""},
      {"-odir sub -ver", "-version"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    const Shell got = shell(
        "cd " + dir.path + " && bash --norc -c \"source ./completion; COMP_WORDS=(veldrunner " + c.line +
        "); COMP_CWORD=\\$((\\${#COMP_WORDS[@]} - 1)); _veldrunner; "
        "for w in \\\"\\${COMPREPLY[@]}\\\"; do [ \\\"\\$w\\\" = completion ] || echo \\\"\\$w\\\"; done\"");
    EXPECT_EQ(got.code, 0);
    EXPECT_EQ(words(got.out), words(c.offers));
  }
  // After the last argument come options again, all of them.
  const Shell all =
      shell("cd " + dir.path +
            " && bash --norc -c 'source ./completion; COMP_WORDS=(veldrunner -mem 2048 \"\"); COMP_CWORD=3; "
            "_veldrunner; echo ${#COMPREPLY[@]}'");
  Options o;
  EXPECT_EQ(all.out, std::to_string(documented_rows(o).size()) + "\n");
}
}  // namespace veld
