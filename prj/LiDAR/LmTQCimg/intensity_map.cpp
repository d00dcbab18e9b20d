#include "prj/LiDAR/LmTQCimg/intensity_map.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <unordered_map>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"
#include "prj/LiDAR/LmTidx_w/point_filter.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr size_t INTENSITY = 12;  // place in the record of every point format
constexpr float NO_INTENSITIES = 0.7f;

// Sums of a swath until they go into the map.
class SwathSums {
 public:
  SwathSums(TileMap<xyz>& map, double Tsize) : map_(map), side_(map.side()), pixels_(map.side() / Tsize) {
    const uint64_t bytes = static_cast<uint64_t>(side_) * static_cast<uint64_t>(side_) * sizeof(xyz);
    most_ = std::max<uint64_t>(16, (static_cast<uint64_t>(MEM_MB) << 18) / bytes);
  }
  // X, Y: m. Points outside the frame are left out. False after an ERROR line.
  bool add(double X, double Y, float intensity) {
    const auto x = static_cast<int64_t>((X - GROUND_ORIGIN) * pixels_),
               y = static_cast<int64_t>((Y - GROUND_ORIGIN) * pixels_);
    const TileInfo& f = map_.frame();
    const int64_t tx = x / side_ - f.XI, ty = y / side_ - f.YI;
    if (tx < 0 || ty < 0 || tx >= f.nx || ty >= f.ny) return true;
    const int64_t tile = ty * f.nx + tx;
    if (tile != tile_) {
      if (tiles_.size() >= most_ && !tiles_.count(tile) && !flush()) return false;
      at_ = &tiles_[tile];
      if (at_->empty()) at_->resize(side_, side_, xyz{0, 0, 0});
      tile_ = tile;
    }
    xyz& sum = at_->row(static_cast<int>(y % side_))[x % side_];
    sum.x += intensity;
    sum.y += 1;
    return true;
  }
  bool flush() {
    const TileInfo& f = map_.frame();
    Image<xyz> tile;
    for (const auto& [number, sums] : tiles_) {
      const auto XI = f.XI + static_cast<uint32_t>(number % f.nx),
                 YI = f.YI + static_cast<uint32_t>(number / f.nx);
      if (!map_.read(XI, YI, tile)) return false;
      for (uint64_t i = 0; i < tile.size(); i++) tile[i] += sums[i];
      if (!map_.write(XI, YI, tile)) return false;
    }
    tiles_.clear();
    tile_ = -1;
    return true;
  }

 private:
  TileMap<xyz>& map_;
  int64_t side_;
  double pixels_;  // a metre
  uint64_t most_;  // tiles in memory
  std::unordered_map<int64_t, Image<xyz>> tiles_;
  Image<xyz>* at_ = nullptr;
  int64_t tile_ = -1;
};

// nnoise: the noise of the file is added to it.
bool add_file(const std::string& path, const TilingParam& points, SwathSums& sums, uint64_t& nnoise) {
  std::unique_ptr<LASreader> reader = las_read_open(path, INPARSE, false);
  if (!reader) return false;
  const LASheader& h = reader->header;
  const bool extended = reader->point.lay.extended;
  const PointFilter filter = make_PointFilter(points, extended);
  const auto is_noise = [extended](const uint8_t* rec) {
    const int cls = extended ? rec[16] : rec[15] & 31;
    return cls == 7 || cls == 18;
  };
  const size_t length = static_cast<size_t>(reader->point.lay.reclen);
  uint64_t n = 0;
  for (const uint8_t* rec = reader->read_block(n); rec && n > 0; rec = reader->read_block(n))
    for (const uint8_t* const end = rec + n * length; rec < end; rec += length) {
      if (drop_of(filter, rec, extended)) continue;
      if (is_noise(rec)) {
        nnoise++;
        continue;
      }
      int32_t raw[2];
      uint16_t intensity;
      std::memcpy(raw, rec, sizeof raw);
      std::memcpy(&intensity, rec + INTENSITY, sizeof intensity);
      if (!sums.add((raw[0] * h.x_scale_factor + h.x_offset) * DATAUNIT,
                    (raw[1] * h.y_scale_factor + h.y_offset) * DATAUNIT, intensity))
        return false;
    }
  const bool ok = !reader->failed();
  las_read_close(reader);
  return ok;
}
}  // namespace

bool IntensityMap::make(const Project& prj, const TileInfo& frame, int side,
                        const std::vector<uint8_t>& xcls) {
  LOG_ENTER("intensity map nsw=" << prj.swaths.size() << " side=" << side);
  if (!sums_.open(frame, side, xyz{0, 0, 0})) return false;
  TilingParam points;
  points.xcls = xcls;
  for (const Swath& s : prj.swaths.present()) {
    std::vector<std::string> files;
    for (const SwathId member : s.members) files.push_back(prj.swaths[member].path());
    if (files.empty()) files.push_back(s.path());
    SwathSums sums(sums_, static_cast<double>(prj.scale.Tsize));
    for (const std::string& file : files)
      if (!add_file(file, points, sums, nnoise_)) return false;
    if (!sums.flush()) return false;
  }
  return set_limits();
}

bool IntensityMap::set_limits() {
  std::vector<uint64_t> histogram(65536, 0);
  uint64_t total = 0;
  Image<xyz> band;
  for (int ty = 0; ty < sums_.frame().ny; ty++) {
    if (!sums_.read_row(ty, band)) return false;
    for (uint64_t i = 0; i < band.size(); i++)
      if (band[i].y > 0) {
        histogram[static_cast<size_t>(std::min(65535.0f, band[i].x / band[i].y))]++;
        total++;
      }
  }
  const auto percentile = [&](double fraction) {
    uint64_t sum = 0;
    size_t i = 0;
    while (i < 65535 && static_cast<double>(sum += histogram[i]) < fraction * static_cast<double>(total)) i++;
    return static_cast<float>(i);
  };
  low_ = percentile(0.02);
  high_ = percentile(0.98);
  LOG_LINE("intensities " << low_ << " to " << high_ << ", pixels " << total);
  return true;
}

bool IntensityMap::read_row(int ty, Image<float>& band) const {
  Image<xyz> sums;
  if (!sums_.read_row(ty, sums)) return false;
  band.resize(sums.xsize(), sums.ysize(), NODATA);
  for (uint64_t i = 0; i < sums.size(); i++)
    if (sums[i].y > 0) band[i] = sums[i].x / sums[i].y;
  return true;
}

float IntensityMap::brightness(float intensity) const {
  return high_ > low_ ? std::clamp((intensity - low_) / (high_ - low_), 0.0f, 1.0f) : NO_INTENSITIES;
}
}  // namespace veld
