// Ground control in whole runs, scored against the truth.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "las/las_access.h"
#include "tests/run/scored_project.h"

namespace veld {
namespace {
// A project whose ranges are short by 0.15 m, which overlaps do not show: all is 0.15 m too high.
struct GroundControl : testing::Test {
  static ScoredProject* project;
  static void SetUpTestSuite() { project = new ScoredProject("-i1 0.15"); }
  static void TearDownTestSuite() { delete project; }
  static const std::string& dir() { return project->dir; }
  static RunOutput align(const Args& args, const std::string& out) {
    std::filesystem::create_directory(dir() + "/" + out);
    std::filesystem::create_directory(dir() + "/tmp");
    return project->program.run(args +
                                "-align -utm 33 -i L*.las -po traj.out -out *_c.las -map 0 -plot 0 -C B" +
                                Args{"-odir", out, "-tmpdir", "tmp"});
  }
  static double mean_z(const std::string& out) {
    const ProjectScore s = score_files(dir() + "/truth", dir() + "/" + out, {"L01", "L02", "L03"});
    return s.all.mean.z;
  }
  static nlohmann::json report(const std::string& path) {
    return nlohmann::json::parse(read_text(dir() + "/" + path));
  }
};
ScoredProject* GroundControl::project = nullptr;

// Heights of three of the points 0.5 m wrong.
std::string spoiled(const std::string& text) {
  std::istringstream in(text);
  std::ostringstream out;
  out.precision(12);
  std::string name, sigma, control;
  double x, y, z;
  while (in >> name >> x >> y >> z >> sigma >> control)
    out << name << ' ' << x << ' ' << y << ' '
        << z + (name == "G02" || name == "G05" || name == "C03" ? 0.5 : 0) << ' ' << sigma << ' ' << control
        << '\n';
  return out.str();
}

TEST_F(GroundControl, TheBiasGoesAndGrossErrorsAreNamed) {
  const RunOutput plain = align({}, "plain");
  ASSERT_EQ(plain.code, 0) << plain.err;
  EXPECT_GT(std::fabs(mean_z("plain")), 0.1);
  write_text(dir() + "/wrong.txt", spoiled(read_text(dir() + "/gcp_all.txt")));
  const RunOutput r = align("-gcp wrong.txt -json -nthreads 1", "one");
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_LT(std::fabs(mean_z("one")), 0.01);
  for (const char* const text : {"control points rejected as outliers: G02 (-0.", ", G05 (-0.",
                                 "check points rejected as outliers: C03 (-0."})
    EXPECT_TRUE(holds(r.err, text)) << r.err;
  EXPECT_TRUE(holds(r.out, "Report: ")) << r.out;
  const nlohmann::json before = report("one/project_GCP.json"), after = report("one/project_GCPcorr.json");
  EXPECT_GT(std::fabs(before["check"]["mean_dz"].get<double>()), 0.05);
  EXPECT_LT(std::fabs(after["check"]["mean_dz"].get<double>()), 0.01);
  EXPECT_EQ(after["check"]["n_out_rej"].get<int>() > 0, true);
  // The page says what the summary for programs says of each pair.
  const std::string page = read_text(dir() + "/one/project_report.html");
  for (const nlohmann::json& pair : report("one/project_run.json")["passes"][0]["pairs"]) {
    char figures[80];
    std::snprintf(figures, sizeof figures, "<td class=\"n\">%.3f</td><td class=\"n\">%lld</td>",
                  pair["dz_corrected"]["rms_m"].get<double>(),
                  pair["dz_corrected"]["pixels"].get<long long>());
    EXPECT_TRUE(holds(page, figures)) << figures;
  }
  for (const char* const part : {"3 of 16 points were rejected as outliers", "outlier, height difference -0.",
                                 "<path fill-rule", "<polyline", "RMS of the displacements between swaths"})
    EXPECT_TRUE(holds(page, part)) << part;
  // The same with two threads, to the byte.
  ASSERT_EQ(align("-gcp wrong.txt -json -nthreads 2", "two").code, 0);
  for (const char* const file : {"project_GCP.json", "project_GCPcorr.json", "L01_c.las", "L03_c.las"})
    EXPECT_EQ(read_text(dir() + "/one/" + file), read_text(dir() + "/two/" + file)) << file;
}

// Targets are points of the swaths: where they are in the file, and where they are in truth.
std::string targets(const std::string& dir, const std::vector<std::string>& stems) {
  std::ostringstream out;
  out.precision(12);
  for (const std::string& stem : stems) {
    Vector<dxyz> observed, truth;
    EXPECT_TRUE(read_las_dxyz(dir + "/" + stem + ".las", observed, "xyz") &&
                read_las_dxyz(dir + "/truth/" + stem + ".las", truth, "xyz"));
    for (uint64_t i = 0; i < 8; i++) {  // in the middle of the swath, every other one to be checked only
      const uint64_t k = observed.size() * (i + 4) / 16;
      const dxyz &p = truth[k], &q = observed[k];
      out << stem << '_' << i << ' ' << stem << ' ' << p.x << ' ' << p.y << ' ' << p.z << ' ' << q.x << ' '
          << q.y << ' ' << q.z << " 0.02 0.02 " << (i % 2 == 0) << '\n';
    }
  }
  return out.str();
}

// The swaths of two flights, the second of them 0.6 m to the west and 0.4 m too low, are brought to their control.
TEST(GroundControlRun, GroupsKeepToTheirOwnControl) {
  const ScoredProject project("-lines 3");
  const std::string& dir = project.dir;
  for (const char* const name : {"/L03.las", "/L04.las"})
    change_file(dir + name, [](std::string& las) {
      move_las(las, 0, -0.6);
      move_las(las, 2, -0.4);
    });
  write_text(dir + "/xyz.txt", targets(dir, {"L01", "L02", "L03", "L04"}));
  const struct {
    Args control;
    dxyz bound;  // m, mean error of each flight
  } cases[] = {{"-gcp gcp_all.txt", {1, 1, 0.03}}, {"-xyz_gcp xyz.txt", {0.03, 0.03, 0.03}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.control[0]);
    const Args args =
        "-align -utm 33 -i L01.las L02.las -i L03.las L04.las -po traj.out -out *_c.las -odir out "
        "-tmpdir tmp -C B -map 0 -gcp_grp 1";
    const RunOutput r = project.program.run(args + c.control);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(holds(r.out, "INDEPENDENT GROUP GCP BIAS COMPUTATION, 2 GROUPS:")) << r.out;
    for (const std::vector<std::string>& flight : {std::vector<std::string>{"L01", "L02"}, {"L03", "L04"}}) {
      const dxyz m = score_files(dir + "/truth", dir + "/out", flight).all.mean;
      EXPECT_LT(std::fabs(m.x), c.bound.x) << flight[0];
      EXPECT_LT(std::fabs(m.y), c.bound.y) << flight[0];
      EXPECT_LT(std::fabs(m.z), c.bound.z) << flight[0];
    }
    EXPECT_TRUE(holds(read_text(dir + "/out/project_report.html"), "Shift to the control points, group 2"));
  }
}

// Without displacements and trajectories the swaths are only shifted.
TEST_F(GroundControl, ControlPointsAloneShiftTheSwaths) {
  std::filesystem::create_directory(dir() + "/alone");
  std::filesystem::create_directory(dir() + "/tmp");
  const RunOutput r = project->program.run({"-corr", "-utm", "33", "-i", "L*.las", "-gcp", "gcp_all.txt",
                                            "-out", "*_c.las", "-odir", "alone", "-tmpdir", "tmp"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(holds(r.out, "GCP correction: 0.000 0.000 -0.0")) << r.out;
  EXPECT_LT(std::fabs(mean_z("alone")), 0.08);  // from 0.14: the boresight is left
  EXPECT_TRUE(holds(read_text(dir() + "/alone/project_report.html"), "Shift to the control points"));
}

TEST_F(GroundControl, TheDisplacementFileKeepsThePoints) {
  ASSERT_EQ(align("-gcp gcp.txt -gcp_sigma 0.02", "kept").code, 0);
  EXPECT_TRUE(holds(read_text(dir() + "/kept/project_idx.log"), "/gcp.txt"));
  std::filesystem::create_directory(dir() + "/again");
  const Args args =
      "-corr kept/project -utm 33 -i L*.las -po traj.out -out *_c.las -odir again -tmpdir tmp -C B -map 0 "
      "-plot 0";
  const RunOutput r = project->program.run(args);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(holds(r.out, "Control points are those of the displacement file: ")) << r.out;
  EXPECT_LT(std::fabs(mean_z("again")), 0.01);
}

TEST_F(GroundControl, WhatCannotBeUsedStopsTheRunBeforeTheWork) {
  write_text(dir() + "/far.txt", "A 400000 5321000 500\n");
  write_text(dir() + "/bad.txt", "no points\n");
  const struct {
    Args args;
    const char* text;
  } cases[] = {
      {"-gcp bad.txt", "ERROR: no valid GCP found in file bad.txt"},
      {"-gcp absent.txt", "ERROR: could not find file absent.txt"},
      {"-gcp gcp.txt -gcp_parse q", "expecting {[i]xyz[s][c][f]}"},
      {"-xyz_gcp gcp.txt", "ERROR: no valid XYZ GCP found in file gcp.txt"},
      {"-gcp far.txt", "ERROR: GCP tiling: no point left"},
      {"-gcp_sigma 0.01", "ERROR: option -gcp_sigma needs control points: -gcp"},
      {"-gcp gcp.txt -xyz_gcp_equal 1", "ERROR: option -xyz_gcp_equal needs control points: -xyz_gcp"}};
  for (const auto& c : cases) {
    const RunOutput r = align(c.args, "stopped");
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(holds(r.err, c.text)) << c.text << "\n" << r.err;
  }
}
}  // namespace
}  // namespace veld
