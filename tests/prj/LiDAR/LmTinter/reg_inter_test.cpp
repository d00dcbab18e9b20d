// The whole way from tiles to DUT files: a planted shift comes back with its sign; the pair cache; faults.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <set>

#include "lib/general/path.h"
#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/LmTinter/inter_tiles.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/LmTgrid_w/synth_swaths.h"

namespace veld {
namespace {
struct RegProject {
  TempDir dir;
  Project prj;
  DUTidx head;
  SwPairList overlap;
  InterParam param;

  explicit RegProject(const std::vector<SynthStrip>& strips) {
    prj = make_synth_project(dir, strips);
    grid();
    param.Jend = comp_Jend(0, prj.scale.dim);
    head.gsize = 4 << param.Jend, head.level = 7, head.dim = prj.scale.dim;
    for (const Swath& s : prj.swaths) {
      head.swaths.push_back(make_DUTswath(prj.swaths, s.id));
    }
    SwPairList all;
    for (int i = 0; i < prj.swaths.size(); i++)
      for (int j = i + 1; j < prj.swaths.size(); j++) all.emplace_back(SwathId(i), SwathId(j));
    EXPECT_TRUE(comp_sw_overlap(prj, all, 2, overlap));
    param.filter.RDIM = 2;
  }
  void grid() {
    GridResult grids;
    EXPECT_TRUE(LmT_grid(prj, make_synth_Tovr(prj), false, 2, grids));
  }
  InterResult run(int nthreads = 1) {
    InterResult res;
    param.nthreads = nthreads;
    EXPECT_TRUE(reg_inter_LmT(prj, head, overlap, param, res));
    return res;
  }
  std::string file(const std::string& ext) const { return read_text(prj.name + ext); }
};

const std::vector<SynthStrip> shifted = {{0, {0.6f, -0.45f, 0.21f}, 1000000}, {60, {0, 0, 0}, 1000500}};
}  // namespace

TEST(reg_inter_LmT, PlantedShiftComesBackAsFirstLessSecond) {
  RegProject p(shifted);
  p.param.FP = true;
  const InterResult res = p.run();
  EXPECT_TRUE(p.file("_op_fp.txt").starts_with("X Y Pair#\n"));
  EXPECT_NE(p.file("_op_fp_prj.geojson").find("\"vectors\":" + std::to_string(res.nvec)), std::string::npos);
  EXPECT_EQ(res.nint, 1);
  ASSERT_EQ(res.nreg, 1);
  EXPECT_GT(res.nvec, 200u);
  DUTidx idx;
  std::vector<DUTpair> pairs;
  ASSERT_TRUE(read_DUT_IDX(p.prj.name, idx));
  ASSERT_TRUE(read_DUT(p.prj.name, idx, pairs));
  ASSERT_EQ(pairs.size(), 1u);
  const DUTpair& v = pairs[0];
  dxyz sum = {0, 0, 0};
  double weight = 0;
  std::set<std::pair<double, double>> places;
  for (uint64_t i = 0; i < v.size(); i++) {
    const double w = 1 / static_cast<double>(v.unc[i].x * v.unc[i].x);
    sum += to_dxyz(v.disp[i]) * w;
    weight += w;
    places.insert({v.pos[i].x, v.pos[i].y});
    EXPECT_GT(v.pos[i].x, 500050);  // inside the overlap of the strips, of 500090 to 500170
    EXPECT_LT(v.pos[i].x, 500200);
    EXPECT_NEAR(v.pos[i].z, synth_height(v.pos[i].x, v.pos[i].y), 6);
    const double along = v.pos[i].y - 5000010;  // flown at 40 m/s
    EXPECT_NEAR(v.t1[i], 1000000 + along / 40, 0.5);
    EXPECT_NEAR(v.t2[i], 1000500 + along / 40, 0.5);
  }
  EXPECT_EQ(places.size(), v.size());  // a vertex of a seam stands once
  EXPECT_NEAR(sum.x / weight, 0.6, 0.05);
  EXPECT_NEAR(sum.y / weight, -0.45, 0.05);
  EXPECT_NEAR(sum.z / weight, 0.21, 0.02);
  EXPECT_EQ(idx.gsize, 8);
  for (const char* const log : {"_DZ_stat.log", "_DZreg_stat.log"})
    EXPECT_EQ(p.file(log).find(
                  "Pair# Swath#1 Swath#2 Mean StdDev RMS Outlier% Filtered% Area:m2 FileName1 FileName2 "
                  "[Mean StdDev RMS m]\n0 0 1 "),
              0u);
  EXPECT_EQ(p.file("_DXYZreg_stat.log")
                .find("Pair# Swath#1 Swath#2 Mean{X Y Z} StdDev{X Y Z} RMS{X Y Z} Min{X Y Z} Max{X Y Z} "
                      "NPts FileName1 FileName2 [m]\n0 0 1 "),
            0u);
}

TEST(reg_inter_LmT, SameBytesForAnyThreadsAndFromTheCache) {
  RegProject p({shifted[0], shifted[1], {120, {0, 0, 0}, 1001000}});
  const InterResult first = p.run(1);
  EXPECT_EQ(first.ncached, 0);
  EXPECT_GE(first.nreg, 2);
  const std::string dut = p.file(".dut"), idx = p.file("_idx.log"), stat = p.file("_DZreg_stat.log");
  EXPECT_EQ(p.run(2).ncached, first.nreg);
  EXPECT_EQ(p.file(".dut"), dut);
  EXPECT_EQ(p.file("_idx.log"), idx);
  EXPECT_EQ(p.file("_DZreg_stat.log"), stat);
  CACHE_REG = false;
  const int all = MEM_MB;
  MEM_MB = 4;
  while (p.run(4).nreg < first.nreg && MEM_MB < all)
    MEM_MB *= 2;  // pairs take turns: there is room for one or two
  MEM_MB = all;
  CACHE_REG = true;
  EXPECT_EQ(p.file("_idx.log"), idx);
  EXPECT_EQ(p.file(".dut"), dut);
  EXPECT_EQ(p.file("_DZreg_stat.log"), stat);
}

TEST(reg_inter_LmT, PairCacheFallsWithEachParameter) {
  RegProject p(shifted);
  p.run();
  const struct {
    const char* what;
    void (*change)();
    void (*back)();
  } cases[] = {
      {"boost", [] { NR_BOOST = 3; }, [] { NR_BOOST = 2; }},
      {"j0", [] { J0_REG = 2; }, [] { J0_REG = 1; }},
      {"rough_max", [] { Z_SMAXF = 0.8f; }, [] { Z_SMAXF = 1.5f; }},
      {"height range", [] { KEEPZmin = -100; }, [] { KEEPZmin = -10000; }},
      {"s_max", [] { NR_SMAX = 0.2f; }, [] { NR_SMAX = 0.1f; }},
      {"s0", [] { SIGMA0_REG = 0.01f; }, [] { SIGMA0_REG = 0; }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    c.change();
    EXPECT_EQ(p.run().ncached, 0);
    EXPECT_EQ(p.run().ncached, 1);
    c.back();
  }
  p.param.Jinit = 2;
  EXPECT_EQ(p.run().ncached, 0);
  EXPECT_EQ(p.run().ncached, 1);
  std::filesystem::last_write_time(p.prj.swaths[SwathId(1)].path(),
                                   std::filesystem::file_time_type::clock::now() - std::chrono::hours(9));
  p.grid();  // of the second swath anew
  EXPECT_EQ(p.run().ncached, 0);
  for (const auto& entry : std::filesystem::directory_iterator(p.dir.path))
    if (entry.path().extension() == ".d0") std::filesystem::resize_file(entry.path(), 100);
  EXPECT_EQ(p.run().ncached, 0);
  for (const auto& entry : std::filesystem::directory_iterator(p.dir.path))
    if (entry.path().string().ends_with(".rpc.idx")) std::filesystem::resize_file(entry.path(), 92);
  const InterResult res = p.run();
  EXPECT_EQ(res.ncached, 0);
  EXPECT_EQ(res.nreg, 1);
}

TEST(reg_inter_LmT, PairsThatCannotBeRegisteredDoNotStopTheOthers) {
  RegProject p({shifted[0], shifted[1], {120, {0, 0, 0}, 1001000}, {3000, {0, 0, 0}, 1002000}});
  const SwathId a(0), b(1), c(2);
  EXPECT_EQ(p.overlap, (SwPairList{{a, b}, {a, c}, {b, c}}));
  MEM_MB = 1;
  const InterResult small = p.run();
  EXPECT_EQ(small.nreg, 0);
  EXPECT_GE(small.nint, 2);
  DUTidx idx;
  ASSERT_TRUE(read_DUT_IDX(p.prj.name, idx));
  EXPECT_EQ(idx.nint(), small.nint);  // each with no vectors
  EXPECT_EQ(idx.nvec(), 0u);
  MEM_MB = 4096;
  EXPECT_NE(p.file("_idx.log").find("#P 0 0 1 0 too large for the memory reserved (-mem)\n"),
            std::string::npos);
}

// Faults of the program's own files are no property of a pair: nothing comes out, least of all a cached
// registration with holes.
TEST(reg_inter_LmT, UnreadableGridsAndUnwritableResultsFail) {
  RegProject p(shifted);
  const auto nothing = [&p] {
    InterResult res;
    testing::internal::CaptureStderr();
    const bool ok = reg_inter_LmT(p.prj, p.head, p.overlap, p.param, res);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("ERROR: "), std::string::npos);
    for (const auto& entry : std::filesystem::directory_iterator(p.dir.path)) {
      const std::string name = entry.path().string();
      EXPECT_TRUE(!name.ends_with(".rpc.idx") && !name.ends_with(".dut") && !name.ends_with(".part")) << name;
    }
    return !ok;
  };
  InterSwath s1, s2;
  ASSERT_TRUE(read_InterSwath(p.prj, SwathId(0), s1) && read_InterSwath(p.prj, SwathId(1), s2));
  const std::string zds = p.prj.swaths[SwathId(1)].cache.file(EXT_GMTZDS), words = read_text(zds);
  std::filesystem::resize_file(zds, words.size() / 2);  // behind the back of the open file
  InterTiles inter;
  NRpair pair;
  testing::internal::CaptureStderr();
  EXPECT_EQ(inter_TZ1_TZ2(p.prj, s1, s2, 4, comp_reg_levels(1, p.param.Jend), 2, inter, pair),
            InterState::failed);
  EXPECT_NE(testing::internal::GetCapturedStderr().find(zds), std::string::npos);
  EXPECT_TRUE(nothing()) << "cut";
  remove_file(zds);
  EXPECT_TRUE(nothing()) << "no grid";
  write_text(zds, words);
  const std::string times = p.prj.swaths[SwathId(0)].cache.file(EXT_MTDT), dt = read_text(times);
  remove_file(times);
  InterResult res;
  EXPECT_FALSE(reg_inter_LmT(p.prj, p.head, p.overlap, p.param, res)) << "no times";
  write_text(times, dt);
  p.prj.name = p.dir.path + "/absent/out";
  EXPECT_FALSE(reg_inter_LmT(p.prj, p.head, p.overlap, p.param, res));
}
}  // namespace veld
