// Gridding of tiled swaths: heights at their place, cache, margins, faults.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "lib/general/path.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/LmTgrid_w/synth_swaths.h"

namespace veld {
namespace {
std::string idx_of(const Project& prj, int sw) { return prj.swaths[SwathId(sw)].cache.file(EXT_GMTIDX); }
std::string zds_of(const Project& prj, int sw) { return prj.swaths[SwathId(sw)].cache.file(EXT_GMTZDS); }

GridResult grid_all(const Project& prj, bool full, int nthreads) {
  GridResult res;
  EXPECT_TRUE(LmT_grid(prj, make_synth_Tovr(prj), full, nthreads, res));
  return res;
}
}  // namespace

TEST(LmT_grid, HeightsStandAtTheirPlace) {
  const TempDir dir;
  const Project prj = make_synth_project(dir, {{}});
  grid_all(prj, true, 1);
  SwGrid grid;
  ASSERT_TRUE(read_gZDSidx_tiles_idx(prj.swaths[SwathId(0)].cache, grid));
  double sum2 = 0;
  int n = 0, nfar = 0;
  for (size_t k = 0; k < grid.TI.size(); k++) {
    const TIsxy& t = grid.TI(static_cast<int64_t>(k));
    Image<float> Z;
    if (read_gZ_tile(grid, static_cast<int>(k), nullptr, {}, Z) != GridRead::heights) continue;
    for (int y = 0; y < Z.ysize(); y++)
      for (int x = 0; x < Z.xsize(); x++) {
        if (Z(x, y) == NODATA) continue;
        const double e =
            static_cast<double>(Z(x, y)) - synth_height(t.x * 128. - 10240000 + x, t.y * 128. - 10240000 + y);
        n++;
        nfar += std::fabs(e) > 0.3;  // at the houses
        if (std::fabs(e) <= 0.3) sum2 += e * e;
      }
  }
  EXPECT_GT(n, 30000);
  EXPECT_LT(nfar, n / 3);
  EXPECT_LT(std::sqrt(sum2 / n), 0.08);
}

TEST(LmT_grid, MarginsAreTheNeighboursHeights) {
  const TempDir dir;
  const Project prj = make_synth_project(dir, {{}});
  grid_all(prj, true, 2);
  SwGrid grid;
  ASSERT_TRUE(read_gZDSidx_tiles_idx(prj.swaths[SwathId(0)].cache, grid));
  const int n = 128, buf = 24;
  int ncompared = 0;
  for (const TIsxy& t : grid.TI) {
    Image<float> all, one;
    ASSERT_EQ(read_gZ_tile_8nn(grid, t.x, t.y, buf, nullptr, {}, all), GridRead::heights);
    ASSERT_EQ(all.xsize(), n + 2 * buf);
    for (int dy = -1; dy <= 1; dy++)
      for (int dx = -1; dx <= 1; dx++) {
        const int k = grid.tile_at(int64_t{t.x} + dx, int64_t{t.y} + dy);
        ASSERT_EQ(read_gZ_tile(grid, k, nullptr, {}, one), k < 0 ? GridRead::none : GridRead::heights);
        for (int y = 0; y < n; y++)
          for (int x = 0; x < n; x++) {
            const int ax = x + dx * n + buf, ay = y + dy * n + buf;
            if (ax < 0 || ay < 0 || ax >= all.xsize() || ay >= all.ysize()) continue;
            ASSERT_EQ(all(ax, ay), one(x, y));
            ncompared += one(x, y) != NODATA && (dx != 0 || dy != 0);
          }
      }
  }
  EXPECT_GT(ncompared, 1000);
}

TEST(LmT_grid, LimitsAndMaskTakeHeightsOut) {
  const TempDir dir;
  const Project prj = make_synth_project(dir, {{}});
  grid_all(prj, true, 1);
  SwGrid grid;
  ASSERT_TRUE(read_gZDSidx_tiles_idx(prj.swaths[SwathId(0)].cache, grid));
  const auto count = [&](const Image<uint8_t>* mask, GridLimits limits, float& zmin, float& zmax) {
    Image<float> Z;
    int n = 0;
    EXPECT_NE(read_gZ_tile(grid, 0, mask, limits, Z), GridRead::failed);
    zmin = 1e9f, zmax = -1e9f;
    for (uint64_t i = 0; i < Z.size(); i++)
      if (Z[i] != NODATA) n++, zmin = std::min(zmin, Z[i]), zmax = std::max(zmax, Z[i]);
    return n;
  };
  float zmin, zmax;
  const int all = count(nullptr, {}, zmin, zmax);
  EXPECT_LT(count(nullptr, {3, -10000, 10000}, zmin, zmax), all);  // houses have rough edges
  EXPECT_GT(count(nullptr, {31, 99, 101}, zmin, zmax), 0);
  EXPECT_GE(zmin, 99);
  EXPECT_LE(zmax, 101);
  // A mask takes out its microtiles, each pixel of them, and no other.
  Image<uint8_t> mask(32, 32, 0);
  EXPECT_EQ(count(&mask, {}, zmin, zmax), 0);
  for (int m = 0; m < mTn; m++) mask[m] = m % 3 == 0;
  Image<float> Z0, Z;
  ASSERT_EQ(read_gZ_tile(grid, 0, nullptr, {}, Z0), GridRead::heights);
  ASSERT_EQ(read_gZ_tile(grid, 0, &mask, {}, Z), GridRead::heights);
  int ntaken = 0, nmasked = 0;
  for (int y = 0; y < Z.ysize(); y++)
    for (int x = 0; x < Z.xsize(); x++) {
      const bool taken = mask(x / prj.scale.dim, y / prj.scale.dim) != 0;
      ASSERT_EQ(Z(x, y), taken ? Z0(x, y) : NODATA) << x << " " << y;
      (taken ? ntaken : nmasked) += Z0(x, y) != NODATA;
    }
  EXPECT_GT(ntaken, 1000);
  EXPECT_GT(nmasked, 1000);
  EXPECT_EQ(grid_smax_code(1.0f, 1.0f), 16);
  EXPECT_EQ(grid_smax_code(2.0f, 0.1f), 31);
  EXPECT_EQ(reg_smax_code(1.0f, 1.6f), 10);  // metres on coarse grids, spacings on fine ones
  EXPECT_EQ(reg_smax_code(1.0f, 0.25f), 16);
  EXPECT_EQ(reg_smax_code(0.1f, 0.25f), 2);
}

TEST(LmT_grid, SameBytesForAnyThreadsAndOverlapOnly) {
  std::string idx[2], zds[2];
  uint64_t full = 0, overlap = 0;
  for (int i = 0; i < 2; i++) {
    const TempDir dir;
    const Project prj = make_synth_project(dir, {{}, {90}, {2000}});
    const GridResult res = grid_all(prj, false, 1 + 2 * i);
    EXPECT_EQ(res.nskipped, 1);  // the third lies apart
    EXPECT_EQ(res.ngridded, 2);
    idx[i] = read_text(idx_of(prj, 0)).substr(16);  // behind the time of the source
    zds[i] = read_text(zds_of(prj, 0));
    overlap = zds[i].size();
    EXPECT_FALSE(exists(idx_of(prj, 2)));
    CACHE_GRID = false;
    grid_all(prj, true, 2);
    CACHE_GRID = true;
    full = read_text(zds_of(prj, 0)).size();
    for (const auto& entry : std::filesystem::directory_iterator(dir.path)) {
      const std::string name = entry.path().string();
      EXPECT_TRUE(name.find(".part") == std::string::npos && name.find(".T0") == std::string::npos) << name;
    }
  }
  EXPECT_EQ(idx[0], idx[1]);
  EXPECT_EQ(zds[0], zds[1]);
  EXPECT_LT(overlap, full);
  EXPECT_GT(overlap, 0u);
}

TEST(LmT_grid, CacheIsUsedUntilSomethingChanges) {
  const TempDir dir;
  Project prj = make_synth_project(dir, {{}, {90}});
  EXPECT_EQ(grid_all(prj, false, 1).ngridded, 2);
  EXPECT_EQ(grid_all(prj, false, 1).ncached, 2);
  std::filesystem::last_write_time(prj.swaths[SwathId(0)].path(),
                                   std::filesystem::file_time_type::clock::now() - std::chrono::hours(5));
  EXPECT_EQ(grid_all(prj, false, 1).ngridded, 1);
  GZ_SMAXF = 900;
  EXPECT_EQ(grid_all(prj, false, 1).ngridded, 2);
  GZ_SMAXF = 1000;
  prj.scale.dim = 3;
  EXPECT_EQ(grid_all(prj, false, 1).ngridded, 2);
  EXPECT_EQ(grid_all(prj, true, 1).ngridded, 2);
  EXPECT_EQ(grid_all(prj, true, 1).ncached, 2);
  remove_file(zds_of(prj, 1));
  EXPECT_EQ(grid_all(prj, true, 1).ngridded, 1);
}

TEST(LmT_grid, DamagedGridsAreMadeAnew) {
  const TempDir dir;
  const Project prj = make_synth_project(dir, {{}});
  grid_all(prj, true, 1);
  const std::string idx = read_text(idx_of(prj, 0)), zds = read_text(zds_of(prj, 0));
  const size_t nt = (idx.size() - 25) / 1027;
  ASSERT_EQ(idx.size(), 25 + nt * 1027);  // every tile of the strip has heights
  const auto with = [](std::string s, size_t at, char c) { return s.replace(at, 1, 1, c); };
  const struct {
    const char* what;
    std::string idx, zds;
  } cases[] = {
      {"magic", with(idx, 0, 1), zds},
      {"version", with(idx, 4, 1), zds},
      {"no pixels", with(idx, 20, 0), zds},
      {"huge dim", with(idx, 23, 0x7F), zds},
      {"count that lies", with(idx, 25, static_cast<char>(idx[25] + 1)), zds},
      {"flag that lies", with(idx, 25 + 2 * nt, 7), zds},
      {"empty index", "", zds},
      {"header cut", idx.substr(0, 24), zds},
      {"table cut", idx.substr(0, 26), zds},
      {"maps cut", idx.substr(0, idx.size() - 1), zds},
      {"more behind", idx + "x", zds},
      {"words cut", idx, zds.substr(0, zds.size() - 4)},
      {"no words", idx, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    write_text(idx_of(prj, 0), c.idx);
    write_text(zds_of(prj, 0), c.zds);
    SwGrid grid;
    EXPECT_FALSE(read_gZDSidx_tiles_idx(prj.swaths[SwathId(0)].cache, grid));
    EXPECT_EQ(grid_all(prj, true, 1).ngridded, 1);
    EXPECT_EQ(read_text(idx_of(prj, 0)), idx);
    EXPECT_EQ(read_text(zds_of(prj, 0)), zds);
  }
}

TEST(LmT_grid, FailsWithoutTilesOrMemory) {
  const TempDir dir;
  const Project prj = make_synth_project(dir, {{}, {90}});
  const Tovr ovr = make_synth_Tovr(prj);
  GridResult res;
  MEM_MB = 1;
  EXPECT_TRUE(LmT_grid(prj, ovr, true, 1, res));
  EXPECT_EQ(res.beyond, (std::vector<SwathId>{SwathId(0), SwathId(1)}));
  EXPECT_EQ(res.ngridded, 0);
  MEM_MB = 4096;
  write_text(prj.swaths[SwathId(0)].cache.file(EXT_MTIDX), "");
  EXPECT_FALSE(LmT_grid(prj, ovr, true, 2, res));
  EXPECT_EQ(res.ngridded, 1);  // the other is finished first
  EXPECT_FALSE(exists(idx_of(prj, 0)));
  EXPECT_TRUE(exists(idx_of(prj, 1)));
}

// Points are compared with their checksums before they are gridded; damaged ones ask for new tiles.
TEST(LmT_grid, DamagedPointsAreFoundBeforeTheWork) {
  const TempDir dir;
  const Project prj = make_synth_project(dir, {{}, {90}});
  const Tovr ovr = make_synth_Tovr(prj);
  const std::string name = prj.swaths[SwathId(1)].cache.file(EXT_MTXYZ), whole = read_text(name);
  const std::string index = prj.swaths[SwathId(1)].cache.file(EXT_TIDX), index_bytes = read_text(index);
  std::string flipped = whole;
  flipped[whole.size() / 2] ^= 4;
  for (const std::string& bytes : {std::string(), whole.substr(1), flipped}) {
    write_text(name, bytes);
    GridResult res;
    EXPECT_TRUE(LmT_grid(prj, ovr, true, 2, res));
    EXPECT_EQ(res.damaged, std::vector<SwathId>{SwathId(1)});
    EXPECT_EQ(res.ngridded, 0);
    EXPECT_FALSE(exists(index));
    write_text(index, index_bytes);
  }
}
}  // namespace veld
