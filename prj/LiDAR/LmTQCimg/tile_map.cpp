#include "prj/LiDAR/LmTQCimg/tile_map.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
BlockFile::~BlockFile() {
  if (fd_ >= 0) ::close(fd_);
}

bool BlockFile::open(uint64_t block_bytes) {
  std::string name = TMPDIR + "map_XXXXXX";
  fd_ = ::mkstemp(name.data());
  if (fd_ < 0) {
    ERROR_MSG("temporary file of a map, " << name << ": " << std::strerror(errno));
    return false;
  }
  ::unlink(name.c_str());  // the file goes with its descriptor, however the run ends
  bytes_ = block_bytes;
  return true;
}

bool BlockFile::read(uint64_t block, void* to) const {
  auto* p = static_cast<char*>(to);
  for (uint64_t done = 0; done < bytes_;) {
    const ssize_t n = ::pread(fd_, p + done, bytes_ - done, static_cast<off_t>(block * bytes_ + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ERROR_MSG("temporary file of a map: read error");
      return false;
    }
    done += static_cast<uint64_t>(n);
  }
  return true;
}

bool BlockFile::write(uint64_t block, const void* from) {
  const auto* p = static_cast<const char*>(from);
  for (uint64_t done = 0; done < bytes_;) {
    const ssize_t n = ::pwrite(fd_, p + done, bytes_ - done, static_cast<off_t>(block * bytes_ + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ERROR_MSG("temporary file of a map in " << TMPDIR << ": " << std::strerror(errno));
      return false;
    }
    done += static_cast<uint64_t>(n);
  }
  return true;
}

template <typename T>
bool TileMap<T>::open(const TileInfo& frame, int side, const T& none) {
  frame_ = frame;
  side_ = side;
  none_ = none;
  slot_.resize(frame.nx, frame.ny, -1);
  return file_.open(static_cast<uint64_t>(side) * static_cast<uint64_t>(side) * sizeof(T));
}

template <typename T>
bool TileMap<T>::read(uint32_t XI, uint32_t YI, Image<T>& tile) const {
  const int32_t slot = slot_(static_cast<int>(XI - frame_.XI), static_cast<int>(YI - frame_.YI));
  tile.resize(side_, side_, none_);
  return slot < 0 || file_.read(static_cast<uint64_t>(slot), tile.val);
}

template <typename T>
bool TileMap<T>::write(uint32_t XI, uint32_t YI, const Image<T>& tile) {
  ASSERT(tile.xsize() == side_ && tile.ysize() == side_);
  int32_t& slot = slot_(static_cast<int>(XI - frame_.XI), static_cast<int>(YI - frame_.YI));
  if (slot < 0) slot = nblocks_++;
  return file_.write(static_cast<uint64_t>(slot), tile.val);
}

template <typename T>
bool TileMap<T>::read_row(int y, Image<T>& band) const {
  band.resize(frame_.nx * side_, side_, none_);
  Image<T> tile(side_, side_);
  for (int x = 0; x < frame_.nx; x++) {
    if (slot_(x, y) < 0) continue;
    if (!file_.read(static_cast<uint64_t>(slot_(x, y)), tile.val)) return false;
    for (int j = 0; j < side_; j++) std::copy_n(tile.row(j), side_, band.row(j) + x * side_);
  }
  return true;
}

template class TileMap<float>;
template class TileMap<xyz>;

ImgPlace frame_place(const TileInfo& frame, double Tsize, double GSD, double shift) {
  return {frame.XI * Tsize + GROUND_ORIGIN + shift,
          (frame.YI + static_cast<uint32_t>(frame.ny)) * Tsize + GROUND_ORIGIN + shift, GSD};
}

namespace {
// The rows of a map from the north; a row of tiles is read when its first row is asked for.
template <typename T>
class RowsFromNorth {
 public:
  explicit RowsFromNorth(const TileMap<T>& map) : map_(map) {}
  const T* row(int y) {  // null after an ERROR line
    const int side = map_.side(), tile = map_.frame().ny - 1 - y / side;
    if (tile != tile_ && !map_.read_row(tile, band_)) return nullptr;
    tile_ = tile;
    return band_.row(side - 1 - y % side);
  }

 private:
  const TileMap<T>& map_;
  Image<T> band_;
  int tile_ = -1;
};
}  // namespace

bool save_TileMap(const std::string& name, const std::string& title, const ImgParam& par,
                  const ImgScale& scale, const ImgPlace& place, const TileMap<float>& map) {
  const int xsize = map.frame().nx * map.side(), ysize = map.frame().ny * map.side();
  RasterOut out;
  if (!out.open(name, title, par, scale, place, xsize, ysize)) return false;
  RowsFromNorth<float> rows(map);
  for (int y = 0; y < ysize; y++) {
    const float* row = rows.row(y);
    if (!row || !out.put_rows(row, 1)) return false;
  }
  return out.close();
}

bool save_TileMap_Def(const std::string& name, const std::string& title, const ImgParam& par,
                      const VectorStyle& style, const ImgPlace& place, const TileMap<xyz>& map,
                      bool magnitudes) {
  const int xsize = map.frame().nx * map.side(), ysize = map.frame().ny * map.side();
  RowsFromNorth<xyz> rows(map);
  std::vector<xyz> size(static_cast<size_t>(xsize));
  return save_img_Def(name, title, par, style, place, xsize, ysize, [&](int y) {
    const xyz* row = rows.row(y);
    if (!row || !magnitudes) return row;
    for (int x = 0; x < xsize; x++) {
      const xyz& v = row[x];
      size[static_cast<size_t>(x)] =
          v.z == IMG_NODATA ? v : xyz{std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)};
    }
    return static_cast<const xyz*>(size.data());
  });
}
}  // namespace veld
