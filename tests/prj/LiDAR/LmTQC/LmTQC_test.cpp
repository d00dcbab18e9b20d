// Differences after a correction: they vanish under the right one and grow under the opposite.
#include "prj/LiDAR/LmTQC/LmTQC.h"

#include <gtest/gtest.h>

#include "lib/general/path.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/LmTgrid_w/synth_swaths.h"

namespace veld {
namespace {
SCorrTbl constant_table(const Project& prj, int sw, const xyz& c) {
  Vector<TIsxy> TI;
  EXPECT_TRUE(read_LTidx_TI(prj.swaths[SwathId(sw)].cache, TI));
  SCorrTbl t;
  t.C = Vector<Image<xyz>>(TI.size());
  for (Image<xyz>& img : t.C) img.resize(32, 32, c);
  return t;
}
}  // namespace

TEST(QC_DZ_corr_LmT, RightCorrectionTakesTheDifferencesAway) {
  const TempDir dir;
  const xyz error = {0.9f, -0.7f, 0.3f};
  const Project prj = make_synth_project(dir, {{0, error, 1000000}, {60, {0, 0, 0}, 1000500}});
  GridResult grids;
  ASSERT_TRUE(LmT_grid(prj, make_synth_Tovr(prj), false, 2, grids));
  const auto rms = [&](const SCorrTbl& c0, const SCorrTbl& c1, int nthreads) {
    QCcorrResult res;
    SwathVector<SCorrTbl> corr(prj.swaths);
    corr[SwathId(0)] = c0;
    corr[SwathId(1)] = c1;
    EXPECT_TRUE(QC_DZ_corr_LmT(prj, {{SwathId(0), SwathId(1), true, 7}}, corr, nthreads, MapParam(),
                               TileInfo(), res));
    EXPECT_EQ(res.nused, 1);
    EXPECT_GT(res.area, 5000);
    return res.rms;
  };
  const SCorrTbl none, right = constant_table(prj, 0, -error), wrong = constant_table(prj, 0, error);
  const SCorrTbl other = constant_table(prj, 1, error);
  SCorrTbl global = constant_table(prj, 1, {0, 0, 0});
  global.T0 = error;
  const double before = rms(none, none, 1), after = rms(right, none, 1);
  EXPECT_GT(before, 0.2);
  EXPECT_LT(after, 0.05);
  EXPECT_GT(rms(wrong, none, 1), 1.5 * before);
  EXPECT_NEAR(rms(none, other, 2), after, 1e-6);  // what the second lacks, the first has too much
  EXPECT_NEAR(rms(none, global, 1), after, 1e-6);
  const std::string log = read_text(prj.name + "_DZcorr_stat.log");
  EXPECT_EQ(log.find("Pair# Swath#1 Swath#2 Mean StdDev RMS Outlier% Filtered% Area:m2 FileName1 FileName2 "
                     "[Mean StdDev RMS m]\n7 0 1 "),
            0u);
  EXPECT_TRUE(holds(log, "\nNPairs StdDev RMS Area:m2 [StdDev RMS m]\n1 "));
}

TEST(QC_DZ_corr_LmT, FailsOnlyWithoutAnyGrid) {
  const TempDir dir;
  const Project prj = make_synth_project(dir, {{0, {0, 0, 0}, 1000000}, {60, {0, 0, 0}, 1000500}, {3000}});
  GridResult grids;
  ASSERT_TRUE(LmT_grid(prj, make_synth_Tovr(prj), false, 1, grids));
  QCcorrResult res;
  const SwathVector<SCorrTbl> none(prj.swaths);
  EXPECT_TRUE(QC_DZ_corr_LmT(prj, {{SwathId(0), SwathId(1), true, 0}, {SwathId(0), SwathId(2), true, 1}},
                             none, 1, MapParam(), TileInfo(), res));
  EXPECT_EQ(res.nused, 1);
  remove_file(prj.swaths[SwathId(0)].cache.file(EXT_GMTIDX));
  EXPECT_FALSE(
      QC_DZ_corr_LmT(prj, {{SwathId(0), SwathId(1), true, 0}}, none, 1, MapParam(), TileInfo(), res));
}
}  // namespace veld
