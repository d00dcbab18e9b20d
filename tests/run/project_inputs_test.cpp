// Projects of several flights, channels and references: the same lists by command line, tagged file and saved
// file; references and two steps on a simulated project.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <sstream>

#include "las/las_access.h"
#include "tests/run/program.h"
#include "tests/support/las_bytes.h"

namespace veld {
namespace {
// Lines of the log that tell swaths, groups, channels, trajectories with their parameters, mounts and dates.
std::string lists_of(const std::string& log) {
  std::istringstream lines(log);
  std::string text;
  for (std::string line; std::getline(lines, line);)
    for (const char* const start : {"| >> S ", "| PO ", "| MNT ", "| g=", "| EXCL ", "| [# grp "}) {
      const size_t at = line.find(start);
      const bool tree = line.find("PO flight ") != std::string::npos;  // the tree's own account of them
      if (at != std::string::npos && !tree) text += line.substr(at) + "\n";
    }
  return text;
}

int count_lines(const std::string& text, const std::string& part) {
  int n = 0;
  for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) n++;
  return n;
}

// Mean of the differences of two files of the same points, m.
dxyz mean_difference(const std::string& a, const std::string& b) {
  Vector<dxyz> A, B;
  EXPECT_TRUE(read_las_dxyz(a, A, "xyz") && read_las_dxyz(b, B, "xyz"));
  dxyz mean = {0, 0, 0};
  EXPECT_EQ(A.size(), B.size());
  if (A.size() != B.size() || A.size() == 0) return {9, 9, 9};
  for (uint64_t i = 0; i < A.size(); i++) mean += A[i] - B[i];
  return mean / static_cast<double>(A.size());
}

// The first and the second half of a file's points, as files of their own.
void halve_las(const std::string& path, const std::string& first, const std::string& second) {
  auto reader = las_read_open(path, "", false);
  auto a = las_write_open(first, reader->header, ""), b = las_write_open(second, reader->header, "");
  const uint64_t n = reader->header.npoints;
  for (uint64_t i = 0; reader->read_point(); i++)
    if (!(i < n / 2 ? a : b)->write_point(reader->point)) std::abort();
  if (!las_write_close(a) || !las_write_close(b)) std::abort();
}

const char TREE[] =
    "<opt>\n"
    "<flight>\n"
    "  <input ch=\"0\" bore=\"0.1 0.2 0.3\">f1_c0_*.las</input>\n"
    "  <input ch=\"1\" bore=\"0.4 0.5 0.6\">\n    f1_c1_1.las\n    f1_c1_2.las\n  </input>\n"
    "  <po time=\"6\" geo=\"1\" att=\"1\" gps_date=\"2025-03-23\" imu=\"180 0 90\">f1.out</po>\n"
    "</flight>\n"
    "<FLIGHT>\n"
    "  <INPUT CH=\"0\">f2_c0_*.las</INPUT>\n"
    "  <input>f2_c1_*.las</input>\n"
    "  <po gps_date=\"2025/03/24\" imu=\"0 0 1\" rad=\"1\">f2.out</po>\n"
    "</flight>\n"
    "<ref>r*.las</ref>\n"
    "align\nout *_c.las\n"
    "</opt>\n";
}  // namespace

TEST(ProjectInputs, TaggedTreeAndCommandLineGiveTheSameLists) {
  const Program program;
  for (const char* const name :
       {"f1_c0_1", "f1_c0_2", "f1_c1_1", "f1_c1_2", "f2_c0_1", "f2_c1_1", "r1", "r2"})
    write_text(program.work.path + "/" + name + ".las", "x");
  for (const char* const name : {"f1.out", "f2.out"}) write_text(program.work.path + "/" + name, "x");
  write_text(program.work.path + "/p.xml", TREE);
  program.run("-opt p.xml");
  const std::string log = program.log(), tagged = lists_of(log);
  EXPECT_TRUE(holds(log, "nmgrp=4 ngrpf=1 ngrpPO=4 nfl=2 npot=2 nmob=6 nref=2 nsw=8 ntraj=2\n")) << log;
  EXPECT_EQ(count_lines(tagged, ">> S "), 8) << tagged;
  EXPECT_TRUE(holds(tagged, "| >> S 3 g 2 ch 1 M f1_c1_2.las\n")) << tagged;
  EXPECT_TRUE(holds(tagged, "| >> S 7 g 0 ch 0 F r2.las\n"));
  EXPECT_TRUE(holds(tagged, "| PO 1 2 1 6 0 1 f1.out\n| PO 2 3 0 0 1 0 f2.out\n"));
  EXPECT_TRUE(holds(tagged, "| g=2 w=2359 d=0\n| g=3 w=2359 d=1\n"));
  EXPECT_TRUE(holds(tagged, "| MNT g 2 IMU: 180.000 0.000 90.000 Bore: 0.400 0.500 0.600\n"));

  program.run(
      Args("-align -out *_c.las -i f1_c0_*.las -i f1_c1_*.las -i f2_c0_*.las -i f2_c1_*.las -r r*.las "
           "-chgrp 0 1 0 1 -po f1.out -po f1.out -po f2.out -po f2.out -po_time 6 6 0 0 -G 1 1 0 0 "
           "-R 0 0 1 1 -po_att 1 1 0 0 -imu 180 0 90 180 0 90 0 0 1 0 0 1 -bore 0.1 0.2 0.3 0.4 0.5 0.6 0 0 "
           "0 0 0 0 ") +
      Args{"-gps_date", "2025-03-23", "2025 03 23", "2025/03/24", "2025-03-24"});
  EXPECT_EQ(lists_of(program.log()), tagged);

  // By lists of files, with what is too much left out.
  write_text(program.work.path + "/c1.lst", "f1_c1_1.las\n\nf1_c1_2.las\n");
  write_text(program.work.path + "/f1.lst", "f1.out\n");
  write_text(program.work.path + "/e.lst", "f2_c1*\nr1.las\n");
  program.run(
      "-reg -i f1_c0_*.las -l c1.lst -i f2_*.las -ref_list c1.lst -po_list f1.lst -exclude_list e.lst");
  EXPECT_TRUE(holds(lists_of(program.log()), "| EXCL f2_c1_1.las\n| EXCL r1.las\n"));
  program.run("-reg -i f1_c0_*.las -l c1.lst -i f2_*.las -ref_list c1.lst");
  EXPECT_TRUE(holds(program.log(), "ERROR: duplicate file f1_c1_1.las\n"));
}

TEST(ProjectInputs, ASavedOptionFileGivesTheSameRun) {
  const Program program;
  const std::string& work = program.work.path;
  for (const char* const dir : {"/in", "/out", "/ref"}) std::filesystem::create_directory(work + dir);
  for (const char* const name : {"in/a.las", "in/b b.las", "ref/r.las", "in/t.out"})
    write_text(work + "/" + name, "x");
  write_text(program.base + ".opt.txt", "# all runs\nmem = 2048\npo t.out\nN 1\n");
  write_text(work + "/o.xml", "<opt>\nlarge\nname \"n 1\"\ndz_range 0.25\n</opt>\n");
  const Args args =
      "-opt o.xml -$ ref -idir=in -O out -align -i *.las -ref $/r.las -out p_*_c.laz -shift -1 0 2.5 -mem "
      "4000";
  program.run(args);
  const auto values = [&program] {
    const std::string log = program.log();
    std::string text = lists_of(log);
    for (const char* const start : {"| MEM_MB=", "parse_drift_opt", "| nsw=", "large="}) {
      const size_t at = log.find(start);
      if (at != std::string::npos) text += log.substr(at, log.find('\n', at) - at) + "\n";
    }
    return text;
  };
  const std::string first = values(), saved = read_text(work + "/out/n 1_opt.xml");
  EXPECT_TRUE(
      holds(first, "| >> S 2 g 0 ch 0 F " + std::filesystem::canonical(work).string() + "/ref/r.las\n"))
      << first;
  EXPECT_TRUE(holds(first, "| PO 0 1 0 0 0 0 in/t.out\n"));
  EXPECT_TRUE(holds(first, "MEM_MB=4000 NTHREADS=1 "));
  EXPECT_TRUE(holds(saved, "<!-- Global Options -->\n[dir=" + std::filesystem::canonical(work).string() +
                               "/]\n[base=./../]\nlarge\nname \"n 1\"\ndz_range 0.25\n$ ref\nidir in\n"))
      << saved;
  EXPECT_TRUE(holds(saved, "<!-- Persistent Options -->\npo t.out\nN 1\n</opt>\n"));

  program.run({"-opt", "out/n 1_opt.xml"});
  EXPECT_EQ(values(), first);
  const std::string again = read_text(work + "/out/n 1_opt.xml");
  std::filesystem::remove(program.base + ".opt.txt");  // the saved file needs no other
  program.run({"-opt", "out/n 1_opt.xml"});
  EXPECT_EQ(values(), first);
  EXPECT_TRUE(holds(again, "large\nname \"n 1\"\ndz_range 0.25\n$ ref\n")) << again;
}

// A reference of true coordinates takes the whole block to its place.
TEST(ProjectInputs, OneStripAsReference) {
  const Program program;
  const std::string& work = program.work.path;
  ASSERT_TRUE(simulate(work));
  for (const char* const dir : {"/t", "/o"}) std::filesystem::create_directory(work + dir);
  std::filesystem::copy_file(work + "/truth/L01.las", work + "/far.las");
  change_file(work + "/far.las", [](std::string& las) { move_las(las, 0, 30000); });
  const Args plain = "-align -utm 33 -po traj.out -C B -out *_c.las -tmpdir t -odir o -i L01.las L02.las";
  const Args with = plain + "-r truth/L03.las far.las";
  const RunOutput r = program.run(with);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(holds(r.out, "1 reference files dropped based on mobile data overlap map\n")) << r.out;
  const std::string log = program.log();
  EXPECT_TRUE(holds(log, "<!> TILE MOB\n") && holds(log, "<!> TILE REF\n") &&
              holds(log, "<!> drop S 3 far.las\n"));
  EXPECT_FALSE(exists(work + "/o/L03_c.las"));
  for (const char* const name : {"L01", "L02"}) {
    const std::string truth = work + "/truth/" + name + ".las";
    const dxyz before = mean_difference(work + "/" + name + ".las", truth);
    const dxyz after = mean_difference(work + "/o/" + name + "_c.las", truth);
    EXPECT_GT(std::hypot(before.x, before.y), 0.2);
    EXPECT_LT(std::hypot(after.x, after.y), 0.1) << name;  // flat ground holds the plan by 0.03 m or so
    EXPECT_LT(std::fabs(after.z), 0.02) << name;
  }

  // Another file under its name takes the block elsewhere: no cache outlives it.
  const std::string reference = work + "/truth/L03.las";
  change_file(reference, [](std::string& las) { move_las(las, 2, 1); });
  std::filesystem::last_write_time(reference,
                                   std::filesystem::last_write_time(reference) + std::chrono::seconds(2));
  const RunOutput again = program.run(with + "-shift_ref 0");
  ASSERT_EQ(again.code, 0) << again.err;
  EXPECT_NEAR(mean_difference(work + "/o/L01_c.las", work + "/truth/L01.las").z, 1, 0.02);

  // A reference that cannot be read stops the run.
  write_text(work + "/broken.las", std::string(5000, 'x'));
  const RunOutput lost = program.run(with + "broken.las");
  EXPECT_EQ(lost.code, 1);
  EXPECT_TRUE(holds(lost.err, "ERROR: 1 reference files cannot be used, cannot proceed\n")) << lost.err;

  const RunOutput none = program.run(plain + "-r far.las");
  EXPECT_EQ(none.code, 1);
  EXPECT_TRUE(holds(none.err,
                    "ERROR: all reference data rejected, no overlap with mobile swaths\n"
                    "ERROR: registration or QC failed\n"))
      << none.err;
}

// Two references are one, in both steps of an alignment, and hold the datum as the whole would; the second step
// refines the first.
TEST(ProjectInputs, TwoStepsWithSeveralReferences) {
  const Program program;
  const std::string& work = program.work.path;
  ASSERT_TRUE(simulate(work));
  for (const char* const dir : {"/t", "/o", "/o1"}) std::filesystem::create_directory(work + dir);
  halve_las(work + "/truth/L03.las", work + "/r1.las", work + "/r2.las");
  const RunOutput r = program.run(
      "-align2 -utm 33 -po traj.out -C B -out *_c.las -tmpdir t -odir o -odir_1 o1 -i L01.las L02.las -name "
      "n -r r1.las r2.las");
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(count_lines(r.out, "Using 2 mobile swaths and 1 reference swath\n"), 2) << r.out;
  EXPECT_TRUE(holds(r.out, "ALIGNMENT STEP 1\n") && holds(r.out, "ALIGNMENT STEP 2\n"));
  EXPECT_TRUE(holds(program.log(), "| >> S 1 o1/L02_c.las\n"));
  for (const char* const name : {"/o1/L01_c.las", "/o1/n_cal.txt", "/o/n_opt.xml"})
    EXPECT_TRUE(exists(work + name)) << name;
  // The second step finds next to nothing: the boresight of the first was a tenth of a degree.
  std::istringstream found(read_text(work + "/o/n_cal.txt"));
  double lever[3], bore[3] = {9, 9, 9};
  for (double* const angles : {lever, bore})
    for (int k = 0; k < 3; k++) found >> angles[k];
  for (const double v : bore) EXPECT_LT(std::fabs(v), 0.02);
  EXPECT_TRUE(holds(read_text(work + "/o/n_idx.log"), " r1.las (union of 2 input reference swaths)\n"));
  for (const char* const name : {"L01", "L02"}) {
    const dxyz after = mean_difference(work + "/o/" + name + "_c.las", work + "/truth/" + name + ".las");
    EXPECT_LT(std::hypot(after.x, after.y), 0.1) << name;
    EXPECT_LT(std::fabs(after.z), 0.02) << name;
  }
}
}  // namespace veld
