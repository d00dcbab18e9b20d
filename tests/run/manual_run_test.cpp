// Corrections by hand, tiles, undo: whole runs on a project without noise or drift, where everything comes out exactly.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "las/las_access.h"
#include "tests/run/program.h"
#include "tests/run/scored_project.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
const std::vector<std::string> LINES = {"L01", "L02", "L03"};

struct ByHand : testing::Test {
  static Program* program;
  static void SetUpTestSuite() {
    program = new Program;
    ASSERT_TRUE(simulate(
        program->work.path,
        "-preset tiny -range_noise 0 -angle_noise 0 -roll 0.4 -pitch -0.3 -yaw 0.5 -i1 0.05 -i3 0.001"));
    write_text(path("cal.txt"), "0.03 -0.04 0 0.4 -0.3 0.5 0.05 0 0.001 0 0 0 0\n");
  }
  static void TearDownTestSuite() { delete program; }
  static std::string path(const std::string& name) { return program->work.path + "/" + name; }
  static RunOutput run(const Args& args, const std::string& out, const std::string& swaths = "L*.las") {
    for (const std::string& dir : {out, std::string("tmp")}) std::filesystem::create_directory(path(dir));
    const Args base = {"-odir", out, "-tmpdir", "tmp", "-out", "*_c.las", "-nthreads", "2"};
    return program->run(Args(("-i " + swaths).c_str()) + base + args);
  }
  static Args tracked(const Args& args) { return args + "-corr -utm 33 -po traj.out -bore 0 0 0 -qc 0"; }
  static ProjectScore moved_by(const std::string& out) { return score_files(path(""), path(out), LINES); }
};
Program* ByHand::program = nullptr;
}  // namespace

TEST_F(ByHand, AKnownCalibrationGivesTheTruth) {
  // The second far above the ground and from the meridian, where a flat grid would be 8 mm off.
  ASSERT_TRUE(simulate(path("high"),
                       "-preset tiny -range_noise 0 -angle_noise 0 -roll 0.4 -pitch -0.3 -yaw 0.5 -agl 3000 "
                       "-length 2000 -east 760000 -pulse_rate 300"));
  write_text(path("high/cal.txt"), "0.03 -0.04 0 0.4 -0.3 0.5 0 0 0 0 0 0 0\n");
  for (const std::string dir : {"", "high/"}) {
    SCOPED_TRACE(dir);
    const RunOutput r = run({"-corr", "-utm", "33", "-po", dir + "traj.out", "-bore", "0", "0", "0", "-qc",
                             "0", "-calib_corr", dir + "cal.txt"},
                            dir + "cal", dir + "L*.las");
    ASSERT_EQ(r.code, 0) << r.err;
    const ProjectScore score = score_files(path(dir + "truth"), path(dir + "cal"), LINES);
    EXPECT_LT(score.all.rms3d, 0.0015);
    EXPECT_LT(std::max({score.all.largest.x, score.all.largest.y, score.all.largest.z}), 0.005);
  }
}

TEST_F(ByHand, EachBeamOfAFileHasItsCalibration) {
  ASSERT_TRUE(simulate(path("multi"), "-preset tiny -range_noise 0 -angle_noise 0 -channels 2 -tilt1 4"));
  std::string log =
      "Lever{X Y Z} Bore{Roll Pitch Yaw} Int{I1 I2 I3 I4 I5 I6 I7} NSwaths{Ext Int} Swath# Group# Ch#\n";
  const char* const bore[] = {"-0.13 0.085 0.165", "0.07 -0.05 0.11"};
  for (const int c : {0, 1})
    log += std::string("0.03 -0.04 0 ") + bore[c] + " 0 0 0 0 0 0 0 3 3 " + std::to_string(3 * c) + ' ' +
           std::to_string(c + 1) + ' ' + std::to_string(c) + '\n';
  write_text(path("beams.log"), log);
  const RunOutput r = run({"-corr", "-utm", "33", "-po", "multi/traj.out", "-bore", "0", "0", "0", "-qc", "0",
                           "-beam_param", "ud", "2", "-beam_calib_corr", "beams.log"},
                          "beams", "multi/beams/L*.las");
  ASSERT_EQ(r.code, 0) << r.err;
  const ProjectScore score = score_files(path("multi/beams/truth"), path("beams"), LINES);
  EXPECT_LT(score.all.rms3d, 0.0015);
}

TEST_F(ByHand, ATimeDelayIsPutInAndTakenOut) {
  ASSERT_EQ(run(tracked("-t_corr 0.005 -ot -oundo"), "late").code, 0);
  const ProjectScore moved = moved_by("late");
  EXPECT_NEAR(moved.all.rms.y, 22 * 0.005, 0.02);  // 22 m/s, most of it north and south
  ASSERT_EQ(run(tracked("-t_corr -0.005 -ot"), "back", "late/L*_c.las").code, 0);
  const ProjectScore back = score_files(path(""), path("back"), LINES, "_c_c");
  EXPECT_LT(back.all.rms3d, 0.0015);
  ASSERT_EQ(run("-undo", "undone", "late/*.las").code, 0);
  EXPECT_LT(score_files(path(""), path("undone"), LINES, "_c_c").all.rms3d, 0.003);
}

TEST_F(ByHand, ShiftsNeedNoTrajectoryAndTilesHoldAllPoints) {
  write_text(path("s.txt"), "0.25 0 1\n");
  const RunOutput r = run("-corr -shift 0.5 -0.25 0 -shift_corr s.txt", "shift");
  ASSERT_EQ(r.code, 0) << r.err;
  const ProjectScore score = moved_by("shift");
  EXPECT_NEAR(score.shift.x, 0.75, 1e-6);
  EXPECT_NEAR(score.shift.y, -0.25, 1e-6);
  EXPECT_NEAR(score.shift.z, 1, 1e-6);
  EXPECT_LT(score.all_rel.rms3d, 1e-6);
  ASSERT_EQ(run("-corr -shift 0.5 0 0 -otile 60", "tiles").code, 0);
  uint64_t npoints = 0, nsource = 0;
  for (const auto& entry : std::filesystem::directory_iterator(path("tiles")))
    if (entry.path().extension() == ".las") npoints += las_read_open(entry.path(), "", false)->header.npoints;
  for (const std::string& line : LINES)
    nsource += las_read_open(path(line + ".las"), "", false)->header.npoints;
  EXPECT_EQ(npoints, nsource);
}

TEST_F(ByHand, ASwathWithoutTrajectoryIsCopiedOnRequest) {
  std::filesystem::create_directory(path("far"));
  std::string las = read_text(path("L03.las"));
  change_points(las, [](std::string& p, size_t at) { poke(p, at + 20, peek<double>(p, at + 20) + 5000); });
  write_text(path("far/L03.las"), las);
  for (const char* const copy : {"0", "1"}) {
    const std::string out = std::string("copy") + copy;
    const RunOutput r =
        run(tracked({"-calib_corr", "cal.txt", "-corr_all", copy}), out, "L01.las far/L03.las");
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_LT(score_files(path("truth"), path(out), {"L01"}).all.rms3d, 0.0015);
    const std::string copied = path(out + "/L03_c.las"), file = exists(copied) ? read_text(copied) : "";
    EXPECT_EQ(file.empty(), *copy == '0');
    const auto points = [](const std::string& f) { return f.substr(peek<uint32_t>(f, 96)); };
    EXPECT_TRUE(file.empty() || points(file) == points(las));
    EXPECT_TRUE(holds(r.err, "no trajectory has its times")) << r.err;
  }
}

TEST_F(ByHand, OneSwathThatCannotBeWrittenIsNamedAndTheOthersAre) {
  std::filesystem::create_directories(path("one/L02_c.las"));  // a directory stands in its place
  const RunOutput r = run("-corr -shift 0.5 0 0", "one");
  EXPECT_EQ(r.code, 1);
  EXPECT_TRUE(holds(r.err, "L02")) << r.err;
  EXPECT_TRUE(exists(path("one/L01_c.las")) && exists(path("one/L03_c.las")));
}

TEST_F(ByHand, WhatMakesNoSenseIsRefused) {
  const struct {
    Args args;
    const char* message;
  } cases[] = {
      {"-corr -shift 0 0 0", "all corrections disabled, nothing to do"},
      {"-align -utm 33 -po traj.out -t_corr 0.1", "need command -corr without a displacement file"},
      {"-corr -shift 1 0 0 -opo", "corrected trajectories are wanted, but there is none"},
      {tracked("-beam_param ud 3"), "-beam_param and -beam_calib_corr need each other"},
      {"-corr -shift 1 0 0 -otile 50 -oundo", "-oundo and -otile are mutually exclusive"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    const RunOutput r = run(c.args, "none");
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(holds(r.err, c.message)) << r.err;
  }
}
}  // namespace veld
