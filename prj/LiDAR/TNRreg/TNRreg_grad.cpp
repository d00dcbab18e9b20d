// The descent direction of the energy at the vertices: data term on threads, prior, seams, packing.
#include <algorithm>
#include <cmath>

#include "lib/threads/pool.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"

int comp_threads(const dUParamTiles& Q, uint64_t npix) {
  constexpr uint64_t MIN_PIXELS = 20000;  // a fraction of a millisecond of work
  return static_cast<int>(
      std::clamp<uint64_t>(npix / MIN_PIXELS, 1, static_cast<uint64_t>(std::max(Q.nthreads, 1))));
}

void init_rows(dUParamTiles& Q) {
  Q.rows.clear();
  Q.npix = 0;
  int nv = 0, width = 0;
  uint64_t nrows = 0, row = 0;  // pixel rows
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    const dUParamTile& T = Q.tile.val[t];
    nv = std::max(nv, T.nv());
    if (T.B.empty()) continue;
    nrows += static_cast<uint64_t>(T.jmax - T.jmin + 1);
    for (int r = T.jmin / T.dim; r <= T.jmax / T.dim; r++) {
      Q.rows.push_back({static_cast<uint32_t>(t), static_cast<uint32_t>(r)});
      row += static_cast<uint64_t>(std::min(T.jmax, (r + 1) * T.dim - 1) - std::max(T.jmin, r * T.dim) + 1);
    }
    Q.npix += T.B.size();
    width = std::max(width, T.B.xsize());
  }
  ASSERT(row == nrows);
  Q.acc.resize(nv, static_cast<int>(2 * Q.rows.size()));
  Q.scratch.resize(static_cast<size_t>(std::max(Q.nthreads, 1)));
  for (RowScratch& s : Q.scratch) s.resize(width);
}

namespace {
// The data term of one unit, into its slot.
void th_data_dU_rows(dUParamTiles& Q, int64_t unit, int thread) {
  ASSERT(Q.s > 0.0f);
  const float k = 0.01f / (Q.s * Q.s);
  const thRowInfo info = Q.rows[static_cast<size_t>(unit)];
  const dUParamTile& T = Q.tile.val[info.tile];
  RowScratch& s = Q.scratch[static_cast<size_t>(thread)];
  const int row = static_cast<int>(info.row);
  expand_cell_row(T, row, s);
  zero_cell_row(T, s);
  for (int j = std::max(T.jmin, row * T.dim); j <= std::min(T.jmax, (row + 1) * T.dim - 1); j++)
    grad_row(T, j, k, s);
  reduce_cell_row(T, s, Q.acc.row(static_cast<int>(2 * unit)));
}

// Adds the slots up in their order, in double, and stores them as the tiles' dU. A tile's units follow each
// other, so that a vertex row is the upper row of one unit plus the lower row of the next.
void merge_slots(dUParamTiles& Q) {
  for (dUParamTile& T : Q.tile) T.dU.resize(T.nv(), T.nv(), xyz{0, 0, 0});
  for (size_t k = 0; k < Q.rows.size(); k++) {
    const thRowInfo info = Q.rows[k];
    dUParamTile& T = Q.tile.val[info.tile];
    const int _xsize = T.dU.xsize(), row = static_cast<int>(info.row);
    ASSERT(Q.acc.xsize() == _xsize && row + 1 < T.dU.ysize());
    const dxyz* const lower = Q.acc.row(static_cast<int>(2 * k));
    const dxyz* const upper = lower + _xsize;
    const bool follows = k > 0 && Q.rows[k - 1].tile == info.tile;
    const dxyz* const below = lower - _xsize;  // the upper row of the unit before
    for (int i = 0; i < _xsize; i++) {
      T.dU.row(row)[i] = to_xyz(follows ? below[i] + lower[i] : lower[i]);
      T.dU.row(row + 1)[i] = to_xyz(upper[i]);
    }
  }
}

// The prior's direction along one line of n vertices: second differences need three vertices in use.
struct VertexLine {
  const xyz* u;
  const uint8_t* on;
  xyz* dU;
  int64_t step;
};
void add_prior_line(const VertexLine& L, int n, const xyz& omega) {
  const auto u = [&](int i) { return L.u[i * L.step]; };
  const auto on = [&](int i) { return i >= 0 && i < n && L.on[i * L.step] != V_OFF; };
  for (int i = 0; i < n; i++) {
    if (!on(i)) continue;
    xyz sum = {0, 0, 0};
    if (on(i - 1) && on(i + 1)) sum += 2.0f * (u(i - 1) - 2.0f * u(i) + u(i + 1));
    if (on(i - 1) && on(i - 2)) sum += 2.0f * u(i - 1) - u(i) - u(i - 2);
    if (on(i + 1) && on(i + 2)) sum += 2.0f * u(i + 1) - u(i) - u(i + 2);
    xyz& d = L.dU[i * L.step];
    d.x += omega.x * sum.x, d.y += omega.y * sum.y, d.z += omega.z * sum.z;
  }
}

void add_prior(dUParamTile& T, const xyz& omega) {
  const int nv = T.nv();
  for (int k = 0; k < nv; k++) {
    const int64_t row = static_cast<int64_t>(k) * nv;
    add_prior_line({T.Def->val + row, T.Vmap.val + row, T.dU.val + row, 1}, nv, omega);
  }
  for (int k = 0; k < nv; k++) add_prior_line({T.Def->val + k, T.Vmap.val + k, T.dU.val + k, nv}, nv, omega);
}

// Walks the active vertices in the order of the parameter vector: tiles in order, vertices in raster order.
template <typename Visit>
void for_active(const dUParamTiles& Q, Visit&& visit) {
  for (const dUParamTile& T : Q.tile)
    for (uint64_t k = 0; k < T.Vmap.size(); k++)
      if (T.Vmap.val[k] == V_ACTIVE) visit(T, k);
}
void put(Vector<float>& V, uint64_t& vi, const xyz& v) {
  V(static_cast<int64_t>(vi)) = v.x;
  V(static_cast<int64_t>(vi + 1)) = v.y;
  V(static_cast<int64_t>(vi + 2)) = v.z;
  vi += 3;
}
}  // namespace

void conv_D2V(Vector<float>& V, const dUParamTiles& Q) {
  V.resize(3ull * Q.Tnpar);
  uint64_t vi = 0;
  for_active(Q, [&](const dUParamTile& T, uint64_t k) { put(V, vi, T.Def->val[k]); });
  ASSERT(vi == V.size());
}

void conv_V2D(const Vector<float>& V, dUParamTiles& Q) {
  uint64_t vi = 0;
  for_active(Q, [&](const dUParamTile& T, uint64_t k) {
    ASSERT(vi + 3 <= V.size());
    T.Def->val[k] = {V.val[vi], V.val[vi + 1], V.val[vi + 2]};
    vi += 3;
  });
  ASSERT(vi == V.size());
}

void conv_D2V_dU(Vector<float>& g, const dUParamTiles& Q) {
  const Vector<float>& V = g;
  uint64_t vi = 0;
  for_active(Q, [&](const dUParamTile& T, uint64_t k) { put(g, vi, T.dU.val[k]); });
  ASSERT(vi == V.size());
}

double dUdef_W_nr_reg_tiles(Vector<float>& g, uint64_t dim, const Vector<float>& V, dUParamTiles& Q) {
  ASSERT(g.size() == dim && V.size() == dim);
  conv_V2D(V, Q);
  sync_border(Q);
  run_units(static_cast<int64_t>(Q.rows.size()), comp_threads(Q, Q.npix), [&](int64_t unit, int thread) {
    th_data_dU_rows(Q, unit, thread);
    return true;
  });
  merge_slots(Q);
  for (dUParamTile& T : Q.tile) add_prior(T, Q.omega);
  add_seams<xyz>(Q, [](dUParamTile& T) -> Image<xyz>& { return T.dU; });
  conv_D2V_dU(g, Q);
  return 0.0;
}

namespace {
// Adds to dU what the data say about the curvature of the energy at each vertex by itself: slopes by
// differences of the coefficients at the nearest pixel serve well enough.
void add_data_diag(dUParamTile& T, float s, RowScratch& scratch) {
  const Image<float>& C = *T.C;
  const int nv = T.nv(), w = C.xsize(), h = C.ysize();
  const float k = 0.01f / (s * s);
  for (int j = T.jmin, cell = -1; j <= T.jmax; j++) {
    if (j / T.dim != cell) expand_cell_row(T, cell = j / T.dim, scratch);
    const uint8_t* const b_row = T.B.row(j - T.jmin);
    const float y0 = T.bx0.val[j], y1 = T.bx1.val[j];
    for (int i = T.imin; i <= T.imax; i++) {
      const int n = i - T.imin;
      const float e = static_cast<float>(b_row[n] & B_WEIGHT) * k;
      if (e == 0.0f) continue;
      const float px = static_cast<float>(i + T.buf) + 0.5f + (scratch.u0x[n] + y1 * scratch.dux[n]);
      const float py = static_cast<float>(j + T.buf) + 0.5f + (scratch.u0y[n] + y1 * scratch.duy[n]);
      if (!(px >= 1.0f && py >= 1.0f && px < static_cast<float>(w - 1) && py < static_cast<float>(h - 1)))
        continue;
      const float* const c = C.row(static_cast<int>(py)) + static_cast<int>(px);
      const float gx = 0.5f * (c[1] - c[-1]), gy = 0.5f * (c[w] - c[-w]);
      const xyz curve = {e * gx * gx, e * gy * gy, e};
      xyz* const at = T.dU.val + T.iy.val[j] + T.ix.val[i];
      const float x0 = T.bx0.val[i], x1 = T.bx1.val[i];
      at[0] += (x0 * x0 * y0 * y0) * curve;
      at[1] += (x1 * x1 * y0 * y0) * curve;
      at[nv] += (x0 * x0 * y1 * y1) * curve;
      at[nv + 1] += (x1 * x1 * y1 * y1) * curve;
    }
  }
}

// Adds the prior's share: 4 for the second difference centred at a vertex, 1 for each that ends there.
void add_prior_diag(dUParamTile& T, const xyz& omega) {
  const int nv = T.nv();
  const auto terms = [&](int at, int step, int pos) {
    const auto on = [&](int d) { return pos + d >= 0 && pos + d < nv && T.Vmap.val[at + d * step] != V_OFF; };
    return 4.0f * (on(-1) && on(1)) + 1.0f * (on(-1) && on(-2)) + 1.0f * (on(1) && on(2));
  };
  for (int j = 0; j < nv; j++)
    for (int i = 0; i < nv; i++) {
      const int at = j * nv + i;
      if (T.Vmap.val[at] != V_OFF) T.dU.val[at] += (terms(at, 1, i) + terms(at, nv, j)) * omega;
    }
}
}  // namespace

void comp_scale(Vector<float>& scale, dUParamTiles& Q) {
  run_units(static_cast<int64_t>(Q.tile.size()), comp_threads(Q, Q.npix), [&](int64_t t, int thread) {
    dUParamTile& T = Q.tile.val[t];
    T.dU.resize(T.nv(), T.nv(), xyz{0, 0, 0});
    if (!T.B.empty()) add_data_diag(T, Q.s, Q.scratch[static_cast<size_t>(thread)]);
    add_prior_diag(T, Q.omega);
    return true;
  });
  add_seams<xyz>(Q, [](dUParamTile& T) -> Image<xyz>& { return T.dU; });
  conv_D2V_dU(scale, Q);
  for (float& v : scale) v = v > 0.0f ? 1.0f / std::sqrt(v) : 1.0f;
}

void for_resid_rows(dUParamTiles& Q, const std::function<void(dUParamTile&, int, int)>& per_row) {
  run_units(static_cast<int64_t>(Q.rows.size()), comp_threads(Q, Q.npix), [&](int64_t unit, int thread) {
    const thRowInfo info = Q.rows[static_cast<size_t>(unit)];
    dUParamTile& T = Q.tile.val[info.tile];
    RowScratch& s = Q.scratch[static_cast<size_t>(thread)];
    const int row = static_cast<int>(info.row);
    expand_cell_row(T, row, s);
    for (int j = std::max(T.jmin, row * T.dim); j <= std::min(T.jmax, (row + 1) * T.dim - 1); j++) {
      resid_row(T, j, s);
      per_row(T, j, thread);
    }
    return true;
  });
}
