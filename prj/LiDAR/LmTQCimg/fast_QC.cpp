#include "prj/LiDAR/LmTQCimg/fast_QC.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <vector>

#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTQCimg/intensity_map.h"
#include "prj/LiDAR/LmTQCimg/shade_dz.h"
#include "prj/LiDAR/LmTQCimg/tile_map.h"
#include "prj/LiDAR/LmTgrid_w/LKRgrid.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
enum MapKind { DZ, DENSITY, ROUGHNESS, ELEVATION, RELIEF, INTENSITY, NKINDS };

struct Extent {  // tiles of a swath's grid, both ends inside
  SwathId sw;
  uint32_t XI0 = UINT32_MAX, XI1 = 0, YI0 = UINT32_MAX, YI1 = 0;
  std::unique_ptr<SwGrid> grid = {};  // while the row of tiles crosses it
};

struct DZsums {  // of the pixels with at least two swaths
  double n = 0, sum = 0, sum2 = 0;
  uint64_t nblocks = 0, nwords = 0, ntiles = 0;
  GroupSums groups;
  void add(const DZsums& o) {
    n += o.n, sum += o.sum, sum2 += o.sum2;
    nblocks += o.nblocks, nwords += o.nwords, ntiles += o.ntiles;
    groups.add(o.groups);
  }
};

struct Map {  // one picture in the making
  bool on = false;
  Image<float> band;  // a row of tiles, row 0 the southern one
  RasterOut out;
};

struct FastQC {
  const Project& prj;
  const FastQCparam& par;
  TileInfo frame;
  int sub = 1;     // grid pixels along a map pixel
  int side = 0;    // map pixels along a tile
  double dxs = 1;  // m, map pixel
  uint32_t smax = 31u << 24;
  float Dunit = 1, Sunit = 1;  // points/m2 and m of a code
  std::vector<Extent> extents;
  std::array<Map, NKINDS> maps;
  std::unique_ptr<ShadeRows> shade;
  bool by_group = false;
  IntensityMap intensity;

  int width() const { return frame.nx * side; }
};

// Sums of the swaths at each map pixel of a tile.
struct TileSums {
  Image<uint32_t> words;  // of one swath
  Image<float> zmin, zmax, zsum, dens, rough;
  Image<uint8_t> nz, nall;           // swaths that are compared, that have a height
  Image<uint16_t> imin, imax;        // swaths of zmin and zmax
  std::vector<Image<float>> layers;  // heights by swath, where not all pairs count
  std::vector<SwathId> sw;
  TileGroups groups;
};

void reset(TileSums& t, int side) {
  t.zmin.resize(side, side, 2e37f);
  t.zmax.resize(side, side, -2e37f);
  for (Image<float>* img : {&t.zsum, &t.dens, &t.rough}) img->resize(side, side, 0.0f);
  for (Image<uint8_t>* img : {&t.nz, &t.nall}) img->resize(side, side, uint8_t{0});
  for (Image<uint16_t>* img : {&t.imin, &t.imax}) img->resize(side, side, uint16_t{0});
  t.layers.clear();
  t.sw.clear();
  t.groups.clear();
}

void add_swath(const FastQC& qc, SwathId sw, TileSums& t) {
  const bool layers = !qc.par.pair_ok.empty();
  const bool details = qc.maps[DENSITY].on || qc.maps[ROUGHNESS].on || qc.maps[ELEVATION].on ||
                       qc.maps[RELIEF].on || qc.maps[INTENSITY].on;
  if (layers) {
    t.layers.emplace_back(qc.side, qc.side, NODATA);
    t.sw.push_back(sw);
  }
  for (uint64_t i = 0; i < t.words.size(); i++) {
    const uint32_t w = t.words[i];
    if ((w & GRID_ZMASK) == 0) continue;
    const float z = decode_Z(w);
    if (details) {
      t.zsum[i] += z;
      t.nall[i]++;
      t.dens[i] += static_cast<float>(w >> 29);
      t.rough[i] = std::max(t.rough[i], static_cast<float>((w >> 24) & 31));
    }
    if ((w & 0x1F000000) > qc.smax) continue;
    t.nz[i]++;
    if (z < t.zmin[i]) t.zmin[i] = z, t.imin[i] = static_cast<uint16_t>(sw.number);
    if (z > t.zmax[i]) t.zmax[i] = z, t.imax[i] = static_cast<uint16_t>(sw.number);
    if (layers) t.layers.back()[i] = z;
  }
}

// Largest difference between the swaths of the pairs that count; NODATA when there is none.
float filtered_DZ(const FastQC& qc, const TileSums& t, uint64_t i) {
  float dz = NODATA;
  for (size_t a = 0; a < t.sw.size(); a++)
    for (size_t b = a + 1; b < t.sw.size(); b++) {
      const float za = t.layers[a][i], zb = t.layers[b][i];
      if (za == NODATA || zb == NODATA || !qc.par.pair_ok(t.sw[a].number, t.sw[b].number)) continue;
      if (dz == NODATA || std::fabs(za - zb) > std::fabs(dz)) dz = za - zb;
    }
  return dz;
}

// Difference of a pixel with its sign: lower swath number less higher one.
float pixel_DZ(const FastQC& qc, const TileSums& t, uint64_t i) {
  if (t.nz[i] < 2) return NODATA;
  if (!t.layers.empty()) return filtered_DZ(qc, t, i);
  const float dz = t.zmax[i] - t.zmin[i];
  return t.imax[i] < t.imin[i] ? dz : -dz;
}

// One tile from its blocks into the bands. False after an ERROR line.
bool comp_tile(FastQC& qc, int tx, int ty, TileSums& t, DZsums& sums) {
  const uint32_t XI = qc.frame.XI + static_cast<uint32_t>(tx), YI = qc.frame.YI + static_cast<uint32_t>(ty);
  reset(t, qc.side);
  bool any = false;
  for (const Extent& e : qc.extents) {
    if (XI < e.XI0 || XI > e.XI1 || YI < e.YI0 || YI > e.YI1) continue;
    const SwGrid& grid = *e.grid;
    const int k = grid.tile_at(XI, YI);
    if (k < 0 || grid.gT(k) == 0) continue;
    if (read_gZ_tile_sub(grid, k, qc.sub, t.words) == GridRead::failed) return false;
    add_swath(qc, e.sw, t);
    if (qc.by_group) t.groups.add(qc.prj.swaths[e.sw].group, t.words, qc.smax);
    any = true;
    sums.nblocks++;
    sums.nwords += static_cast<uint64_t>(grid.gT(k)) * grid.hdr.dim * grid.hdr.dim;
  }
  if (!any) return true;
  sums.ntiles++;
  t.groups.put(sums.groups);
  for (int y = 0; y < qc.side; y++)
    for (int x = 0; x < qc.side; x++) {
      const auto i = static_cast<uint64_t>(y) * static_cast<uint64_t>(qc.side) + static_cast<uint64_t>(x);
      const int X = tx * qc.side + x;
      const float dz = pixel_DZ(qc, t, i);
      if (dz != NODATA) {
        const double v = static_cast<double>(dz);
        sums.n++, sums.sum += std::fabs(v), sums.sum2 += v * v;
        if (qc.maps[DZ].on) qc.maps[DZ].band.row(y)[X] = qc.par.map.DZ_mix ? dz : std::fabs(dz);
      }
      if (t.nall[i] == 0 || (!qc.par.full && t.nall[i] < 2)) continue;
      if (qc.maps[DENSITY].on) qc.maps[DENSITY].band.row(y)[X] = t.dens[i] * qc.Dunit;
      if (qc.maps[ROUGHNESS].on) qc.maps[ROUGHNESS].band.row(y)[X] = t.rough[i] * qc.Sunit;
      const float z = t.zsum[i] / static_cast<float>(t.nall[i]);
      if (qc.maps[ELEVATION].on) qc.maps[ELEVATION].band.row(y)[X] = z;
      if (qc.maps[RELIEF].on) qc.maps[RELIEF].band.row(y)[X] = z;
      if (qc.maps[INTENSITY].on) qc.maps[INTENSITY].band.row(y)[X] = 0;  // the points are laid in later
    }
  return true;
}

// Rows of a map's band from the north into its picture.
bool put_band(FastQC& qc, int kind) {
  Map& m = qc.maps[static_cast<size_t>(kind)];
  for (int y = qc.side - 1; y >= 0; y--) {
    const float* row = m.band.row(y);
    const bool ok = kind == RELIEF ? qc.shade->put(row, [&](const float* s) { return m.out.put_rows(s, 1); })
                                   : m.out.put_rows(row, 1);
    if (!ok) return false;
  }
  return true;
}

// Opens the grids that the row of tiles crosses and closes those behind it. False after an ERROR line.
bool turn_grids(FastQC& qc, uint32_t YI) {
  for (Extent& e : qc.extents) {
    if (YI < e.YI0 || YI > e.YI1) {
      e.grid.reset();
    } else if (!e.grid) {
      e.grid = std::make_unique<SwGrid>();
      const Swath& s = qc.prj.swaths[e.sw];
      if (read_gZDSidx_tiles_idx(s.cache, *e.grid)) continue;
      ERROR_MSG("missing/incompatible temp. grid files, swath " << s.path());
      return false;
    }
  }
  return true;
}

// The extents of all grids that fit, and the frame of tiles that they cover.
void list_grids(FastQC& qc) {
  TileInfo& f = qc.frame;
  uint32_t X0 = UINT32_MAX, Y0 = UINT32_MAX, X1 = 0, Y1 = 0;
  for (const Swath& s : qc.prj.swaths.present()) {
    SwGrid grid;
    if (s.state == SwathState::no_grid || (s.fixed && !qc.par.REFQC)) continue;
    if (!check_gZDSidx(s.cache, s.id, 0, false, false) || !read_gZDSidx_tiles_idx(s.cache, grid) ||
        static_cast<int>(grid.hdr.dim) != qc.prj.scale.dim) {
      LOG_LINE("<!> gridok sw=" << s.id);
      continue;
    }
    Extent e{s.id};
    for (uint64_t k = 0; k < grid.TI.size(); k++) {
      if (grid.gT[k] == 0) continue;
      e.XI0 = std::min(e.XI0, grid.TI[k].x), e.XI1 = std::max(e.XI1, grid.TI[k].x);
      e.YI0 = std::min(e.YI0, grid.TI[k].y), e.YI1 = std::max(e.YI1, grid.TI[k].y);
    }
    if (e.XI0 > e.XI1) continue;
    X0 = std::min(X0, e.XI0), X1 = std::max(X1, e.XI1);
    Y0 = std::min(Y0, e.YI0), Y1 = std::max(Y1, e.YI1);
    qc.extents.push_back(std::move(e));
  }
  if (qc.extents.empty()) return;
  const uint32_t X_end = f.XI + static_cast<uint32_t>(f.nx), Y_end = f.YI + static_cast<uint32_t>(f.ny);
  f.XI = std::max(f.XI, X0), f.YI = std::max(f.YI, Y0);
  f.nx = static_cast<int>(std::min(X_end, X1 + 1) - f.XI);
  f.ny = static_cast<int>(std::min(Y_end, Y1 + 1) - f.YI);
}

ImgScale scale_of(const FastQC& qc, int kind) {
  const MapParam& m = qc.par.map;
  ImgScale s;
  switch (kind) {
    case DZ:
      return dz_scale(m);
    case DENSITY:
      s.range = static_cast<float>(m.d_range);
      s.color = m.d_color;
      s.unit = "points/m2";
      break;
    case ROUGHNESS:
      s.range = 31 * qc.Sunit;
      s.color = m.r_color;
      break;
    case ELEVATION:
      s.z0 = m.z_range > 0 ? m.z_min : std::floor(qc.par.Zlow);
      s.range = m.z_range > 0 ? m.z_range : std::max(1.0f, std::ceil(qc.par.Zhigh) - s.z0);
      s.cyclic = m.z_cyc;
      s.color = m.z_color;
      break;
    case INTENSITY:
      s.z0 = qc.intensity.low();
      s.range = std::max(1.0f, qc.intensity.high() - s.z0);
      s.unit = "";
      break;
    default:
      s.unit = "";
      break;
  }
  s.range16 = s.range;
  return s;
}

bool open_maps(FastQC& qc) {
  static const struct {
    const char *suffix, *title;
  } NAMES[NKINDS] = {{"_DZ", "overlapping area Z-difference"},
                     {"_D", "area density"},
                     {"_R", "area roughness"},
                     {"_Z", "elevation"},
                     {"_S", "shaded relief"},
                     {"_I", "area intensity"}};
  const MapParam& m = qc.par.map;
  const bool on[NKINDS] = {qc.par.DZ, m.OUTD, m.OUTR, m.OUTZ, m.OUTS, m.OUTI};
  const int height = qc.frame.ny * qc.side;
  // The grid pixel taken lies in the middle of that of the map, or, of an odd number, is its middle one.
  const double GSD = qc.dxs / qc.sub, Tsize = static_cast<double>(qc.prj.scale.Tsize);
  const ImgPlace of_points = frame_place(qc.frame, Tsize, qc.dxs),
                 of_grids = frame_place(qc.frame, Tsize, qc.dxs, qc.sub % 2 ? -GSD / 2 : 0);
  uint64_t bytes = 0;
  if (m.OUTI && draws_maps(m) && !qc.intensity.make(qc.prj, qc.frame, qc.side, m.xcls)) return false;
  for (int k = 0; k < NKINDS; k++) {
    if (!on[k]) continue;
    qc.maps[static_cast<size_t>(k)].on = true;
    bytes += RasterOut::memory(m.img, scale_of(qc, k), qc.width()) +
             static_cast<uint64_t>(qc.width()) * static_cast<uint64_t>(qc.side) * sizeof(float);
  }
  const uint64_t MB = (bytes >> 20) + 1;
  LOG_MSG("FAST QC IMG MEMORY=" << MB << " Mb");
  if (MB > static_cast<uint64_t>(MEM_MB))
    WARNING_MSG(" QC images require " << MB << " Mb, only " << MEM_MB << " reserved (use option -mem)");
  for (int k = 0; k < NKINDS; k++) {
    Map& map = qc.maps[static_cast<size_t>(k)];
    if (!map.on) continue;
    map.band.resize(qc.width(), qc.side, NODATA);
    if (!map.out.open(qc.prj.name + NAMES[k].suffix, NAMES[k].title, m.img, scale_of(qc, k),
                      k == INTENSITY ? of_points : of_grids, qc.width(), height))
      return false;
  }
  qc.shade = std::make_unique<ShadeRows>(qc.width(), static_cast<float>(qc.dxs), SunParam());
  return true;
}

// Where the map of intensities has a pixel, the mean of the points. False after an ERROR line.
bool lay_intensities(FastQC& qc, int ty) {
  Map& m = qc.maps[INTENSITY];
  if (!m.on || !qc.intensity.is_open()) return true;
  Image<float> row;
  if (!qc.intensity.read_row(ty, row)) return false;
  for (uint64_t i = 0; i < row.size(); i++)
    if (m.band[i] != NODATA) m.band[i] = row[i];
  return true;
}

// A row of tiles on threads, then its pictures, a map a thread.
bool comp_row(FastQC& qc, int ty, std::vector<TileSums>& work, DZsums& total) {
  for (Map& m : qc.maps)
    if (m.on) std::fill_n(m.band.val, m.band.size(), NODATA);
  if (!turn_grids(qc, qc.frame.YI + static_cast<uint32_t>(ty))) return false;
  std::vector<DZsums> sums(static_cast<size_t>(qc.frame.nx));
  if (run_units(qc.frame.nx, qc.par.nthreads, [&](int64_t tx, int thread) {
        return comp_tile(qc, static_cast<int>(tx), ty, work[static_cast<size_t>(thread)],
                         sums[static_cast<size_t>(tx)]);
      }) >= 0)
    return false;
  for (const DZsums& s : sums) total.add(s);
  if (!lay_intensities(qc, ty)) return false;
  return run_units(NKINDS, qc.par.nthreads, [&](int64_t k, int) {
           return !qc.maps[static_cast<size_t>(k)].on || put_band(qc, static_cast<int>(k));
         }) < 0;
}

void report(const FastQC& qc, const DZsums& total, const std::string& time, FastQCresult& r) {
  r.npix = static_cast<uint64_t>(total.n);
  r.ntiles = total.ntiles;
  r.nblocks = total.nblocks;
  r.Mpix = static_cast<double>(total.nwords) * 1e-6;
  r.area = total.n * qc.dxs * qc.dxs;
  if (total.n > 0) {
    r.mean = total.sum / total.n;
    r.rms = std::sqrt(total.sum2 / total.n);
  }
  r.groups = total.groups.result();
  LOG_MSG("Processed " << r.nblocks << " blocks, computed " << r.nmaps << " maps | " << time);
  LOG_LINE("nti=" << r.ntiles << " np=" << r.npix << " nP=" << total.nwords);
  LOG_LINE("/// FAST_QC_TIME=" << time);
  LOG_MSG("RELATIVE QC: Z_max-Z_min stat: mean=" << r.mean << ", RMS=" << r.rms);
  LOG_MSG("INPUT DATA STATISTICS (FAST QC)");
  LOG_MSG("Zmax-Zmin mean=" << r.mean << " Zmax-Zmin RMS=" << r.rms << " Area=" << r.area
                            << " m2 N tiles=" << r.ntiles << " N blocks=" << r.nblocks);
  for (const GroupDZ& g : r.groups)
    LOG_MSG(group_text(g) << " Area=" << static_cast<double>(g.n) * qc.dxs * qc.dxs << " m2");
}
}  // namespace

bool fast_QC_ZDS(const Project& prj, const TileInfo& frame, const FastQCparam& par, FastQCresult& result) {
  const TileScale& scale = prj.scale;
  const MapParam& m = par.map;
  LOG_ENTER("fast_QC_ZDS nsw=" << prj.swaths.size() << " ngrp=" << prj.ngrp << " Tsize=" << scale.Tsize
                               << " mTsize=" << scale.mTsize << " dx=" << scale.GSD() << " dim=" << scale.dim
                               << " level=" << scale.level << " DZ_sub=" << m.DZ_sub << " DZ_16=" << m.DZ_16
                               << " REFQC=" << par.REFQC << " OUTZ=" << m.OUTZ << " OUTD=" << m.OUTD
                               << " OUTS=" << m.OUTS << " OUTR=" << m.OUTR << " OUTI=" << m.OUTI
                               << " full=" << par.full);
  const Stopwatch watch;
  result = FastQCresult();
  FastQC qc{prj, par, frame, 1, 0, 1, 0, 1, 1, {}, {}, {}, false, {}};
  qc.by_group = prj.ngrp > 1 && par.pair_ok.empty();
  qc.sub = map_sub(m.DZ_sub, mTsub * scale.dim);
  qc.side = mTsub * scale.dim / qc.sub;
  qc.dxs = static_cast<double>(scale.Tsize) / qc.side;
  qc.smax = static_cast<uint32_t>(grid_smax_code(Z_SMAXF, scale.GSD())) << 24;
  qc.Dunit = TARGET_DF / 4 / (scale.GSD() * scale.GSD());
  qc.Sunit = scale.GSD() / 16;
  list_grids(qc);
  result.ngrids = static_cast<int>(qc.extents.size());
  if (qc.extents.empty() || qc.frame.nx <= 0 || qc.frame.ny <= 0) {
    ERROR_MSG("no gridded data available");
    return false;
  }
  LOG_MSG("FAST QC: " << qc.extents.size() << " swaths, " << qc.frame.nx << " x " << qc.frame.ny
                      << " tiles, Subsampling=" << qc.sub << " -> Image GSD=" << qc.dxs);
  if (!open_maps(qc)) return false;
  std::vector<TileSums> work(static_cast<size_t>(par.nthreads));
  DZsums total;
  progress_start(qc.frame.ny);
  for (int ty = qc.frame.ny - 1; ty >= 0; ty--) {
    if (!comp_row(qc, ty, work, total)) return false;
    progress_step(qc.frame.ny - ty, "FAST QC " + std::to_string(total.ntiles) + " tiles, " +
                                        std::to_string(total.nblocks) + " blocks");
  }
  progress_end("FAST QC " + std::to_string(total.ntiles) + " tiles, " + std::to_string(total.nblocks) +
               " blocks");
  Map& relief = qc.maps[RELIEF];
  if (relief.on && !qc.shade->finish([&](const float* s) { return relief.out.put_rows(s, 1); })) return false;
  for (Map& map : qc.maps) {
    if (!map.on) continue;
    if (!map.out.close()) return false;
    result.nmaps++;
  }
  report(qc, total, watch.text(), result);
  return true;
}
}  // namespace veld
