// Whole runs over a small simulated project.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "las/las_access.h"
#include "sim/trackproof.h"
#include "tests/run/scored_project.h"

namespace veld {
namespace {
// One project for all tests of the suite, aligned once as number 1, so that later runs find the caches of earlier
// ones.
struct RunProject : testing::Test {
  static Program* program;
  static RunOutput aligned;
  static void SetUpTestSuite() {
    program = new Program;
    if (simulate(program->work.path)) aligned = align(1, "1");
    for (const char* const dir : {"tmp2", "o2"}) std::filesystem::create_directory(path(dir));
  }
  static void TearDownTestSuite() { delete program; }
  static std::string path(const std::string& name) { return program->work.path + "/" + name; }
  // Runs with the temporary and output directories number n.
  static RunOutput run(const Args& args, int n, const char* nthreads,
                       const std::function<void()>& before = {}) {
    const std::string tmp = "tmp" + std::to_string(n), out = "o" + std::to_string(n);
    for (const std::string& dir : {tmp, out}) std::filesystem::create_directory(path(dir));
    return program->run(args + Args{"-i", "L*.las", "-tmpdir", tmp, "-odir", out, "-nthreads", nthreads},
                        before);
  }
  static RunOutput align(int n, const char* nthreads, const std::function<void()>& before = {}) {
    return run("-align -utm 33 -po traj.out -out *_c.las -name r", n, nthreads, before);
  }
  void SetUp() override { ASSERT_EQ(aligned.code, 0) << aligned.err; }
};
Program* RunProject::program = nullptr;
RunOutput RunProject::aligned;

const std::vector<std::string> LINES = {"L01", "L02", "L03"};

// The numbers of the lines of a table that begin with a number, up to the first empty line.
std::vector<std::vector<double>> table(const std::string& text) {
  std::vector<std::vector<double>> rows;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line) && !line.empty();) {
    std::istringstream words(line);
    std::vector<double> row;
    for (std::string word; words >> word;) row.push_back(std::atof(word.c_str()));
    if (std::isdigit(static_cast<unsigned char>(line[line.find_first_not_of(' ')]))) rows.push_back(row);
  }
  return rows;
}

// The column of a table that its header names so.
size_t column(const std::string& text, const std::string& name) {
  std::istringstream header(text.substr(0, text.find('\n')));
  size_t i = 0;
  for (std::string word; header >> word && word != name;) i++;
  return i;
}

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
  const RunOutput two = align(2, "2");
  ASSERT_EQ(two.code, 0) << two.err;
  const std::string o1 = path("o1"), o2 = path("o2");
  const std::vector<std::string> names = result_files(o1);
  EXPECT_EQ(names, result_files(o2));
  for (const char* const name :
       {"r.dut", "r_2.dut", "r_idx.log", "r_sw_stat.log", "r_inv_stat.log", "r_TA.log"})
    EXPECT_GT(read_text(o1 + "/" + name).size(), 100u) << name;
  for (const std::string& name : names) {
    // Logs name their directories, the summary tells times.
    if (holds(name, ".log") || holds(name, "_run.json")) continue;
    EXPECT_TRUE(read_text(o1 + "/" + name) == read_text(o2 + "/" + name)) << name;
  }

  // The swaths are 0.67 m apart before; 0.013 m was seen after, and 0.018 m of noise less one common shift.
  const ProjectScore before = score_files(path("truth"), path(""), LINES, ""),
                     after = score_files(path("truth"), o1, LINES);
  EXPECT_GT(before.relative3d, 0.5);
  EXPECT_LT(after.relative3d, 0.03);
  EXPECT_LT(after.all_rel.rms3d, 0.03);
  // What the run reports of itself: height differences of the pairs after the correction.
  const std::string reported = read_text(o1 + "/r_DZcorr_stat.log");
  for (const std::vector<double>& pair : table(reported)) EXPECT_LT(pair.at(column(reported, "RMS")), 0.02);

  // The displacement file alone is enough for a correction later, with the tiles as they lie there.
  const RunOutput later = run("-corr r -utm 33 -po traj.out -out *_d.las -name s", 1, "2");
  EXPECT_EQ(later.code, 0) << later.err;
  EXPECT_TRUE(read_text(o1 + "/L01_c.las") == read_text(o1 + "/L01_d.las"));
  const RunOutput once = run("-corr r -utm 33 -po traj.out -out *_e.las -name t -reg2 0", 1, "2");
  EXPECT_EQ(once.code, 0) << once.err;
  EXPECT_FALSE(read_text(o1 + "/L01_c.las") == read_text(o1 + "/L01_e.las"));
  EXPECT_FALSE(exists(o1 + "/t_2.dut"));
}

// With drift of position and attitude the swaths still come together, and the boresight is that of the sensor. The corrected
// trajectory with it gives the corrected points from what the scanner measured.
TEST(RunDrift, IsTakenOutBesideTheCalibration) {
  Program program;
  const std::string& dir = program.work.path;
  ASSERT_TRUE(simulate(dir,
                       "-preset tiny -lever_x 0 -lever_y 0 -drift_e 0.05 -drift_n 0.05 -drift_h 0.05 "
                       "-drift_roll 0.004 -drift_pitch 0.004 -drift_yaw 0.008"));
  for (const char* const sub : {"/tmp", "/out"}) std::filesystem::create_directory(dir + sub);
  const RunOutput r = program.run(
      "-align -utm 33 -i L*.las -po traj.out -imu 0 0 0 -bore 0 0 0 -C LB -opo 1 -out *_c.las -name r -odir "
      "out -tmpdir tmp -nthreads 2");
  ASSERT_EQ(r.code, 0) << r.err;
  const ProjectScore after = score_files(dir + "/truth", dir + "/out", LINES);
  EXPECT_LT(after.relative3d, 0.03);
  EXPECT_LT(after.all_rel.rms3d, 0.045);
  std::istringstream cal(read_text(dir + "/out/r_cal.txt"));
  double lever[3], roll = 0, pitch = 0, yaw = 0;
  cal >> lever[0] >> lever[1] >> lever[2] >> roll >> pitch >> yaw;
  EXPECT_NEAR(roll, -0.130, 0.01);  // what the mean drift of three lines makes of it
  EXPECT_NEAR(pitch, 0.085, 0.02);
  EXPECT_NEAR(yaw, 0.165, 0.02);
  ProofScore proof;
  ASSERT_TRUE(prove_track({dir, dir + "/out", "_c", ".las", dir + "/out/r_po_0.out", dir + "/out/r_cal.txt"},
                          nlohmann::json::parse(read_text(dir + "/truth.json")), proof));
  EXPECT_LT(std::max({proof.largest.x, proof.largest.y, proof.largest.z}), 0.001);  // of rounded coordinates
}

// Pair 0 is not registered, for it lies within a group: the others keep their numbers in every log.
TEST_F(RunProject, OneNumberAPairInAllLogs) {
  const RunOutput r = program->run(
      "-align -utm 33 -i L01.las L02.las -i L03.las -po traj.out -po traj.out -reg_grp 2 -tmpdir tmp1 -odir "
      "o1 -name p -out *_p.las -nthreads 2");
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

// A write that fails is no property of a swath: the run ends, and the next one gives the undisturbed bytes.
TEST_F(RunProject, AFailedWriteEndsTheRunAndLeavesNoTrace) {
  uintmax_t points = 0;  // of the largest swath
  for (const auto& entry : std::filesystem::directory_iterator(path("tmp1")))
    if (holds(entry.path(), ".mT.XYZ")) points = std::max(points, entry.file_size());
  for (const std::string suffix : {".mT.XYZ", ".mT.tbl.dT", ".gmT.ZDS"}) {
    SCOPED_TRACE(suffix);
    const bool limited =
        suffix == ".mT.XYZ";  // by the size of files, else by a directory in the file's place
    for (const char* const dir : {"tmp3", "o3"}) std::filesystem::remove_all(path(dir));
    std::string in_place;
    for (const auto& entry : std::filesystem::directory_iterator(path("tmp1")))
      if (const std::string name = entry.path().filename(); holds(name, "L03") && name.ends_with(suffix))
        in_place = path("tmp3/" + name);
    if (!limited) std::filesystem::create_directories(in_place);
    const RunOutput failed = align(3, "1", [limited, points] {
      const rlimit limit{points - 1, points - 1};
      if (limited) setrlimit(RLIMIT_FSIZE, &limit);
    });
    EXPECT_EQ(failed.code, 1);
    EXPECT_TRUE(holds(failed.err, suffix)) << failed.err;
    EXPECT_TRUE(holds(failed.err, limited ? "': File too large\n" : "': Is a directory\n")) << failed.err;
    EXPECT_TRUE(holds(failed.err, "ERROR: registration or QC failed\n")) << failed.err;
    for (const char* const name : {"r.dut", "r_rej.log", "L01_c.las"})
      EXPECT_FALSE(exists(path("o3/") + name)) << name;
    if (!limited) std::filesystem::remove(in_place);
    const RunOutput again = align(3, "1");
    EXPECT_EQ(again.code, 0) << again.err;
    EXPECT_FALSE(exists(path("o3/r_rej.log")));
    for (const char* const name : {"r.dut", "L01_c.las", "L02_c.las", "L03_c.las"})
      EXPECT_TRUE(read_text(path("o1/") + name) == read_text(path("o3/") + name)) << name;
  }
}

// Height differences of pairs: none between the true swaths, decimetres between those observed.
TEST_F(RunProject, QcMeasuresTheDifferencesThatAreThere) {
  const RunOutput observed = run("-name q", 1, "2");
  ASSERT_EQ(observed.code, 0) << observed.err;
  EXPECT_FALSE(exists(path("o1/q.dut")));
  const RunOutput truth = program->run("-i truth/L*.las -tmpdir tmp2 -odir o2 -name q");
  ASSERT_EQ(truth.code, 0) << truth.err;
  const std::string log = read_text(path("o1/q_DZ_stat.log"));
  const auto seen = table(log), none = table(read_text(path("o2/q_DZ_stat.log")));
  const size_t rms = column(log, "RMS"), area = column(log, "Area:m2");
  ASSERT_EQ(seen.size(), 3u);
  ASSERT_EQ(none.size(), 3u);
  for (size_t i = 0; i < 3; i++) {
    EXPECT_GT(seen[i].at(rms), 0.05);
    EXPECT_LT(none[i].at(rms), 0.005);
    EXPECT_NEAR(seen[i].at(area), none[i].at(area), 0.1 * none[i].at(area)) << "area";
  }
}

// A trajectory that is given to a run without a correction is read, synchronised and compared with the swaths.
TEST_F(RunProject, ScanWithTrajectoryChecksIt) {
  const RunOutput scan = run("-scan -utm 33 -po traj.out -name p", 1, "2");
  ASSERT_EQ(scan.code, 0) << scan.err;
  const auto sync = table(read_text(path("o1/p_PO_sync_stat.log")));
  ASSERT_EQ(sync.size(), 3u);
  for (const auto& row : sync) EXPECT_EQ(row.at(1), 0) << "the file of each swath";
  const auto geometry = table(read_text(path("o1/p_BF_ICS_stat.log")));
  ASSERT_EQ(geometry.size(), 3u);
  double npts = 0;
  for (const auto& row : geometry) {
    EXPECT_NEAR(row.at(4), 165, 25) << "height above ground";
    EXPECT_NEAR(row.at(9), 48, 3) << "field of view";
    EXPECT_LT(row.at(10), 0.05) << "points lie in the plane of the scan";
    EXPECT_EQ(row.at(13), 1) << "pass";
    npts += row.at(12);
  }
  const auto rays = table(read_text(path("o1/p_ICS.txt")));
  EXPECT_EQ(static_cast<double>(rays.size()), npts);
  for (const auto& ray : rays) EXPECT_LT(std::fabs(ray.at(8)), 25) << "scan angle";
}
}  // namespace veld
