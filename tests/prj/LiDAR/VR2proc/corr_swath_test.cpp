// One swath corrected: what changes, what must not, and what happens when something is wrong.
#include "lib/general/path.h"
#include "prj/LiDAR/VR2proc/corr_log.h"
#include "prj/LiDAR/VR2proc/out_name.h"
#include "tests/las/las_builder.h"
#include "tests/prj/LiDAR/VR2proc/corr_fixture.h"

namespace veld {
namespace {
struct Rec {
  double x, y, z, t;
  int cls, rn;
};

std::vector<Rec> read_all(const std::string& path) {
  std::vector<Rec> out;
  std::unique_ptr<LASreader> r = las_read_open(path, "xyzt", false);
  while (r && r->read_point())
    out.push_back({r->point.x(), r->point.y(), r->point.z(), r->point.gps_time(), r->point.classification(),
                   r->point.return_number()});
  return out;
}

class CorrSwath : public CorrFixture {
 protected:
  const std::vector<TestPoint> points = flat_points(0.001);
  void SetUp() override {
    CorrFixture::SetUp();
    write_test_las(job.path, points);
  }
  bool nothing_left() const { return !exists(job.out) && !exists(job.out + ".part"); }
};

TEST_F(CorrSwath, ShiftsPointsAndNothingElse) {
  corr.S = {1.25f, -2.5f, 0.375f};
  ASSERT_TRUE(run());
  EXPECT_EQ(count.nwritten, 1000u);
  EXPECT_EQ(count.ndropped, 0u);
  const std::vector<Rec> in = read_all(job.path), out = read_all(job.out);
  ASSERT_EQ(out.size(), in.size());
  for (size_t i = 0; i < in.size(); i++) {
    EXPECT_NEAR(out[i].x - in[i].x, 1.25, 1e-9);
    EXPECT_NEAR(out[i].y - in[i].y, -2.5, 1e-9);
    EXPECT_NEAR(out[i].z - in[i].z, 0.375, 1e-9);
    EXPECT_EQ(out[i].t, in[i].t);
    EXPECT_EQ(out[i].cls, in[i].cls);
    EXPECT_EQ(out[i].rn, in[i].rn);
  }
}

// Attributes and records of other makers: all bytes but the coordinates.
TEST_F(CorrSwath, WhatItDoesNotKnowStays) {
  const struct {
    const char* what;
    int minor, format, nextra;
    size_t nwave;
  } cases[] = {{"extra bytes", 2, 3, 7, 0},
               {"waveforms", 3, 4, 0, 3000},
               {"records behind the points", 4, 6, 5, 0},
               {"all of it", 4, 10, 5, 3000}};
  corr.po = nullptr;
  corr.S = {0.25f, -0.5f, 0.125f};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    LasBuild how;
    how.minor = c.minor, how.format = c.format, how.nextra = c.nextra;
    how.scale = 0.125;
    how.waves = std::string(c.nwave, 'w');
    how.vlrs = {{"somebody", 7, "abc", "theirs"}};
    if (c.nextra > 0)
      how.vlrs.push_back(
          {"LASF_Spec", 4, extra_bytes_descriptor(0, static_cast<uint8_t>(c.nextra), "foreign"), ""});
    if (c.minor == 4) how.evlrs = {{"somebody", 8, std::string(500, 'e'), "behind"}};
    const BuiltLas built = build_las(how);
    write_text(job.path, built.bytes);
    ASSERT_TRUE(run());
    const std::string out = read_text(job.out);
    const size_t at = peek<uint32_t>(out, 96), length = peek<uint16_t>(out, 105);
    std::string records = out.substr(at, built.records.size());
    for (size_t p = 0; p < records.size(); p += length) {
      poke(records, p, peek<int32_t>(records, p) - 2);
      poke(records, p + 4, peek<int32_t>(records, p + 4) + 4);
      poke(records, p + 8, peek<int32_t>(records, p + 8) - 1);
    }
    EXPECT_TRUE(records == built.records);
    const std::string behind = out.substr(at + built.records.size());
    EXPECT_TRUE(c.minor < 4 || holds(behind, how.evlrs[0].data));
    EXPECT_TRUE(holds(behind, how.waves));
    const auto reader = las_read_open(job.out, "", false);
    ASSERT_TRUE(reader && reader->header.find_vlr("somebody", 7));
    EXPECT_EQ(reader->header.find_vlr("LASF_Spec", 4) != nullptr, c.nextra > 0);
  }
}

TEST_F(CorrSwath, IndexFindsTheCorrectedPoints) {
  corr.S = {60, 0, 0};
  const struct {
    const char* out;
    bool append;
    const char* lax;
  } cases[] = {{"/i.las", true, "/i.lax"}, {"/j.laz", false, "/j.lax"}, {"/k.laz", true, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.out);
    job.out = dir.path + c.out;
    job.lax = true;
    job.lax_append = c.append;
    ASSERT_TRUE(run());
    if (c.lax) {
      EXPECT_TRUE(exists(dir.path + c.lax));
    }
    LASindex index;
    ASSERT_TRUE(index.read(job.out));
    int found = 0, expected = 0;
    for (const Rec& r : read_all(job.out)) expected += r.y >= 5000100 && r.y <= 5000200;
    std::unique_ptr<LASreader> reader = las_read_open(job.out, "", false);
    ASSERT_TRUE(
        read_las_box(*reader, index, 499000, 501000, 5000100, 5000200, [&](const LASpoint&) { found++; }));
    EXPECT_EQ(found, expected);
    EXPECT_GT(found, 200);
  }
  // Without an index, a file written anew does not keep that of its predecessor.
  job.out = dir.path + "/i.las";
  job.lax = false;
  ASSERT_TRUE(run());
  EXPECT_FALSE(exists(dir.path + "/i.lax"));
}

TEST_F(CorrSwath, LeverForwardMovesAlongTheHeading) {
  corr.CL = true;
  corr.L = {0.5f, 0.25f, 0};  // forward is north here, right is east
  ASSERT_TRUE(run());
  const std::vector<Rec> in = read_all(job.path), out = read_all(job.out);
  EXPECT_NEAR(out[500].x - in[500].x, 0.25, 1e-3);
  EXPECT_NEAR(out[500].y - in[500].y, 0.5, 1e-3);
}

TEST_F(CorrSwath, DropsPointsWithoutTrajectory) {
  po = level_track(T0 + 1, 4);  // points from 1 s to 5 s remain, and 0.1 s on each side
  ASSERT_TRUE(run());
  EXPECT_EQ(count.nread, 1000u);
  EXPECT_NEAR(static_cast<double>(count.nwritten), 420, 2);
  const std::vector<Rec> out = read_all(job.out);
  ASSERT_EQ(out.size(), count.nwritten);
  EXPECT_NEAR(out.front().t, T0 + 0.9, 0.011);
  EXPECT_NEAR(out.back().t, T0 + 5.1, 0.011);
}

TEST_F(CorrSwath, TimesOfTheFileAreBroughtToThoseOfTheTrajectory) {
  const struct {
    const char* what;
    double shift, track_at;
    Rollover rover;
    double tmin;  // of the swath, unrolled
  } cases[] = {
      {"shift", 5000, T0 + 5000, Rollover::none, T0},
      {"all times of the file behind the rollover of a day", 0, T0 + 86400, Rollover::day, 86300},
      {"of a week", -10, T0 + 604800 - 10, Rollover::week, 604700},
      {"all times before it", 0, T0, Rollover::week, T0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    po = level_track(c.track_at - 2, 14);
    job.points.clock.shift = c.shift;
    job.points.clock.rover = c.rover;
    job.points.clock.tmin = c.tmin;
    count = CorrCount();
    ASSERT_TRUE(run());
    EXPECT_EQ(count.nwritten, 1000u);
  }
}

TEST_F(CorrSwath, NoTrajectoryAtAllLeavesNoFile) {
  po = level_track(T0 + 1000, 4);
  EXPECT_FALSE(run());
  EXPECT_TRUE(nothing_left());
}

TEST_F(CorrSwath, BadSourcesAndOutputs) {
  const std::string before = read_text(job.path);
  job.out = job.path;  // the source itself
  EXPECT_FALSE(run());
  EXPECT_EQ(read_text(job.path), before);
  job.out = dir.path + "/absent/a_c.las";
  EXPECT_FALSE(run());
  EXPECT_FALSE(exists(job.out));
  job.out = dir.path + "/a_c.las";
  job.path = dir.path + "/none.las";
  EXPECT_FALSE(run());
  EXPECT_TRUE(nothing_left());
  TestLas untimed;
  untimed.format = 0;
  job.path = dir.path + "/b.las";
  write_test_las(job.path, points, untimed);
  EXPECT_FALSE(run());
  EXPECT_TRUE(nothing_left());
}

TEST_F(CorrSwath, TruncatedSourceGivesWhatItHolds) {
  TestLas cut;
  cut.cut = 28 * 100 + 5;
  write_test_las(job.path, points, cut);
  ASSERT_TRUE(run());
  EXPECT_EQ(count.nwritten, 899u);
  EXPECT_EQ(read_all(job.out).size(), 899u);
}

TEST_F(CorrSwath, HeaderKeepsItsHistoryOnce) {
  ASSERT_TRUE(run());
  const std::string first = job.out;
  job.path = first;
  job.out = dir.path + "/a_c_c.las";
  ASSERT_TRUE(run());
  std::unique_ptr<LASreader> a = las_read_open(first, "", false), b = las_read_open(job.out, "", false);
  ASSERT_TRUE(a && b);
  EXPECT_EQ(a->header.vlrs.size(), 2u);
  EXPECT_EQ(b->header.vlrs.size(), 2u);
  EXPECT_EQ(b->header.offset_to_point_data, a->header.offset_to_point_data);
}

TEST(CorrNames, EqualNamesGetGroupAndSwath) {
  Project prj;
  for (const char* path : {"/d1/a.las", "/d2/a.las", "/d1/b.laz"}) {
    Swath s;
    s.cache = CacheName(path);
    s.group = prj.swaths.size() + 1;
    prj.swaths.add(s);
  }
  int ndup = 0;
  const auto same = comp_output_names({"p_", "_c", ""}, "out/", prj, prj.swaths.ids(), ndup);
  EXPECT_EQ(ndup, 2);
  EXPECT_EQ(same,
            (std::vector<std::string>{"out/p_a_c_g_1_sw_0.las", "out/p_a_c_g_2_sw_1.las", "out/p_b_c.laz"}));
  const auto laz = comp_output_names({"", "_c", ".laz"}, "", prj, {SwathId(0), SwathId(2)}, ndup);
  EXPECT_EQ(ndup, 0);
  EXPECT_EQ(laz, (std::vector<std::string>{"a_c.laz", "b_c.laz"}));
}

TEST(CorrLog, NodesAndStatistics) {
  TempDir dir;
  TMPDIR = dir.path + "/";
  Project prj;
  prj.name = dir.path + "/r";
  for (int sw = 0; sw < 2; sw++) {
    Swath s;
    s.clock.begin = T0, s.clock.end = T0 + 20;
    prj.swaths.add(s);
  }
  InvResult res;
  res.CT = res.CA = true;
  for (int sw = 0; sw < 2; sw++) {  // x drifts by 1 mm a second
    InvCorr corr;
    corr.Tt = {{0.1f, 0, 0}, {0.11f, 0, 0}, {0.12f, 0, 0}};
    corr.At = {{0, 0, 0}, {0, 0, 0}, {0.01f, 0, 0}};
    corr.t0 = T0;
    corr.Dt = 10;
    res.swaths.push_back(corr);
  }
  const Vector<PO> po = level_track(T0 - 2, 14);
  ASSERT_TRUE(log_corr(res, SwathId(0), {0, 0, 1}, po));
  ASSERT_TRUE(log_corr(res, SwathId(1), {0, 0, 0}, po));
  ASSERT_TRUE(merge_log_corr(prj, prj.swaths.ids()));
  const std::string ta = read_text(prj.name + "_TA.log");
  EXPECT_EQ(ta.substr(0, ta.find('\n')),
            "Time TrajCorr{X Y Z} AttCorr{Roll Pitch Yaw} CtrlPt# Swath# "
            "[Time s of the GPS week, X Y Z TrajCorr m, AttCorr degrees]");
  double t, T[3], A[3];
  int node, sw;
  const char* line = ta.c_str() + ta.find('\n') + 1;
  for (int k = 0; k < 2; k++) line = std::strchr(line, '\n') + 1;  // third node of the first swath
  ASSERT_EQ(std::sscanf(line, "%lf %lf %lf %lf %lf %lf %lf %d %d", &t, T, T + 1, T + 2, A, A + 1, A + 2,
                        &node, &sw),
            9);
  EXPECT_DOUBLE_EQ(t, T0 + 20);
  EXPECT_NEAR(T[0], 0.12, 1e-9);
  EXPECT_NEAR(T[2], 1, 1e-9);
  EXPECT_NEAR(A[0], 0.573, 1e-3);
  EXPECT_EQ(node, 2);
  EXPECT_EQ(sw, 0);
  EXPECT_FALSE(exists(TMPDIR + "tmp_sw_0_TA.log"));

  ASSERT_TRUE(drift_stat_output(prj, res, prj.swaths.ids()));
  const std::string stat = read_text(prj.name + "_TA_stat.log");
  EXPECT_TRUE(holds(stat, "T_Drift{X Y Z}"));
  EXPECT_TRUE(holds(stat, "3.600"));  // m per hour
}
}  // namespace
}  // namespace veld
