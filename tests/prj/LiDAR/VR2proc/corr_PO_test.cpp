// Trajectories with the drift of swaths taken out.
#include "prj/LiDAR/VR2proc/corr_PO.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "prj/LiDAR/POio/SBET.h"
#include "prj/LiDAR/VR2geom/beam_calib.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
constexpr int N = 2000;  // records, 10 ms apart from second 1000 on

std::vector<SBETrec> flight() {
  std::vector<SBETrec> records(N);
  for (int i = 0; i < N; i++) {
    SBETrec& r = records[static_cast<size_t>(i)];
    r.time = 1000 + i * 0.01;
    r.lat = (48.0 + 1e-6 * i) * RAD_PER_DEG;
    r.lon = (16.5 + 5e-7 * i) * RAD_PER_DEG;  // 1.5 degrees off the meridian of zone 33
    r.height = 500;
    r.velocity[0] = 7;
    r.roll = 0.02;
    r.pitch = -0.03;
    r.heading = 3.0 + 0.0002 * i;  // beyond half a turn at the end
    r.wander = 0.4;
    r.accelerations_rates[5] = 9;
  }
  return records;
}

void write_records(const std::string& path, const std::vector<SBETrec>& records, size_t less = 0) {
  write_text(path, std::string(reinterpret_cast<const char*>(records.data()),
                               records.size() * sizeof(SBETrec) - less));
}
std::vector<SBETrec> read_records_of(const std::string& path) {
  const std::string bytes = read_text(path);
  std::vector<SBETrec> records(bytes.size() / sizeof(SBETrec));
  std::memcpy(records.data(), bytes.data(), records.size() * sizeof(SBETrec));
  return records;
}

class CorrPO : public testing::Test {
 protected:
  TempDir dir;
  GeoRefParam utm;
  TrackCorr corr;
  const Vector<xyz> Tt = {{1, 2, 3}, {1, 2, 5}}, At = {{0, 0, 0}, {0.001f, -0.002f, 0.003f}};
  PoCorrJob job;
  PoCorrResult result;

  void SetUp() override {
    ASSERT_TRUE(utm.init(33, "", 0, "", true));
    // Drift from 1005 to 1010 s, held for a second on both sides.
    corr.parts = {{1005, 1010, {0.5f, 0, 0}, &Tt, &At, 1005, 5}};
    settle_parts(corr.parts, 1);
    job.path = dir.path + "/t.out";
    job.stem = dir.path + "/t_po_0";
    job.coord = PO_GEO;
    job.georef = &utm;
    job.corr = &corr;
  }
};

TEST_F(CorrPO, ChangesPlaceAndAnglesOfTheRecordsOfSwathsAlone) {
  const std::vector<SBETrec> in = flight();
  write_records(job.path, in);
  ASSERT_TRUE(corr_PO_file(job, result));
  EXPECT_EQ(result.out, job.stem + ".out");
  EXPECT_NEAR(result.corrected, 7, 0.02);
  EXPECT_NEAR(result.seconds, 19.99, 1e-6);
  const std::vector<SBETrec> out = read_records_of(result.out);
  ASSERT_EQ(out.size(), in.size());
  for (size_t i = 0; i < in.size(); i++) {
    SCOPED_TRACE(i);
    const SBETrec &a = in[i], &b = out[i];
    if (a.time < 1004 - 1e-6 || a.time > 1011 + 1e-6) {
      EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
      continue;
    }
    const double f = std::clamp((a.time - 1005) / 5, 0.0, 1.0);
    dxyz p, q;
    ASSERT_TRUE(geo_forward(utm, a.lon * DEG_PER_RAD, a.lat * DEG_PER_RAD, a.height, p));
    ASSERT_TRUE(geo_forward(utm, b.lon * DEG_PER_RAD, b.lat * DEG_PER_RAD, b.height, q));
    ASSERT_NEAR(q.x - p.x, 1.5, 1e-5);
    ASSERT_NEAR(q.y - p.y, 2, 1e-5);
    ASSERT_NEAR(q.z - p.z, 3 + 2 * f, 1e-5);
    ASSERT_NEAR(b.roll - a.roll, 0.001 * f, 1e-8);
    ASSERT_NEAR(b.pitch - a.pitch, -0.002 * f, 1e-8);
    ASSERT_NEAR(std::remainder(b.heading - a.heading, 2 * M_PI), 0.003 * f, 1e-8);
    ASSERT_EQ(std::memcmp(&a.velocity, &b.velocity, sizeof a.velocity), 0);
    ASSERT_EQ(std::memcmp(&a.wander, &b.wander, sizeof a - offsetof(SBETrec, wander)), 0);
    ASSERT_EQ(a.time, b.time);
  }
}

TEST_F(CorrPO, DriftFoundBehindTheImuRotationIsThatOfTheRotatedAxes) {
  write_records(job.path, flight());
  corr.M =
      mount_rows({0, 0, 90});  // the body is the IMU turned by a quarter: its roll is the pitch of the file
  ASSERT_TRUE(corr_PO_file(job, result));
  const SBETrec b = read_records_of(result.out)[1005];
  const SBETrec c = flight()[1005];
  // What the correction does to a point, once by the rotated axes and once by the file's new attitude.
  const double north = 1.5 * std::sin(48 * RAD_PER_DEG);
  const auto attitude = [&](const SBETrec& r) {
    return xyz{static_cast<float>(r.roll * DEG_PER_RAD), static_cast<float>(r.pitch * DEG_PER_RAD),
               static_cast<float>((r.heading - r.wander) * DEG_PER_RAD - north)};
  };
  const Rot3 before = product(comp_R(attitude(c)), transposed(corr.M)),
             after = product(comp_R(attitude(b)), transposed(corr.M));
  const xyz point = {10, 20, 300};
  const xyz moved = rotate(after, point) - rotate(before, point);
  TrajFrame frame;
  SwRot none;
  const xyz Att = {std::atan2(-before.row[2].y, -before.row[2].z) * RAD2DEG,
                   std::asin(before.row[2].x) * RAD2DEG,
                   std::atan2(before.row[0].x, before.row[1].x) * RAD2DEG};
  comp_TrajFrame({0, 0, 0}, Att, none, frame);
  xyz cols[3];
  comp_att_cols(frame, rotate(before, point), false, cols);
  const xyz expected = cols[0] * At(1).x + cols[1] * At(1).y + cols[2] * At(1).z;
  EXPECT_NEAR(moved.x, expected.x, 0.005);
  EXPECT_NEAR(moved.y, expected.y, 0.005);
  EXPECT_NEAR(moved.z, expected.z, 0.005);
  EXPECT_GT(norm(expected), 0.5f);
}

TEST_F(CorrPO, PartsHoldUpToTheMiddleBetweenThem) {
  std::vector<TrackPart> parts(3);
  parts[0].begin = 100, parts[0].end = 110;
  parts[1].begin = 110.5, parts[1].end = 120;
  parts[2].begin = 119, parts[2].end = 130;  // overlapping
  settle_parts(parts, 1);
  TrackCorr c;
  c.parts = parts;
  const struct {
    double t;
    int part;
  } cases[] = {{98.9, -1}, {99.1, 0},  {110.24, 0}, {110.26, 1},
               {119.4, 1}, {119.6, 2}, {131, 2},    {131.1, -1}};
  for (const auto& k : cases) {
    const TrackPart* const p = part_at(c, k.t);
    EXPECT_EQ(p ? static_cast<int>(p - c.parts.data()) : -1, k.part) << k.t;
  }
}

TEST_F(CorrPO, TextHasAllRowsAndWhatCannotBeReadLeavesNoFile) {
  job.path = dir.path + "/t.txt";
  job.coord = PO_PROJ;
  std::string text;
  for (int i = 0; i < 300; i++) text += std::to_string(1000 + i * 0.05) + " 600000 5300000 500 1 2 359.5\n";
  write_text(job.path, text);
  ASSERT_TRUE(corr_PO_file(job, result));
  const std::string out = read_text(result.out);
  EXPECT_EQ(out.substr(0, out.find('\n')), "Time X Y Z Roll Pitch Yaw");
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 301);
  EXPECT_TRUE(holds(out, "\n1000.000  600000.000 5300000.000 500.000  1.0000 2.0000 359.5000\n"));
  EXPECT_TRUE(holds(out, "\n1005.000  600001.500 5300002.000 503.000  1.0000 2.0000 359.5000\n"));
  EXPECT_TRUE(holds(out, "\n1010.000  600001.500 5300002.000 505.000  1.0573 1.8854 359.6719\n"));
  job.path = dir.path + "/cut.out";
  job.coord = PO_GEO;
  job.stem = dir.path + "/cut_po_0";
  write_records(job.path, flight(), 7);
  EXPECT_FALSE(corr_PO_file(job, result));
  EXPECT_FALSE(exists(job.stem + ".out"));
}

TEST(BeamCalib, OrderIsThatOfTheChannels) {
  TempDir dir;
  const std::string head =
      "Lever{X Y Z} Bore{Roll Pitch Yaw} Int{I1 I2 I3 I4 I5 I6 I7} NSwaths{Ext Int} Swath# Group# Ch#\n";
  const auto line = [](int value, int group, int channel) {
    return std::to_string(value) + " 0 0 10 0 0 0.5 0 0 0 0 0 0 3 3 0 " + std::to_string(group) + ' ' +
           std::to_string(channel) + '\n';
  };
  const struct {
    const char* what;
    std::string name, text;
    int ns;
    std::vector<int> levers;  // empty: refused
  } cases[] = {
      {"by channel", "/a.log", head + line(5, 2, 1) + line(4, 1, 0), 2, {4, 5}},
      {"by group", "/b.log", head + line(5, 2, 0) + line(4, 1, 0), 2, {4, 5}},
      {"a channel twice", "/c.log", head + line(5, 2, 1) + line(4, 2, 1), 2, {}},
      {"too few", "/d.log", head + line(5, 1, 0), 2, {}},
      {"too many", "/e.log", head + line(5, 1, 0) + line(5, 2, 1) + line(5, 3, 2), 2, {}},
      {"a column short", "/f.log", head + "1 2 3\n", 1, {}},
      {"another kind of log", "/g.log", "Swath#\n" + line(5, 1, 0), 1, {}},
      {"extension", "/h.txt", head + line(5, 1, 0), 1, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    write_text(dir.path + c.name, c.text);
    std::vector<Calib> sets;
    ASSERT_EQ(read_beam_calib(dir.path + c.name, c.ns, sets), !c.levers.empty());
    for (size_t k = 0; k < c.levers.size(); k++) {
      EXPECT_EQ(sets[k].L.x, static_cast<float>(c.levers[k]));
      EXPECT_NEAR(sets[k].B.x, 10 * RAD_PER_DEG, 1e-6);
      EXPECT_EQ(sets[k].I(0), 0.5f);
    }
  }
}
}  // namespace
}  // namespace veld
