#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "lib/general/logfiles.h"
#include "tests/run/program.h"

namespace veld {
namespace {
// Names of the files of a directory that start and end so, sorted.
std::vector<std::string> files_of(const std::string& dir, const std::string& start, const std::string& end) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    const std::string name = entry.path().filename();
    if (name.rfind(start, 0) == 0 && name.size() > end.size() &&
        name.compare(name.size() - end.size(), end.size(), end) == 0)
      names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}
}  // namespace

TEST(Run, CommandLinesAndTheirEnds) {
  const struct {
    Args args;
    int code;
    std::string out, err;
  } cases[] = {
      {{}, 1, "(this is a command line tool", "ERROR: this program requires arguments\n"},
      {"-v -q", 0, "Tarnwick-Veldrunner 2.26 [Ubu64] ", ""},
      {"-h", 0, "OPTIONS AND ARGUMENTS\n", ""},
      {"-help drift", 0, "  -drift -D ", ""},
      {"-reg", 1, "TMPDIR ./\n", "ERROR: missing input files, cannot proceed\n"},
      {"-utm 33 -test_proj2 15 0", 0, "forward: 500000.000 0.000 ", ""},
      {"-export_dut none", 1, "", "ERROR: "},
      {"-clear_log -c", 0, "ok\n", ""},
      {"-exp", 0, "", "WARNING: no effect, voxel experiments are not part of this version: -exp"},
      {"-keystone", 1, "", "ERROR: missing input files, cannot proceed\n"},
  };
  const Program program;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const RunOutput r = program.run(c.args);
    EXPECT_EQ(r.code, c.code);
    EXPECT_TRUE(holds(r.out, c.out)) << r.out;
    EXPECT_TRUE(holds(r.err, c.err)) << r.err;
    EXPECT_EQ(holds(r.err, "EXIT_FAILURE\r\n"), c.code == 1) << r.err;
    EXPECT_TRUE(holds(r.out, "TOTAL PROCESSING TIME: ") || holds(c.args.empty() ? "" : c.args.back(), "-q"));
    EXPECT_FALSE(exists(program.base + ".lock"));
    const std::string log = program.log();
    EXPECT_TRUE(holds(log, c.code == 0 ? "EXIT=OK\n" : "EXIT=FAIL\n"));
    EXPECT_TRUE(c.code == 0 || holds(log, "ERROR: "));
  }
}

TEST(Run, QuietLeavesAllButErrorsToTheLog) {
  const Program program;
  const RunOutput r = program.run("-quiet 1 -i *.las -zmap -smap");
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_TRUE(holds(r.err, "ERROR: options {-smap -zmap} are mutually exclusive\n"));
  EXPECT_FALSE(holds(r.err, "WARNING")) << r.err;
  EXPECT_TRUE(holds(program.log(), "> @ ERROR: options {-smap -zmap} are mutually exclusive\n"));
  ASSERT_TRUE(simulate(program.work.path));
  const RunOutput read = program.run("-las_read_check L01.las -q");
  EXPECT_EQ(read.code, 0);
  EXPECT_EQ(read.out + read.err, "");
  EXPECT_TRUE(holds(program.run("-las_read_check L01.las").out, " read speed: "));
}

TEST(Run, OnlyOneInstanceUnlessMul) {
  const Program program;
  const pid_t first = program.start("-testgui");
  ASSERT_TRUE(wait_for(program.base + ".log"));
  Program second;
  second.base = program.base;  // the same executable, other output files
  const RunOutput refused = second.run("-clear_log -c");
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err, "ERROR: one instance of veldrunner is already running!\nfile \"" + program.base +
                             ".lock\" found.\nheld by process " + std::to_string(first) + " on " +
                             host_name() + "\n");
  const RunOutput multiple = second.run("-mul -version");
  EXPECT_EQ(files_of(program.home.path, "veldrunner_mul_", ".log").size(), 2u) << "logs of its own";
  EXPECT_EQ(multiple.code, 0);
  EXPECT_TRUE(holds(multiple.err, "WARNING: multiple instance check override, logs may get corrupted\n"));
  EXPECT_TRUE(exists(program.base + ".lock"));
  const RunOutput r = program.finish(first);
  EXPECT_EQ(r.code, 0);
  EXPECT_TRUE(holds(program.log(), "EXIT=OK\n"));
  for (const char* const text :
       {"init...", "first step", "second step", "third step", "[*************************] 100%"})
    EXPECT_TRUE(holds(r.out, text)) << text;
  EXPECT_FALSE(exists(program.base + ".lock"));
}

// Help and version need neither the lock nor the logs, which are those of another run.
TEST(Run, HelpAndVersionLeaveARunningInstanceAlone) {
  const Program program;
  write_text(program.base + ".lock", std::to_string(getpid()) + " - " + host_name() + "\n");
  write_text(program.base + ".log", "of the other run");
  for (const char* const text : {"-h", "-help", "--help", "-v", "-version", "--version"}) {
    const RunOutput shown = program.run({text});
    EXPECT_EQ(shown.code, 0) << text;
    EXPECT_TRUE(holds(shown.out, "Tarnwick-Veldrunner 2.26 ")) << shown.out;
    EXPECT_EQ(shown.err, "");
  }
  EXPECT_TRUE(exists(program.base + ".lock"));
  EXPECT_EQ(files_of(program.home.path, "veldrunner", ".log"), std::vector<std::string>{"veldrunner.log"});
  EXPECT_EQ(program.log(), "of the other run");
}

TEST(Run, LogsGoToTheOutputDirectoryUnlessTheyAreNotWanted) {
  const Program program;
  const TempDir out, none;
  program.run({"-i", "x.las", "-odir", out.path});
  EXPECT_TRUE(holds(read_text(out.path + "/veldrunner.log"), "EXIT=FAIL\n"));
  EXPECT_TRUE(holds(read_text(out.path + "/veldrunner_b.log"), "EXIT_CODE=1\n"));
  program.run({"-i", "x.las", "-odir", none.path, "-log", "0"});
  EXPECT_FALSE(exists(none.path + "/veldrunner.log"));
}

TEST(Run, CleanUpRemovesCachesAndNothingElse) {
  const Program program;
  const char* const tiles[] = {"a.0T.idx", "a.mT.idx",  "a.mT.tbl.Zm", "a.mT.tbl.dT",
                               "a.mT.XYZ", "a_s_1.laz", "a_s_12.laz"};
  const char* const others[] = {"a.gmT.idx", "a.gmT.ZDS",           "a.rpc.d0",
                                "a.rpc.idx", "a.TT0001-00002.XYZT", "a.poc"};
  const char* const kept[] = {"a.las", "a_s_123.laz", "a.dut", "a_idx.log"};
  const auto make = [&](const auto& names) {
    for (const char* const name : names) write_text(program.work.path + "/" + name, "12345678");
  };
  const auto count = [&](const auto& names) {
    int n = 0;
    for (const char* const name : names) n += exists(program.work.path + "/" + name);
    return n;
  };
  make(tiles), make(others), make(kept);
  EXPECT_EQ(program.run("-clear_tmp -log 0").code, 0);
  EXPECT_EQ(count(others), 0);
  EXPECT_EQ(count(tiles), 7);
  EXPECT_EQ(program.run("-k -log 0").code, 0);
  EXPECT_EQ(count(tiles), 0);
  EXPECT_EQ(count(kept), 4);
}

// A run with a command, an input or a tree is not "no command": it does its own work, or fails, and deletes
// nothing on the way.
TEST(Run, CleanUpIsTheWholeRunOnlyWithoutAnythingElse) {
  const Program program;
  write_text(program.work.path + "/tree.xml",
             "<opt>\n<flight>\n<input>none.las</input>\n</flight>\n</opt>\n");
  const std::string cache = program.work.path + "/a.gmT.idx";
  const char* const others[] = {"-opt tree.xml", "-las_read_check x.las",
                                "-export_dut x", "-undo",
                                "-cut",          "-plot_po",
                                "-osplit",       "-corr x",
                                "-reg",          "-calib",
                                "-fastqc",       "-test_proj2 15 0",
                                "-exp_grid",     "-i x.las",
                                "-po x.out",     "-l x.txt"};
  for (const std::string other : others) {
    SCOPED_TRACE(other);
    write_text(cache, "12345678");
    const RunOutput r = program.run(Args("-c -log 0") + other.c_str());
    EXPECT_EQ(r.code, holds(other, "-test_proj2") ? 0 : 1) << r.out;
    EXPECT_FALSE(holds(r.out, "\nok\n")) << r.out;
    EXPECT_TRUE(exists(cache));
  }
}

TEST(Run, WithoutANameTheOutputsHaveAVisibleOne) {
  const Program program;
  program.run("-i x.las");
  EXPECT_TRUE(exists(program.work.path + "/project_opt.xml"));
  EXPECT_TRUE(holds(program.log(), "NAME project (no option -name)\n"));
  EXPECT_TRUE(files_of(program.work.path, ".", "").empty());
  program.run("-i x.las -name mine");
  EXPECT_TRUE(exists(program.work.path + "/mine_opt.xml"));
  EXPECT_FALSE(holds(program.log(), "NAME project"));
}
}  // namespace veld
