#include "prj/LiDAR/LmTQCsep/separation.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTQCimg/intensity_map.h"
#include "prj/LiDAR/LmTQCimg/tile_map.h"
#include "prj/LiDAR/LmTQCsep/ground_cells.h"
#include "prj/LiDAR/LmTQCsep/sep_cells.h"
#include "prj/LiDAR/LmTgrid_w/grid_rows.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/LmTinter/corr_field.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr RGBchar GOOD = {0, 158, 115}, FAIR = {240, 228, 66}, BAD = {213, 94, 0};  // told apart by any eye
constexpr float DARKEST = 0.55f;         // brightness of a colour over black ground
constexpr float HARD_ROUGHNESS = 0.05f;  // m, at most on hard ground
constexpr uint32_t MIN_CELL_POINTS = 3;  // that a range of heights needs

struct SwathAt : GridRow {
  int margin = 0;
  std::unique_ptr<SwTiles> points;  // while the grid is open
};

struct Separation {
  const Project& prj;
  const TileInfo& frame;
  const MapParam& map;
  const SwathVector<SCorrTbl>* corr;
  int sub = 1, side = 0;  // grid pixels along a cell, cells along a tile
  float GSD = 1, cell = 1;
  std::vector<SwathAt> swaths;
  Image<float> dz;     // a row of tiles: largest difference, NODATA without two swaths
  Image<uint8_t> any;  // 1 where a swath has a height
};

struct TileResult {
  std::map<std::pair<SwathId, SwathId>, SepSum> pairs;
  std::map<SwathId, SepSum> precision;
};

// The pixel: as -sub asks, but at most 4 times the point spacing.
int choose_sub(const Project& prj, const MapParam& map) {
  const int most = std::max(1, static_cast<int>(4 / std::sqrt(TARGET_DF) + 1e-3f));
  return map_sub(std::min(map.DZ_sub, most), mTsub * prj.scale.dim);
}

bool list_swaths(Separation& s) {
  for (GridRow& row : list_grid_rows(s.prj)) {
    SwathAt at{std::move(row), 0, nullptr};
    at.margin = sep_margin(s.corr ? max_corr((*s.corr)[at.sw]) : 0.0f, s.GSD);
    s.swaths.push_back(std::move(at));
  }
  return !s.swaths.empty();
}

// Opens what the row of tiles crosses and closes what lies behind it. False after an ERROR line.
bool turn_swaths(Separation& s, int64_t YI) {
  for (SwathAt& at : s.swaths) {
    if (!turn_grid_row(s.prj, YI, at)) return false;
    if (!at.grid) at.points.reset();
    if (!at.grid || at.points) continue;
    at.points = std::make_unique<SwTiles>();
    if (read_SwTiles(s.prj.swaths[at.sw].cache, *at.points)) continue;
    ERROR_MSG("missing/incompatible temp. tile files, swath " << s.prj.swaths[at.sw].path());
    return false;
  }
  return true;
}

// The points of a swath around a tile, m from its lower left corner, with the correction; np: of P. False after an
// ERROR line.
bool read_points(const Separation& s, const SwathAt& at, uint32_t XI, uint32_t YI, const TileCorr* field,
                 Vector<xyz>& P, uint64_t& np) {
  np = 0;
  const int tile = at.points->find(XI, YI);
  if (tile < 0) return true;
  Image<uint8_t> all(mTsub, mTsub, uint8_t{1});
  uint64_t n = 0, inside = 0;
  if (!read_LmT_tile_nn(*at.points, static_cast<uint32_t>(tile), all, mTsub, P, n, inside)) {
    ERROR_MSG("missing/incompatible temp. tile files, swath " << s.prj.swaths[at.sw].path());
    return false;
  }
  const float mt = 1 / s.prj.scale.mTsize;
  for (uint64_t i = 0; i < n; i++) {
    xyz c = {0, 0, 0};
    if (field && !field->at(P[i].x * mt, P[i].y * mt, c)) continue;
    P[np++] = P[i] + c;
  }
  return true;
}

// Range of heights in cells of twice the point spacing, less what the slope explains. False after an ERROR line.
bool add_precision(const Separation& s, const SwathAt& at, uint32_t XI, uint32_t YI, const Vector<xyz>& P,
                   uint64_t np, SepSum& sum) {
  const int n = mTsub * s.prj.scale.dim,
            step = std::max(1, static_cast<int>(std::lround(2 / std::sqrt(TARGET_DF))));
  const int side = n / step;
  Image<float> Z;
  Image<uint8_t> S;
  const GridRead state = read_gZ_tile_8nn(*at.grid, XI, YI, step, nullptr, GridLimits(), Z, &S);
  if (state != GridRead::heights) return state != GridRead::failed;
  Image<float> low(side, side, 2e37f), high(side, side, -2e37f);
  Image<uint32_t> count(side, side, 0u);
  const float cell = static_cast<float>(step) * s.GSD;
  for (uint64_t i = 0; i < np; i++) {
    const xyz& p = P[i];
    const int x = static_cast<int>(std::floor(p.x / cell)), y = static_cast<int>(std::floor(p.y / cell));
    if (x < 0 || y < 0 || x >= side || y >= side) continue;
    low(x, y) = std::min(low(x, y), p.z);
    high(x, y) = std::max(high(x, y), p.z);
    count(x, y)++;
  }
  const int code = std::max(1, static_cast<int>(HARD_ROUGHNESS * 16 / s.GSD));
  const auto hard = [&](int x0, int y0) {  // the cell and half a cell around
    for (int y = y0 - step / 2; y < y0 + step + step / 2; y++)
      for (int x = x0 - step / 2; x < x0 + step + step / 2; x++)
        if (Z(x + step, y + step) == NODATA || S(x + step, y + step) > code) return false;
    return true;
  };
  for (int y = 0; y < side; y++)
    for (int x = 0; x < side; x++) {
      const int px = x * step, py = y * step;
      if (count(x, y) < MIN_CELL_POINTS || !hard(px, py)) continue;
      const float zx = Z(px + 2 * step, py + step) - Z(px + step, py + step),
                  zy = Z(px + step, py + 2 * step) - Z(px + step, py + step);
      if (Z(px + 2 * step, py + step) == NODATA || Z(px + step, py + 2 * step) == NODATA) continue;
      const float slope = std::hypot(zx, zy) / cell;
      if (slope < MAX_SLOPE) sum.add(std::max(0.0f, high(x, y) - low(x, y) - slope * cell * 1.414f));
    }
  return true;
}

// A swath on a tile.
struct SwathCells {
  SwathId sw;
  Image<float> Z;       // of all surfaces, for the picture
  Image<float> ground;  // of open ground, for the tables
};

// here stays as it is when the swath has nothing on the tile. False after an ERROR line.
bool add_swath_cells(const Separation& s, const SwathAt& at, uint32_t XI, uint32_t YI, TileResult& r,
                     std::vector<SwathCells>& here) {
  const int k = at.grid ? at.grid->tile_at(XI, YI) : -1;
  if (k < 0 || at.grid->gT(k) == 0) return true;
  std::unique_ptr<TileCorr> field;
  if (s.corr) field = std::make_unique<TileCorr>(*at.grid, XI, YI, (*s.corr)[at.sw]);
  SwathCells cells{at.sw, {}, {}};
  const GridRead state = comp_cells(*at.grid, XI, YI, s.sub, at.margin, s.GSD, field.get(), cells.Z);
  if (state == GridRead::failed) return false;
  Vector<xyz> P;
  uint64_t np = 0;
  if (!read_points(s, at, XI, YI, field.get(), P, np)) return false;
  if (!s.corr && !add_precision(s, at, XI, YI, P, np, r.precision[at.sw])) return false;
  if (state != GridRead::heights) return true;
  ground_cells(P, np, s.side, s.cell, cells.ground);
  here.push_back(std::move(cells));
  return true;
}

// One tile into the row. False after an ERROR line.
bool comp_tile(Separation& s, int tx, int ty, TileResult& r) {
  const uint32_t XI = s.frame.XI + static_cast<uint32_t>(tx), YI = s.frame.YI + static_cast<uint32_t>(ty);
  std::vector<SwathCells> here;
  for (const SwathAt& at : s.swaths)
    if (!add_swath_cells(s, at, XI, YI, r, here)) return false;
  for (int y = 0; y < s.side; y++)
    for (int x = 0; x < s.side; x++) {
      float low = 2e37f, high = -2e37f;
      int n = 0;
      for (const SwathCells& cells : here) {
        const float z = cells.Z(x, y);
        if (z == NODATA) continue;
        low = std::min(low, z), high = std::max(high, z), n++;
      }
      if (n > 0) s.any.row(y)[tx * s.side + x] = 1;
      if (n > 1) s.dz.row(y)[tx * s.side + x] = high - low;
    }
  for (size_t a = 0; a < here.size(); a++)
    for (size_t b = a + 1; b < here.size(); b++) {
      const Image<float>&za = here[a].ground, &zb = here[b].ground;
      SepSum& sum = r.pairs[{here[a].sw, here[b].sw}];
      for (uint64_t i = 0; i < za.size(); i++)
        if (za[i] != NODATA && zb[i] != NODATA) sum.add(std::fabs(za[i] - zb[i]));
    }
  return true;
}

uint8_t shade(uint8_t c, float v) { return static_cast<uint8_t>(std::lround(static_cast<float>(c) * v)); }

// v: brightness of the ground.
RGBchar pixel_colour(float dz, bool any, float v, float largest, bool inv) {
  if (!any) return inv ? RGBchar{255, 255, 255} : RGBchar{0, 0, 0};
  if (dz == NODATA) {
    const uint8_t g = shade(255, DARKEST / 2 + (1 - DARKEST / 2) * v);
    return {g, g, g};
  }
  const RGBchar c = dz <= largest / 2 ? GOOD : dz <= largest ? FAIR : BAD;
  const float f = DARKEST + (1 - DARKEST) * v;
  return {shade(c.r, f), shade(c.g, f), shade(c.b, f)};
}

bool put_row(const Separation& s, const IntensityMap& ground, const Image<float>& intensity, RasterOut& out) {
  const float largest = QUALITY_LEVELS[static_cast<size_t>(s.map.sep_ql)].largest;
  std::vector<RGBchar> row(static_cast<size_t>(s.dz.xsize()));
  for (int y = s.side - 1; y >= 0; y--) {
    for (int x = 0; x < s.dz.xsize(); x++) {
      const float i = intensity.row(y)[x];
      row[static_cast<size_t>(x)] =
          pixel_colour(s.dz.row(y)[x], s.any.row(y)[x] != 0, i == NODATA ? 0.5f : ground.brightness(i),
                       largest, s.map.img.inv);
    }
    if (!out.put_rows(row.data(), 1)) return false;
  }
  return true;
}

void join(TileResult& tile, SeparationResult& r) {
  for (const auto& [pair, sum] : tile.pairs)
    if (sum.n > 0) r.pairs[pair].add(sum), r.all.add(sum);
  for (const auto& [sw, sum] : tile.precision) r.precision[sw].add(sum);
}
}  // namespace

bool save_separation(const Project& prj, const TileInfo& frame, const MapParam& map, int nthreads,
                     const SwathVector<SCorrTbl>* corr, SeparationResult& result) {
  LOG_ENTER("save_separation nsw=" << prj.swaths.size() << " level=" << map.sep_ql
                                   << " corr=" << (corr != nullptr));
  const Stopwatch watch;
  result = SeparationResult();
  Separation s{prj, frame, map, corr, 1, 0, prj.scale.GSD(), 1, {}, {}, {}};
  s.sub = choose_sub(prj, map);
  s.side = mTsub * prj.scale.dim / s.sub;
  s.cell = s.GSD * static_cast<float>(s.sub);
  result.cell = static_cast<double>(s.cell);
  if (!list_swaths(s)) return false;
  const std::string name = prj.name + (corr ? "_sepcorr" : "_sep");
  const int width = frame.nx * s.side;
  RasterOut out;
  IntensityMap ground;
  const bool draw = draws_maps(map);
  if (draw && !out.open_rgb(name, corr ? "corrected swath separation" : "swath separation", map.img,
                            frame_place(frame, static_cast<double>(prj.scale.Tsize), result.cell,
                                        -static_cast<double>(s.GSD) / 2),
                            width, frame.ny * s.side))
    return false;
  if (draw && !ground.make(prj, frame, s.side, map.xcls)) return false;
  if (ground.nnoise() > 0)
    WARNING_MSG(
        "swath separation: " << ground.nnoise()
                             << " points of the noise classes 7 and 18 take part (use -drop_class 7 18)");
  Image<float> intensity(width, s.side, NODATA);
  progress_start(frame.ny);
  for (int ty = frame.ny - 1; ty >= 0; ty--) {
    s.dz.resize(width, s.side, NODATA);
    s.any.resize(width, s.side, uint8_t{0});
    std::fill_n(s.dz.val, s.dz.size(), NODATA);
    std::fill_n(s.any.val, s.any.size(), uint8_t{0});
    if (!turn_swaths(s, frame.YI + ty)) return false;
    std::vector<TileResult> tiles(static_cast<size_t>(frame.nx));
    if (run_units(frame.nx, nthreads, [&](int64_t tx, int) {
          return comp_tile(s, static_cast<int>(tx), ty, tiles[static_cast<size_t>(tx)]);
        }) >= 0)
      return false;
    for (TileResult& tile : tiles) join(tile, result);
    if (draw && (!ground.read_row(ty, intensity) || !put_row(s, ground, intensity, out))) return false;
    progress_step(frame.ny - ty, "SWATH SEPARATION " + std::to_string(frame.ny - ty) + " rows of tiles");
  }
  progress_end("SWATH SEPARATION");
  if ((draw && !out.close()) || !write_sep_log(name + "_stat.log", result, map.sep_ql)) return false;
  const SeparationLimits& q = QUALITY_LEVELS[static_cast<size_t>(map.sep_ql)];
  LOG_MSG((corr ? "CORRECTED SWATH SEPARATION" : "SWATH SEPARATION")
          << " RMSDz=" << result.all.rms() << " m (QL" << map.sep_ql << " limit " << q.rms << "), beyond "
          << q.largest << " m " << 100 * result.all.beyond(q.largest) << "%, open ground "
          << static_cast<double>(result.all.n) * result.cell * result.cell << " m2 | " << watch.text());
  return true;
}
}  // namespace veld
