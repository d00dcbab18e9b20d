#include "prj/LiDAR/LmTQCimg/shade_dz.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"

namespace veld {
namespace {
constexpr float NO_HEIGHT = -9999.0f;
constexpr float DEGREE = 0.0174533f;

// Slope of the heights a, b, c at equal steps about b: from both neighbours, or from the one that is there.
float slope(float a, float b, float c, float step) {
  if (a == NO_HEIGHT && c == NO_HEIGHT) return 0;
  if (a == NO_HEIGHT) return (c - b) / step;
  if (c == NO_HEIGHT) return (b - a) / step;
  return (c - a) / (2 * step);
}
}  // namespace

ShadeRows::ShadeRows(int xsize, float GSD, const SunParam& sun) : xsize_(xsize), GSD_(GSD) {
  LOG_LINE("shade_dz SH_az=" << sun.SH_az << " SH_in=" << sun.SH_in << " algo=0");
  const float az = sun.SH_az * DEGREE, in = sun.SH_in * DEGREE;
  light_[0] = std::sin(az) * std::cos(in);
  light_[1] = std::cos(az) * std::cos(in);
  light_[2] = std::sin(in);
  const std::vector<float> none(static_cast<size_t>(xsize), NO_HEIGHT);
  before_ = last_ = shades_ = none;
}

bool ShadeRows::shade(const std::vector<float>& north, const std::vector<float>& row,
                      const std::vector<float>& south, const Emit& emit) {
  for (int x = 0; x < xsize_; x++) {
    const auto i = static_cast<size_t>(x);
    if (row[i] == NO_HEIGHT) {
      shades_[i] = NO_HEIGHT;
      continue;
    }
    const float west = x > 0 ? row[i - 1] : NO_HEIGHT, east = x + 1 < xsize_ ? row[i + 1] : NO_HEIGHT;
    const float zx = slope(west, row[i], east, GSD_), zy = slope(south[i], row[i], north[i], GSD_);
    const float dot = light_[2] - zx * light_[0] - zy * light_[1];
    shades_[i] = std::max(0.0f, dot / std::sqrt(1 + zx * zx + zy * zy));
  }
  return emit(shades_.data());
}

bool ShadeRows::put(const float* heights, const Emit& emit) {
  const std::vector<float> row(heights, heights + xsize_);
  if (nrows_ > 0 && !shade(before_, last_, row, emit)) return false;
  before_.swap(last_);
  last_ = row;
  nrows_++;
  return true;
}

bool ShadeRows::finish(const Emit& emit) {
  const std::vector<float> none(static_cast<size_t>(xsize_), NO_HEIGHT);
  return nrows_ == 0 || shade(before_, last_, none, emit);
}
}  // namespace veld
