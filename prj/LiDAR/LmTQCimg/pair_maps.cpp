#include "prj/LiDAR/LmTQCimg/pair_maps.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr int HIST_BINS = 4000;       // of a histogram, on both sides of 0
constexpr double FINEST_BIN = 0.001;  // m, of a histogram as text

bool write_hist(const std::string& name, const DZHistogram& h) {
  LOG_MSG("Writing histogram " << name << "_hist.txt");
  ResultFile out;
  if (!out.open(name + "_hist.txt")) return false;
  out.fs << "DZ Count\n";
  const auto middle = static_cast<int64_t>(h.count.size() / 2);
  const double step = std::max(static_cast<double>(h.step), FINEST_BIN);
  std::map<int64_t, uint64_t> bins;
  for (size_t i = 0; i < h.count.size(); i++) {
    const double dz =
        (static_cast<double>(static_cast<int64_t>(i) - middle) + 0.5) * static_cast<double>(h.step);
    if (h.count[i] > 0) bins[static_cast<int64_t>(std::floor(dz / step))] += h.count[i];
  }
  char line[64];
  for (const auto& [bin, count] : bins) {
    std::snprintf(line, sizeof line, "%.4f %llu\n", (static_cast<double>(bin) + 0.5) * step,
                  static_cast<unsigned long long>(count));
    out.fs << line;
  }
  return out.commit();
}

// A line a vertex of the tiles that have any. x0, y0: m, of the lower left vertex; gs: m.
bool mtiles_plot_vecimg(const std::string& name, const TileMap<xyz>& map, double x0, double y0, double gs) {
  LOG_MSG("Writing vector image '" << name << ".img.txt'");
  ResultFile out;
  if (!out.open(name + ".img.txt")) return false;
  out.fs << "X Y Vector{X Y Z} (no data -9999)\n";
  const TileInfo& f = map.frame();
  const int side = map.side();
  Image<xyz> tile;
  char line[120];
  for (int ty = 0; ty < f.ny; ty++)
    for (int tx = 0; tx < f.nx; tx++) {
      const auto XI = f.XI + static_cast<uint32_t>(tx), YI = f.YI + static_cast<uint32_t>(ty);
      if (!map.written(XI, YI)) continue;
      if (!map.read(XI, YI, tile)) return false;
      for (int y = 0; y < side; y++)
        for (int x = 0; x < side; x++) {
          const dxyz v = to_dxyz(tile(x, y));
          const long X = std::lround(x0 + (tx * side + x) * gs), Y = std::lround(y0 + (ty * side + y) * gs);
          if (tile(x, y).z == IMG_NODATA)
            std::snprintf(line, sizeof line, "%ld %ld  -9999 -9999 -9999\n", X, Y);
          else
            std::snprintf(line, sizeof line, "%ld %ld  %.3f %.3f %.3f\n", X, Y, v.x, v.y, v.z);
          out.fs << line;
        }
    }
  return out.commit();
}

float larger(float a, float b) { return std::fabs(b) > std::fabs(a) ? b : a; }
}  // namespace

bool DZpicture::open(const Project& prj, const TileInfo& frame, const MapParam& par) {
  par_ = par;
  if (frame.nx == 0 || (!draws_maps(par) && !draws_plots(par))) return true;
  const int n = mTsub * prj.scale.dim;
  Tsize_ = static_cast<double>(prj.scale.Tsize);
  sub_ = map_sub(par.DZ_sub, n);
  const float range = par.h_range > 0 ? par.h_range : par.dz_range;
  hist_.step = 2 * range / HIST_BINS;
  hist_.count.assign(HIST_BINS, 0);
  return map_.open(frame, n / sub_, IMG_NODATA);
}

bool DZpicture::add(const Tocc& tiles, const Vector<Image<float>>& cells) {
  if (!active() || cells.empty()) return true;
  Image<float> tile;
  for (size_t t = 0; t < tiles.size(); t++) {
    const Image<float>& from = cells[t];
    if (!map_.read(tiles[t].x, tiles[t].y, tile)) return false;
    bool any = false;
    for (uint64_t i = 0; i < from.size(); i++) {
      if (from[i] == IMG_NODATA) continue;
      const float dz = -from[i];
      const float bin = std::floor(dz / hist_.step) + HIST_BINS / 2;
      if (bin >= 0 && bin < HIST_BINS) hist_.count[static_cast<size_t>(bin)]++;
      const float value = par_.DZ_mix ? dz : std::fabs(dz);
      float& to = tile[i];
      to = to == IMG_NODATA ? value : larger(to, value);
      any = true;
    }
    if (any && !map_.write(tiles[t].x, tiles[t].y, tile)) return false;
  }
  return true;
}

bool DZpicture::save(const std::string& name, const std::string& title) const {
  if (!active() || map_.empty()) return true;
  const std::string kind = par_.DZ_mix ? "mix signed " : "max abs ";
  if (draws_maps(par_) &&
      !save_TileMap(name, kind + title, par_.img, dz_scale(par_),
                    frame_place(map_.frame(), Tsize_, Tsize_ / map_.side(), -Tsize_ / map_.side() / sub_ / 2),
                    map_))
    return false;
  if (!draws_plots(par_)) return true;
  const float range = par_.h_range > 0 ? par_.h_range : par_.dz_range;
  return save_DZH_img(name, par_.img, hist_, range, par_.h_log, par_.h_size) &&
         (!par_.ascii || write_hist(name, hist_));
}

void update_mix_XYZ(xyz& to, const xyz& v) {
  to = to.z == IMG_NODATA ? v : xyz{larger(to.x, v.x), larger(to.y, v.y), larger(to.z, v.z)};
}

bool VecPicture::open(const Project& prj, const TileInfo& frame, const MapParam& par, double gsize) {
  par_ = par;
  if (frame.nx == 0 || (!draws_maps(par) && !draws_plots(par))) return true;
  Tsize_ = static_cast<double>(prj.scale.Tsize);
  gsize_ = gsize;
  planes_ = make_scatter(par.p_size, par.p_range > 0 ? par.p_range : par.vectors.range);
  const TileInfo grown{frame.XI, frame.YI, frame.nx + 1,
                       frame.ny + 1};  // vertices on the right and upper edges
  return map_.open(grown, std::max(1, static_cast<int>(std::lround(Tsize_ / gsize))), xyz{0, 0, IMG_NODATA});
}

bool VecPicture::add(const std::vector<Sample>& samples) {
  if (!active()) return true;
  const int64_t side = map_.side();
  std::map<std::pair<int64_t, int64_t>, std::vector<const Sample*>> by_tile;
  const TileInfo& f = map_.frame();
  uint64_t nout = 0;
  for (const Sample& s : samples) {
    const int64_t x = std::llround((s.X - GROUND_ORIGIN) / gsize_),
                  y = std::llround((s.Y - GROUND_ORIGIN) / gsize_);
    const int64_t tx = x / side - f.XI, ty = y / side - f.YI;
    if (tx < 0 || ty < 0 || tx >= f.nx || ty >= f.ny)
      nout++;
    else
      by_tile[{ty, tx}].push_back(&s);
    update_XY_YZ_XZ_img(planes_, s.v);
  }
  if (nout > 0) LOG_LINE("<!> nout=" << nout);
  Image<xyz> tile;
  for (const auto& [at, list] : by_tile) {
    const auto XI = static_cast<uint32_t>(f.XI + at.second), YI = static_cast<uint32_t>(f.YI + at.first);
    if (!map_.read(XI, YI, tile)) return false;
    for (const Sample* s : list) {
      const int64_t x = std::llround((s->X - GROUND_ORIGIN) / gsize_),
                    y = std::llround((s->Y - GROUND_ORIGIN) / gsize_);
      update_mix_XYZ(tile(static_cast<int>(x % side), static_cast<int>(y % side)), s->v);
    }
    if (!map_.write(XI, YI, tile)) return false;
  }
  return true;
}

bool VecPicture::save_map(const std::string& name, const std::string& title, const VectorStyle& style,
                          bool magnitudes) const {
  if (!draws_maps(par_) || map_.empty()) return true;
  ImgPlace place = frame_place(map_.frame(), Tsize_, gsize_);
  place.x0 -= gsize_ / 2;
  place.y0 -= gsize_ / 2;
  VectorStyle s = style;
  s.is_signed = style.is_signed && !magnitudes;
  if (!s.is_signed) s.color = COLOR_SEQUENTIAL;
  return save_TileMap_Def(name, title, par_.img, s, place, map_, magnitudes);
}

bool VecPicture::save(const std::string& name, const std::string& title, const VectorStyle& style) const {
  if (par_.ascii && draws_maps(par_) && !map_.empty()) {
    const TileInfo& f = map_.frame();
    if (!mtiles_plot_vecimg(name, map_, f.XI * Tsize_ + GROUND_ORIGIN, f.YI * Tsize_ + GROUND_ORIGIN, gsize_))
      return false;
  }
  return save_map(name, title, style, false);
}
bool VecPicture::save_max_abs(const std::string& name, const std::string& title,
                              const VectorStyle& style) const {
  return save_map(name, title, style, true);
}

bool VecPicture::save_scatter(const std::string& name) const {
  return !draws_plots(par_) || map_.empty() || save_XY_YZ_XZ_img(name, par_.img, planes_);
}

VectorStyle uncertainty_style(const MapParam& par) {
  VectorStyle s = par.vectors;
  s.range = par.u_range;
  s.is_signed = false;
  s.color = COLOR_SEQUENTIAL;
  return s;
}
}  // namespace veld
