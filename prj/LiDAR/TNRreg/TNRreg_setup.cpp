// Set-up of a tile at a level: region of interest, interpolation tables, pixels and vertices in use.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"

namespace veld {
void init_neighbours(dUParamTiles& Q, const Image<int16_t>& TI) {
  const uint64_t nt = Q.tile.size();
  Q.right.resize(nt, -1);
  Q.up.resize(nt, -1);
  Q.diag.resize(nt, -1);
  const auto tile_at = [&](int x, int y) {
    const int t = x < TI.xsize() && y < TI.ysize() ? TI(x, y) : -1;
    ASSERT(t < static_cast<int>(nt));
    return t;
  };
  for (int y = 0; y < TI.ysize(); y++)
    for (int x = 0; x < TI.xsize(); x++) {
      const int t = tile_at(x, y);
      if (t < 0) continue;
      Q.right(t) = tile_at(x + 1, y);
      Q.up(t) = tile_at(x, y + 1);
      Q.diag(t) = tile_at(x + 1, y + 1);
    }
}

bool set_FCZ_ROI(dUParamTile& T, const FCZptr& img, int buf, int dim, int ti) {
  T.F = img.F;
  T.C = img.C;
  T.Z = img.Z;
  T.S = img.S && !img.S->empty() ? img.S : nullptr;
  T.buf = buf;
  T.dim = dim;
  const int w = T.Z->xsize(), h = T.Z->ysize();
  T.imin = w, T.jmin = h, T.imax = -1, T.jmax = -1;
  uint64_t nz1 = 0, nz2 = 0;  // data pixels of the reference and of the moved image
  for (int j = 0; j < h; j++) {
    const float* const z = T.Z->row(j);
    for (int i = 0; i < w; i++) {
      if (z[i] == NR_NODATA) continue;
      nz1++;
      T.imin = std::min(T.imin, i), T.imax = std::max(T.imax, i);
      T.jmin = std::min(T.jmin, j), T.jmax = j;
    }
  }
  for (uint64_t k = 0; k < T.F->size(); k++) nz2 += (*T.F)[k] != 0;
  if (nz1 == 0 || nz2 == 0) {
    LOG_LINE("<!> set_FCZ_ROI ti=" << ti << " imin=" << T.imin << " imax=" << T.imax << " jmin=" << T.jmin
                                   << " jmax=" << T.jmax << " nz1=" << nz1 << " nz2=" << nz2);
    T.imin = T.jmin = 0;
    T.imax = T.jmax = -1;
    return false;
  }
  T.imin = std::max(T.imin, 2), T.jmin = std::max(T.jmin, 2);
  T.imax = std::max(std::min(T.imax, w - 2), T.imin - 1);
  T.jmax = std::max(std::min(T.jmax, h - 2), T.jmin - 1);
  return true;
}

void set_BI(dUParamTile& T) {
  const int n = T.Z->xsize(), nv = T.nv();
  ASSERT(T.Z->ysize() == n && n == (nv - 1) * T.dim);
  T.bx0.resize(static_cast<uint64_t>(n));
  T.bx1.resize(static_cast<uint64_t>(n));
  T.ix.resize(static_cast<uint64_t>(n));
  T.iy.resize(static_cast<uint64_t>(n));
  for (int i = 0; i < n; i++) {
    const int v = i / T.dim;  // floor(i (nv - 1) / n), exactly
    const float f = static_cast<float>(i - v * T.dim) / static_cast<float>(T.dim);
    T.bx0[i] = 1.0f - f;
    T.bx1[i] = f;
    T.ix[i] = static_cast<uint32_t>(v);
    T.iy[i] = static_cast<uint32_t>(v * nv);
  }
}

namespace {
// Are all vertices in use that have a weight in pixel (i, j)?
bool vertices_in_use(const dUParamTile& T, int i, int j) {
  const int nv = T.nv();
  const uint8_t* const v = T.Vmap.val + T.iy[j] + T.ix[i];
  const bool right = T.bx1[i] > 0.0f, up = T.bx1[j] > 0.0f;
  return v[0] && (!right || v[1]) && (!up || v[nv]) && (!(right && up) || v[nv + 1]);
}

// Adds value(i, j, b) times the bilinear weights to the four vertices, for all pixels with B != 0.
template <typename Value>
void sum_to_vertices(const dUParamTile& T, Image<float>& sum, Value&& value) {
  const int nv = T.nv();
  for (int j = T.jmin; j <= T.jmax; j++) {
    const uint8_t* const b_row = T.B.row(j - T.jmin);
    const float y0 = T.bx0[j], y1 = T.bx1[j];
    for (int i = T.imin; i <= T.imax; i++) {
      const uint8_t b = b_row[i - T.imin];
      if (b == 0) continue;
      const float x0 = T.bx0[i], x1 = T.bx1[i], v = value(i, j, b);
      float* const at = sum.val + T.iy[j] + T.ix[i];
      at[0] += x0 * y0 * v;
      at[1] += x1 * y0 * v;
      at[nv] += x0 * y1 * v;
      at[nv + 1] += x1 * y1 * v;
    }
  }
}

void check_B(const dUParamTile& T) {
  const Image<uint8_t>& B = T.B;
  const int imin = T.imin, imax = T.imax, jmin = T.jmin, jmax = T.jmax;
  ASSERT(B.size() == static_cast<uint64_t>(imax - imin + 1) * static_cast<uint64_t>(jmax - jmin + 1));
}
}  // namespace

namespace {
struct RoughTable {  // hypot of two roughness codes
  uint8_t code[32][32];
};
const RoughTable& rough_table() {
  static const RoughTable table = [] {
    RoughTable t;
    for (int a = 0; a < 32; a++)
      for (int b = 0; b < 32; b++) t.code[a][b] = static_cast<uint8_t>(std::lround(std::hypot(a, b)));
    return t;
  }();
  return table;
}
}  // namespace

uint64_t mask_row(const dUParamTile& T, int j, const RowScratch& s, uint8_t* b, uint8_t* rough,
                  uint64_t& nz) {
  const RoughTable& both = rough_table();
  const uint8_t* const S = T.S ? T.S->row(j) : nullptr;
  const Image<uint8_t>& F = *T.F;
  const int w = F.xsize(), h = F.ysize();
  const bool use_map = !T.Vmap.empty();
  const float* const z = T.Z->row(j);
  const float f = T.bx1[j];
  uint64_t nb = 0;
  for (int i = T.imin; i <= T.imax; i++) {
    const int c = i - T.imin;
    b[c] = 0;
    if (z[i] == NR_NODATA) continue;
    nz++;
    const float x = static_cast<float>(i + T.buf) + (s.u0x[c] + f * s.dux[c]);
    const float y = static_cast<float>(j + T.buf) + (s.u0y[c] + f * s.duy[c]);
    if (!(x >= 0.0f && y >= 0.0f && x < static_cast<float>(w - 1) && y < static_cast<float>(h - 1))) continue;
    const uint8_t* const at = F.row(static_cast<int>(y)) + static_cast<int>(x);
    if (!(at[0] && at[1] && at[w] && at[w + 1])) continue;
    if (use_map && !vertices_in_use(T, i, j)) continue;
    b[c] = B_NEW;
    nb++;
    if (rough) {
      const int nearest = static_cast<int>(x + 0.5f) - static_cast<int>(x) +
                          (static_cast<int>(y + 0.5f) - static_cast<int>(y)) * w;
      rough[c] = both.code[(at[nearest] - 1) & 31][S ? S[i] & 31 : 0];
    }
  }
  return nb;
}

bool init_B_F(dUParamTile& T, float minfrac, bool log) {
  T.B.resize(T.imax - T.imin + 1, T.jmax - T.jmin + 1, 0);
  RowScratch s;
  s.resize(T.imax - T.imin + 1);
  uint64_t nb = 0, nz = 0;
  for (int j = T.jmin, cell = -1; j <= T.jmax; j++) {
    if (j / T.dim != cell) expand_cell_row(T, cell = j / T.dim, s);
    nb += mask_row(T, j, s, T.B.row(j - T.jmin), nullptr, nz);
  }
  const float occ = nz > 0 ? static_cast<float>(nb) / static_cast<float>(nz) : 0.0f;
  const bool good = occ > minfrac;
  if (log) LOG_LINE((good ? "" : "<!> ") << "init_B_F nb=" << nb << " nz=" << nz << " occ=" << occ);
  return good;
}

void vertex_zw_tile(dUParamTile& T) {
  T.zV.resize(T.nv(), T.nv(), 0.0f);
  T.wV.resize(T.nv(), T.nv(), 0.0f);
  check_B(T);
  sum_to_vertices(T, T.zV, [&](int i, int j, uint8_t) { return T.Z->row(j)[i]; });
  sum_to_vertices(T, T.wV, [](int, int, uint8_t) { return 1.0f; });
}

void vertex_w_b_tile(dUParamTile& T, const RoughWeights& weights) {
  T.wV.resize(T.nv(), T.nv(), 0.0f);
  check_B(T);
  sum_to_vertices(T, T.wV, [&](int i, int j, uint8_t b) {
    const float most = weights.share[T.rough.row(j - T.jmin)[i - T.imin] & 63];
    return std::min(static_cast<float>(b & B_WEIGHT) / std::max(most, 1.0f), 1.0f);
  });
}

void vertex_rough_tile(const dUParamTile& T, Image<float>& rough, Image<float>& weight) {
  rough.resize(T.nv(), T.nv(), 0.0f);
  weight.resize(T.nv(), T.nv(), 0.0f);
  if (T.B.empty()) return;
  sum_to_vertices(T, rough, [&](int i, int j, uint8_t b) {
    return static_cast<float>((b & B_WEIGHT) * T.rough.row(j - T.jmin)[i - T.imin]);
  });
  sum_to_vertices(T, weight, [](int, int, uint8_t b) { return static_cast<float>(b & B_WEIGHT); });
}

void norm_vertex_zw(dUParamTile& T) {
  Image<float>&zV = T.zV, &wV = T.wV;
  ASSERT(zV.size() == wV.size());
  for (uint64_t k = 0; k < zV.size(); k++) zV[k] = wV[k] != 0.0f ? zV[k] / wV[k] : NR_NODATA;
}

void init_Vmap_from_w(dUParamTile& T, int dxp, bool keep_ND) {
  ASSERT(T.wV.xsize() == dxp && T.wV.ysize() == dxp);
  T.Vmap.resize(dxp, dxp);
  T.Tnpar = 0;
  for (uint64_t k = 0; k < T.wV.size(); k++) {
    const bool on = T.wV[k] > 0.0f && !(keep_ND && (*T.Def)[k].z == NR_NODATA);
    T.Vmap[k] = on ? V_ACTIVE : V_OFF;
    T.Tnpar += on;
  }
}
}  // namespace veld
