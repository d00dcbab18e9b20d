// Maps from the grids against a slow oracle: every pixel of the picture read back and compared with the grids.
#include "prj/LiDAR/LmTQCimg/fast_QC.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "image/load_tiff.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTQCimg/shade_dz.h"
#include "prj/LiDAR/LmTQCimg/tile_map.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/LmTgrid_w/synth_swaths.h"

namespace veld {
namespace {
struct FastQCcase {
  TempDir dir;
  Project prj;
  TileInfo frame;
  explicit FastQCcase(bool full) {
    prj = make_synth_project(
        dir, {{0, {0, 0, 0.3f}, 1000000}, {60, {0, 0, 0}, 1000500}, {100, {0, 0, -0.2f}, 1001000}});
    const Tovr ovr = make_synth_Tovr(prj);
    frame = ovr.frame;
    GridResult grids;
    EXPECT_TRUE(LmT_grid(prj, ovr, full, 2, grids));
  }
};

FastQCparam tiff_param(int nthreads) {
  FastQCparam par;
  par.map.img.OUTJPEG = false;
  par.map.img.OUTTIFF = true;
  par.map.DZ_sub = 2;
  par.map.dz_range = par.map.dz16_range = 1;
  par.nthreads = nthreads;
  return par;
}

// Height of a swath at a pixel of the map, by the reader of whole tiles.
float height_at(const SwGrid& grid, const GridLimits& limits, const TileInfo& f, int side, int sub, int X,
                int Y) {
  Image<float> Z;
  const int k = grid.tile_at(f.XI + static_cast<uint32_t>(X / side), f.YI + static_cast<uint32_t>(Y / side));
  if (k < 0 || read_gZ_tile(grid, k, nullptr, limits, Z) != GridRead::heights) return NODATA;
  return Z(X % side * sub + sub / 2, Y % side * sub + sub / 2);
}
}  // namespace

TEST(FastQC, PixelsAreThoseOfTheGrids) {
  const FastQCcase c(false);
  FastQCparam par = tiff_param(2);
  FastQCresult result;
  ASSERT_TRUE(fast_QC_ZDS(c.prj, c.frame, par, result));
  EXPECT_EQ(result.ngrids, 3);
  EXPECT_GT(result.area, 10000);
  EXPECT_NEAR(result.rms, 0.4, 0.15);
  Image<uint8_t> img;
  ASSERT_TRUE(load_TIFF_gray(c.prj.name + "_DZ.tif", img));
  std::vector<SwGrid> grids(3);
  TileInfo f{UINT32_MAX, UINT32_MAX, 0, 0};
  for (size_t i = 0; i < 3; i++) {
    ASSERT_TRUE(read_gZDSidx_tiles_idx(c.prj.swaths[SwathId(static_cast<int>(i))].cache, grids[i]));
    for (uint64_t k = 0; k < grids[i].TI.size(); k++)
      if (grids[i].gT(static_cast<int64_t>(k)) > 0) {
        f.XI = std::min(f.XI, grids[i].TI[k].x);
        f.YI = std::min(f.YI, grids[i].TI[k].y);
      }
  }
  const int side = 32 * c.prj.scale.dim / 2;
  const GridLimits limits{grid_smax_code(Z_SMAXF, c.prj.scale.GSD()), -10000, 10000};
  uint32_t random = 1;
  int ncompared = 0;
  for (int n = 0; n < 400; n++) {
    random = random * 1664525u + 1013904223u;
    const int X = static_cast<int>(random >> 8) % img.xsize(),
              Y = static_cast<int>((random >> 4) % 65536) % img.ysize();
    float low = 2e9f, high = -2e9f;
    int nz = 0;
    for (const SwGrid& grid : grids) {
      const float z = height_at(grid, limits, f, side, 2, X, Y);
      if (z == NODATA) continue;
      low = std::min(low, z), high = std::max(high, z), nz++;
    }
    ImgScale scale = dz_scale(par.map);
    EXPECT_EQ(img(X, img.ysize() - 1 - Y), nz < 2 ? 0 : code8(scale, high - low)) << X << " " << Y;
    ncompared += nz >= 2;
  }
  EXPECT_GT(ncompared, 50);
  const std::string bytes = read_text(c.prj.name + "_DZ.tif");
  ASSERT_TRUE(fast_QC_ZDS(c.prj, c.frame, tiff_param(1), result));
  EXPECT_EQ(read_text(c.prj.name + "_DZ.tif"), bytes);
}

TEST(FastQC, FiltersSignsAndFullMaps) {
  const FastQCcase c(true);
  FastQCparam par = tiff_param(2);
  par.full = true;
  par.map.OUTD = par.map.OUTR = par.map.OUTZ = par.map.OUTS = true;
  par.Zlow = 90, par.Zhigh = 130;
  FastQCresult all, some;
  ASSERT_TRUE(fast_QC_ZDS(c.prj, c.frame, par, all));
  EXPECT_EQ(all.nmaps, 5);
  Image<uint8_t> dz, z;
  for (const char* suffix : {"_D", "_R", "_Z", "_S"}) {
    ASSERT_TRUE(load_TIFF_gray(c.prj.name + suffix + ".tif", z)) << suffix;
    uint64_t n = 0;
    for (uint64_t i = 0; i < z.size(); i++) n += z[i] != 0;
    EXPECT_GT(static_cast<double>(n) * 4, 60000) << suffix;  // m2: the union of the strips
  }
  // Only the pair (0, 1): its difference is 0.3 m, first less second.
  par.map.DZ_mix = true;
  par.pair_ok.resize(3, 3, uint8_t{0});
  par.pair_ok(0, 1) = par.pair_ok(1, 0) = 1;
  ASSERT_TRUE(fast_QC_ZDS(c.prj, c.frame, par, some));
  EXPECT_LT(some.area, all.area);
  EXPECT_NEAR(some.mean, 0.3, 0.1);
  ASSERT_TRUE(load_TIFF_gray(c.prj.name + "_DZ.tif", dz));
  uint64_t nup = 0, ndown = 0;
  for (uint64_t i = 0; i < dz.size(); i++) {
    nup += dz[i] > 128;
    ndown += dz[i] > 0 && dz[i] < 128;
  }
  EXPECT_GT(nup, 10 * ndown);
}

// The swaths lie 0.3, 0 and -0.2 m high; the last one is a group of its own, or a reference.
TEST(FastQC, GroupsAndReferences) {
  FastQCcase c(false);
  c.prj.swaths[SwathId(2)].group = c.prj.ngrp = 2;
  FastQCparam par = tiff_param(2);
  FastQCresult result;
  ASSERT_TRUE(fast_QC_ZDS(c.prj, c.frame, par, result));
  ASSERT_EQ(result.groups.size(), 2u);
  const GroupDZ &within = result.groups[0], &between = result.groups[1];
  EXPECT_EQ(std::make_pair(within.g1, within.g2), std::make_pair(1, 1));
  EXPECT_NEAR(within.mean, 0.3, 0.02);
  EXPECT_EQ(std::make_pair(between.g1, between.g2), std::make_pair(1, 2));
  EXPECT_GT(between.mean, 0.2);
  EXPECT_LT(between.mean, 0.5);

  c.prj.swaths[SwathId(2)].fixed = true;
  par.REFQC = false;
  ASSERT_TRUE(fast_QC_ZDS(c.prj, c.frame, par, result));
  EXPECT_EQ(result.ngrids, 2);
  EXPECT_NEAR(result.mean, 0.3, 0.02);
}

TEST(FastQC, WithoutAnyGridItFails) {
  const FastQCcase c(false);
  FastQCresult result;
  remove_file(c.prj.swaths[SwathId(0)].cache.file(EXT_GMTIDX));
  EXPECT_TRUE(fast_QC_ZDS(c.prj, c.frame, tiff_param(1), result));
  EXPECT_EQ(result.ngrids, 2);
  for (const Swath& s : c.prj.swaths) remove_file(s.cache.file(EXT_GMTIDX));
  EXPECT_FALSE(fast_QC_ZDS(c.prj, c.frame, tiff_param(1), result));
}

// Planes of known slopes: the shade is the cosine between the normal and the light, whatever the neighbours lack.
TEST(Shade, PlanesHaveTheCosineOfTheirNormal) {
  constexpr int WIDTH = 6;  // each pixel has a neighbour along each axis
  const struct { float zx, zy; } planes[] = {{0, 0}, {0.5f, 0}, {0, 0.5f}, {-0.7f, 0.7f}, {3, -3}};
  for (const auto& p : planes) {
    const float light[3] = {-0.5f, 0.5f, std::sqrt(0.5f)};  // from the north west, 45 degrees high
    const float norm = std::sqrt(1 + p.zx * p.zx + p.zy * p.zy);
    const float expected = std::max(0.0f, (light[2] - p.zx * light[0] - p.zy * light[1]) / norm);
    ShadeRows shade(WIDTH, 2.0f, SunParam());
    int nrows = 0;
    const auto emit = [&](const float* row) {
      for (int x = 0; x < WIDTH; x++)
        if (nrows == 3 && x == 3)
          EXPECT_EQ(row[x], -9999);
        else
          EXPECT_NEAR(row[x], expected, 1e-4);
      nrows++;
      return true;
    };
    for (int y = 0; y < 6; y++) {  // from the north
      std::vector<float> row(WIDTH);
      for (int x = 0; x < WIDTH; x++)
        row[static_cast<size_t>(x)] =
            100 + p.zx * 2 * static_cast<float>(x) - p.zy * 2 * static_cast<float>(y);
      if (y == 3) row[3] = -9999;
      ASSERT_TRUE(shade.put(row.data(), emit));
    }
    ASSERT_TRUE(shade.finish(emit));
    EXPECT_EQ(nrows, 6);
  }
}
}  // namespace veld
