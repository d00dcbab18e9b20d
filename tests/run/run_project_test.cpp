// Whole runs over a small simulated project.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "tests/run/program.h"

namespace {
// One project for all tests of the suite, so that later runs find the caches of earlier ones.
struct RunProject : testing::Test {
  static Program* program;
  static bool simulated;
  static void SetUpTestSuite() {
    program = new Program;
    const std::string sim =
        std::string(VELDSIM_PATH) + " -preset tiny -odir " + program->work.path + " > /dev/null 2>&1";
    simulated = std::system(sim.c_str()) == 0;
    for (const char* const dir : {"/tmp1", "/tmp2", "/o1", "/o2"})
      std::filesystem::create_directory(program->work.path + dir);
  }
  static void TearDownTestSuite() { delete program; }
  static std::string path(const std::string& name) { return program->work.path + "/" + name; }
  // Runs with the temporary and output directories number n.
  static RunOutput run(std::vector<std::string> args, int n, const char* nthreads) {
    const std::string number = std::to_string(n);
    for (const std::string& arg :
         {std::string("-i"), std::string("L*.las"), std::string("-tmpdir"), "tmp" + number,
          std::string("-odir"), "o" + number, std::string("-nthreads"), std::string(nthreads)})
      args.push_back(arg);
    return program->run(args);
  }
};
Program* RunProject::program = nullptr;
bool RunProject::simulated = false;

// Files of a result whose bytes must not depend on the number of threads.
std::vector<std::string> result_files(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    const std::string name = entry.path().filename();
    if (name.rfind("veldrunner", 0) != 0 && !holds(name, "_opt.xml")) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}
}  // namespace

TEST_F(RunProject, AlignGivesTheSameBytesWhateverTheThreads) {
  ASSERT_TRUE(simulated);
  const std::vector<std::string> args = {"-align", "-utm",    "33",    "-po", "traj.out",
                                         "-out",   "*_c.las", "-name", "r"};
  const RunOutput one = run(args, 1, "1"), two = run(args, 2, "2");
  ASSERT_EQ(one.code, 0) << one.err;
  ASSERT_EQ(two.code, 0) << two.err;
  const std::string o1 = path("o1"), o2 = path("o2");
  const std::vector<std::string> names = result_files(o1);
  EXPECT_EQ(names, result_files(o2));
  for (const char* const name :
       {"r.dut", "r_idx.log", "r_sw_stat.log", "r_inv_stat.log", "r_TA.log", "L01_c.las"})
    EXPECT_TRUE(exists(o1 + "/" + name)) << name;
  for (const std::string& name : names) {
    if (holds(name, ".log")) continue;  // logs name their directories
    EXPECT_TRUE(read_text(o1 + "/" + name) == read_text(o2 + "/" + name)) << name;
  }

  // The displacement file alone is enough for a correction later, with the tiles as they lie there.
  const RunOutput later =
      run({"-corr", "r", "-utm", "33", "-po", "traj.out", "-out", "*_d.las", "-name", "s"}, 1, "2");
  EXPECT_EQ(later.code, 0) << later.err;
  EXPECT_TRUE(read_text(o1 + "/L01_c.las") == read_text(o1 + "/L01_d.las"));
}

// Pair 0 is not registered, for it lies within a group: the others keep their numbers in every log.
TEST_F(RunProject, OneNumberAPairInAllLogs) {
  ASSERT_TRUE(simulated);
  const RunOutput r =
      program->run({"-align", "-utm",     "33",    "-i",       "L01.las",  "L02.las", "-i",        "L03.las",
                    "-po",    "traj.out", "-po",   "traj.out", "-reg_grp", "2",       "-tmpdir",   "tmp1",
                    "-odir",  "o1",       "-name", "p",        "-out",     "*_p.las", "-nthreads", "2"});
  ASSERT_EQ(r.code, 0) << r.err;
  // "number:sw1-sw2" of the lines behind the labels.
  const auto numbers = [](const std::string& text) {
    std::istringstream lines(text);
    std::string line, all;
    std::getline(lines, line);
    EXPECT_EQ(line.rfind("Pair# Swath#1 Swath#2 ", 0), 0u) << line;
    while (std::getline(lines, line) && !line.empty() && line.rfind("NPairs", 0) != 0) {
      std::istringstream fields(line);
      int number = -1, sw1 = -1, sw2 = -1;
      fields >> number >> sw1 >> sw2;
      all += std::to_string(number) + ":" + std::to_string(sw1) + "-" + std::to_string(sw2) + " ";
    }
    return all;
  };
  const auto log = [](const char* ext) { return read_text(path("o1/p") + ext); };
  EXPECT_EQ(numbers(log("_DZ_stat.log")), "0:0-1 1:0-2 2:1-2 ");
  EXPECT_EQ(numbers(log("_DZcorr_stat.log")), "0:0-1 1:0-2 2:1-2 ");
  for (const char* const ext : {"_DZreg_stat.log", "_DXYZreg_stat.log", "_inv_stat.log"})
    EXPECT_EQ(numbers(log(ext)), "1:0-2 2:1-2 ") << ext;
  const std::string idx = log("_idx.log");
  for (const char* const line : {"\n#P 0 0 1 0\n#P 1 0 2 ", "\n#P 2 1 2 "})
    EXPECT_TRUE(holds(idx, line)) << idx;
}

TEST_F(RunProject, ScanAndQcWithoutTrajectory) {
  ASSERT_TRUE(simulated);
  const RunOutput scan = run({"-scan", "-name", "s"}, 1, "2");
  EXPECT_EQ(scan.code, 0) << scan.err;
  EXPECT_TRUE(exists(path("o1/s_sw_stat.log")));
  const RunOutput qc = run({"-name", "q"}, 1, "2");
  EXPECT_EQ(qc.code, 0) << qc.err;
  EXPECT_TRUE(exists(path("o1/q_DZ_stat.log")));
  EXPECT_FALSE(exists(path("o1/q.dut")));
}

TEST_F(RunProject, ABrokenTrajectoryEndsInOneClearLine) {
  ASSERT_TRUE(simulated);
  write_text(path("bad.out"), "short");
  const RunOutput r = run({"-align", "-utm", "33", "-po", "bad.out"}, 1, "2");
  EXPECT_EQ(r.code, 1);
  EXPECT_TRUE(holds(r.err, "bad.out")) << r.err;
  EXPECT_TRUE(holds(r.err, "ERROR: correction failed\n")) << r.err;
}
