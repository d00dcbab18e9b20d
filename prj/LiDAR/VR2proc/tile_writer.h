// prj/LiDAR/VR2proc/tile_writer.h
// Corrected points of all swaths, sorted into square output tiles.
// Here:     the grid of tiles, the pieces that swaths put down, the tile files made of them.
// Not here: the correction (corr_points.h), the driver (corr_swaths.h).
//
// Swaths are corrected side by side, so their points first go into a temporary file each, a piece a full buffer. The
// tiles are then written one by one, with the swaths in order: their bytes do not depend on which swath was quicker,
// and no more tile files are open than threads work.
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "las/lasdefs.h"
#include "lib/general/binfile.h"
#include "prj/LiDAR/VR2proc/output_param.h"

namespace veld {
struct TileLayout {  // tile (i, j) reaches from x0 + i size to x0 + (i + 1) size, both in units of the swaths
  double x0 = 0, y0 = 0;     // origin (-otile_origin)
  double size = 0;           // side (-otile)
  int64_t XI0 = 0, YI0 = 0;  // first column and row
  int64_t ntx = 0, nty = 0;  // tiles
};

// The grid that covers the boxes of the headers and `margin` around. False after an ERROR line: too many tiles.
[[nodiscard]] bool init_corr_tiles(const TileParam& par, const std::vector<LASheader>& headers, double margin,
                                   TileLayout& grid);

class TilePieces {  // of one swath
 public:
  struct Piece {
    int64_t tile;       // of the grid, row by row
    uint64_t first, n;  // points of the temporary file
  };
  // path: of the temporary file, which goes with this object. point: format, scale and offset of the swath. id: point
  // source ID of its points, or -1. budget: bytes that buffers may take.
  TilePieces(const std::string& path, const TileLayout& grid, const LASpoint& point, uint64_t buffer,
             uint64_t budget, int id);
  ~TilePieces();
  TilePieces(const TilePieces&) = delete;
  TilePieces& operator=(const TilePieces&) = delete;
  // Points outside the grid are counted and left out. False after an ERROR line.
  [[nodiscard]] bool add(uint8_t* records, uint64_t n);
  [[nodiscard]] bool finish();  // writes what is in the buffers

  const std::vector<Piece>& pieces() const { return pieces_; }
  const std::string& path() const { return path_; }
  const LASpoint& point() const { return point_; }
  uint64_t nout() const { return nout_; }  // points outside the grid

 private:
  bool flush(int64_t tile, std::vector<uint8_t>& buffer);
  bool flush_all();
  std::string path_;
  TileLayout grid_;
  LASpoint point_;
  uint64_t buffer_bytes_, budget_, used_ = 0, npoints_ = 0, nout_ = 0;
  int id_;
  std::map<int64_t, std::vector<uint8_t>> buffers_;
  std::vector<Piece> pieces_;
  BufBinFileOut file_;
};

struct TileOutput {
  std::string prefix, suffix;  // of the names: prefix COLUMN_ROW suffix, four digits each or more
  LASheader header;            // of all tiles but for offset, box and counts
  bool lax = false;            // with spatial indexes (-olax)
  bool lax_append = false;
  std::vector<std::string> sources;  // files that must never be overwritten
  std::string list;                  // text with a line a tile
};
struct TileCount {
  uint64_t nt = 0, npoints = 0, ntidx = 0;  // tiles, points in them, tiles with an index
  int64_t nbytes = 0;
};
// Writes the tiles of all swaths, null for those without points, and the list. False after an ERROR line; tiles that
// could be written stay.
[[nodiscard]] bool close_corr_tiles(const TileLayout& grid, const std::vector<const TilePieces*>& swaths,
                                    const TileOutput& out, int nthreads, TileCount& count);
}  // namespace veld
