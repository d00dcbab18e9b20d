#include "prj/LiDAR/LmTQCimg/swath_maps.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTQCimg/swath_geojson.h"
#include "prj/LiDAR/LmTQCimg/swath_text.h"
#include "prj/LiDAR/LmTQCimg/tile_map.h"
#include "prj/LiDAR/LmTplot/LmTplot_txt.h"
#include "prj/LiDAR/LmTplot/footprint.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
bool write_boxes(const Project& prj, const ProjectStat& stat, bool outobj) {
  std::vector<SwathPlot> plots;
  std::vector<MapShape> shapes;
  for (const Swath& s : prj.swaths.present()) {
    const LTidxInfo& info = stat.swaths[s.id].info;
    plots.push_back({s.path(), s.id, s.group, info});
    std::vector<dxyz> ring;
    for (int i = 0; i < 4; i++) ring.push_back({info.mbr[i][0], info.mbr[i][1], 0});
    shapes.push_back(make_shape(prj, stat, s.id));
    shapes.back().polygons = {{ring}};
  }
  return write_MBR(prj.name + "_sw", plots, outobj) && write_BBOX(prj.name + "_sw", plots, outobj) &&
         write_geojson(prj.name + "_sw_mbr", prj, shapes);
}

// Border edges of all swaths, one swath at a time.
bool write_footprints(const Project& prj, const ProjectStat& stat, bool outobj) {
  const std::string name = prj.name + "_sw_fp";
  const double mTsize = static_cast<double>(prj.scale.mTsize);
  ResultFile txt, obj;
  if (!txt.open(name + ".txt") || (outobj && !obj.open(name + ".obj"))) return false;
  txt.fs << "X Y Swath# Group#\n";
  std::vector<MapShape> shapes;
  for (const Swath& s : prj.swaths.present()) {
    Tocc occ;
    if (!read_Tocc(s.cache, occ)) {
      ERROR_MSG("missing/incompatible temp. tile files, " << s.path());
      return false;
    }
    const std::vector<BorderEdge> edges = border_edges(occ);
    put_edges(txt, obj, edges, mTsize, LOG_STR(' ' << s.id << ' ' << s.group));
    shapes.push_back(make_shape(prj, stat, s.id));
    shapes.back().polygons = make_polygons(trace_outlines(edges), mTsize);
  }
  return txt.commit() && (!outobj || obj.commit()) && write_geojson(name, prj, shapes);
}

// Box and outline of the covered ground.
bool write_full(const Project& prj, const Tovr& ovr, const SwathMapParam& par) {
  const Tocc covered = make_Tocc(ovr, 1);
  const double m = static_cast<double>(prj.scale.mTsize);
  const mTbbox b = comp_mTbbox_Tocc(covered);
  const auto ground = [m](int64_t i) { return static_cast<double>(i) * m + GROUND_ORIGIN; };
  if (par.BB && !write_BBOX(prj.name + "_full_bb.txt", ground(b.xmin), ground(b.ymin), ground(b.xmax + 1),
                            ground(b.ymax + 1)))
    return false;
  if (!par.FP) return true;
  const std::string name = prj.name + "_full_fp";
  ResultFile txt, obj;
  if (!txt.open(name + ".txt") || (par.OUTOBJ && !obj.open(name + ".obj"))) return false;
  txt.fs << "X Y\n";
  const std::vector<BorderEdge> edges = border_edges(covered);
  put_edges(txt, obj, edges, m, "");
  const std::string properties = LOG_STR("{\"swaths\": " << prj.swaths.ids().size() << ", \"area_m2\": "
                                                         << static_cast<double>(b.n) * m * m << "}");
  return txt.commit() && (!par.OUTOBJ || obj.commit()) &&
         write_geojson(name, prj, {{"the project", properties, make_polygons(trace_outlines(edges), m)}});
}

// What microtiles hold, over all swaths.
struct MicrotileMaps {
  TileMap<xyz> sums;  // points, points x height, 0; height relative to that of the project
  TileMap<float> dt, dev;
  float zref = 0;
};

void add_largest(Image<float>& to, const Image<uint8_t>& codes, const Image<int32_t>& t, float unit) {
  for (int m = 0; m < mTn; m++)
    if (t[m] != NO_I32) to[m] = std::max(to[m], static_cast<float>(codes[m]) * unit);
}

bool add_swath(const LTidxInfo& info, const Swath& s, MicrotileMaps& maps) {
  Vector<TIsxy> TI;
  TileTables tables;
  Vector<Image<int32_t>> Ct;
  Vector<Image<uint8_t>> dt, dev;
  if (!read_LTidx_TI(s.cache, TI) || !tables.open(s.cache, info.nt, false)) return false;
  const bool times = !s.fixed && read_sw_t_tiles(s.cache, info.nt, Ct, dt, dev);
  Image<uint32_t> N;
  Image<int32_t> Zm;
  Image<xyz> sum;
  Image<float> tile;
  for (uint32_t k = 0; k < TI.size(); k++) {
    const TIsxy& t = TI[k];
    if (!tables.read_N(k, N) || !tables.read_Zm(k, Zm) || !maps.sums.read(t.x, t.y, sum)) return false;
    for (int m = 0; m < mTn; m++) {
      if (N[m] == 0) continue;
      const float n = static_cast<float>(N[m]);
      const double z = static_cast<double>(Zm[m]) * M_PER_UNIT;
      xyz& v = sum[m];
      if (v.z == IMG_NODATA) v = {0, 0, 0};
      v.x += n;
      v.y += n * (static_cast<float>(z) - maps.zref);
    }
    if (!maps.sums.write(t.x, t.y, sum)) return false;
    if (!times) continue;
    const float dt_unit = static_cast<float>(DT_RANGE) / 255, dev_unit = DEV_RANGE / 255;
    if (!maps.dt.read(t.x, t.y, tile)) return false;
    add_largest(tile, dt[k], Ct[k], dt_unit);
    if (!maps.dt.write(t.x, t.y, tile) || !maps.dev.read(t.x, t.y, tile)) return false;
    add_largest(tile, dev[k], Ct[k], dev_unit);
    if (!maps.dev.write(t.x, t.y, tile)) return false;
  }
  return true;
}

ImgScale scale_of(float z0, float range, int color, const char* unit) {
  ImgScale s;
  s.z0 = z0;
  s.range = s.range16 = range;
  s.color = color;
  s.unit = unit;
  return s;
}

// A value of each microtile as a map of its own.
template <typename Value>
bool save_sums(const std::string& name, const std::string& title, const Project& prj, const MapParam& map,
               const ImgScale& scale, const MicrotileMaps& maps, Value value) {
  TileMap<float> out;
  const TileInfo& f = maps.sums.frame();
  if (!out.open(f, mTsub, IMG_NODATA)) return false;
  Image<xyz> sum;
  Image<float> tile(mTsub, mTsub);
  for (int y = 0; y < f.ny; y++)
    for (int x = 0; x < f.nx; x++) {
      const auto XI = f.XI + static_cast<uint32_t>(x), YI = f.YI + static_cast<uint32_t>(y);
      if (!maps.sums.written(XI, YI)) continue;
      if (!maps.sums.read(XI, YI, sum)) return false;
      for (int m = 0; m < mTn; m++) tile[m] = sum[m].z == IMG_NODATA ? IMG_NODATA : value(sum[m]);
      if (!out.write(XI, YI, tile)) return false;
    }
  const double Tsize = static_cast<double>(prj.scale.Tsize);
  return save_TileMap(name, title, map.img, scale, frame_place(f, Tsize, Tsize / mTsub), out);
}

// "_mN.img.txt": a line a microtile with points, its lower left corner.
bool mtiles_plot_Nimg(const Project& prj, const MicrotileMaps& maps) {
  const std::string name = prj.name + "_mN.img.txt";
  const double mTsize = static_cast<double>(prj.scale.mTsize);
  LOG_MSG("Writing total microtile point count image '" << name << "', grid spacing=" << mTsize);
  ResultFile out;
  if (!out.open(name)) return false;
  out.fs << "X Y NPts\n";
  Image<xyz> row;
  const TileInfo& f = maps.sums.frame();
  for (int y = 0; y < f.ny; y++) {
    if (!maps.sums.read_row(y, row)) return false;
    for (int j = 0; j < mTsub; j++)
      for (int i = 0; i < row.xsize(); i++) {
        const xyz& v = row.row(j)[i];
        if (v.z == IMG_NODATA) continue;
        const double X = (int64_t{f.XI} * mTsub + i) * mTsize + GROUND_ORIGIN;
        const double Y = ((int64_t{f.YI} + y) * mTsub + j) * mTsize + GROUND_ORIGIN;
        out.fs << std::lround(X) << ' ' << std::lround(Y) << "  " << std::lround(v.x) << '\n';
      }
  }
  return out.commit();
}

bool save_microtile_maps(const Project& prj, const ProjectStat& stat, const MapParam& map) {
  MicrotileMaps maps;
  maps.zref = static_cast<float>(stat.Zmed);
  if (!maps.sums.open(stat.frame, mTsub, xyz{0, 0, IMG_NODATA}) ||
      !maps.dt.open(stat.frame, mTsub, IMG_NODATA) || !maps.dev.open(stat.frame, mTsub, IMG_NODATA))
    return false;
  for (const Swath& s : prj.swaths.present())
    if (!add_swath(stat.swaths[s.id].info, s, maps)) {
      ERROR_MSG("missing/incompatible temp. tile files, " << s.path());
      return false;
    }
  const float area = prj.scale.mTsize * prj.scale.mTsize, density = static_cast<float>(map.d_range);
  const double Tsize = static_cast<double>(prj.scale.Tsize);
  const ImgPlace place = frame_place(stat.frame, Tsize, Tsize / mTsub);
  const float zlow = map.z_range > 0 ? map.z_min : std::floor(static_cast<float>(stat.Zmin));
  const float zspan =
      map.z_range > 0 ? map.z_range : std::max(1.0f, std::ceil(static_cast<float>(stat.Zmax)) - zlow);
  return save_sums(prj.name + "_mN", "microtile point count", prj, map,
                   scale_of(0, density * area, COLOR_SEQUENTIAL, "points"), maps,
                   [](const xyz& v) { return v.x; }) &&
         save_sums(prj.name + "_mD", "microtile density", prj, map,
                   scale_of(0, density, COLOR_SEQUENTIAL, "points/m2"), maps,
                   [&](const xyz& v) { return v.x / area; }) &&
         save_sums(prj.name + "_mZ", "microtile elevation", prj, map, scale_of(zlow, zspan, map.z_color, "m"),
                   maps, [&](const xyz& v) { return v.y / v.x + maps.zref; }) &&
         (maps.dt.empty() ||
          (save_TileMap(prj.name + "_dt", "largest time interval", map.img,
                        scale_of(0, static_cast<float>(DT_RANGE), COLOR_SEQUENTIAL, "s"), place, maps.dt) &&
           save_TileMap(prj.name + "_dev", "largest time deviation", map.img,
                        scale_of(0, DEV_RANGE, COLOR_SEQUENTIAL, ""), place, maps.dev))) &&
         (!map.ascii || mtiles_plot_Nimg(prj, maps));
}
}  // namespace

bool save_bb_fp_N(const Project& prj, const ProjectStat& stat, const Tovr& ovr, const SwathMapParam& par) {
  LOG_ENTER("save_bb_fp_N nsw=" << prj.swaths.size() << " bb=" << par.BB << " fp=" << par.FP
                                << " img=" << par.images);
  if (par.BB && !write_boxes(prj, stat, par.OUTOBJ)) return false;
  if (par.FP && !write_footprints(prj, stat, par.OUTOBJ)) return false;
  if ((par.BB || par.FP) && !write_full(prj, ovr, par)) return false;
  if (par.images && par.map.ascii && !mtiles_zbounds_plot_tdnsg(prj, stat)) return false;
  return !par.images || !par.map.img.any() || save_microtile_maps(prj, stat, par.map);
}

bool save_Tovrimg(const std::string& name, const std::string& title, const Project& prj, const MapParam& map,
                  const Tovr& ovr) {
  constexpr float MOST = 8;  // swaths, full scale
  if (!map.img.any() || ovr.n.empty()) return true;
  TileMap<float> out;
  if (!out.open(ovr.frame, mTsub, IMG_NODATA)) return false;
  Image<float> tile(mTsub, mTsub);
  for (int y = 0; y < ovr.frame.ny; y++)
    for (int x = 0; x < ovr.frame.nx; x++) {
      const Image<uint8_t>& n = ovr.n(x, y);
      if (n.empty()) continue;
      for (int m = 0; m < mTn; m++) tile[m] = n[m] == 0 ? IMG_NODATA : static_cast<float>(n[m]);
      if (!out.write(ovr.frame.XI + static_cast<uint32_t>(x), ovr.frame.YI + static_cast<uint32_t>(y), tile))
        return false;
    }
  const double Tsize = static_cast<double>(prj.scale.Tsize);
  return save_TileMap(name, title, map.img, scale_of(0, MOST, COLOR_SEQUENTIAL, "number"),
                      frame_place(ovr.frame, Tsize, Tsize / mTsub), out);
}
}  // namespace veld
