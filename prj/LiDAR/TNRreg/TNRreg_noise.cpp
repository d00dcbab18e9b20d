// What the noise of the pixels does to the vertices, by samples.
#include "prj/LiDAR/TNRreg/TNRreg_noise.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace veld {
namespace {
// The noise of a pixel's height has three parts, as wide as the model has them:
// - that of points, which the kernel spreads over 7.7 pixels (one over the integral of its square). A sign holds
//   for 3 x 3 pixels, its size makes up for the difference.
// - a share of it that reaches over many pixels (comp_long_share): what the swath did within a second. One sign
//   for 16 x 16 pixels, of 12 m at least.
// - that of rough pixels, edges mostly: half of its size stands aside, all of an edge and both sides of a house alike.
//   Signs for such squares of a shift in x and in y, times the direction of the slope. The rest is as that of points.
constexpr int SHORT = 3, LONG = 16;
constexpr float LONG_M = 12;  // m
constexpr float ASIDE = 0.5f;
constexpr float TIED = 7.74f;
constexpr float PRIOR_NOISE = 0.1f;

template <typename V>
void add_to(V3<V>& a, const V3<V>& b) {
  a.x += b.x, a.y += b.y, a.z += b.z;
}

struct SignTable {
  alignas(32) float sign[256][LANES];
};
const SignTable& sign_table() {
  static const SignTable table = [] {
    SignTable t;
    for (int bits = 0; bits < 256; bits++)
      for (int l = 0; l < LANES; l++) t.sign[bits][l] = bits >> l & 1 ? 1.0f : -1.0f;
    return t;
  }();
  return table;
}

uint64_t hash_block(uint64_t x) {  // finaliser of splitmix64 (Steele, Lea, Flood 2014)
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

struct NoiseRow {  // where a row of pixels puts its samples: the vertices of its row of cells
  V3<v8f>* lower;
  V3<v8f>* upper;
  uint64_t seed;    // of the tile and the group
  float amplitude;  // for a weight of 1 percent
  float near, far;  // sizes of the first and of the second part
  int far_side;     // pixels along the squares of the second and third
  const RoughWeights* weights;
};

// Signs of one of the parts at pixel (i, j).
[[gnu::always_inline]] inline v8f block_signs(const SignTable& table, uint64_t seed, int part, int side,
                                              int i, int j) {
  const uint64_t block = static_cast<uint64_t>(j / side) << 16 | static_cast<uint64_t>(i / side);
  return load8(table.sign[hash_block(seed + (static_cast<uint64_t>(part) << 32) + block) & 255]);
}

HOT_CLONES void add_noise_row(const dUParamTile& T, int j, const RowScratch& s, const NoiseRow& to) {
  const SignTable& signs = sign_table();
  const uint8_t *const b_row = T.B.row(j - T.jmin), *const rough = T.rough.row(j - T.jmin);
  const float y0 = T.bx0[j], y1 = T.bx1[j];
  v8f near = {}, far = {}, shift_x = {}, shift_y = {};
  for (int i = T.imin, short_block = -1, long_block = -1; i <= T.imax; i++) {
    const int c = i - T.imin;
    const int w = b_row[c] & B_WEIGHT;
    if (w == 0) continue;
    if (i / SHORT != short_block) {
      short_block = i / SHORT;
      near = to.near * block_signs(signs, to.seed, 0, SHORT, i, j);
    }
    if (i / to.far_side != long_block) {
      long_block = i / to.far_side;
      far = to.far * block_signs(signs, to.seed, 1, to.far_side, i, j);
      shift_x = block_signs(signs, to.seed, 2, to.far_side, i, j);
      shift_y = block_signs(signs, to.seed, 3, to.far_side, i, j);
    }
    const float level = 0.01f * to.weights->share[rough[c] & 63];  // of the pixel's variance
    const float e = to.amplitude * std::sqrt(static_cast<float>(w)), slope = std::hypot(s.gx[c], s.gy[c]);
    v8f noise =
        (e * std::sqrt(level + (1 - ASIDE * ASIDE) * (1 - level))) * near + (e * std::sqrt(level)) * far;
    if (level < 1.0f && slope > 0.0f) {
      const float aside = ASIDE * e * std::sqrt(1.0f - level) / slope;
      noise += (aside * s.gx[c]) * shift_x + (aside * s.gy[c]) * shift_y;
    }
    const v8f x = -s.gx[c] * noise, y = -s.gy[c] * noise;
    const uint32_t v = T.ix[i];
    const float x0 = T.bx0[i], x1 = T.bx1[i];
    const float b[4] = {x0 * y0, x1 * y0, x0 * y1, x1 * y1};
    V3<v8f>* const at[4] = {to.lower + v, to.lower + v + 1, to.upper + v, to.upper + v + 1};
    for (int q = 0; q < 4; q++) at[q]->x += b[q] * x, at[q]->y += b[q] * y, at[q]->z += b[q] * noise;
  }
}

}  // namespace

namespace {
// Noise of the prior: second differences that are not 0, with a share of the variance that its weight stands for;
// and a shift of all vertices, which only data can exclude.
void add_prior_noise(const NormalEq& N, int group, std::vector<V3<v8f>>& r) {
  const SignTable& signs = sign_table();
  const float share = std::sqrt(PRIOR_NOISE), common = std::sqrt(N.common);
  const xyz size = {share * std::sqrt(N.omega.x), share * std::sqrt(N.omega.y), share * std::sqrt(N.omega.z)};
  uint64_t seed = (1ull << 60) + (static_cast<uint64_t>(group) << 50);
  const auto draw = [&](const xyz& amplitude) {
    const uint64_t bits = hash_block(seed++);
    return V3<v8f>{amplitude.x * load8(signs.sign[bits & 255]),
                   amplitude.y * load8(signs.sign[bits >> 8 & 255]),
                   amplitude.z * load8(signs.sign[bits >> 16 & 255])};
  };
  const size_t up = static_cast<size_t>(N.stride);
  for (size_t k = 0; k < N.size(); k++)
    for (const auto& [centre, step] : {std::pair{N.cx[k], size_t{1}}, std::pair{N.cy[k], up}}) {
      if (!(centre > 0)) continue;
      const V3<v8f> n = draw(size);
      add_to(r[k - step], n), add_to(r[k + step], n);
      add_to(r[k], {-2.0f * n.x, -2.0f * n.y, -2.0f * n.z});
    }
  for (size_t k = 0; k < N.size(); k++)
    if (N.common > 0 && N.added[k].z > 0) add_to(r[k], draw({common, common, common}));
}
}  // namespace

namespace {
void add_seams_up(const NormalEq& N, std::vector<V3<v8f>>& r) {
  for (const auto& [slave, partner] : N.seam) {
    add_to(r[partner], r[slave]);
    r[slave] = V3<v8f>{};
  }
}
}  // namespace

float comp_long_share(const dUParamTiles& Q) {
  constexpr int SIDE = 4, NEAREST = 2, FARTHEST = 4;  // blocks of pixels; distances in blocks
  constexpr float OUTLIER = 3;
  const RoughWeights weights = rough_weights(Q);
  double product = 0, pairs = 0, square = 0, count = 0;
  Image<float> sum, n;
  for (const dUParamTile& T : Q.tile) {
    if (T.B.empty()) continue;
    const int w = T.B.xsize() / SIDE, h = T.B.ysize() / SIDE;
    sum.resize(w, h, 0.0f);
    n.resize(w, h, 0.0f);
    for (int y = 0; y < h * SIDE; y++)
      for (int x = 0; x < w * SIDE; x++) {
        if ((T.B.row(y)[x] & B_WEIGHT) == 0) continue;
        const float t = T.res.row(y)[x] * std::sqrt(weights.precision[T.rough.row(y)[x] & 63]);
        if (std::fabs(t) > OUTLIER) continue;
        sum.row(y / SIDE)[x / SIDE] += t;
        n.row(y / SIDE)[x / SIDE] += 1;
        square += static_cast<double>(t * t);
        count += 1;
      }
    const auto add_pair = [&](int x, int y, int x2, int y2) {
      product += static_cast<double>(sum.row(y)[x] * sum.row(y2)[x2]);
      pairs += static_cast<double>(n.row(y)[x] * n.row(y2)[x2]);
    };
    for (int y = 0; y < h; y++)
      for (int x = 0; x < w; x++)
        for (int d = NEAREST; d <= FARTHEST; d++) {
          if (x + d < w) add_pair(x, y, x + d, y);
          if (y + d < h) add_pair(x, y, x, y + d);
        }
  }
  if (!(pairs > 0 && square > 0)) return 0;
  return static_cast<float>(std::clamp(product / pairs / (square / count), 0.0, 1.0));
}

void sample_noise(const NormalEq& N, dUParamTiles& Q, int group, float long_share,
                  const std::vector<LocalScale>& scale, std::vector<V3<v8f>>& r) {
  const size_t nv = static_cast<size_t>(N.nv);
  r.assign(N.size(), V3<v8f>{});
  std::vector<V3<v8f>> slot(Q.rows.size() * nv);  // what the units give to their upper vertex row
  const float GSD = 16 * Q.rough_unit;
  const int far_side = GSD > 0 ? std::max(LONG, static_cast<int>(LONG_M / GSD + 0.5f)) : LONG;
  const RoughWeights weights = rough_weights(Q);
  for_cell_rows(Q, true, [&](const CellRow& cells) {
    const NoiseRow to = {&r[N.lower(cells.place)],
                         &slot[cells.unit * nv],
                         (cells.place.tile * 8ull + static_cast<uint64_t>(group)) << 36,
                         0.1f / Q.s,
                         std::sqrt(TIED * (1 - long_share)) / SHORT,
                         std::sqrt(long_share),
                         far_side,
                         &weights};
    for (int j = cells.jmin; j <= cells.jmax; j++) {
      slope_row(cells.tile, j, N.slope_noise, cells.scratch);
      add_noise_row(cells.tile, j, cells.scratch, to);
    }
  });
  for (size_t unit = 0; unit < Q.rows.size(); unit++) {
    const size_t first = N.upper(Q.rows[unit]);
    for (size_t v = 0; v < nv; v++) add_to(r[first + v], slot[unit * nv + v]);
  }
  add_seams_up(N, r);
  for (size_t k = 0; k < scale.size(); k++) {
    const float xy = std::sqrt(scale[k].xy), z = std::sqrt(scale[k].z);
    r[k] = {xy * r[k].x, xy * r[k].y, z * r[k].z};
  }
  add_prior_noise(N, group, r);  // not scaled: its differences must stay such
  add_seams_up(N, r);
  for (int t = 0; t < N.nt; t++)
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++)
        if (Q.tile[t].Vmap.row(j)[i] != V_ACTIVE) r[N.at(t, i, j)] = V3<v8f>{};
}

namespace {
// Sums about a vertex over the pixels in use: what their weights would be under the model, and are.
struct WeightSum {
  float xy = 0, xy_robust = 0, z = 0, z_robust = 0;
  void add(const WeightSum& o) { xy += o.xy, xy_robust += o.xy_robust, z += o.z, z_robust += o.z_robust; }
};

// Variance of residuals, in units of the model's, whose mean Cauchy weight is m. For Gaussian residuals of the
// model's size m is 0.656 = E[1 / (1 + t^2)].
float variance_of_weight(float sum, float robust) {
  constexpr float GAUSS = 0.656f;
  const float m = sum > 0 ? std::clamp(robust / sum, 0.02f, 0.98f) : GAUSS;
  return (1 - m) / m * (GAUSS / (1 - GAUSS));
}
}  // namespace

void comp_local_scale(const NormalEq& N, dUParamTiles& Q, float least, std::vector<LocalScale>& scale) {
  const size_t nv = static_cast<size_t>(N.nv);
  std::vector<WeightSum> sum(N.size()), slot(Q.rows.size() * nv);
  const RoughWeights weights = rough_weights(Q);
  for_cell_rows(Q, true, [&](const CellRow& cells) {
    const dUParamTile& T = cells.tile;
    RowScratch& s = cells.scratch;
    WeightSum* const lower = &sum[N.lower(cells.place)];
    WeightSum* const upper = &slot[cells.unit * nv];
    for (int j = cells.jmin; j <= cells.jmax; j++) {
      slope_row(T, j, N.slope_noise, s);
      const uint8_t *const b_row = T.B.row(j - T.jmin), *const rough = T.rough.row(j - T.jmin);
      const float y0 = T.bx0[j], y1 = T.bx1[j];
      for (int i = T.imin; i <= T.imax; i++) {
        const int c = i - T.imin;
        if (b_row[c] == 0) continue;
        const int code = rough[c] & 63;
        const float r = T.res.row(j - T.jmin)[c], share = weights.share[code];
        const float robust = share / (1 + r * r * weights.precision[code]);
        const float g2 = s.gx[c] * s.gx[c] + s.gy[c] * s.gy[c];
        const WeightSum pixel = {share * g2, robust * g2, share, robust};
        const uint32_t v = T.ix[i];
        const auto give = [&](WeightSum& to, float b) {
          to.add({b * pixel.xy, b * pixel.xy_robust, b * pixel.z, b * pixel.z_robust});
        };
        give(lower[v], T.bx0[i] * y0), give(lower[v + 1], T.bx1[i] * y0);
        give(upper[v], T.bx0[i] * y1), give(upper[v + 1], T.bx1[i] * y1);
      }
    }
  });
  for (size_t unit = 0; unit < Q.rows.size(); unit++) {
    const size_t first = N.upper(Q.rows[unit]);
    for (size_t v = 0; v < nv; v++) sum[first + v].add(slot[unit * nv + v]);
  }
  for (const auto& [slave, partner] : N.seam) sum[partner].add(sum[slave]);
  scale.resize(N.size());
  for (size_t k = 0; k < N.size(); k++) {
    const float xy = variance_of_weight(sum[k].xy, sum[k].xy_robust);
    const float z = variance_of_weight(sum[k].z, sum[k].z_robust);
    scale[k].xy = std::max(least, xy > 1 ? xy * xy : xy);
    scale[k].z = std::max(least, z > 1 ? z * std::sqrt(z) : z);
  }
}
}  // namespace veld
