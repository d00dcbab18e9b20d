// prj/LiDAR/LmTQCimg/tile_map.h
// A project-wide map that fills in any order, kept by tiles in a temporary file: memory holds a tile.
// Here:     TileMap, its way into pictures.
// Not here: maps that are made from north to south (fast_QC.h), what the values mean.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"

namespace veld {
// Blocks of equal size in an unnamed file of the temporary directory.
class BlockFile {
 public:
  BlockFile() = default;
  ~BlockFile();
  BlockFile(const BlockFile&) = delete;
  BlockFile& operator=(const BlockFile&) = delete;
  [[nodiscard]] bool open(uint64_t block_bytes);  // all: false after an ERROR line
  [[nodiscard]] bool read(uint64_t block, void* to) const;
  [[nodiscard]] bool write(uint64_t block, const void* from);
  bool is_open() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
  uint64_t bytes_ = 0;
};

// T: float or xyz. A tile is side x side values, row 0 the southern one; tiles that were never written are empty.
template <typename T>
class TileMap {
 public:
  [[nodiscard]] bool open(const TileInfo& frame, int side, const T& none);
  bool is_open() const { return file_.is_open(); }
  const TileInfo& frame() const { return frame_; }
  int side() const { return side_; }
  const T& none() const { return none_; }
  bool empty() const { return nblocks_ == 0; }
  bool written(uint32_t XI, uint32_t YI) const {
    return slot_(static_cast<int>(XI - frame_.XI), static_cast<int>(YI - frame_.YI)) >= 0;
  }
  // The tile at absolute indices, which must lie in the frame (asserted).
  [[nodiscard]] bool read(uint32_t XI, uint32_t YI, Image<T>& tile) const;
  [[nodiscard]] bool write(uint32_t XI, uint32_t YI, const Image<T>& tile);
  // A row of tiles as one image, side x (nx side); y counts tiles from the frame's lower left.
  [[nodiscard]] bool read_row(int y, Image<T>& band) const;

 private:
  TileInfo frame_;
  int side_ = 0;
  T none_{};
  BlockFile file_;
  Image<int32_t> slot_;  // block of a tile, -1 for none
  int32_t nblocks_ = 0;
};

// Place of a map over a frame of tiles. Tsize: m. GSD: m, of the map. shift: m, to the north east of all places; pixels of
// grids have their centres, not their corners, on the corners of tiles.
ImgPlace frame_place(const TileInfo& frame, double Tsize, double GSD, double shift = 0);
// Draws a map row by row. False after an ERROR line.
[[nodiscard]] bool save_TileMap(const std::string& name, const std::string& title, const ImgParam& par,
                                const ImgScale& scale, const ImgPlace& place, const TileMap<float>& map);
// As three pictures, or as style says; see save_img_Def. magnitudes: signs are left out.
[[nodiscard]] bool save_TileMap_Def(const std::string& name, const std::string& title, const ImgParam& par,
                                    const VectorStyle& style, const ImgPlace& place, const TileMap<xyz>& map,
                                    bool magnitudes);
}  // namespace veld
