// Whole runs over a small simulated project.
#include <gtest/gtest.h>

#include <filesystem>

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
