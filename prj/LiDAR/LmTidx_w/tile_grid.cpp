#include "prj/LiDAR/LmTidx_w/tile_grid.h"

#include <algorithm>

#include "lib/general/log.h"

namespace veld {
namespace {
constexpr uint32_t START_SIDE = 32;  // tiles
}

TileGrid::TileGrid(const CacheName& swath, uint32_t limit, uint64_t max_bytes)
    : swath_(swath), limit_(limit), max_buffers_(std::max<uint64_t>(1, max_bytes / TILE_BUFFER)) {}

void TileGrid::centre(uint32_t XI, uint32_t YI) {
  nx_ = ny_ = START_SIDE;
  XI0_ = XI - nx_ / 2;  // may wrap below 0: differences of indices stay right
  YI0_ = YI - ny_ / 2;
  cells_.assign(uint64_t{nx_} * ny_, Cell{});
}

void TileGrid::place(uint32_t XI0, uint32_t YI0, uint32_t nx, uint32_t ny) {
  std::vector<Cell> cells(uint64_t{nx} * ny);
  for (uint32_t y = 0; y < ny_; y++)
    for (uint32_t x = 0; x < nx_; x++) {
      const Cell& cell = cells_[uint64_t{y} * nx_ + x];
      if (cell.n) cells[uint64_t{y + YI0_ - YI0} * nx + (x + XI0_ - XI0)] = cell;
    }
  cells_.swap(cells);
  XI0_ = XI0;
  YI0_ = YI0;
  nx_ = nx;
  ny_ = ny;
  LOG_LINE("getk_expand_NFTT XI0=" << XI0_ << " YI0=" << YI0_ << " " << nx_ << "x" << ny_
                                   << " limit=" << limit_);
}

// Makes room for a tile outside the grid: doubles both axes while that stays within the limit, the old grid
// in the middle of an axis whose lower side is passed, else at its start. At the limit, the grid is moved
// instead, so that only an extent that is really too large is refused.
bool TileGrid::getk_expand_NFTT(uint32_t XI, uint32_t YI) {
  const auto below = [](uint32_t i, uint32_t i0) { return static_cast<int32_t>(i - i0) < 0; };
  while (XI - XI0_ >= nx_ || YI - YI0_ >= ny_) {
    if (2 * nx_ > limit_ || 2 * ny_ > limit_) break;
    place(below(XI, XI0_) ? XI0_ - nx_ / 2 : XI0_, below(YI, YI0_) ? YI0_ - ny_ / 2 : YI0_, 2 * nx_, 2 * ny_);
  }
  if (XI - XI0_ < nx_ && YI - YI0_ < ny_) return true;
  // Extent of the tiles in use and the new one, relative to the grid's origin.
  const int64_t px = static_cast<int32_t>(XI - XI0_), py = static_cast<int32_t>(YI - YI0_);
  int64_t x0 = px, x1 = px, y0 = py, y1 = py;
  for (uint32_t y = 0; y < ny_; y++)
    for (uint32_t x = 0; x < nx_; x++)
      if (cells_[uint64_t{y} * nx_ + x].n) {
        x0 = std::min<int64_t>(x0, x);
        x1 = std::max<int64_t>(x1, x);
        y0 = std::min<int64_t>(y0, y);
        y1 = std::max<int64_t>(y1, y);
      }
  const int64_t freex = nx_ - (x1 - x0 + 1), freey = ny_ - (y1 - y0 + 1);
  if (freex < 0 || freey < 0) return false;
  place(XI0_ + static_cast<uint32_t>(x0 - freex / 2), YI0_ + static_cast<uint32_t>(y0 - freey / 2), nx_, ny_);
  return true;
}

TTstate TileGrid::write_outside(uint32_t XI, uint32_t YI, uint64_t word, uint32_t z) {
  if (!getk_expand_NFTT(XI, YI)) return TTstate::out_of_limit;
  return write(XI, YI, word, z);
}

TTstate TileGrid::open_cell(Cell& cell, uint32_t XI, uint32_t YI) {
  if (!cell.file) {  // creating it empties what an earlier run may have left
    auto file = std::make_unique<BufBinFileOut>(0);
    if (!file->open(tile_tmp_name(swath_, XI, YI), 0)) return TTstate::create_failed;
    cell.file = file.get();
    files_.push_back(std::move(file));
  }
  if (free_.empty()) {
    if (buffers_.size() < max_buffers_) {
      buffers_.push_back(std::make_unique_for_overwrite<uint8_t[]>(TILE_BUFFER + 8));
      free_.push_back(buffers_.back().get());
    } else if (const TTstate s = flush_all(); s != TTstate::good) {
      return s;
    }
  }
  cell.buf = free_.back();
  cell.fill = 0;
  free_.pop_back();
  return TTstate::good;
}

// Appends the buffer to the tile's file. A tile cannot hold more points than its counter.
TTstate TileGrid::flush_cell(Cell& cell) {
  if (cell.n > UINT32_MAX - TILE_BUFFER || !cell.file->write(cell.buf, cell.fill))
    return TTstate::write_failed;
  cell.fill = 0;
  return TTstate::good;
}

TTstate TileGrid::flush_all() {
  for (Cell& cell : cells_) {
    if (!cell.buf) continue;
    if (cell.fill > 0)
      if (const TTstate s = flush_cell(cell); s != TTstate::good) return s;
    free_.push_back(cell.buf);
    cell.buf = nullptr;
  }
  return TTstate::good;
}

TTstate TileGrid::finish() {
  if (const TTstate s = flush_all(); s != TTstate::good) return s;
  bool ok = true;
  for (const std::unique_ptr<BufBinFileOut>& file : files_) ok = file->close() && ok;
  return ok ? TTstate::good : TTstate::write_failed;
}

void TileGrid::tileinfo_tbl(double Tsize, Vector<TIsxy>& TI) const {
  uint64_t nt = 0, npts = 0;
  uint32_t nmin = UINT32_MAX, nmax = 0, xmin = UINT32_MAX, xmax = 0, ymin = UINT32_MAX, ymax = 0;
  for (const Cell& cell : cells_) nt += cell.n > 0;
  TI.resize(nt);
  uint64_t k = 0;
  for (uint32_t y = 0; y < ny_; y++)
    for (uint32_t x = 0; x < nx_; x++) {
      const uint32_t n = cells_[uint64_t{y} * nx_ + x].n;
      if (n == 0) continue;
      const TIsxy t{XI0_ + x, YI0_ + y, n};
      TI[k++] = t;
      npts += n;
      nmin = std::min(nmin, n);
      nmax = std::max(nmax, n);
      xmin = std::min(xmin, t.x);
      xmax = std::max(xmax, t.x);
      ymin = std::min(ymin, t.y);
      ymax = std::max(ymax, t.y);
    }
  if (nt == 0) return;
  const double area = Tsize * Tsize;
  LOG_LINE("TILES=" << nt << " XI:[" << xmin << " " << xmax << "] YI:[" << ymin << " " << ymax << "] N:["
                    << nmin << " " << nmax << "] npts=" << npts << " mean_D~"
                    << static_cast<double>(npts) / static_cast<double>(nt) / area << " max_D~"
                    << nmax / area);
}
}  // namespace veld
