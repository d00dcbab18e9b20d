// The checks before the work, in whole runs: wrong inputs of the tests' own simulator are refused with their cause,
// before anything else runs.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <functional>
#include <regex>
#include <sstream>

#include "prj/LiDAR/options/outputs.h"
#include "tests/run/scored_project.h"

namespace veld {
namespace {
constexpr size_t SBET_FIELDS = 17, RECORD = 8 * SBET_FIELDS;
enum Field : size_t { TIME = 0, ROLL = 7, PITCH = 8, HEADING = 9 };

// Brings every record of the trajectory through change.
void change_trajectory(const std::string& path, const std::function<void(double* record)>& change) {
  change_file(path, [&change](std::string& bytes) {
    for (size_t at = 0; at + RECORD <= bytes.size(); at += RECORD) {
      double record[SBET_FIELDS];
      for (size_t k = 0; k < SBET_FIELDS; k++) record[k] = peek<double>(bytes, at + 8 * k);
      change(record);
      for (size_t k = 0; k < SBET_FIELDS; k++) poke(bytes, at + 8 * k, record[k]);
    }
  });
}

bool is_empty(const std::string& dir) { return std::filesystem::is_empty(dir); }

const Args ALIGN = "-align -utm 33 -i L*.las -po traj.out -odir out -tmpdir tmp";
}  // namespace

TEST(CheckRun, WrongTrajectoriesAreRefusedWithTheirCause) {
  const struct {
    const char* what;
    void (*spoil)(double* r);
    const char* text;
  } cases[] = {
      {"no attitudes", [](double* r) { r[ROLL] = r[PITCH] = r[HEADING] = 0; },
       "trajectory has no attitudes, and the flight was not level: give a trajectory with roll"},
      {"leap seconds", [](double* r) { r[TIME] -= 18; }, "trajectory is 18.0 s early: leap seconds?"},
  };
  const ScoredProject project("-motion 3 -length 300 -pulse_rate 3000");
  const std::string trajectory = project.dir + "/traj.out", right = read_text(trajectory);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    write_text(trajectory, right);
    change_trajectory(trajectory, c.spoil);
    // With the time scale given: without it seconds of UTC are taken as such.
    const RunOutput r = project.program.run(ALIGN + "-po_time 0");
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(holds(r.err, "ERROR: geometry of L")) << r.err;
    EXPECT_TRUE(holds(r.err, "against trajectory traj.out: ")) << r.err;
    EXPECT_TRUE(holds(r.err, c.text)) << r.err;
    EXPECT_FALSE(holds(r.out, "TILING")) << r.out;
    EXPECT_FALSE(exists(project.dir + "/out/project.dut"));
  }
}

TEST(CheckRun, ARightProjectHasNoWarning) {
  const ScoredProject project;
  const RunOutput r = project.program.run(ALIGN + "-check");
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_TRUE(holds(r.out, "L02.las")) << r.out;
  EXPECT_TRUE(is_empty(project.dir + "/tmp")) << "a check leaves caches";
}

// Six of 36 swaths are spoiled in different ways: all are named at once.
TEST(CheckRun, AllProblemsOfALargeProjectAtOnce) {
  const ScoredProject project("-lines 30 -cross 6 -length 60 -spacing 40 -pulse_rate 3000");
  const auto file = [&](const char* name) { return project.dir + "/" + name; };
  change_file(file("L03.las"), [](std::string& b) {  // feet
    for (size_t k = 0; k < 12; k++) poke(b, 131 + 8 * k, peek<double>(b, 131 + 8 * k) / 0.3048);
  });
  change_file(file("L07.las"), [](std::string& b) { move_las(b, 0, -400000); });  // the next zone
  std::filesystem::copy_file(file("L10.las"), file("L11.las"),
                             std::filesystem::copy_options::overwrite_existing);
  change_file(file("L15.las"), [](std::string& b) {  // first of two returns only
    change_points(b, [](std::string& p, size_t at) { p[at + 14] = static_cast<char>(1 | 2 << 3); });
  });
  change_file(file("L20.las"), [](std::string& b) { b[0] = 'X'; });
  change_file(file("L25.las"), [](std::string& b) {  // another clock
    change_points(b, [](std::string& p, size_t at) { poke(p, at + 20, peek<double>(p, at + 20) + 2.5); });
  });
  const RunOutput r = project.program.run(ALIGN + "-check");
  EXPECT_EQ(r.code, 1);
  for (const char* const text :
       {"L03.las lies ", "feet among metres?", "L07.las lies 4", "another zone or projection?",
        "L11.las holds the same points as L10.las", "filters keep 0 of ",
        "in L15.las: first and intermediate returns", "L20.las",
        "geometry of L25.las against trajectory traj.out: trajectory is 2.5 s early"})
    EXPECT_TRUE(holds(r.err, text)) << text << "\n" << r.err;
  EXPECT_TRUE(is_empty(project.dir + "/tmp"));
  EXPECT_FALSE(holds(r.out, "TILING"));
}

TEST(CheckRun, CorrectedFilesAreNoInput) {
  const ScoredProject project;
  const Args args = "-align -utm 33 -i L*.las -po traj.out -out *_c.las";
  for (int round = 0; round < 2; round++) {
    const RunOutput r = project.program.run(args);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(holds(r.out, "Swaths: 3 given, 3 corrected, 3 written")) << r.out;
    EXPECT_EQ(holds(r.out, "3 corrected files of an earlier run are no input, left out: L01_c.las"),
              round == 1)
        << r.out;
  }
}

// Words of the headers of a file that an explanation lacks: of its first line and those behind blank ones, without
// axes in braces and the units at the end.
std::string unexplained(const std::string& text, const std::string& columns) {
  std::istringstream lines(text);
  std::string missing;
  bool header = true;
  for (std::string line; std::getline(lines, line); header = line.empty()) {
    if (!header || line.empty() || line[0] == '#') continue;
    line = std::regex_replace(line.substr(0, line.find(" [")), std::regex("\\{[^}]*\\}"), "");
    std::istringstream words(line);
    for (std::string word; words >> word;) {
      const std::string name = word.substr(0, word.find(':'));
      if (!std::isdigit(static_cast<unsigned char>(name[0])) && !holds(columns, name)) missing += " " + name;
    }
  }
  return missing;
}

// Every file of a run is explained, with the columns that it has.
TEST(CheckRun, OutputsAreThoseOfTheirTable) {
  EXPECT_EQ(read_text(SOURCE_PATH "/docs/outputs.md"), outputs_text())
      << "write it anew: veldrunner -help outputs";
  const ScoredProject project;
  ASSERT_EQ(project.program.run(ALIGN + "-C B").code, 0);
  int nfiles = 0;
  for (const auto& entry : std::filesystem::directory_iterator(project.dir + "/out")) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("project_") || name.starts_with("project_2.dut")) continue;
    SCOPED_TRACE(name);
    const OutputTable* const row = output_of(name.substr(7));
    ASSERT_NE(row, nullptr) << "not in the table";
    EXPECT_TRUE(read_text(entry.path()).starts_with(row->header));
    if (name.ends_with("_stat.log") || name.ends_with("TA.log") || name.ends_with("_cal.log")) {
      EXPECT_EQ(unexplained(read_text(entry.path()), row->columns), "");
    }
    nfiles++;
  }
  EXPECT_GE(nfiles, 15);
}

// Options that a run has saved mean the same from any directory, and after the project has moved.
TEST(CheckRun, SavedOptionsRunFromAnywhere) {
  const ScoredProject project;
  ASSERT_EQ(project.program.run(ALIGN + "-check").code, 0);
  std::filesystem::create_directory(project.dir + "/elsewhere");
  const RunOutput r =
      project.program.run("-opt ../out/project_opt.xml", [] { std::filesystem::current_path("elsewhere"); });
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(holds(r.out, "L02.las")) << r.out;
}

// A swath without a trajectory: the run ends well, or badly with -strict, and says what is missing either way.
TEST(CheckRun, TheSummaryNamesWhatIsMissing) {
  const ScoredProject project;
  change_file(project.dir + "/L02.las", [](std::string& b) {
    change_points(b, [](std::string& p, size_t at) { poke(p, at + 20, peek<double>(p, at + 20) + 4000); });
  });
  write_text(project.dir + "/out/L02_c.las", "old");
  for (const bool strict : {false, true}) {
    const RunOutput r = project.program.run(ALIGN + (strict ? "-out *_c.las -strict" : "-out *_c.las"));
    EXPECT_EQ(r.code, strict ? 1 : 0) << r.err;
    EXPECT_TRUE(holds(r.out, "Swaths: 3 given, 2 corrected, 2 written")) << r.out;
    EXPECT_TRUE(holds(r.err, "WARNING: written 2 of 3 swaths, missing L02.las: no trajectory has its times"))
        << r.err;
    EXPECT_TRUE(
        holds(r.err, "files of an earlier run are still there, this one has not written them: out/L02_c.las"))
        << r.err;
  }
}
}  // namespace veld
