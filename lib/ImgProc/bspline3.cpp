#include "lib/ImgProc/bspline3.h"

#include <cmath>

namespace veld {
namespace {
const float POLE = static_cast<float>(std::sqrt(3.0) - 2.0);
constexpr int HORIZON = 16;  // |pole|^16 is below the precision of float

// Filters nline interleaved lines of n samples: sample k of line i is p[k * step + i]. With step = xsize and
// nline = xsize these are the columns of an image, and the inner loops run along its rows.
void filter_lines(float* p, int n, int64_t step, int nline) {
  if (n < 2) return;
  Vector<float> head(static_cast<uint64_t>(nline), 0.0f);
  const float z = POLE, gain = (1.0f - z) * (1.0f - 1.0f / z);

  // First causal value: the geometric sum over the mirrored line, cut off where it no longer counts.
  if (n > HORIZON) {
    for (int k = HORIZON; k >= 0; k--)
      for (int i = 0; i < nline; i++) head[i] = head[i] * z + p[k * step + i];
  } else {  // a whole period 2n - 2 of the mirrored line
    for (int k = 2 * n - 3; k >= 0; k--)
      for (int i = 0; i < nline; i++)
        head[i] = head[i] * z + p[static_cast<int64_t>(bspline3_mirror(k, n)) * step + i];
    const float scale = 1.0f / (1.0f - std::pow(z, static_cast<float>(2 * n - 2)));
    for (int i = 0; i < nline; i++) head[i] *= scale;
  }
  for (int i = 0; i < nline; i++) p[i] = head[i] * gain;
  for (int k = 1; k < n; k++) {
    float* const at = p + k * step;
    const float* const before = at - step;
    for (int i = 0; i < nline; i++) at[i] = at[i] * gain + before[i] * z;
  }
  {  // last anticausal value, exact for the mirrored line
    float* const at = p + (n - 1) * step;
    const float* const before = at - step;
    const float f = z / (z * z - 1.0f);
    for (int i = 0; i < nline; i++) at[i] = (at[i] + z * before[i]) * f;
  }
  for (int k = n - 2; k >= 0; k--) {
    float* const at = p + k * step;
    const float* const after = at + step;
    for (int i = 0; i < nline; i++) at[i] = (after[i] - at[i]) * z;
  }
}
}  // namespace

void bspline3_coef(Vector<float>& line) { filter_lines(line.val, static_cast<int>(line.size()), 1, 1); }

void bspline3_coef(Image<float>& image) {
  const int w = image.xsize(), h = image.ysize();
  filter_lines(image.val, h, w, w);
  constexpr int BLOCK = 16;  // rows turned at a time, so that the filter runs along contiguous memory
  Vector<float> turned(static_cast<uint64_t>(BLOCK) * static_cast<uint64_t>(w));
  for (int y0 = 0; y0 < h; y0 += BLOCK) {
    const int m = std::min(BLOCK, h - y0);
    for (int y = 0; y < m; y++)
      for (int x = 0; x < w; x++) turned[x * m + y] = image.row(y0 + y)[x];
    filter_lines(turned.val, w, m, m);
    for (int y = 0; y < m; y++)
      for (int x = 0; x < w; x++) image.row(y0 + y)[x] = turned[x * m + y];
  }
}

float bspline3_value(const Vector<float>& coef, double x) {
  const int n = static_cast<int>(coef.size());
  const double floor_x = std::floor(x);
  double w[4];
  bspline3_weights(x - floor_x, w);
  double sum = 0;
  for (int k = 0; k < 4; k++) {
    const double at = floor_x - 1 + k;
    if (!(at > -n && at < 2 * n - 1)) return 0;
    const int i = bspline3_mirror(static_cast<int>(at), n);
    if (i < 0 || i >= n) return 0;
    sum += w[k] * static_cast<double>(coef[i]);
  }
  return static_cast<float>(sum);
}
}  // namespace veld
