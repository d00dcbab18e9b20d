#include "prj/LiDAR/VR2proc/tile_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/posfile.h"
#include "lib/general/progress.h"
#include "lib/general/result_file.h"
#include "lib/threads/pool.h"

namespace veld {
namespace {
constexpr double MAX_TILES = 1e6;

int64_t tile_index(double value, double origin, double size) {
  return static_cast<int64_t>(std::floor((value - origin) / size));
}

std::string tile_name(const TileOutput& out, int64_t column, int64_t row) {
  char text[60];
  std::snprintf(text, sizeof text, "%04d_%04d", static_cast<int>(column), static_cast<int>(row));
  return out.prefix + text + out.suffix;
}

struct Tile {  // of the output
  int64_t column = 0, row = 0;
  double xmin = 0, ymin = 0;
  std::string name;
  uint64_t npoints = 0;
  int64_t nbytes = 0;
  bool index_ok = false;
};

Tile make_tile(const TileLayout& grid, const TileOutput& out, int64_t number) {
  Tile t;
  t.column = grid.XI0 + number % grid.ntx;
  t.row = grid.YI0 + number / grid.ntx;
  t.xmin = grid.x0 + static_cast<double>(t.column) * grid.size;
  t.ymin = grid.y0 + static_cast<double>(t.row) * grid.size;
  t.name = tile_name(out, t.column, t.row);
  return t;
}

// Offsets in whole units, so that coordinates keep their last digits.
LASheader tile_header(const TileOutput& out, const TileLayout& grid, const Tile& t) {
  LASheader h = out.header;
  h.x_offset = std::floor(t.xmin);
  h.y_offset = std::floor(t.ymin);
  h.z_offset = std::floor(h.z_offset);
  h.min_x = t.xmin;
  h.min_y = t.ymin;
  h.max_x = t.xmin + grid.size;
  h.max_y = t.ymin + grid.size;
  return h;
}

// Coordinates of n records from the steps of one file to those of another. False where these cannot hold them.
bool restep(std::vector<uint8_t>& records, uint64_t n, LASpoint from, LASpoint to) {
  for (uint64_t i = 0; i < n; i++) {
    from.rec = to.rec = records.data() + i * static_cast<uint64_t>(to.lay.reclen);
    int32_t X, Y, Z;
    if (!las_to_grid(from.x(), to.offset[0], to.scale[0], X) ||
        !las_to_grid(from.y(), to.offset[1], to.scale[1], Y) ||
        !las_to_grid(from.z(), to.offset[2], to.scale[2], Z))
      return false;
    to.set_X(X);
    to.set_Y(Y);
    to.set_Z(Z);
  }
  return true;
}

// The pieces of one tile, swath by swath.
using TilePlan = std::vector<std::pair<const TilePieces*, const TilePieces::Piece*>>;

bool copy_pieces(const TilePlan& plan, LASwriter& writer, LASindex& index, bool& index_ok) {
  std::vector<uint8_t> records;
  const TilePieces* open = nullptr;
  PosFileIn in;
  const uint64_t reclen = writer.header.point_reclen;
  for (const auto& [swath, piece] : plan) {
    if (swath != open) in.close();
    if (swath != open && !in.open(swath->path())) return false;
    open = swath;
    records.resize(piece->n * reclen);
    if (!in.read(piece->first * reclen, records.data(), records.size())) return false;
    if (!restep(records, piece->n, swath->point(), writer.header.point())) {
      ERROR_MSG("coordinates beyond what the tile can hold at its scale");
      return false;
    }
    index_ok = index_ok && index.add_records(writer.header.point(), records.data(), piece->n, writer.p_count);
    if (!writer.write_raw_records(records.data(), piece->n)) return false;
  }
  return true;
}

bool write_tile(const TileLayout& grid, const TileOutput& out, const TilePlan& plan, Tile& t) {
  const LASheader header = tile_header(out, grid, t);
  std::unique_ptr<LASwriter> writer = las_write_open(t.name, header, "", out.sources);
  if (!writer) return false;
  LASindex index;
  t.index_ok = out.lax && index.prepare(header);
  if (!copy_pieces(plan, *writer, index, t.index_ok)) return false;
  t.npoints = writer->p_count;
  return t.index_ok ? las_write_close(writer, index, out.lax_append, t.index_ok, &t.nbytes)
                    : las_write_close(writer, &t.nbytes);
}

bool save_tile_list(const TileLayout& grid, const std::vector<Tile>& tiles, const std::string& name) {
  ResultFile file;
  if (!file.open(name)) return false;
  file.fs << "Column Row Xmin Ymin Xmax Ymax NPts FileName\n";
  for (const Tile& t : tiles)
    file.fs << t.column << ' ' << t.row << ' ' << t.xmin << ' ' << t.ymin << ' ' << t.xmin + grid.size << ' '
            << t.ymin + grid.size << ' ' << t.npoints << ' ' << t.name << '\n';
  return file.commit();
}
}  // namespace

bool init_corr_tiles(const TileParam& par, const std::vector<LASheader>& headers, double margin,
                     TileLayout& grid) {
  grid = {par.x0(), par.y0(), par.size, 0, 0, 0, 0};
  double xmin = 2e307, ymin = 2e307, xmax = -2e307, ymax = -2e307;
  uint64_t npmax = 0;
  for (const LASheader& h : headers) {
    if (!(h.min_x <= h.max_x && h.min_y <= h.max_y)) continue;
    xmin = std::min(xmin, h.min_x), ymin = std::min(ymin, h.min_y);
    xmax = std::max(xmax, h.max_x), ymax = std::max(ymax, h.max_y);
    npmax = std::max(npmax, h.npoints);
  }
  const double nx = (xmax - xmin + 2 * margin) / par.size + 2, ny = (ymax - ymin + 2 * margin) / par.size + 2;
  const double far = std::max({std::fabs(xmin - par.x0()), std::fabs(xmax - par.x0()),
                               std::fabs(ymin - par.y0()), std::fabs(ymax - par.y0())}) /
                     par.size;
  if (!(nx > 0 && ny > 0 && nx * ny < MAX_TILES && far < 1e9)) {
    ERROR_MSG("output tiles of " << par.size << " would be more than " << MAX_TILES
                                 << " (options -otile -otile_origin)");
    return false;
  }
  grid.XI0 = tile_index(xmin - margin, par.x0(), par.size);
  grid.YI0 = tile_index(ymin - margin, par.y0(), par.size);
  grid.ntx = tile_index(xmax + margin, par.x0(), par.size) - grid.XI0 + 1;
  grid.nty = tile_index(ymax + margin, par.y0(), par.size) - grid.YI0 + 1;
  LOG_LINE("init_corr_tiles setID=" << par.id << " TOx=" << par.x0() << " TOy=" << par.y0() << " Ts="
                                    << par.size << " Pmin=" << xmin << ' ' << ymin << " Pmax=" << xmax << ' '
                                    << ymax << " npmax=" << npmax << " XI0=" << grid.XI0
                                    << " YI0=" << grid.YI0 << " XI1=" << grid.XI0 + grid.ntx - 1 << " YI1="
                                    << grid.YI0 + grid.nty - 1 << " ntx=" << grid.ntx << " nty=" << grid.nty);
  return true;
}

TilePieces::TilePieces(const std::string& path, const TileLayout& grid, const LASpoint& point,
                       uint64_t buffer, uint64_t budget, int id)
    : path_(path),
      grid_(grid),
      point_(point),
      buffer_bytes_(buffer * static_cast<uint64_t>(point.lay.reclen)),
      budget_(budget),
      id_(id),
      file_(0) {}

TilePieces::~TilePieces() {
  if (!file_.name().empty()) remove_file(path_);
}

bool TilePieces::flush(int64_t tile, std::vector<uint8_t>& buffer) {
  if (buffer.empty()) return true;
  if (!file_.is_open() && !file_.open(path_, 0)) return false;
  const uint64_t n = buffer.size() / static_cast<uint64_t>(point_.lay.reclen);
  if (!file_.write(buffer.data(), buffer.size())) return false;
  pieces_.push_back({tile, npoints_, n});
  npoints_ += n;
  used_ -= buffer.size();
  buffer.clear();
  return true;
}

bool TilePieces::flush_all() {
  for (auto& [tile, buffer] : buffers_)
    if (!flush(tile, buffer)) return false;
  buffers_.clear();
  return true;
}

bool TilePieces::add(uint8_t* records, uint64_t n) {
  const size_t reclen = static_cast<size_t>(point_.lay.reclen);
  int64_t last = -1;  // points in a row are of one tile more often than not
  std::vector<uint8_t>* buffer = nullptr;
  LASpoint point = point_;
  for (uint64_t i = 0; i < n; i++) {
    point.rec = records + i * reclen;
    const int64_t column = tile_index(point.x(), grid_.x0, grid_.size) - grid_.XI0;
    const int64_t row = tile_index(point.y(), grid_.y0, grid_.size) - grid_.YI0;
    if (column < 0 || row < 0 || column >= grid_.ntx || row >= grid_.nty) {
      nout_++;
      continue;
    }
    const int64_t tile = row * grid_.ntx + column;
    if (tile != last) buffer = &buffers_[tile];
    last = tile;
    if (id_ >= 0) point.set_point_source_id(static_cast<uint16_t>(id_));
    buffer->insert(buffer->end(), point.rec, point.rec + reclen);
    used_ += reclen;
    if (buffer->size() >= buffer_bytes_ && !flush(tile, *buffer)) return false;
    if (used_ > budget_) {
      if (!flush_all()) return false;
      last = -1;
    }
  }
  return true;
}

bool TilePieces::finish() { return flush_all() && (!file_.is_open() || file_.close()); }

bool close_corr_tiles(const TileLayout& grid, const std::vector<const TilePieces*>& swaths,
                      const TileOutput& out, int nthreads, TileCount& count) {
  LOG_ENTER("close_corr_tiles -> " << out.prefix << "*" << out.suffix);
  std::map<int64_t, TilePlan> plans;
  for (const TilePieces* swath : swaths)
    if (swath)
      for (const TilePieces::Piece& piece : swath->pieces()) plans[piece.tile].push_back({swath, &piece});
  if (plans.empty()) {
    ERROR_MSG("no point left, all corrected tiles empty");
    return false;
  }
  std::vector<Tile> tiles;
  std::vector<const TilePlan*> plan_of;
  for (const auto& [number, plan] : plans) {
    tiles.push_back(make_tile(grid, out, number));
    plan_of.push_back(&plan);
  }
  const int64_t n = static_cast<int64_t>(tiles.size());
  std::vector<uint8_t> written(tiles.size(), 0);
  std::atomic<int64_t> done = 0;
  progress_start(n);
  run_units(n, nthreads, [&](int64_t i, int) {
    const size_t k = static_cast<size_t>(i);
    written[k] = write_tile(grid, out, *plan_of[k], tiles[k]);
    if (!written[k]) ERROR_MSG("could not write file " << tiles[k].name);
    const int64_t ndone = ++done;
    progress_step(ndone, LOG_STR("WRITTEN " << ndone << " tiles"));
    return true;  // a failed tile does not stop the others
  });
  progress_end(LOG_STR("WRITTEN " << n << " tiles"));
  bool ok = true;
  for (size_t k = 0; k < tiles.size(); k++) {
    ok = ok && written[k];
    if (!written[k]) continue;
    count.nt++;
    count.npoints += tiles[k].npoints;
    count.nbytes += tiles[k].nbytes;
    count.ntidx += tiles[k].index_ok;
  }
  std::vector<Tile> list;
  for (size_t k = 0; k < tiles.size(); k++)
    if (written[k]) list.push_back(tiles[k]);
  LOG_LINE("nt=" << count.nt << " nte=" << static_cast<uint64_t>(grid.ntx * grid.nty) - count.nt
                 << " ntidx=" << count.ntidx << ' ' << static_cast<double>(count.npoints) * 1e-6 << "Mp "
                 << static_cast<double>(count.nbytes) * 1e-6 << "Mb");
  return save_tile_list(grid, list, out.list) && ok;
}
}  // namespace veld
