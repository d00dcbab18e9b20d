// The whole synchronisation: frames, matching, attitudes, messages, logs.
#include "lib/Geometry/angle.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "tests/prj/LiDAR/VR2POsync/sync_project.h"

namespace veld {
namespace {

// Two swaths in one track, 1020 to 1040 and 1050 to 1070 s.
void two_swaths(SyncProject& p) {
  p.add_swath(1020, 1040, false);
  p.add_swath(1050, 1070, false);
  p.add_pair(0, 1, 5);
}

// Puts a geographic trajectory in the place of the projected one.
void make_geographic(SyncProject& p) {
  std::vector<SbetRow> rec;
  for (int i = 0; i <= 1000; i++) rec.push_back(sbet_row(1000 + 0.1 * i, 15, 48.04 + 5e-6 * i, 700, 0, 0, 0));
  write_sbet(p.dir.path + "/s.out", rec);
  p.prj.pofiles[0].path = p.dir.path + "/s.out";
}

double azimuth(const dxyz& a, const dxyz& b) { return std::atan2(b.x - a.x, b.y - a.y) * DEG_PER_RAD; }
double turn(double angle) { return angle - 360 * std::round(angle / 360); }
}  // namespace

TEST(DutPoSync, PlainProject) {
  SyncProject p;
  two_swaths(p);
  p.add_track("t.txt", 1000, 1100);
  ASSERT_EQ(p.run(), 2) << p.said;
  EXPECT_EQ(p.file_of(0), 0);
  EXPECT_EQ(p.file_of(1), 0);
  ASSERT_EQ(p.res.pairs.size(), 1u);
  for (int i = 0; i < 5; i++) {
    EXPECT_NEAR(p.res.O1[0](i).x, 500000 + 60 * (p.res.pairs[0].t1(i) - 1000), 1e-3);
    EXPECT_NEAR(p.res.O2[0](i).y, 5321000 + 8 * (p.res.pairs[0].t2(i) - 1000), 1e-3);
    EXPECT_FLOAT_EQ(p.res.Att2[0](i).z, 82.4f);
  }
  // The cache holds the swath and the buffer, and one record more on each side.
  Vector<PO> po;
  double dt = -1;
  ASSERT_TRUE(load_POC_TMP(p.swath(0).cache, SwathId(0), po, dt));
  EXPECT_EQ(dt, 0);
  EXPECT_NEAR(po(0).t, 1018, 0.11);
  EXPECT_LE(double{po(0).t}, 1018);
  EXPECT_GT(double{po(static_cast<int64_t>(po.size()) - 1).t}, 1042);
  EXPECT_TRUE(holds(p.log("_PO_stat.log"), "POFile# Freq TimeInt DateTimeMin DateTimeMax Xmin"));
  EXPECT_TRUE(holds(p.log("_PO_stat.log"), "  0   10 00:00:")) << p.log("_PO_stat.log");
  EXPECT_TRUE(
      holds(p.log("_PO_sync_stat.log"), "\n0 0 1 0 1 0.000 00:00:20 GPS_D_0_WS_00:17:00 GPS_D_0_WS_00:17:20"))
      << p.log("_PO_sync_stat.log");
  EXPECT_EQ(p.log("_sw_PO_rej.log"), "");
  const std::string cache = POC_name(p.swath(0).cache, SwathId(0));
  EXPECT_TRUE(exists(cache));
  p.res = POsync();
  EXPECT_FALSE(exists(cache));
}

// An aircraft that flies along a meridian has heading 0; along a parallel, heading 90. In a grid far from its
// central meridian the track has another direction, and the heading must follow it. By the sphere's rule the
// difference is some 2.2 degrees here.
TEST(DutPoSync, HeadingsTurnToGridNorth) {
  struct Row {
    int zone;
    double lon, lat;
  };
  for (const Row& row : {Row{33, 18, 48}, Row{33, 12, 48}, Row{-33, 18, -33.5}, Row{33, 15, 48}}) {
    for (const double heading : {0.0, 90.0, 180.0, 270.0}) {
      SyncProject p;
      two_swaths(p);
      std::vector<SbetRow> rows;
      const double north = std::cos(heading / DEG_PER_RAD) * 5e-6,
                   east = std::sin(heading / DEG_PER_RAD) * 5e-6;
      for (int i = 0; i <= 1000; i++)
        rows.push_back(sbet_row(1000 + 0.1 * i, row.lon + east * (i - 300), row.lat + north * (i - 300), 700,
                                3, -2, heading + 1.5, 1.5));
      write_sbet(p.dir.path + "/s.out", rows);
      p.add_file("s.out");
      ASSERT_TRUE(p.prj.georef.init(row.zone, "", 0, "", false));
      dxyz o;
      ASSERT_TRUE(geo_forward(p.prj.georef, row.lon, row.lat, 0, o));
      p.set_area(o.x - 1000, o.y - 1000, o.x + 1000, o.y + 1000);
      ASSERT_EQ(p.run(), 2) << p.said;
      const Vector<dxyz>& O = p.res.O1[0];
      const double track = azimuth(O(0), O(4));
      for (int i = 0; i < 5; i++) {
        // A parallel is curved against the straight line between two of its points: 0.0008 degrees on this
        // length.
        EXPECT_NEAR(turn(p.res.Att1[0](i).z - track), 0, 1e-3)
            << row.zone << " " << row.lon << " " << heading;
        EXPECT_NEAR(p.res.Att1[0](i).x, 3, 1e-5);
        EXPECT_NEAR(p.res.Att1[0](i).y, -2, 1e-5);
      }
      EXPECT_EQ(std::fabs(turn(track - heading)) > 1.5, row.lon != 15);
    }
  }
}

// No attitude is never an attitude of 0: it comes from the track, and the WARNING says so.
TEST(DutPoSync, MissingAnglesAreRecoveredAndReported) {
  const double heading = std::atan2(60, 8) * DEG_PER_RAD;
  const struct {
    const char* col;
    const char* angles;
    bool AREC;
    xyz att;
    const char* said;
  } cases[] = {
      {"txyz", "", true, {0, 0, static_cast<float>(heading)}, "WARNING: no attitude in PO file "},
      {"txyzwpk", " 0 0 0", true, {0, 0, static_cast<float>(heading)}, "WARNING: no attitude in PO file "},
      {"txyzk", " 81", false, {0, 0, 81}, "WARNING: no roll and pitch in PO file "},
      {"txyzpk", " 2 81", false, {0, 2, 81}, "WARNING: no roll in PO file "},
      {"txyzwk", " 1 81", false, {1, 0, 81}, "WARNING: no pitch in PO file "},
      {"txyzwpk", " 1 2 81", false, {1, 2, 81}, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.col);
    SyncProject p;
    two_swaths(p);
    std::string text;
    for (int i = 0; i <= 1000; i++) {
      char line[100];
      std::snprintf(line, sizeof(line), "%.1f %.3f %.3f 700%s\n", 1000 + 0.1 * i, 500000 + 6.0 * i,
                    5321000 + 0.8 * i, c.angles);
      text += line;
    }
    write_text(p.dir.path + "/t.txt", text);
    p.add_file("t.txt");
    p.prj.pogroups[0].col = c.col;
    ASSERT_EQ(p.run(), 2) << p.said;
    EXPECT_EQ(p.swath(0).track.AREC, c.AREC);
    EXPECT_TRUE(p.has(c.said)) << p.said;
    EXPECT_EQ(p.has("WARNING: no "), *c.said != '\0') << p.said;
    EXPECT_NEAR(p.res.Att1[0](2).x, c.att.x, 1e-5);
    EXPECT_NEAR(p.res.Att1[0](2).y, c.att.y, 1e-5);
    EXPECT_NEAR(p.res.Att1[0](2).z, c.att.z, 1e-3);
  }
}

// After a hundred turns a heading is as fine as at the start; in a south-orientated grid, where north jumps by
// a whole turn at the central meridian, it is interpolated the short way.
TEST(DutPoSync, HeadingsKeepTheirDigitsAndTheShortWay) {
  const char* const south =
      "PROJCS[\"s\",GEOGCS[\"g\",DATUM[\"d\",SPHEROID[\"WGS 84\",6378137,298.257223563]]],"
      "PROJECTION[\"Transverse_Mercator_South_Orientated\"],PARAMETER[\"latitude_of_origin\",0],"
      "PARAMETER[\"central_meridian\",15],PARAMETER[\"scale_factor\",1],PARAMETER[\"false_easting\",0],"
      "PARAMETER[\"false_northing\",0],UNIT[\"metre\",1]]";
  for (const bool orientated : {false, true}) {
    SyncProject p;
    const double rate = 33.7;  // degrees/s: 93 turns until the first swath
    two_swaths(p);
    std::vector<SbetRow> rows;
    for (int i = 0; i <= 21600; i++) {
      const double t = 0.05 * i;
      const double heading = std::fmod(rate * t, 360);
      rows.push_back(sbet_row(t, 15 + 1e-5 * (t - 1030), -30, 700, 1, 2, heading));
    }
    write_sbet(p.dir.path + "/s.out", rows);
    p.add_file("s.out");
    ASSERT_TRUE(p.prj.georef.init(orientated ? 0 : -33, south, 0, "", false));
    dxyz o;
    ASSERT_TRUE(geo_forward(p.prj.georef, 15, -30, 0, o));
    p.set_area(o.x - 1000, o.y - 1000, o.x + 1000, o.y + 1000);
    p.pairs[0].ndisp = 997;
    ASSERT_EQ(p.run(), 2) << p.said;
    double worst = 0;
    for (int i = 0; i < 997; i++) {
      const double t = p.res.pairs[0].t1(i), convergence = -1e-5 * (t - 1030) * std::sin(-30 / DEG_PER_RAD);
      const double grid_heading = rate * t + convergence + (orientated ? 180 : 0);
      worst = std::max(worst, std::fabs(turn(p.res.Att1[0](i).z - grid_heading)));
    }
    EXPECT_LT(worst, orientated ? 1.5e-4 : 1.2e-4);  // 720 degrees in a window: a float's last digit is 6e-5
  }
}

TEST(DutPoSync, ImuRotationGoesIntoTheCache) {
  SyncProject p;
  two_swaths(p);
  p.add_track("t.txt", 1000, 1100);
  p.prj.mounts.resize(1);
  p.prj.mounts[0].IMU = {0, 0, 90};
  p.par.AROT = true;
  ASSERT_EQ(p.run(), 2) << p.said;
  // With an IMU turned by 90 degrees about the vertical, the body's forward axis is the recorded right or
  // left one.
  const Rot3 before = comp_R({1, 2, 82.4f});
  const Rot3 after = comp_R(p.res.Att1[0](0));
  SwRot rot;
  rot.M = mount_rows({0, 0, 90});
  TrajFrame with_mount, plain;
  comp_TrajFrame({0, 0, 0}, {1, 2, 82.4f}, rot, with_mount);
  comp_TrajFrame({0, 0, 0}, p.res.Att1[0](0), SwRot(), plain);
  EXPECT_NEAR(norm(with_mount.a - plain.a), 0, 1e-5);
  EXPECT_NEAR(norm(with_mount.b - plain.b), 0, 1e-5);
  EXPECT_GT(norm(column(before, 0) - column(after, 0)), 1);
}

TEST(DutPoSync, MatchingRules) {
  struct Row {
    const char* name;
    double file_t0, file_t1;
    double tol;
    int fl0, fl1;
  };
  const Row rows[] = {{"inside", 1000, 1100, 1, 0, 0},
                      {"begins exactly tol before the file", 1021, 1100, 1, -1, 0},
                      {"begins just less than tol before it", 1020.9, 1100, 1, 0, 0},
                      {"ends exactly tol behind it", 1000, 1069, 1, 0, -1},
                      {"no tolerance, far inside", 1000, 1100, 0, 0, 0},
                      {"partly inside", 1000, 1060, 1, 0, -1}};
  for (const Row& r : rows) {
    SyncProject p;
    two_swaths(p);
    p.par.tol = r.tol;
    p.add_track("t.txt", r.file_t0, r.file_t1);
    EXPECT_EQ(p.run(), (r.fl0 >= 0) + (r.fl1 >= 0)) << r.name << p.said;
    EXPECT_EQ(p.file_of(0), r.fl0) << r.name;
    EXPECT_EQ(p.file_of(1), r.fl1) << r.name;
    const bool rejected = r.fl0 < 0 || r.fl1 < 0;
    EXPECT_EQ(p.has("WARNING: 1 out of 2 mobile swaths rejected, no single matching PO file, see file " +
                    p.prj.name + "_sw_PO_rej.log"),
              rejected)
        << r.name << p.said;
    if (!rejected) continue;
    EXPECT_EQ(p.log("_sw_PO_rej.log").find("Swath# FileName\n"), 0u);
    EXPECT_EQ(p.res.O1[0](0).z == -9999, r.fl0 < 0);  // vectors of a rejected swath are marked
    EXPECT_EQ(p.res.O2[0](0).z == -9999, r.fl1 < 0);
  }
}

TEST(DutPoSync, SeveralFiles) {
  SyncProject p;
  two_swaths(p);
  p.add_track("a.txt", 1000, 1045);
  p.add_track("b.txt", 1046, 1100);
  p.add_track("far.txt", 3000, 3100);
  p.add_file("a.txt");  // listed twice
  ASSERT_EQ(p.run(), 2) << p.said;
  EXPECT_EQ(p.file_of(0), 0);
  EXPECT_EQ(p.file_of(1), 1);
  EXPECT_TRUE(
      p.has("WARNING: no matching swath for PO file " + p.dir.path + "/far.txt in group 1, channel 0"))
      << p.said;
  EXPECT_TRUE(p.has("WARNING: 1 out of 3 PO files were rejected, see file ")) << p.said;
  EXPECT_EQ(p.log("_PO_rej.log"), "POFile# FileName\n2 " + p.dir.path + "/far.txt\n");

  // The same content under another name makes the choice impossible.
  p.add_track("copy.txt", 1000, 1045);
  EXPECT_EQ(p.run(), 1) << p.said;
  EXPECT_EQ(p.file_of(0), -2);
  EXPECT_TRUE(p.has("WARNING: time sync failed for 1 mobile swaths (multiple matching PO files)")) << p.said;

  // A file that can't be read is left out; the others go on.
  write_text(p.dir.path + "/copy.txt", "nothing\n");
  EXPECT_EQ(p.run(), 2) << p.said;
  EXPECT_TRUE(p.has("ERROR: not enough data points, PO file ")) << p.said;
}

TEST(DutPoSync, SwathsWithoutRegistrationAndReferences) {
  SyncProject p;
  two_swaths(p);
  p.add_swath(1075, 1085, false);     // in no pair
  p.add_swath(1021, 1031, false, 0);  // a reference
  p.add_pair(0, 3, 2);
  p.add_track("t.txt", 1000, 1100);
  EXPECT_EQ(p.run(), 2) << p.said;
  EXPECT_EQ(p.file_of(2), -1);
  EXPECT_EQ(p.file_of(3), -1);
  EXPECT_EQ(p.res.O2[1](0).z, -9999);
  EXPECT_NE(p.res.O1[1](0).z, -9999);
  EXPECT_TRUE(p.has("1 out of 3 mobile swaths rejected, no registration data, see file ")) << p.said;
  p.par.ALL = true;
  EXPECT_EQ(p.run(), 3) << p.said;
  EXPECT_EQ(p.file_of(2), 0);
}

TEST(DutPoSync, Gap) {
  SyncProject p;
  two_swaths(p);
  write_text(p.dir.path + "/g.txt", p.track(1000, 1030) + p.track(1031.5, 1100));
  p.add_file("g.txt");
  EXPECT_EQ(p.run(), 2) << p.said;
  EXPECT_TRUE(p.has("WARNING: abnormal timestamp difference of 1.500 s at rec ")) << p.said;
}

TEST(DutPoSync, Failures) {
  struct Row {
    const char* name;
    void (*spoil)(SyncProject& p);
    const char* message;
  };
  const Row rows[] = {
      {"wrong zone",
       [](SyncProject& p) {
         make_geographic(p);
         ASSERT_TRUE(p.prj.georef.init(32, "", 0, "", false));
       },
       "ERROR: no overlap between LiDAR and trajectory, wrong unit/projection or wrong PO format options"},
      {"no projection", make_geographic, "ERROR: no overlap between LiDAR and trajectory"},
      {"no time in common", [](SyncProject& p) { write_text(p.prj.pofiles[0].path, p.track(5000, 5100)); },
       "ERROR: PO file synchronization failed"},
      {"no trajectory", [](SyncProject& p) { write_text(p.prj.pofiles[0].path, ""); },
       "ERROR: failed to sync GPS time for DUT file "},
      {"no vectors", [](SyncProject& p) { p.pairs[0].ndisp = 0; },
       "ERROR: no registration data in DUT file "},
      {"groups", [](SyncProject& p) { p.prj.pogroups.resize(2); },
       "ERROR: group size mismatch, 2 PO groups and 1 mobile swaths groups"},
      {"another project",
       [](SyncProject& p) {
         SwathTable one;
         one.add(p.swath(0));
         p.prj.swaths = one;
       },
       "ERROR: incompatible DUT file, 2 swaths, project has 1"},
      {"another order",
       [](SyncProject& p) { std::swap(p.prj.swaths[SwathId(0)].cache, p.prj.swaths[SwathId(1)].cache); },
       "ERROR: incompatible DUT file, swath 0 is "},
      {"rejected only now", [](SyncProject& p) { p.prj.swaths.reject(SwathId(1), SwathState::untiled, ""); },
       "ERROR: incompatible DUT file, swath 1 is part of it, of the project it is not, "},
      {"no space for caches",
       [](SyncProject& p) {
         TMPDIR = p.dir.path + "/absent/";
         for (Swath& s : p.prj.swaths) s.cache = CacheName(s.path());
       },
       "ERROR: failed to write trajectory cache "}};
  for (const Row& r : rows) {
    SyncProject p;
    two_swaths(p);
    p.add_track("t.txt", 1000, 1100);
    r.spoil(p);
    EXPECT_EQ(p.run(), 0) << r.name;
    EXPECT_TRUE(p.has(r.message)) << r.name << ": " << p.said;
  }
}
}  // namespace veld
