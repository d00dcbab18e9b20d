// DUT files: round trip, contents that lie, writing that fails.
#include "prj/LiDAR/DUTio/DUTio.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/temp_dir.h"

namespace veld {
namespace {
DUTidx sample_index() {
  DUTidx idx;
  idx.gsize = 4, idx.level = 7, idx.dim = 5, idx.unit = 1, idx.nGCP = 3, idx.nXYZGCP = 2;
  idx.area = {80000000, 81000000, 80000900, 81000700};
  idx.ovr = {80000100, 81000100, 80000500, 81000600};
  idx.time_res = 0.0123456;
  idx.gcp = {"xyz", 1, 0.025, true, 2, "/data/control points.txt"};
  idx.xyzgcp = {"", 0, 0.5, 0.25, false, ""};
  for (int i = 0; i < 3; i++) {
    DUTswath s;
    s.group = i == 2 ? 0 : 1 + i;
    s.ch = i, s.mainch = i != 1, s.fixed = i == 2, s.adj = i == 0, s.ro = i == 1, s.wro = i == 1;
    s.tmin = 210000.015625 + i, s.tmax = 210400.5 + i;
    s.path = "/data/line " + std::to_string(i) + ".las";
    idx.swaths.push_back(s);
  }
  return idx;
}

std::vector<DUTstr> sample_records(int n) {
  std::vector<DUTstr> rec(static_cast<size_t>(n));
  for (int i = 0; i < n; i++) {
    const float f = static_cast<float>(i);
    DUTstr& r = rec[static_cast<size_t>(i)];
    r.X = -500 + 4 * i, r.Y = 5000000 - i, r.Z = 100.25f + f;
    r.Disp = {0.5f + f, -0.25f, 0.125f};
    r.Unc = {0.01f, 0.02f, 0.003f};
    r.Time1 = 210000.5 + i, r.Time2 = 210300.25;
  }
  return rec;
}

// Pairs (0, 1) of 5 records, two of them invalid, (0, 2) of none, (1, 2) of 3.
void write_sample(const std::string& name) {
  DUTwriter w;
  ASSERT_TRUE(open_DUT_IDX(w, name, sample_index(), true, false));
  std::vector<DUTstr> a = sample_records(5), none, b = sample_records(3);
  a[1].Time2 = DUT_NOTIME;
  a[3].Z = DUT_NODATA;
  ASSERT_TRUE(write_DUT_pair(w, SwathId(0), SwathId(1), a));
  ASSERT_TRUE(write_DUT_pair(w, SwathId(0), SwathId(2), none));
  ASSERT_TRUE(write_DUT_pair(w, SwathId(1), SwathId(2), b));
  EXPECT_FALSE(exists(name + ".dut"));  // not before they are whole
  ASSERT_TRUE(close_DUT_IDX(w));
}
}  // namespace

TEST(DUTio, RoundTrip) {
  const TempDir dir;
  const std::string name = dir.path + "/p";
  write_sample(name);
  DUTidx idx;
  std::vector<DUTpair> pairs;
  ASSERT_TRUE(read_DUT_IDX(name, idx));
  ASSERT_TRUE(read_DUT(name, idx, pairs));
  const DUTidx was = sample_index();
  EXPECT_EQ(idx.gsize, 4);
  EXPECT_EQ(idx.level, 7);
  EXPECT_EQ(idx.dim, 5);
  EXPECT_EQ(idx.feet(), 0.3048);
  EXPECT_EQ(idx.area.ymax, was.area.ymax);
  EXPECT_EQ(idx.ovr.xmin, was.ovr.xmin);
  EXPECT_NEAR(idx.time_res, was.time_res, 1e-9);
  EXPECT_EQ(idx.gcp.file, was.gcp.file);
  EXPECT_EQ(idx.gcp.exp, 2);
  EXPECT_EQ(idx.gcp.S0, 0.025);
  EXPECT_EQ(idx.xyzgcp.col, "");
  EXPECT_EQ(idx.xyzgcp.file, "");
  ASSERT_EQ(idx.nsw(), 3);
  for (const SwathId i : was.swaths.ids()) {
    const DUTswath &s = idx.swaths[i], &o = was.swaths[i];
    EXPECT_EQ(s.path, o.path);
    EXPECT_EQ(s.tmin, o.tmin);  // times are multiples of 1/1024 s
    EXPECT_TRUE(s.group == o.group && s.ch == o.ch && s.mainch == o.mainch && s.fixed == o.fixed &&
                s.adj == o.adj && s.ro == o.ro && s.wro == o.wro);
  }
  ASSERT_EQ(idx.nint(), 3);
  EXPECT_EQ(idx.nreg, 2);
  EXPECT_EQ(idx.pairs[1].ndisp, 0u);
  ASSERT_EQ(pairs.size(), 2u);
  EXPECT_EQ(pairs[0].size(), 3u);
  EXPECT_EQ(pairs[1].pair, 2);
  EXPECT_EQ(pairs[1].sw1, SwathId(1));
  EXPECT_EQ(pairs[0].pos(1).x, -492);
  EXPECT_EQ(pairs[0].pos(1).z, 102.25);
  EXPECT_EQ(pairs[0].disp(2).x, 4.5f);
  EXPECT_EQ(pairs[1].unc(2).z, 0.003f);
  EXPECT_EQ(pairs[1].t1(2), 210002.5);
  ASSERT_TRUE(export_DUT(name));
  const std::string text = read_text(name + "_dut.txt");
  EXPECT_EQ(text.find("X Y Z Disp{X Y Z} Unc{X Y Z} Time1 Time2 Pair#\n-1640.420 "), 0u);
  EXPECT_TRUE(holds(text, " -1E10 -1E10 0\n"));
}

TEST(DUTio, IndexThatLiesIsRefused) {
  const TempDir dir;
  const std::string name = dir.path + "/p";
  write_sample(name);
  const std::string good = read_text(name + "_idx.log");
  const struct {
    const char *from, *to, *error;
  } cases[] = {
      {"#[IDX-23.05.15]", "#[IDX-21.09.09]", "invalid DUT.IDX format or unsupported version, file "},
      {"#[IDX-23.05.15]", "", "invalid DUT.IDX format or unsupported version, file "},
      {"\n3 4 7", "\nx 4 7", "invalid DUT.IDX header, file "},
      {"\n3 4 7", "\n3 1025 7", "invalid DUT.IDX header values, file "},
      {"\n3 4 7", "\n3 4 11", "invalid DUT.IDX header values, file "},
      {"\n3 4 7", "\n0 4 7", "invalid DUT.IDX header values, file "},
      {"\n3 4 7", "\n4000000000 4 7", "invalid DUT.IDX header values, file "},
      {"\n3 4 7", "\n4 4 7", "#S0 reading "},
      {"\n3 4 7", "\n2 4 7", "#P0 reading "},
      {"#N 3", "#M 3", "#N0 reading "},
      {"#N 3 2", "#N 3", "#N1 reading "},
      {"#N 3 2", "#N 60000 2", "#N1 reading "},
      {"#N 3 2", "#N 4 2", "#P0 reading "},
      {"#G xyz 1", "#X xyz 1", "#G1 reading "},
      {"#G xyz 1", "#G xyz", "#G2 reading "},
      {"#H - ", "#G - ", "#H1 reading "},
      {"#H - 0.000000", "#H - nan", "#H2 reading "},
      {"#S 1 2", "#S 2 2", "#S1 reading "},
      {"#S 1 2 1 0", "#S 1 2 1 5", "#S1 reading "},
      {" /data/line 1.las", "", "#S2 reading "},
      {"#P 0 0 1", "#P 0 0 3", "#P1 reading "},
      {"#P 0 0 1 5", "#P 0 0 1 -5", "#P1 reading "},
      {"#P 1 ", "#P 7 ", "#P1 reading "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.to);
    std::string bad = good;
    const size_t at = bad.find(c.from);
    ASSERT_NE(at, std::string::npos) << c.from;
    write_text(name + "_idx.log", bad.replace(at, std::strlen(c.from), c.to));
    DUTidx idx;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(read_DUT_IDX(name, idx));
    const std::string error = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(holds(error, std::string("ERROR: ") + c.error)) << error;
    EXPECT_TRUE(holds(error, name + "_idx.log"));
  }
  for (size_t n = 0; n + 4 < good.size(); n += 7) {  // cut anywhere: never a crash
    write_text(name + "_idx.log", good.substr(0, n));
    DUTidx idx;
    EXPECT_FALSE(read_DUT_IDX(name, idx)) << n;
  }
}

TEST(DUTio, RecordsThatDoNotFitAreRefused) {
  const TempDir dir;
  const std::string name = dir.path + "/p";
  write_sample(name);
  DUTidx good;
  ASSERT_TRUE(read_DUT_IDX(name, good));
  const std::string bytes = read_text(name + ".dut");
  const auto set = [&](size_t at, const std::string& v) {
    return std::string(bytes).replace(at, v.size(), v);
  };
  const struct {
    const char* what;
    std::string bytes;
    uint64_t ndisp;
    const char* error;
  } cases[] = {
      {"magic", set(0, "x"), 5, "invalid DUT format, file "},
      {"short header", bytes.substr(0, 19), 5, "invalid DUT format, file "},
      {"other dim", set(8, "\x09"), 5, "incompatible DUT file "},
      {"cut in a record", bytes.substr(0, 20 + 64 * 6 + 10), 5, "reading record #1 inter #2, file "},
      {"pair beyond the index", set(20 + 64 + 56, "\x03"), 5, "reading record #1 inter #0, file "},
      {"index claims more than any memory", bytes, uint64_t{1} << 47, "reading record #"},
      {"nothing but a header", bytes.substr(0, 20), 0, "no valid registration data in DUT file "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    write_text(name + ".dut", c.bytes);
    DUTidx idx = good;
    idx.pairs[0].ndisp = c.ndisp;
    if (c.ndisp == 0) idx.pairs[2].ndisp = 0;
    std::vector<DUTpair> pairs;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(read_DUT(name, idx, pairs));
    EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), c.error));
  }
}

TEST(DUTio, FilesAppearWholeOrNotAtAll) {
  const TempDir dir;
  const std::string name = dir.path + "/p";
  write_sample(name);
  const std::string dut = read_text(name + ".dut"), text = read_text(name + "_idx.log");
  {
    DUTwriter w;  // never closed
    ASSERT_TRUE(open_DUT_IDX(w, name, sample_index(), true, false));
    std::vector<DUTstr> rec = sample_records(9);
    ASSERT_TRUE(write_DUT_pair(w, SwathId(0), SwathId(1), rec));
  }
  EXPECT_EQ(read_text(name + ".dut"), dut);
  EXPECT_EQ(read_text(name + "_idx.log"), text);
  EXPECT_FALSE(exists(name + ".dut.part"));
  EXPECT_FALSE(exists(name + "_idx.log.part"));
  DUTwriter w;
  EXPECT_FALSE(open_DUT_IDX(w, dir.path + "/absent/p", sample_index(), true, false));
  DUTwriter line_break;
  DUTidx idx = sample_index();
  idx.swaths[SwathId(1)].path = "a\nb";
  EXPECT_FALSE(open_DUT_IDX(line_break, name, idx, true, false));
  DUTwriter nothing;
  std::vector<DUTstr> rec = sample_records(1);
  EXPECT_TRUE(open_DUT_IDX(nothing, dir.path + "/n", sample_index(), true, true));
  EXPECT_TRUE(write_DUT_pair(nothing, SwathId(0), SwathId(1), rec));
  EXPECT_TRUE(close_DUT_IDX(nothing));
  EXPECT_FALSE(exists(dir.path + "/n_idx.log"));
  DUTwriter index_only;
  EXPECT_TRUE(open_DUT_IDX(index_only, dir.path + "/i", sample_index(), false, false));
  EXPECT_TRUE(close_DUT_IDX(index_only));
  EXPECT_TRUE(read_DUT_IDX(dir.path + "/i", idx));
  EXPECT_FALSE(exists(dir.path + "/i.dut"));
}

TEST(DUTio, TheNameOfEitherFileStandsForBoth) {
  const struct {
    const char *path, *base;
  } cases[] = {{"o/r.dut", "o/r"}, {"r_idx.log", "r"},         {"r.v2.dut", "r.v2"},
               {"r.v2", "r.v2"},   {"run.2025", "run.2025"},   {"a.dut/r", "a.dut/r"},
               {".dut", ".dut"},   {"r.dut.old", "r.dut.old"}, {"r.dut_idx.log", "r.dut"}};
  for (const auto& c : cases) EXPECT_EQ(DUT_base(c.path), c.base);
}
}  // namespace veld
