// Readers: contents, windows, rollovers, and files that are wrong.
#include <gtest/gtest.h>

#include <cmath>

#include "prj/LiDAR/POio/PO_accuracy.h"
#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/POio/sbet_file.h"

namespace veld {
namespace {
std::vector<SbetRow> flight(double t0, double dt, int n, double wrap = 0) {
  std::vector<SbetRow> rows;
  for (int i = 0; i < n; i++) {
    double t = t0 + i * dt;
    if (wrap > 0 && t >= wrap) t -= wrap;
    rows.push_back(
        sbet_row(t, 15 + 1e-6 * i, 48 - 1e-6 * i, 700 + 0.1 * i, 1, -2, std::fmod(358 + 0.1 * i, 360), 0.5));
  }
  return rows;
}

bool read_of(const std::string& path, const POread& par, Vector<PO>& po, std::string& said) {
  bool tadj = false;
  testing::internal::CaptureStderr();
  const bool ok = read_PO(path, par, po, tadj);
  said = testing::internal::GetCapturedStderr();
  return ok;
}
}  // namespace

TEST(ReadSbet, WholeFile) {
  TempDir dir;
  const std::string path = dir.path + "/a.OUT";
  write_sbet(path, flight(305000, 0.01, 1000));
  EXPECT_EQ(PO_format("x/flight.sbet"), PO_SBET);
  POscan scan;
  ASSERT_TRUE(scan_PO(path, POread(), scan));
  EXPECT_EQ(scan.fmt, PO_SBET);
  EXPECT_FALSE(scan.tadj);
  EXPECT_EQ(scan.t0, 305000);
  EXPECT_NEAR(scan.t1, 305009.99, 1e-9);
  EXPECT_EQ(scan.nrec, 1000u);
  Vector<PO> po;
  std::string said;
  ASSERT_TRUE(read_of(path, POread(), po, said)) << said;
  ASSERT_EQ(po.size(), 1000u);
  EXPECT_NEAR(po(10).x, 15.00001, 1e-12);
  EXPECT_NEAR(po(10).y, 47.99999, 1e-12);
  EXPECT_NEAR(po(10).z, 701, 1e-9);
  EXPECT_NEAR(po(10).roll, 1, 1e-6);
  EXPECT_NEAR(po(10).pitch, -2, 1e-6);
  EXPECT_NEAR(po(10).yaw, 358.5, 1e-4);   // heading less wander
  EXPECT_NEAR(po(100).yaw, 367.5, 1e-4);  // unrolled
  POread w0;
  w0.sbetw0 = true;
  w0.deltat = 100;
  ASSERT_TRUE(read_of(path, w0, po, said));
  EXPECT_NEAR(po(10).yaw, 359, 1e-4);
  EXPECT_EQ(double{po(0).t}, 305100);
}

TEST(ReadSbet, AdjustedTimesPointToTheOption) {
  TempDir dir;
  const std::string path = dir.path + "/a.sbet";
  write_sbet(path, flight(391949907, 0.01, 20));
  for (const int time : {0, 1}) {
    POread par;
    par.time = time;
    POscan scan;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(scan_PO(path, par, scan));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said, time == 1 ? ""
                              : "WARNING: timestamps are not week seconds, SBET file " + path +
                                    " (check option -A)\n");
    EXPECT_EQ(scan.tadj, time == 1);
  }
}

TEST(ReadSbet, Windows) {
  TempDir dir;
  const std::string path = dir.path + "/a.out";
  write_sbet(path, flight(1000, 0.1, 2000));  // to 1199.9
  struct Row {
    double tinf, tsup;
    int n;          // samples
    double t0, t1;  // of the first and last
  };
  const Row rows[] = {{1010.05, 1020.05, 120, 1009.1, 1021.0},
                      {-2e307, 1001, 21, 1000, 1002},
                      {1199, 2e307, 20, 1198, 1199.9},
                      {1199.85, 5000, 11, 1198.9, 1199.9},
                      {0, 5000, 2000, 1000, 1199.9}};
  for (const Row& r : rows) {
    POread par;
    par.deltat = 1e6;
    par.tinf = r.tinf + 1e6, par.tsup = r.tsup + 1e6;
    Vector<PO> po;
    std::string said;
    ASSERT_TRUE(read_of(path, par, po, said)) << r.tinf << said;
    // Near the ends of the file the search may be three records off.
    EXPECT_NEAR(po(0).t - 1e6, r.t0, 0.31) << r.tinf;
    EXPECT_NEAR(po(static_cast<int64_t>(po.size()) - 1).t - 1e6, r.t1, 0.31) << r.tinf;
    EXPECT_NEAR(static_cast<double>(po.size()), r.n, 6) << r.tinf;
  }
}

TEST(ReadSbet, Rollovers) {
  TempDir dir;
  for (const double wrap : {604800.0, 86400.0}) {
    const std::string path = dir.path + "/r.out";
    write_sbet(path, flight(wrap - 50, 0.1, 1000, wrap));
    POscan scan;
    ASSERT_TRUE(scan_PO(path, POread(), scan));
    EXPECT_NEAR(scan.t1, wrap + 49.9, 1e-6);
    for (const double tinf : {-2e307, wrap - 10.0, wrap + 10.0}) {  // before, across and behind the turn
      POread par;
      par.tinf = tinf, par.tsup = wrap + 20;
      Vector<PO> po;
      std::string said;
      ASSERT_TRUE(read_of(path, par, po, said)) << said;
      for (int64_t i = 1; i < static_cast<int64_t>(po.size()); i++)
        ASSERT_NEAR(po(i).t - po(i - 1).t, 0.1, 1e-6);
      EXPECT_NEAR(po(static_cast<int64_t>(po.size()) - 1).t, wrap + 21, 0.11);
    }
  }
}

TEST(ReadSbet, WrongFiles) {
  TempDir dir;
  const std::string path = dir.path + "/a.out";
  const std::vector<SbetRow> good = flight(1000, 0.1, 20);
  struct Row {
    const char* name;
    std::vector<SbetRow> rows;
    std::string more;
    bool ok;
    const char* message;
  };
  std::vector<SbetRow> metres = good, allnan = good, notimes = good;
  for (SbetRow& r : metres) r[1] = 5.3e6, r[2] = 5e5;
  for (SbetRow& r : notimes) r[0] = std::nan("");
  for (size_t i = 1; i < 19; i++) allnan[i][8] = std::nan("");
  const Row rows[] = {
      {"empty", {}, "", false, "not enough data points, SBET file "},
      {"one record", {good[0]}, "", false, "not enough data points, SBET file "},
      {"a few bytes", {}, "abc", false, "not enough data points, SBET file "},
      {"truncated", good, std::string(77, 'x'), true, ""},
      {"projected", metres, "", false, "coordinates look projected (geodetic expected), SBET file="},
      {"no times at all", notimes, "", false, "incompatible GPS timestamps, SBET file "},
      {"mostly bad", allnan, "", false, "not enough data points, SBET file "}};
  for (const Row& r : rows) {
    write_sbet(path, r.rows, r.more);
    Vector<PO> po;
    std::string said;
    EXPECT_EQ(read_of(path, POread(), po, said), r.ok) << r.name << said;
    EXPECT_TRUE(holds(said, r.message)) << r.name << ": " << said;
    EXPECT_EQ(said.find("ERROR: failed to read PO file " + path) != std::string::npos, !r.ok) << r.name;
    testing::internal::CaptureStderr();
    POscan scan;
    const bool scanned = scan_PO(path, POread(), scan);
    said = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(scanned || !r.ok) << r.name;
    EXPECT_EQ(said.find("WARNING: invalid file size, SBET file=") != std::string::npos,
              r.more.size() == 77 || r.more == "abc")
        << r.name;
  }
  // A window that needs more memory than there is.
  write_sbet(path, flight(1000, 0.001, 20000));
  const int mem = MEM_MB;
  MEM_MB = 1;
  Vector<PO> po;
  std::string said;
  EXPECT_FALSE(read_of(path, POread(), po, said));
  EXPECT_TRUE(holds(said, "of 1 MB (-mem)")) << said;
  MEM_MB = mem;
}

// One wrong record anywhere, also where a search looks first, is dropped and counted, and nothing else is: the
// others come with their own times and places, whatever window is asked for.
TEST(ReadSbet, SingleWrongRecords) {
  TempDir dir;
  const std::string path = dir.path + "/a.out";
  const int n = 4000;
  const std::vector<SbetRow> good = flight(305000, 0.01, n);
  const struct {
    const char* name;
    void (*spoil)(SbetRow& row);
  } faults[] = {
      {"latitude 0", [](SbetRow& r) { r[1] = 0; }},
      {"height", [](SbetRow& r) { r[3] = 1e5; }},
      {"roll", [](SbetRow& r) { r[7] = 3; }},
      {"no pitch", [](SbetRow& r) { r[8] = std::nan(""); }},
      {"longitude beyond all", [](SbetRow& r) { r[2] = 1e300; }},
      {"heading", [](SbetRow& r) { r[9] += 0.5; }},
      {"time 0", [](SbetRow& r) { r[0] = 0; }},
      {"time late", [](SbetRow& r) { r[0] += 1000; }},
      {"time a little late", [](SbetRow& r) { r[0] += 0.035; }},
      {"time early", [](SbetRow& r) { r[0] -= 12; }},
      {"no time", [](SbetRow& r) { r[0] = std::nan(""); }},
      {"time of next week", [](SbetRow& r) { r[0] += 604800; }},
      {"time as after a rollover", [](SbetRow& r) { r[0] -= 86400; }},
  };
  const struct { double tinf, tsup; } windows[] = {{-2e307, 2e307}, {305005, 305035}, {305009.95, 305010.05}};
  for (const auto& f : faults)
    for (const int at : {0, 1, n / 4, n / 2, 3 * n / 4, n / 4 - 1, n - 2, n - 1}) {
      std::vector<SbetRow> rows = good;
      f.spoil(rows[static_cast<size_t>(at)]);
      write_sbet(path, rows);
      SCOPED_TRACE(std::string(f.name) + " at " + std::to_string(at));
      POscan scan;
      ASSERT_TRUE(scan_PO(path, POread(), scan));
      EXPECT_NEAR(scan.t0, 305000, 0.036);
      EXPECT_NEAR(scan.t1, 305039.99, 0.036);
      for (const auto& w : windows) {
        POread par;
        par.tinf = w.tinf, par.tsup = w.tsup;
        Vector<PO> po;
        std::string said;
        ASSERT_TRUE(read_of(path, par, po, said)) << said;
        EXPECT_LE(po(0).t, std::max(w.tinf, 305000.02));
        EXPECT_GE(po(static_cast<int64_t>(po.size()) - 1).t, std::min(w.tsup, 305039.97));
        int missing = 0;
        double last = po(0).t - 0.01;
        for (const PO& rec : po) {
          const double i = (rec.t - 305000) * 100;
          ASSERT_NEAR(rec.x, 15 + 1e-6 * i, 1e-9);
          ASSERT_NEAR(rec.y, 48 - 1e-6 * i, 1e-9);
          ASSERT_NEAR(rec.z, 700 + 0.1 * i, 1e-6);
          ASSERT_NEAR(rec.roll, 1, 1e-5);
          missing += static_cast<int>(std::lround((rec.t - last) * 100)) - 1;
          last = rec.t;
        }
        EXPECT_LE(missing, 1);
        const bool whole = w.tinf < 0;
        EXPECT_EQ(said.find("WARNING: 1 invalid records skipped, SBET file " + path) != std::string::npos,
                  whole || missing == 1)
            << said;
        EXPECT_TRUE(!whole || po.size() == static_cast<uint64_t>(n - 1)) << po.size();
      }
    }
}

// Gaps, real jumps and runs of wrong records; many are an ERROR, and the limits are those of the options.
TEST(ReadSbet, ManyWrongRecords) {
  TempDir dir;
  const std::string path = dir.path + "/a.out";
  const std::vector<SbetRow> good = flight(305000, 0.01, 2000);
  std::vector<SbetRow> gap = good, jump = good, burst = good, some = good, many = good;
  for (size_t i = 1000; i < 2000; i++) gap[i][0] += 7.5, jump[i][2] += 1e-4;  // 400 m
  for (size_t i = 500; i < 503; i++) burst[i][3] = -5000;
  for (size_t i = 0; i < 2000; i += 250) some[i + 7][3] = 1e5;
  for (size_t i = 0; i < 2000; i += 50) many[i + 7][3] = 1e5;
  const struct {
    const char* name;
    const std::vector<SbetRow>& rows;
    float climb;
    bool ok;
    uint64_t n;
    const char* message;
  } cases[] = {
      {"gap", gap, 100, true, 2000, ""},
      {"jump", jump, 100, true, 2000, "WARNING: 1 jumps of position or attitude, SBET file "},
      {"burst", burst, 100, true, 1997, "WARNING: 3 invalid records skipped, SBET file "},
      {"some", some, 100, true, 1992, "WARNING: 8 invalid records skipped, SBET file "},
      {"many", many, 100, false, 0,
       "ERROR: 40 of 2000 records are wrong (0 values, 0 times, 40 steps beyond "},
      {"many, no limit", many, 0, true, 2000, ""},
  };
  for (const auto& c : cases) {
    write_sbet(path, c.rows);
    PO_CLIMB_MAX = c.climb;
    Vector<PO> po;
    std::string said;
    EXPECT_EQ(read_of(path, POread(), po, said), c.ok) << c.name << said;
    PO_CLIMB_MAX = 100;
    EXPECT_EQ(po.size(), c.n) << c.name;
    EXPECT_TRUE(holds(said, c.message)) << c.name << ": " << said;
    EXPECT_EQ(said.empty(), *c.message == '\0') << c.name << ": " << said;
  }
}

TEST(ReadPO, WrongFilesOfEachFormat) {
  TempDir dir;
  const std::string pof = std::string("RIEGL POSITION&ORIENTATION", 27);
  std::string message(184, '\0');  // of the right kind, with a body that is not
  message.replace(0, 4, "\xBB\x55\xB8\0", 4);
  message.replace(12, 2, "\xC5\x09");
  std::string trj(1376 + 64, '\0');
  trj.replace(0, 8, "TSCANTRJ");
  trj[13] = 5, trj[12] = 96, trj[16] = 2, trj[20] = 64;  // announces two records
  const struct {
    const char* name;
    std::string bytes;
    const char* said;
  } cases[] = {{"/a.sol", "something", "invalid file size, SOL file="},
               {"/a.sol", std::string(368, 'x'), "invalid SOL file format, file="},
               {"/a.sol", message + message, "unsupported SOL file format, file="},
               {"/a.TRJ", "something", "invalid header, TRJ file="},
               {"/a.trj", trj, "invalid file size, TRJ file="},
               {"/a.bin", "something", "invalid file size, BIN file="},
               {"/a.bin", std::string(168, 'x'), "not enough data points, BIN file "},
               {"/a.pof", "something", "invalid POF header, file "},
               {"/a.pof", pof + std::string(264, '\0'), "unsupported POF version, file "},
               {"/a.pof", pof + "\1" + std::string(13, '\0') + "\7" + std::string(249, '\0'),
                "wrong file size, POF file "},
               {"/a.las", "something", "failed to read PO file "}};
  for (const auto& c : cases) {
    write_text(dir.path + c.name, c.bytes);
    Vector<PO> po;
    std::string said;
    EXPECT_FALSE(read_of(dir.path + c.name, POread(), po, said));
    EXPECT_TRUE(holds(said, c.said)) << c.said << " in " << said;
  }
  POscan scan;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(scan_PO(dir.path + "/absent.out", POread(), scan));
  EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), "ERROR: failed to open PO file "));
}

TEST(ReadText, ColumnsAndUnits) {
  TempDir dir;
  const std::string path = dir.path + "/t.txt";
  struct Row {
    const char* col;
    int proj, time;
    bool rad;
    const char* text;
    double t, x, y, z, roll, pitch, yaw;  // of the second row
  };
  const Row rows[] = {
      {"txyzkp", PO_PROJ, 0, false, "1 500000 5e6 7 90 1\n2 500001 5e6 7 91 2\n", 2, 500001, 5e6, 7, 0, 2,
       91},
      {"txyz", PO_PROJ, 0, false, "10.5 885358.31 629103.85 1068.37\n11 885357.13 629128.97 1069.06\n", 11,
       885357.13, 629128.97, 1069.06, 0, 0, 0},
      {"", PO_PROJ, 0, false,
       "# head\nt,x,y,z,r,p,y\r\n1,500000,5e6,+7,1,2,3\r\n\n2, 500001,5e6,8,4,5,6,99\r\n", 2, 500001, 5e6, 8,
       4, 5, 6},
      {"tuxyzwpk", PO_GEO, 9, false, "00:00:01 A 15 48 7 1 2 3\n01:02:03.5\tB\t15.1\t48.1\t8\t4\t5\t6",
       3723.5 + 3 * 86400, 15.1, 48.1, 8, 4, 5, 6},
      {"xyztkpw", PO_GEO, 0, true, "0.26 0.84 7 1 0 0 0\n0.27 0.85 8 2000 0.3 0.2 0.1\n", 2000, 15.469860,
       48.701413, 8, 5.729578, 11.459156, 17.188734},
      {"txyz", PO_ECEF, 0, false,
       "1 3771793.968 140253.342 5124304.349\n2 3771794.968 140253.342 5124304.349\n", 2, 3771794.968,
       140253.342, 5124304.349, 0, 0, 0}};
  for (const Row& r : rows) {
    write_text(path, r.text);
    POread par;
    par.col = r.col, par.proj = r.proj, par.time = r.time, par.rad = r.rad;
    par.gweek = 2301, par.gday = 3;
    Vector<PO> po;
    std::string said;
    ASSERT_TRUE(read_of(path, par, po, said)) << r.text << said;
    ASSERT_EQ(po.size(), 2u) << r.text;
    EXPECT_NEAR(po(1).t, r.t, 1e-9);
    EXPECT_NEAR(po(1).x, r.x, 1e-6);
    EXPECT_NEAR(po(1).y, r.y, 1e-6);
    EXPECT_NEAR(po(1).z, r.z, 1e-9);
    EXPECT_NEAR(po(1).roll, r.roll, 1e-5);
    EXPECT_NEAR(po(1).pitch, r.pitch, 1e-5);
    EXPECT_NEAR(po(1).yaw, r.yaw, 1e-5);
    // Angles that the file has not are 0 above, and the scan says that they mean nothing.
    POscan scan;
    ASSERT_TRUE(scan_PO(path, par, scan));
    const std::string letters = par.col.empty() ? "txyzwpk" : par.col;
    EXPECT_EQ(scan.roll, letters.find('w') != std::string::npos) << letters;
    EXPECT_EQ(scan.pitch, letters.find('p') != std::string::npos) << letters;
    EXPECT_EQ(scan.yaw, letters.find('k') != std::string::npos) << letters;
  }
}

TEST(ReadText, LongFileWindowAndRollover) {
  TempDir dir;
  const std::string path = dir.path + "/t.txt";
  std::string text = "a header line of words\n" + std::string(600000, 'x') + "\n";  // longer than any buffer
  for (int i = 0; i < 30000; i++) {
    char line[100];
    const double t = 604000 + i * 0.1;
    std::snprintf(line, sizeof(line), "%.3f %.3f 5000000 700\n", t >= 604800 ? t - 604800 : t,
                  500000 + i * 6.0);
    text += line;
  }
  write_text(path, text);
  POread par;
  par.col = "txyz";
  POscan scan;
  ASSERT_TRUE(scan_PO(path, par, scan));
  EXPECT_NEAR(scan.t0, 604000, 1e-9);
  EXPECT_NEAR(scan.t1, 606999.9, 1e-6);
  par.tinf = 604790, par.tsup = 604810;
  Vector<PO> po;
  std::string said;
  ASSERT_TRUE(read_of(path, par, po, said)) << said;
  EXPECT_NEAR(static_cast<double>(po.size()), 220, 1);
  EXPECT_LT(double{po(0).t}, 604790);
  EXPECT_GT(double{po(static_cast<int64_t>(po.size()) - 1).t}, 604810);
  for (int64_t i = 1; i < static_cast<int64_t>(po.size()); i++) EXPECT_NEAR(po(i).t - po(i - 1).t, 0.1, 1e-6);
}

TEST(ReadText, ComplaintsNameTheOption) {
  TempDir dir;
  const std::string path = dir.path + "/t.txt";
  struct Row {
    const char* name;
    const char* col;
    int proj, time;
    bool rad, ok;
    const char* text;
    const char* message;
  };
  const Row rows[] = {
      {"empty", "", 0, 0, false, false, "", "not enough data points, PO file "},
      {"few columns", "", 0, 0, false, false, "1 2 3 4\n2 3 4 5\n",
       "rows have 4 values, columns \"txyzwpk\" need 7: say what they hold by -po_parse (time and position "
       "alone: -po_parse txyz)"},
      {"no x", "tyz", 0, 0, false, false, "1 2 3 4\n2 3 4 5\n", "invalid PO columns 'tyz'"},
      {"no heading", "txyzwp", 0, 0, false, false, "1 2 3 4 5 6\n", "w and p only with k"},
      {"beyond all dates", "txyz", 0, 2, false, false, "1e15 5e5 5e6 4\n2e15 5e5 5e6 4\n",
       "time conversion error, PO file "},
      {"one row", "txyz", 0, 0, false, false, "1 500000 5e6 4\n", "not enough data points, PO file "},
      {"day without date", "txyz", 0, 6, false, false, "1 500000 5e6 4\n2 5 5 5\n",
       "day seconds timestamps require GPS date"},
      {"degrees", "txyz", PO_PROJ, 0, false, true, "1 15 48 4\n2 15 48 5\n",
       "coordinates look geodetic (projected expected), PO file "},
      {"metres", "txyz", PO_GEO, 0, false, false, "1 500000 5e6 4\n2 500000 5e6 4\n",
       "coordinates look projected (geodetic expected)"},
      {"infinite", "txyz", 0, 0, false, false, "1 inf 5e6 4\n2 nan 5e6 4\n", "not enough data points"},
      {"time runs back", "txyz", 0, 0, false, false, "9 500000 5e6 4\n8 500000 5e6 4\n7 500000 5e6 4\n",
       "incompatible GPS timestamps"}};
  for (const Row& r : rows) {
    write_text(path, r.text);
    POread par;
    par.col = r.col, par.proj = r.proj, par.time = r.time, par.rad = r.rad;
    Vector<PO> po;
    std::string said;
    EXPECT_EQ(read_of(path, par, po, said), r.ok) << r.name << said;
    EXPECT_TRUE(holds(said, r.message)) << r.name << ": " << said;
  }
  struct Scan {
    int time;
    bool rad;
    const char* text;
    const char* message;
  };
  const Scan scans[] = {
      {0, false, "391949907 5e5 5e6 4 1 1 1\n", "timestamps are not week seconds, ASCII PO file "},
      {1, false, "305000 5e5 5e6 4 1 1 1\n", "timestamps are likely week or day seconds, PO file "},
      {0, true, "305000 5e5 5e6 4 1 1 270\n", "attitude angles likely degrees, PO file "}};
  for (const Scan& s : scans) {
    write_text(path, s.text);
    POread par;
    par.time = s.time, par.rad = s.rad;
    POscan scan;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(scan_PO(path, par, scan));
    EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), s.message)) << s.message;
  }
}

TEST(ScanPO, AdjustedFlagFollowsTheTimes) {
  TempDir dir;
  const std::string path = dir.path + "/t.txt";
  struct Row {
    bool auto_adj;
    int time;
    double t;
    bool adj;
  };
  for (const Row& r :
       {Row{false, 0, 391949907, false}, Row{true, 0, 391949907, true}, Row{true, 1, 305000, false},
        Row{true, 0, 305000, false}, Row{true, 0, 1391949907, false}}) {
    write_text(path, std::to_string(r.t) + " 5e5 5e6 4\n" + std::to_string(r.t + 1) + " 5e5 5e6 4\n");
    POread par;
    par.col = "txyz", par.time = r.time;
    AUTO_ADJ = r.auto_adj;
    POscan scan;
    ASSERT_TRUE(scan_PO(path, par, scan));
    AUTO_ADJ = false;
    EXPECT_EQ(scan.tadj, r.adj) << r.t;
  }
}

// Ten doubles a record, minutes of arc, a week that ends within, one record that says nothing, five a second.
TEST(ReadAccuracy, RecordsOnTheClockOfTheTrajectory) {
  TempDir dir;
  std::string bytes;
  for (int i = 0; i < 500; i++) {
    const double t = std::fmod(604750 + 0.2 * i, 604800), up = i == 20 ? 0 : 0.04 + 0.0001 * i;
    const double record[10] = {t, 0.02, 0.03, up, 0, 0, 0, 0.3, 0.36, 1.2};
    bytes.append(reinterpret_cast<const char*>(record), sizeof record);
  }
  write_text(dir.path + "/SMRMSG_7.out", bytes);
  EXPECT_EQ(accuracy_file_of(dir.path + "/sbet_7.out"), dir.path + "/SMRMSG_7.out");
  EXPECT_EQ(accuracy_file_of(dir.path + "/sbet_8.out"), "");
  EXPECT_TRUE(is_accuracy_file("a/smrmsg_x.out"));
  POread par;
  par.deltat = 1000, par.tinf = 605780, par.tsup = 605820;
  std::vector<POaccuracy> list;
  ASSERT_TRUE(read_accuracy(dir.path + "/SMRMSG_7.out", par, list));
  EXPECT_LE(list.front().t, 605780);
  EXPECT_GT(list.front().t, 605778);
  EXPECT_GE(list.back().t, 605820);
  EXPECT_LE(list.size(), 43u);
  for (const POaccuracy& a : list) {
    EXPECT_NEAR(a.pos.x, 0.03, 1e-7);
    EXPECT_NEAR(a.pos.z, 0.04 + 0.0001 * (a.t - 605750) / 0.2, 1e-6);
    EXPECT_NEAR(a.att.x, 0.005, 1e-7);
    EXPECT_NEAR(a.att.z, 0.02, 1e-7);
  }
  for (const std::string& wrong : {bytes + "x", std::string(80, '\0'), std::string(800, '\0')}) {
    write_text(dir.path + "/wrong_smrmsg.out", wrong);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(read_accuracy(dir.path + "/wrong_smrmsg.out", POread(), list));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("is not used"), std::string::npos);
  }
}
}  // namespace veld
