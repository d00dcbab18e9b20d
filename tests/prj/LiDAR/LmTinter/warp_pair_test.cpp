#include "prj/LiDAR/LmTinter/warp_pair.h"

#include <gtest/gtest.h>

#include <cmath>

#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "tests/prj/LiDAR/TNRreg/synth_pair.h"

namespace veld {
namespace {
constexpr int LEVEL = 7;
constexpr uint32_t TX = 40, TY = 50;  // tile of the lower left corner
constexpr float PER_M = 0.03f;        // shift of a pixel a metre of height
constexpr double GROUND = 300;

// A displacement that changes within a few vertices, as attitudes of a UAV make it, and with the height, as a boresight
// does. share: of what is left of the former.
SynthPair make_synth(double share, bool heights) {
  SynthPair synth;
  const Terrain terrain = make_terrain(synth.seed, synth.slope, synth.shortest);
  synth.disp = [=](double x, double y) {
    const double up = heights ? static_cast<double>(PER_M) * (terrain.at(x, y) - GROUND) : 0;
    return dxyz{1.5 + std::sin(6.28 * y / 40), std::sin(6.28 * (x + y) / 40), 0.2} * share + dxyz{up, 0, 0};
  };
  return synth;
}

// Nine tenths of it, of the ground, and all of what heights add if these are known.
ModelOfPair make_model(const SynthPair& synth, bool heights) {
  const SynthPair known = make_synth(0.9, false);
  const TileGeom geom = make_tile_geom(LEVEL);
  const double x0 = tile_origin(geom, TX), y0 = tile_origin(geom, TY);
  const double GSD = static_cast<double>(synth.mTsize) / synth.dim;
  ModelOfPair model;
  model.level = LEVEL;
  model.c1.at = [](double, double, GroundCorr& g) { return g = {}, true; };
  model.c2.at = [=](double x, double y, GroundCorr& g) {
    const dxyz d = known.disp((x - x0) / GSD, (y - y0) / GSD);
    g.c = to_xyz({d.x * GSD, d.y * GSD, d.z});
    g.per_m = {heights ? PER_M * static_cast<float>(GSD) : 0.0f, 0, 0};
    g.z = static_cast<float>(GROUND);
    return true;
  };
  return model;
}

// Registers a pair, about a model unless it is null, and compares with what is left to be found.
DefError error_of(const SynthPair& synth, const ModelOfPair* model, const SynthPair& left) {
  InterTiles inter;
  for (uint32_t t = 0; t < 4; t++) {
    ToccTile tile;
    tile.x = TX + t % 2;
    tile.y = TY + t / 2;
    inter.tiles.push_back(tile);
  }
  NRpair pair = make_pair(synth);
  const RegLevels levels = comp_reg_levels(1, 1);
  NRparam param;
  param.Jend = levels.Jend;
  param.Jstart = model ? levels.Jend : levels.Jstart;
  param.about_model = model != nullptr;
  NRstart start = start_reg(pair.img2.size(), param);
  prepare_pair(pair, 0, 1);
  if (model) warp_moved(inter, *model, start.depth(), 2, pair);
  NRresult result;
  EXPECT_TRUE(mg_nr_reg_tiles(pair, param, std::move(start), result));
  return compare(left, result);
}

TEST(warp_moved, LeavesWhatTheModelDoesNotKnow) {
  const SynthPair synth = make_synth(1, true), left = make_synth(0.1, false);
  const ModelOfPair model = make_model(synth, true), flat = make_model(synth, false);
  const DefError without = error_of(synth, nullptr, synth), with = error_of(synth, &model, left),
                 ground = error_of(synth, &flat, left);
  EXPECT_GT(with.n, 800u);
  EXPECT_LT(with.rms.x, 0.5 * without.rms.x);
  EXPECT_LT(with.rms.y, 0.5 * without.rms.y);
  EXPECT_LT(with.rms.x, 0.7 * ground.rms.x);  // roofs and hills move otherwise than the ground
  EXPECT_NEAR(with.mean.x, 0, 0.02);
  EXPECT_NEAR(with.mean.z, 0, 0.01);
}
}  // namespace
}  // namespace veld
