#include "prj/LiDAR/LmTinter/warp_pair.h"

#include <gtest/gtest.h>

#include <cmath>

#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "tests/prj/LiDAR/TNRreg/synth_pair.h"

namespace veld {
namespace {
// Attitudes of a UAV change the effect of a boresight within a few vertices, which the prior takes for noise. A model that
// knows nine tenths of it must not lose them.
TEST(warp_moved, LeavesWhatTheModelDoesNotKnow) {
  SynthPair synth, rest;
  synth.disp = [](double x, double y) {
    return dxyz{1.5 + std::sin(6.28 * y / 40), std::sin(6.28 * (x + y) / 40), 0.2};
  };
  rest.disp = [&](double x, double y) { return synth.disp(x, y) * 0.1; };
  const int level = 7;
  const TileGeom geom = make_tile_geom(level);
  const double x0 = tile_origin(geom, 40), y0 = tile_origin(geom, 50);
  const double GSD = static_cast<double>(synth.mTsize) / synth.dim;
  ModelOfPair model;
  model.level = level;
  model.c1.at = [](double, double, xyz& c) { return c = {0, 0, 0}, true; };
  model.c2.at = [&](double x, double y, xyz& c) {
    const dxyz d = synth.disp((x - x0) / GSD, (y - y0) / GSD) * 0.9;
    c = to_xyz({d.x * GSD, d.y * GSD, d.z});
    return true;
  };
  InterTiles inter;
  for (uint32_t t = 0; t < 4; t++) {
    ToccTile tile;
    tile.x = 40 + t % 2;
    tile.y = 50 + t / 2;
    inter.tiles.push_back(tile);
  }
  DefError error[2];
  for (const bool warped : {false, true}) {
    NRpair pair = make_pair(synth);
    const RegLevels levels = comp_reg_levels(1, 1);
    NRparam param;
    param.Jend = levels.Jend;
    param.Jstart = warped ? levels.Jend : levels.Jstart;
    param.about_model = warped;
    NRstart start = start_reg(pair.img2.size(), param);
    prepare_pair(pair, 0, 1);
    if (warped) warp_moved(inter, model, start.depth(), 2, pair);
    NRresult result;
    ASSERT_TRUE(mg_nr_reg_tiles(pair, param, std::move(start), result));
    error[warped] = compare(warped ? rest : synth, result);
    EXPECT_GT(error[warped].n, 800u);
  }
  EXPECT_LT(error[1].rms.x, 0.5 * error[0].rms.x);
  EXPECT_LT(error[1].rms.y, 0.5 * error[0].rms.y);
  EXPECT_NEAR(error[1].mean.x, 0, 0.02);
  EXPECT_NEAR(error[1].mean.z, 0, 0.01);
}
}  // namespace
}  // namespace veld
