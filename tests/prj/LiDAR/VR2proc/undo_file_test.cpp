// A correction and the way back; attributes that are rewritten; beams.
#include "prj/LiDAR/VR2proc/undo_file.h"

#include <algorithm>
#include <cstring>

#include "lib/general/path.h"
#include "tests/prj/LiDAR/VR2proc/corr_fixture.h"

namespace veld {
namespace {
class Undo : public CorrFixture {
 protected:
  void SetUp() override {
    CorrFixture::SetUp();
    SOFTINFO = "VELDRUNNER";
    job.undo = true;
  }
  bool undo(const std::string& path, const std::string& out) {
    CorrCount n;
    UndoJob back;
    back.path = path;
    back.out = out;
    back.sources = &sources;
    return undo_corr_swath_las(back, n);
  }
};

TEST_F(Undo, GivesTheSourceBackByteForByteOnTheStepsOfTheUndoData) {
  // A file in steps of 1 cm holds corrections in steps of the undo data, so nothing is lost. Our own copy of the
  // source comes first: the header of a test file has no box.
  TestLas how;
  how.scale = 0.01;
  write_test_las(dir.path + "/t.las", flat_points(0.01), how);
  job.path = dir.path + "/t.las";
  job.out = dir.path + "/a.las";
  job.undo = false;
  ASSERT_TRUE(run());
  for (const bool stamped : {true, false}) {  // the source is a corrected file itself, or never was one
    SCOPED_TRACE(stamped);
    job.path = dir.path + (stamped ? "/a.las" : "/b.las");
    job.out = dir.path + "/c.laz";
    if (!stamped) {
      std::unique_ptr<LASreader> in = las_read_open(dir.path + "/a.las", "", false);
      LASheader header = in->header;
      unset_las_header_sid(header, {});
      std::unique_ptr<LASwriter> out = las_write_open(job.path, header, "");
      while (in->read_point()) ASSERT_TRUE(out->write_point(in->point));
      ASSERT_TRUE(las_write_close(out));
    }
    job.undo = true;
    corr.S = {1.37f, -2.51f, 0.33f};
    corr.CB = true;
    corr.B = {0.003f, -0.002f, 0.004f};
    ASSERT_TRUE(run());
    EXPECT_NE(read_text(job.out), read_text(job.path));
    ASSERT_TRUE(undo(job.out, dir.path + "/u.las"));
    EXPECT_EQ(read_text(dir.path + "/u.las"), read_text(job.path));
  }
}

TEST_F(Undo, FinerFilesComeBackWithinHalfAStep) {
  write_test_las(job.path, flat_points(0.001));
  corr.S = {1.2347f, -2.5111f, 0.3333f};
  ASSERT_TRUE(run());
  ASSERT_TRUE(undo(job.out, dir.path + "/u.las"));
  std::unique_ptr<LASreader> a = las_read_open(job.path, "", false),
                             b = las_read_open(dir.path + "/u.las", "", false);
  while (a->read_point()) {
    ASSERT_TRUE(b->read_point());
    EXPECT_NEAR(b->point.x(), a->point.x(), 0.00251);
    EXPECT_NEAR(b->point.y(), a->point.y(), 0.00251);
    EXPECT_NEAR(b->point.z(), a->point.z(), 0.00101);
    EXPECT_EQ(std::memcmp(a->point.rec + 12, b->point.rec + 12, 16), 0);
  }
  EXPECT_FALSE(b->read_point());
}

TEST_F(Undo, WhatCannotBeUndoneIsRefusedAndLeavesNoFile) {
  write_test_las(job.path, flat_points(0.001));
  const std::string out = dir.path + "/u.las", data = undo_name(job.out);
  ASSERT_TRUE(run());
  EXPECT_FALSE(undo(job.path, out));  // no undo data
  const std::string whole = read_text(data);
  const struct {
    const char* what;
    std::string bytes;
  } cases[] = {{"another kind of file", read_text(job.path)},
               {"cut", whole.substr(0, whole.size() / 2)},
               {"empty", ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    write_text(data, c.bytes);
    EXPECT_FALSE(undo(job.out, out));
    EXPECT_FALSE(exists(out));
  }
  Vector<PO> part(100);  // points behind 3 s are dropped
  std::copy(po.val, po.val + 100, part.val);
  po = part;
  count = CorrCount();
  ASSERT_TRUE(run());
  EXPECT_GT(count.ndropped, 0u);
  EXPECT_GT(count.nwritten, 0u);
  EXPECT_FALSE(undo(job.out, out));
  // Corrected anew without undo data: those of the earlier file must not be applied to it.
  job.undo = false;
  ASSERT_TRUE(run());
  EXPECT_FALSE(exists(data));
}

TEST_F(Undo, AttributesAreRewrittenByTheGeometry) {
  TestLas how;
  for (const int format : {1, 6}) {
    SCOPED_TRACE(format);
    how.format = format;
    how.adjusted = false;
    write_test_las(job.path, flat_points(0.001), how);
    job.points.rewrite = {true, format == 1, format == 6, true};
    job.points.t_out = 0.25;
    job.adj = true;
    ASSERT_TRUE(run());
    std::unique_ptr<LASreader> a = las_read_open(job.path, "", false), b = las_read_open(job.out, "", false);
    EXPECT_TRUE(b->header.adjusted_gps());
    while (a->read_point()) {
      ASSERT_TRUE(b->read_point());
      EXPECT_DOUBLE_EQ(b->point.gps_time(), a->point.gps_time() + 0.25);
      // The scanner looks straight down and across: all points lie beside the track at their time.
      const double across = std::atan2(a->point.x() - 500000, 400 - a->point.z()) * 57.29578;
      EXPECT_NEAR(b->point.scan_angle_deg(), across, format == 1 ? 0.51 : 0.01);
      EXPECT_NEAR(b->point.user_data(), 90, 1);
    }
  }
}

TEST_F(Undo, EachBeamHasItsCalibration) {
  std::vector<TestPoint> points = flat_points(0.001);
  write_test_las(job.path, points);
  BeamSplit split;  // by class: 0 to 4; the fourth and fifth have no beam
  split.type = SplitType::classification;
  split.beam.fill(NO_BEAM);
  for (uint8_t k = 0; k < 3; k++) split.beam[k] = k;
  ASSERT_TRUE(init_SwathCorr(corr));
  job.points.split = &split;
  for (int k = 0; k < 3; k++) {
    job.points.beams.push_back(corr);
    job.points.beams.back().CL = true;
    job.points.beams.back().L = {0, 1.0f + static_cast<float>(k), 0};  // to the right is east
    ASSERT_TRUE(init_SwathCorr(job.points.beams.back()));
  }
  ASSERT_TRUE(run());
  EXPECT_EQ(count.nunsplit, 400u);
  std::unique_ptr<LASreader> b = las_read_open(job.out, "", false);
  for (const TestPoint& p : points) {
    ASSERT_TRUE(b->read_point());
    EXPECT_NEAR(b->point.x() - p.x, p.cls < 3 ? 1.0 + p.cls : 0.0, 0.0011);
  }
}
}  // namespace
}  // namespace veld
