#include "prj/LiDAR/TNRreg/ND_Pyramid.h"

#include <cstdint>

#include "lib/threads/pool.h"
#include "prj/LiDAR/TNRreg/TNRreg.h"

namespace veld {
namespace {
constexpr int REACH = 3;
constexpr float KERNEL[2 * REACH + 1] = {0.03f, 0.1f, 0.22f, 0.3f, 0.22f, 0.1f, 0.03f};
constexpr float MIN_WEIGHT = 0.5f;

// The filtered value at sample i of a line of n with a stride, without taps beyond the ends and in holes.
float filter_at(const float* line, int64_t stride, int n, int i) {
  float sum = 0, weight = 0;
  for (int k = -REACH; k <= REACH; k++) {
    if (i + k < 0 || i + k >= n) continue;
    const float z = line[(i + k) * stride];
    if (z == NR_NODATA) continue;
    sum += KERNEL[k + REACH] * z;
    weight += KERNEL[k + REACH];
  }
  return weight > MIN_WEIGHT ? sum / weight : NR_NODATA;
}

Image<float> halve(const Image<float>& in) {
  const int w = in.xsize() / 2, h = in.ysize() / 2;
  Image<float> rows(w, in.ysize()), out(w, h);  // only the columns that stay are filtered
  for (int y = 0; y < in.ysize(); y++)
    for (int x = 0; x < w; x++) rows.row(y)[x] = filter_at(in.row(y), 1, in.xsize(), 2 * x);
  for (int y = 0; y < h; y++)
    for (int x = 0; x < w; x++) out.row(y)[x] = filter_at(rows.val + x, w, in.ysize(), 2 * y);
  return out;
}
}  // namespace

void ND_Pyramid(Vector<Vector<Image<float>>>& levels, const Vector<Image<float>>& images, int nthreads,
                int depth) {
  levels.resize(static_cast<uint64_t>(depth));
  for (Vector<Image<float>>& level : levels) level.resize(images.size());
  run_units(static_cast<int64_t>(images.size()), nthreads, [&](int64_t t, int) {
    for (int l = 0; l < depth; l++) levels[l][t] = halve(l == 0 ? images[t] : levels[l - 1][t]);
    return true;
  });
}
}  // namespace veld
