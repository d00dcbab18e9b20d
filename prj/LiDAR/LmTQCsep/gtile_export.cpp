#include "prj/LiDAR/LmTQCsep/gtile_export.h"

#include <atomic>
#include <cmath>
#include <memory>

#include "image/tiff_out.h"
#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTgrid_w/LKRgrid.h"
#include "prj/LiDAR/LmTgrid_w/grid_rows.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/LmTinter/corr_field.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double SCALE = 0.001;  // units of the swaths, of the points written

struct Gtiles {
  const Project& prj;
  const GtileParam& par;
  const MapParam& map;
  const SwathVector<SCorrTbl>* corr;
  std::string prefix;  // of the names
  double GSD = 1, Tsize = 1;
  int side = 0;  // pixels along a tile
  LASheader header = {};
  std::vector<GridRow> rows = {};
  std::atomic<uint64_t> ntiles = 0, npoints = 0;
};

// Of the first swath: version, coordinate system and its unit. The points are of the plainest format of that version.
bool make_header(Gtiles& g) {
  std::unique_ptr<LASreader> reader = las_read_open(g.prj.swaths[g.rows[0].sw].path(), INPARSE, false, 0);
  if (!reader) return false;
  g.header = reader->header;
  las_read_close(reader);
  const auto other = [](const auto& record) { return las_text(record.user_id) != "LASF_Projection"; };
  for (const LASvlr& v : std::vector<LASvlr>(g.header.vlrs))
    if (other(v)) g.header.remove_vlr(las_text(v.user_id), v.record_id);
  std::erase_if(g.header.evlrs, other);
  g.header.attributes.clear();
  g.header.point_format = g.header.extended() ? 6 : 0;
  g.header.point_reclen = static_cast<uint16_t>(las_base_length(g.header.point_format));
  g.header.start_of_waveform = 0;
  g.header.global_encoding &= 0x11;  // kind of times, WKT: no waveforms
  g.header.clear_inventory();
  g.header.x_scale_factor = g.header.y_scale_factor = g.header.z_scale_factor = SCALE;
  set_las_text(g.header.generating_software, SOFTINFO);
  return true;
}

class TileFile {  // points and mean heights of one tile
 public:
  TileFile(Gtiles& g, double X0, double Y0) : g_(g), X0_(X0), Y0_(Y0) {
    const auto whole = [](double v) { return std::to_string(std::llround(std::floor(v / DATAUNIT))); };
    name_ = g.prefix + whole(X0) + "_" + whole(Y0);
    if (!g.par.tiff) return;
    sum_.resize(g.side, g.side, 0.0f);
    n_.resize(g.side, g.side, uint16_t{0});
  }
  // x, y, z: m from the tile's lower left corner and from 0; word: of the grid. False after an ERROR line.
  bool add(SwathId sw, double x, double y, float z, uint32_t word) {
    if (!writer_ && !open()) return false;
    const auto put = [](double m, double unit) {
      return static_cast<int32_t>(std::lround(m / (unit * SCALE)));
    };
    p_.set_X(put(x, DATAUNIT));
    p_.set_Y(put(y, DATAUNIT));
    p_.set_Z(put(static_cast<double>(z), DATAUNIT_Z));
    p_.set_intensity(static_cast<uint16_t>(decode_D(word)));
    p_.set_user_data(static_cast<uint8_t>(decode_S(word)));
    p_.set_point_source_id(static_cast<uint16_t>(sw.number + 1));
    const auto i = std::lround(x / g_.GSD), j = std::lround(y / g_.GSD);
    if (g_.par.tiff && i >= 0 && j >= 0 && i < g_.side && j < g_.side) {
      sum_.row(static_cast<int>(j))[i] += z;
      n_.row(static_cast<int>(j))[i]++;
    }
    return writer_->write_point(p_);
  }
  bool close() {
    if (!writer_) return true;
    g_.ntiles++;
    g_.npoints += writer_->p_count;
    return las_write_close(writer_) && (!g_.par.tiff || save_tiff());
  }

 private:
  bool open() {
    LASheader header = g_.header;
    header.x_offset = X0_ / DATAUNIT;
    header.y_offset = Y0_ / DATAUNIT;
    header.z_offset = 0;
    writer_ = las_write_open(name_ + ".laz", header, OUTPARSE);
    if (!writer_) return false;
    record_.assign(header.point_reclen, 0);
    p_ = header.point();
    p_.rec = record_.data();
    p_.set_returns(1, 1);
    p_.set_classification(1);
    return true;
  }
  bool save_tiff() {
    TiffSpec spec;
    spec.pixel = Pixel::f32;
    spec.xsize = spec.ysize = g_.side;
    spec.cog = g_.map.img.cog;
    spec.unit = "m";
    spec.place = {X0_ - g_.GSD / 2, Y0_ + (g_.side - 0.5) * g_.GSD,
                  g_.GSD};  // heights are those of pixel centres
    spec.crs = g_.map.img.crs;
    TiffOut out;
    if (!out.open(name_ + ".tif", spec)) return false;
    for (int y = g_.side - 1; y >= 0; y--) {
      float* const row = sum_.row(y);
      for (int x = 0; x < g_.side; x++)
        row[x] = n_.row(y)[x] > 0 ? row[x] / static_cast<float>(n_.row(y)[x]) : NODATA;
      if (!out.put_rows(row, 1)) return false;
    }
    return out.close() && save_worldfile(name_ + ".tif", spec.place, OUTDATAUNIT);
  }

  Gtiles& g_;
  double X0_, Y0_;
  std::string name_;
  std::unique_ptr<LASwriter> writer_;
  std::vector<uint8_t> record_;
  LASpoint p_;
  Image<float> sum_;
  Image<uint16_t> n_;
};

bool add_swath(const Gtiles& g, const GridRow& row, uint32_t XI, uint32_t YI, Image<uint32_t>& words,
               TileFile& file) {
  const int k = row.grid ? row.grid->tile_at(XI, YI) : -1;
  if (k < 0 || row.grid->gT(k) == 0) return true;
  const GridRead state = read_gZ_tile_sub(*row.grid, k, 1, words);
  if (state != GridRead::heights) return state == GridRead::none;
  std::unique_ptr<TileCorr> field;
  if (g.corr) field = std::make_unique<TileCorr>(*row.grid, XI, YI, (*g.corr)[row.sw]);
  const float mt = 1 / static_cast<float>(g.prj.scale.dim);
  for (int y = 0; y < g.side; y++)
    for (int x = 0; x < g.side; x++) {
      const uint32_t word = words.row(y)[x];
      if ((word & GRID_ZMASK) == 0) continue;
      xyz c = {0, 0, 0};
      if (field && !field->at(static_cast<float>(x) * mt, static_cast<float>(y) * mt, c)) continue;
      if (!file.add(row.sw, x * g.GSD + static_cast<double>(c.x), y * g.GSD + static_cast<double>(c.y),
                    decode_Z(word) + c.z, word))
        return false;
    }
  return true;
}

bool export_tile(Gtiles& g, uint32_t XI, uint32_t YI) {
  TileFile file(g, XI * g.Tsize + GROUND_ORIGIN, YI * g.Tsize + GROUND_ORIGIN);
  Image<uint32_t> words;
  for (const GridRow& row : g.rows)
    if (!add_swath(g, row, XI, YI, words, file)) return false;
  return file.close();
}
}  // namespace

bool export_tiles_corr(const Project& prj, const TileInfo& frame, const GtileParam& par, const MapParam& map,
                       int nthreads, const SwathVector<SCorrTbl>* corr) {
  LOG_ENTER("export_tiles_corr nsw=" << prj.swaths.size() << " tiff=" << par.tiff << " ref=" << par.ref
                                     << " corr=" << (corr != nullptr));
  const Stopwatch watch;
  Gtiles g{prj, par, map, corr, prj.name + (corr ? "_corr_vr_gtile_" : "_vr_gtile_")};
  g.GSD = static_cast<double>(prj.scale.GSD());
  g.Tsize = static_cast<double>(prj.scale.Tsize);
  g.side = mTsub * prj.scale.dim;
  g.rows = list_grid_rows(prj);
  if (!par.ref) std::erase_if(g.rows, [&](const GridRow& row) { return prj.swaths[row.sw].fixed; });
  if (!g.rows.empty() && !make_header(g)) return false;
  progress_start(frame.ny);
  for (int ty = 0; ty < frame.ny && !g.rows.empty(); ty++) {
    const uint32_t YI = frame.YI + static_cast<uint32_t>(ty);
    for (GridRow& row : g.rows)
      if (!turn_grid_row(prj, YI, row)) return false;
    if (run_units(frame.nx, nthreads, [&](int64_t tx, int) {
          return export_tile(g, frame.XI + static_cast<uint32_t>(tx), YI);
        }) >= 0)
      return false;
    progress_step(ty + 1, "GRIDDED TILES " + std::to_string(g.ntiles) + " written");
  }
  progress_end("GRIDDED TILES");
  if (g.ntiles == 0) {
    ERROR_MSG("gridded tile export failed, all swaths filtered out");
    return false;
  }
  LOG_MSG("Written " << g.ntiles << " gridded tiles " << g.prefix << "*, " << g.npoints << " points | "
                     << watch.text());
  return true;
}
}  // namespace veld
