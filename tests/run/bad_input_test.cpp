// Inputs and places that cannot work: a clear line, exit 1, nothing half written.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "tests/run/program.h"
#include "tests/support/las_bytes.h"

namespace veld {
namespace {
std::string without_times(const std::string& las) {  // point format 0
  const size_t start = peek<uint32_t>(las, 96), length = peek<uint16_t>(las, 105);
  std::string result = las.substr(0, start);
  poke<uint8_t>(result, 104, 0);
  poke<uint16_t>(result, 105, 20);
  for (size_t at = start; at + length <= las.size(); at += length) result += las.substr(at, 20);
  return result;
}

std::string later(std::string las, double seconds) {
  change_points(las,
                [=](std::string& p, size_t at) { poke(p, at + 20, peek<double>(p, at + 20) + seconds); });
  return las;
}

std::string without_points(std::string las) {
  poke<uint32_t>(las, 107, 0);
  return las.substr(0, peek<uint32_t>(las, 96));
}

struct BadInput : testing::Test {
  static Program* program;
  static void SetUpTestSuite() {
    program = new Program;
    ASSERT_TRUE(simulate(program->work.path));
    std::filesystem::create_directory(path("t"));
    const std::string one = read_text(path("L01.las")), two = read_text(path("L02.las"));
    write_text(path("notime1.las"), without_times(one));
    write_text(path("notime2.las"), without_times(two));
    write_text(path("late1.las"), later(one, 5000));
    write_text(path("late2.las"), later(two, 5000));
    write_text(path("far.las"), one);
    change_file(path("far.las"), [](std::string& las) { move_las(las, 0, 20000); });
    write_text(path("nopoint.las"), without_points(one));
    write_text(path("nobyte.las"), "");
    write_text(path("noise.out"), std::string(1360, 'x'));
  }
  static void TearDownTestSuite() { delete program; }
  static std::string path(const std::string& name) { return program->work.path + "/" + name; }
  void SetUp() override {
    std::filesystem::remove_all(path("o"));
    std::filesystem::create_directory(path("o"));
  }
  // Neither swaths nor anything unfinished in the output directory.
  static void expect_nothing_written() {
    for (const auto& entry : std::filesystem::directory_iterator(path("o"))) {
      EXPECT_NE(entry.path().extension(), ".las") << entry.path();
      EXPECT_NE(entry.path().extension(), ".part") << entry.path();
    }
  }
  static Args align(const std::string& swaths, const std::string& po = "traj.out",
                    const std::string& zone = "33") {
    return Args("-align -tmpdir t -nthreads 2 -out *_c.las -C B -odir o") +
           ("-utm " + zone + " -po " + po + " -i " + swaths).c_str();
  }
};
Program* BadInput::program = nullptr;
}  // namespace

TEST_F(BadInput, EndsInAClearLine) {
  const std::string registration = "ERROR: registration or QC failed\n";
  const struct {
    const char* what;
    Args args;
    std::string err;
  } cases[] = {
      {"zone of another part of the world", align("L01.las L02.las", "traj.out", "10"),
       "ERROR: no overlap between LiDAR and trajectory, wrong unit/projection or wrong PO format options\n"},
      {"swaths apart", align("far.las L02.las"),
       "ERROR: geometry of far.las against trajectory traj.out: points lie 20.0 km beside the trajectory"},
      {"one swath", align("L01.las"),
       "ERROR: registration cannot be done with a single swath: give those that overlap it (-i), or -corr "
       "and a "
       "displacement file\n" +
           registration},
      {"no GPS times", align("notime1.las notime2.las"),
       "ERROR: no valid data to work with\n" + registration},
      {"trajectory of another time", align("late1.las late2.las"), "ERROR: PO file synchronization failed\n"},
      {"no points", align("nopoint.las nobyte.las"), "ERROR: no valid data to work with\n" + registration},
      {"bytes that are no trajectory", align("L01.las L02.las", "noise.out"),
       "ERROR: time conversion error, PO file noise.out"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const RunOutput r = program->run(c.args);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(holds(r.err, c.err)) << r.err;
    EXPECT_FALSE(exists(program->base + ".lock"));
    expect_nothing_written();
  }
  const RunOutput times = program->run(align("notime1.las notime2.las"));
  EXPECT_TRUE(
      holds(times.err, "WARNING: LAS tiling: missing timestamps (point format 0 or 2), swath notime1.las\n"))
      << times.err;
  EXPECT_TRUE(holds(read_text(path("o/project_rej.log")), "** S 0 g 1 notime1.las\n"))
      << "the file says which and why";
}

// One bad swath among good ones is named and left out.
TEST_F(BadInput, DoesNotStopTheOthers) {
  const RunOutput r = program->run(align("L01.las L02.las nobyte.las nopoint.las"));
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(holds(r.err, "ERROR: could not tile LiDAR data, nobyte.las\n"));
  EXPECT_TRUE(holds(r.err, "ERROR: could not tile LiDAR data, nopoint.las\n"));
  EXPECT_TRUE(exists(path("o/L01_c.las")) && exists(path("o/L02_c.las")));
  EXPECT_FALSE(exists(path("o/nobyte_c.las")));
}

// A full disk, as a limit on the size of files: at the first caches, and at the results.
TEST_F(BadInput, AFullDiskLeavesNothingHalfWritten) {
  const auto limit = [](rlim_t kb) {
    return [kb] {
      const struct rlimit r = {kb * 1024, kb * 1024};
      setrlimit(RLIMIT_FSIZE, &r);
    };
  };
  std::filesystem::create_directory(path("t2"));
  Args args = align("L01.las L02.las");
  *std::find(args.begin(), args.end(), "t") = "t2";
  const RunOutput caches = program->run(args, limit(100));
  EXPECT_EQ(caches.code, 1);
  EXPECT_TRUE(holds(caches.err, ": File too large\n") &&
              holds(caches.err, "ERROR: registration or QC failed\n"))
      << caches.err;
  expect_nothing_written();
  EXPECT_TRUE(std::filesystem::is_empty(path("t2")));
  const RunOutput results = program->run(align("L01.las L02.las"), limit(1000));
  EXPECT_EQ(results.code, 1);
  EXPECT_TRUE(holds(results.err, "ERROR: write error: File too large, file 'o/L01_c.las'\n")) << results.err;
  EXPECT_TRUE(holds(results.err, "ERROR: at least one swath correction failed\n") &&
              holds(results.err, "ERROR: correction failed\n"));
  expect_nothing_written();
  EXPECT_FALSE(exists(path("t/tmp_sw_0_TA.log")));
}

TEST_F(BadInput, DirectoriesThatMayNotBeWritten) {
  constexpr uid_t NOBODY = 65534;
  std::filesystem::permissions(program->home.path, std::filesystem::perms::all);
  std::filesystem::permissions(program->work.path, std::filesystem::perms::all);
  std::filesystem::create_directory(path("locked"));
  std::filesystem::permissions(path("locked"),
                               std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec |
                                   std::filesystem::perms::others_read | std::filesystem::perms::others_exec);
  const auto ordinary = [] {  // a superuser may write everywhere
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(NOBODY) != 0 || setuid(NOBODY) != 0))
      _exit(126);
  };
  const auto directory = [](const char* option, const char* what) {
    return std::pair(
        Args{"-reg", option, "locked", "-i", "L0?.las"},
        std::string("ERROR: not a valid ") + what + " directory, write permission required: locked/\n");
  };
  for (const auto& [args, err] : {directory("-odir", "output"), directory("-tmpdir", "temporary")}) {
    const RunOutput r = program->run(args, ordinary);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(holds(r.err, err)) << r.err;
    EXPECT_TRUE(std::filesystem::is_empty(path("locked")));
  }
  std::filesystem::permissions(path("locked"), std::filesystem::perms::owner_exec);
  const RunOutput r = program->run("-reg -idir locked -i L0?.las", ordinary);
  EXPECT_EQ(r.code, 1);
  EXPECT_TRUE(holds(r.err, "ERROR: not a valid input directory, read permission required: locked/\n"))
      << r.err;
  std::filesystem::permissions(path("locked"), std::filesystem::perms::owner_all);
}
}  // namespace veld
