// Corrections of whole runs, scored against the truth of simulated projects.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>

#include "tests/run/program.h"
#include "tests/run/scored_project.h"

namespace veld {
namespace {
const std::vector<std::string> LINES = {"L01", "L02", "L03"};

// A project whose ranges are too short by 15 cm, which overlaps alone hardly show, with its registration, and a
// reference on another datum.
struct Correction : testing::Test {
  static Program* program;
  static bool ready;
  static void SetUpTestSuite() {
    program = new Program;
    ready =
        simulate(program->work.path, "-preset tiny -i1 0.15 -ref 1 -ref_dx 0.5 -ref_dy -0.3 -ref_dz 0.4") &&
        run("-reg -name r", "r").code == 0;
  }
  static void TearDownTestSuite() { delete program; }
  static std::string path(const std::string& name) { return program->work.path + "/" + name; }
  // out, tmp: directories of the output and of the caches.
  static RunOutput run(const Args& args, const std::string& out, const std::string& swaths = "L*.las",
                       const std::string& tmp = "tmp") {
    for (const std::string& dir : {out, tmp}) std::filesystem::create_directory(path(dir));
    const Args base = {"-i", swaths, "-odir", out, "-tmpdir", tmp, "-out", "*_c.las", "-nthreads", "2"};
    return program->run(base + args);
  }
  // A correction from the registration of the suite.
  static RunOutput correct(const Args& args, const std::string& out, const std::string& swaths = "L*.las",
                           const std::string& tmp = "tmp") {
    return run(args + "-corr r/r -utm 33 -po traj.out -bore 0 0 0", out, swaths, tmp);
  }
  static ProjectScore truth_score(const std::string& out) {
    return score_files(path("truth"), path(out), LINES);
  }
  static ProjectScore moved_by(const std::string& out) { return score_files(path(""), path(out), LINES); }
  static void SameFiles(const std::string& a, const std::string& b) {
    for (const std::string& line : LINES)
      EXPECT_TRUE(read_text(path(a + "/" + line + "_c.las")) == read_text(path(b + "/" + line + "_c.las")))
          << line;
  }
};
Program* Correction::program = nullptr;
bool Correction::ready = false;

// Height differences without and with the corrections, as the check prints them.
struct Check {
  double rms0, area0, rms, area;
};
Check read_check(const std::string& out) {
  const std::string after = out.substr(std::min(out.size(), out.find("CORRECTED DATA STATISTICS")));
  const std::string before = out.substr(std::min(out.size(), out.find("ORIGINAL DATA STATISTICS")));
  return {number_after(before, "RMS DZ="), number_after(before, "Area="), number_after(after, "RMS DZ="),
          number_after(after, "Area=")};
}
}  // namespace

TEST_F(Correction, ReferencesTakeThePointsToTheirPlace) {
  ASSERT_TRUE(ready);
  // Without a shift of its own, the drift of each line has to follow, against its prior.
  const struct {
    const char* shift_ref;
    double shift, near, rms;
  } cases[] = {{"1", 0.5, 0.02, 0.035}, {"0", 0, 0.05, 0.07}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.shift_ref);
    const std::string out = std::string("ref") + c.shift_ref;
    const RunOutput r = run({"-align", "-utm", "33", "-po", "traj.out", "-bore", "0", "0", "0", "-shift_ref",
                             c.shift_ref, "-r", "REF01.las"},
                            out);  // its grids lie on references too: the other cases must not change by that
    ASSERT_EQ(r.code, 0) << r.err;
    const ProjectScore score = truth_score(out);
    EXPECT_NEAR(score.shift.x, 0, c.near);
    EXPECT_NEAR(score.shift.y, 0, c.near);
    EXPECT_NEAR(score.shift.z, 0, 0.01);
    EXPECT_LT(score.all_rel.rms3d, c.rms);
    // The range bias is held by the references and must not be taken out again.
    EXPECT_FALSE(holds(r.out, "Canceling")) << r.out;
    const Check check = read_check(r.out);
    EXPECT_GT(check.rms0, 0.2);
    EXPECT_LT(check.rms, 0.02);
    EXPECT_NEAR(number_after(r.out, "Global shift applied (all swaths): "), c.shift, 0.03);
  }
}

TEST_F(Correction, FlatEffectOfTheRangeLeavesOnceAndOnlyWhereItIs) {
  ASSERT_TRUE(ready);
  const auto height = [&](const Args& args, const std::string& out) {
    const RunOutput r = correct(args + "-C B12 -int_sw 0 -name c", out);
    EXPECT_EQ(r.code, 0) << r.err;
    return moved_by(out).shift;
  };
  const dxyz kept = height("-d_dz 0", "kept");
  double bias = 0, scale = 0, skipped;
  std::istringstream cal(read_text(path("kept/c_cal.txt")));
  for (int i = 0; i < 6; i++) cal >> skipped;
  ASSERT_TRUE(cal >> bias >> scale);

  // A longer range lowers the ground; the height above ground is told or taken from the data.
  EXPECT_NEAR(height("-agl 1000", "agl").z - kept.z, bias + 1000 * scale, 0.004);
  EXPECT_NEAR(height({}, "cancel").z - kept.z, bias + 160 * scale, 0.004);
  height("-ics_err 0", "unchecked");
  SameFiles("unchecked", "cancel");
  height("-r_dz 0", "kept2");
  SameFiles("kept2", "kept");

  const dxyz mean = height("-mean 1", "mean");  // what is left of the mean has no second part taken from it
  EXPECT_NEAR(mean.x, 0, 0.03);                 // of ground there, of points here
  EXPECT_NEAR(mean.y, 0, 0.03);
  EXPECT_NEAR(mean.z, 0, 0.003);

  // Other models have no such effect: internal 1 and 2 are polynomials, or their flat part is out already.
  for (const char* const model : {"-int_gen", "-int_nob"}) {
    SCOPED_TRACE(model);
    const std::string a = std::string("on") + model, b = std::string("off") + model;
    EXPECT_LT(std::fabs(height({model, "1"}, a).z), 0.05);
    height({model, "1", "-d_dz", "0"}, b);
    SameFiles(a, b);
  }
}

TEST_F(Correction, BeforeAndAfterAreMeasuredOnTheSameGround) {
  ASSERT_TRUE(ready);
  const RunOutput filled = correct({}, "filled"), timed = correct("-fill 0", "timed");
  ASSERT_EQ(filled.code, 0) << filled.err;
  ASSERT_EQ(timed.code, 0) << timed.err;
  const Check a = read_check(filled.out), b = read_check(timed.out);
  EXPECT_EQ(a.area, a.area0);
  EXPECT_GT(a.rms0, 5 * a.rms);
  EXPECT_GT(a.area, 31000);          // of 33447 m2 that the registration compared
  EXPECT_LT(b.area, a.area);         // some microtiles have no time of their own
  EXPECT_NEAR(a.rms, b.rms, 0.001);  // their corrections are as good as those of their neighbours
  SameFiles("filled", "timed");      // points have their own times
}

TEST_F(Correction, GridsAreMadeForTheCheckAndASwathAlone) {
  ASSERT_TRUE(ready);
  ASSERT_EQ(correct("-name all", "all").code, 0);
  // A registration that cleaned up behind itself left the displacement file alone.
  const RunOutput fresh = correct("-name fresh", "fresh", "L*.las", "tmp2");
  EXPECT_EQ(fresh.code, 0) << fresh.err;
  EXPECT_LT(read_check(fresh.out).rms, 0.02) << fresh.out;
  SameFiles("all", "fresh");

  for (const std::string swath : {"L02.las", "L*1.las"}) {
    SCOPED_TRACE(swath);
    std::filesystem::remove_all(path("some"));
    const RunOutput some = correct("-name some", "some", swath);
    EXPECT_EQ(some.code, 0) << some.err;
    for (const std::string& line : LINES) {
      const bool asked = line == (swath == "L02.las" ? "L02" : "L01");
      const std::string file = path("some/" + line + "_c.las");
      ASSERT_EQ(exists(file), asked) << line;
      EXPECT_TRUE(!asked || read_text(file) == read_text(path("all/" + line + "_c.las"))) << line;
    }
  }
  std::filesystem::copy_file(path("L01.las"), path("X.las"));
  const RunOutput other = correct({}, "other", "X.las");
  EXPECT_EQ(other.code, 1);
  EXPECT_TRUE(holds(other.err, "X.las is not in displacement file")) << other.err;
}

// The first channel is right; the second looks forward and has a boresight error of its own.
TEST_F(Correction, ChannelsAreTiedToChannelZeroOfTheirLine) {
  ASSERT_TRUE(ready);
  ASSERT_TRUE(simulate(path("two"), "-preset tiny -channels 2 -roll 0 -pitch 0 -yaw 0"));
  const Args options = "-i two/L*_c1.las -chgrp 0 1 -po two/traj.out -po two/traj.out -utm 33";
  const RunOutput r =
      run(options + "-align -name r -cal_rel 1 -C B -bore 0 0 0 0 8 0", "rel", "two/L*_c0.las", "tmp3");
  ASSERT_EQ(r.code, 0) << r.err;
  std::istringstream cal(read_text(path("rel/r_cal.log")));
  std::string rest;
  std::getline(cal, rest);
  const double boresight[2][3] = {{0, 0, 0}, {0.070, -0.050, 0.110}};
  for (const auto& want : boresight) {
    double lever, found;
    for (int k = 0; k < 3; k++) cal >> lever;
    for (int k = 0; k < 3 && cal >> found; k++) EXPECT_NEAR(found, want[k], want[2] == 0 ? 0 : 0.02) << k;
    EXPECT_TRUE(std::getline(cal, rest));
  }
  for (const char* const channel : {"_c0", "_c1"}) {
    std::vector<std::string> stems = LINES;
    for (std::string& stem : stems) stem += channel;
    EXPECT_LT(score_files(path("two/truth"), path("rel"), stems).all.rms3d, 0.06) << channel;
  }
  EXPECT_LT(read_check(r.out).rms, 0.01) << r.out;
}

TEST_F(Correction, RelativeCalibrationNeedsChannels) {
  ASSERT_TRUE(ready);
  const RunOutput rel = correct("-C B -cal_rel 1", "rel1"), plain = correct("-C B", "rel0");
  EXPECT_EQ(rel.code, 0) << rel.err;
  EXPECT_TRUE(holds(rel.err + rel.out, "relative calibration disabled")) << rel.out;
  SameFiles("rel1", "rel0");
}
}  // namespace veld
