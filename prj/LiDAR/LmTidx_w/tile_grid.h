// prj/LiDAR/LmTidx_w/tile_grid.h
// The grid of temporary tile files that the first pass writes: a count and a buffer for each touched tile.
#pragma once
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"

namespace veld {
enum class TTstate { good = 0, create_failed = 2, write_failed = 3, out_of_limit = 4 };

class TileGrid {
 public:
  // limit: tiles along an axis. max_bytes: of all buffers together (one is always granted).
  TileGrid(const CacheName& swath, uint32_t limit, uint64_t max_bytes);
  // Places the first tile in the middle of the grid.
  void centre(uint32_t XI, uint32_t YI);
  bool started() const { return !cells_.empty(); }
  // Appends one record to its tile. word: position and time; z: biased height.
  TTstate write(uint32_t XI, uint32_t YI, uint64_t word, uint32_t z) {
    const uint32_t x = XI - XI0_, y = YI - YI0_;  // wraps when left of the grid
    if (x >= nx_ || y >= ny_) [[unlikely]]
      return write_outside(XI, YI, word, z);
    Cell& cell = cells_[uint64_t{y} * nx_ + x];
    if (!cell.buf) [[unlikely]]
      if (const TTstate s = open_cell(cell, XI, YI); s != TTstate::good) return s;
    uint8_t* p = cell.buf + cell.fill;
    std::memcpy(p, &word, 8);
    std::memcpy(p + 8, &z, 4);  // the 4th byte is overwritten by the next record, or is slack
    cell.n++;
    cell.fill += TT_REC_BYTES;
    if (cell.fill == FULL) [[unlikely]]
      return flush_cell(cell);
    return TTstate::good;
  }
  // Writes out all buffers.
  TTstate finish();
  // The touched tiles, row by row. Logs extents, counts and densities.
  void tileinfo_tbl(double Tsize, Vector<TIsxy>& TI) const;
  uint32_t width() const { return nx_; }
  uint32_t height() const { return ny_; }

 private:
  struct Cell {
    uint8_t* buf = nullptr;
    BufBinFileOut* file = nullptr;
    uint32_t fill = 0;  // bytes
    uint32_t n = 0;     // points
  };
  static constexpr uint32_t FULL = TILE_BUFFER / TT_REC_BYTES * TT_REC_BYTES;
  TTstate write_outside(uint32_t XI, uint32_t YI, uint64_t word, uint32_t z);
  bool getk_expand_NFTT(uint32_t XI, uint32_t YI);
  void place(uint32_t XI0, uint32_t YI0, uint32_t nx, uint32_t ny);
  TTstate open_cell(Cell& cell, uint32_t XI, uint32_t YI);
  static TTstate flush_cell(Cell& cell);
  TTstate flush_all();

  CacheName swath_;
  uint32_t limit_;
  uint64_t max_buffers_;
  uint32_t XI0_ = 0, YI0_ = 0, nx_ = 0, ny_ = 0;
  std::vector<Cell> cells_;                            // row by row
  std::vector<std::unique_ptr<BufBinFileOut>> files_;  // one a touched tile; none holds a descriptor
  std::vector<std::unique_ptr<uint8_t[]>> buffers_;
  std::vector<uint8_t*> free_;
};
}  // namespace veld
