// Units of work of a level, and the passes over its pixels: residuals, their histogram, weights.
#include <algorithm>
#include <cmath>

#include "prj/LiDAR/TNRreg/TNRreg_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
int comp_threads(const dUParamTiles& Q, uint64_t npix) {
  constexpr uint64_t MIN_PIXELS = 20000;  // a fraction of a millisecond of work
  return static_cast<int>(
      std::clamp<uint64_t>(npix / MIN_PIXELS, 1, static_cast<uint64_t>(std::max(Q.nthreads, 1))));
}

void init_rows(dUParamTiles& Q) {
  Q.rows.clear();
  Q.npix = 0;
  int width = 0;
  uint64_t nrows = 0, row = 0;  // pixel rows
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    dUParamTile& T = Q.tile[t];
    if (T.B.empty()) continue;
    T.next.resize(T.B.xsize(), T.B.ysize(), 0);
    T.res.resize(T.B.xsize(), T.B.ysize(), 0.0f);
    T.rough.resize(T.B.xsize(), T.B.ysize(), 0);
    nrows += static_cast<uint64_t>(T.jmax - T.jmin + 1);
    for (int r = T.jmin / T.dim; r <= T.jmax / T.dim; r++) {
      Q.rows.push_back({static_cast<uint32_t>(t), static_cast<uint32_t>(r)});
      row += static_cast<uint64_t>(std::min(T.jmax, (r + 1) * T.dim - 1) - std::max(T.jmin, r * T.dim) + 1);
    }
    Q.npix += T.B.size();
    width = std::max(width, T.B.xsize());
  }
  ASSERT(row == nrows);
  Q.unit_sum.assign(Q.rows.size(), 0.0);
  Q.scratch.resize(static_cast<size_t>(std::max(Q.nthreads, 1)));
  for (RowScratch& s : Q.scratch) s.resize(width);
}

namespace {
// Calls per_row(tile, j, thread, sum) for the pixel rows of all units, whose rows of cells are expanded where
// wanted; returns the sum over the units, in their order.
template <typename PerRow>
double for_unit_rows(dUParamTiles& Q, bool expand, PerRow&& per_row) {
  for_cell_rows(Q, expand, [&](const CellRow& cells) {
    double sum = 0;
    for (int j = cells.jmin; j <= cells.jmax; j++) per_row(cells.tile, j, cells.thread, sum);
    Q.unit_sum[cells.unit] = sum;
  });
  double total = 0;
  for (const double sum : Q.unit_sum) total += sum;
  return total;
}

// Standard deviation of a pixel's height against its roughness: 0.18 brought the spread of errors among houses to
// that of open land.
constexpr double ROUGH_NOISE = 0.18;

double data_term(const dUParamTiles& Q, double sum) {  // of weights in percent times squared residuals
  return 0.005 * sum / (static_cast<double>(Q.s) * static_cast<double>(Q.s));
}
}  // namespace

void for_resid_rows(dUParamTiles& Q, const std::function<void(dUParamTile&, int, int)>& per_row) {
  for_unit_rows(Q, true, [&](dUParamTile& T, int j, int thread, double&) {
    resid_row(T, j, T.B.row(j - T.jmin), Q.scratch[static_cast<size_t>(thread)]);
    per_row(T, j, thread);
  });
}

double resid_pass(dUParamTiles& Q) {
  Vector<Vector<uint32_t>> part(Q.scratch.size());  // counts: their sum does not depend on who counted
  for (Vector<uint32_t>& p : part) p.resize(H_SIZE, 0);
  const float bins = 1.0f / H_STEP;
  const double sum = for_unit_rows(Q, true, [&](dUParamTile& T, int j, int thread, double& energy) {
    RowScratch& s = Q.scratch[static_cast<size_t>(thread)];
    uint32_t* const hist = part[thread].val;
    const uint8_t* const now = T.B.row(j - T.jmin);
    uint8_t* const next = T.next.row(j - T.jmin);
    float* const res = T.res.row(j - T.jmin);
    const int n = T.B.xsize();
    uint64_t nz = 0;
    mask_row(T, j, s, next, T.rough.row(j - T.jmin), nz);
    for (int c = 0; c < n; c++) s.want[static_cast<size_t>(c)] = now[c] | next[c];
    resid_row(T, j, s.want.data(), s);
    float row_sum = 0;
    for (int c = 0; c < n; c++) {
      const float r = s.res[static_cast<size_t>(c)];
      res[c] = r;
      if (now[c] != 0) row_sum += static_cast<float>(now[c] & B_WEIGHT) * (r * r);
      const float k = std::fabs(r) * bins;
      if (next[c] != 0 && k < static_cast<float>(H_SIZE)) hist[static_cast<int>(k)]++;
    }
    energy += static_cast<double>(row_sum);
  });
  Q.hist.resize(H_SIZE, 0);
  for (const Vector<uint32_t>& p : part) Q.hist += p;
  return data_term(Q, sum);
}

void take_pixels(dUParamTiles& Q) {
  for (dUParamTile& T : Q.tile)
    if (!T.B.empty()) T.B.swap(T.next);
}

RoughWeights rough_weights(const dUParamTiles& Q) {
  RoughWeights w{};
  const double variance = static_cast<double>(Q.s) * static_cast<double>(Q.s) +
                          static_cast<double>(Q.sigma0) * static_cast<double>(Q.sigma0);
  for (int code = 0; code < 64; code++) {
    const double rough = ROUGH_NOISE * code * static_cast<double>(Q.rough_unit),
                 total = variance + rough * rough;
    w.precision[code] = total > 0 ? static_cast<float>(1 / total) : 0.0f;
    w.share[code] = total > 0 ? static_cast<float>(100 * variance / total) : 0.0f;
  }
  return w;
}

double update_weights(dUParamTiles& Q) {
  const RoughWeights weights = rough_weights(Q);
  const double sum = for_unit_rows(Q, false, [&](dUParamTile& T, int j, int, double& energy) {
    uint8_t* const b = T.B.row(j - T.jmin);
    const float* const res = T.res.row(j - T.jmin);
    const uint8_t* const rough = T.rough.row(j - T.jmin);
    float row_sum = 0;
    for (int c = 0; c < T.B.xsize(); c++) {
      const float r2 = res[c] * res[c];
      const int code = rough[c] & 63;
      const int w = static_cast<int>(weights.share[code] / (r2 * weights.precision[code] + 1.0f) + 0.5f);
      if (b[c] != 0) row_sum += static_cast<float>(w) * r2;
      b[c] = b[c] != 0 ? static_cast<uint8_t>(w | B_USED) : 0;
    }
    energy += static_cast<double>(row_sum);
  });
  return data_term(Q, sum);
}
}  // namespace veld
