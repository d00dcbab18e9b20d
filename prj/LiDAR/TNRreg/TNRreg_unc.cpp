// Uncertainty of the vertices at the last level: the information matrix of each vertex from the curvature of
// the data term, its inverse's diagonal, and the removal of vertices that are too weak.
#include <algorithm>
#include <cmath>

#include "lib/ImgProc/bspline3.h"
#include "lib/general/log.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"
#include "prj/LiDAR/tuning.h"

namespace {
struct SplineJet {  // value, first and second derivatives
  float v, gx, gy, gxx, gyy, gxy;
};

// False where the spline needs more than one reflection.
bool eval_jet(const Image<float>& C, float x, float y, SplineJet& o) {
  const int w = C.xsize(), h = C.ysize();
  if (!(x > static_cast<float>(-w) && x < static_cast<float>(2 * w))) return false;
  if (!(y > static_cast<float>(-h) && y < static_cast<float>(2 * h))) return false;
  const float fx = std::floor(x), fy = std::floor(y);
  int xs[4];
  float wx[4], dx[4], ddx[4], wy[4], dy[4], ddy[4];
  bspline3_weights(x - fx, wx), bspline3_weights_d1(x - fx, dx), bspline3_weights_d2(x - fx, ddx);
  bspline3_weights(y - fy, wy), bspline3_weights_d1(y - fy, dy), bspline3_weights_d2(y - fy, ddy);
  for (int k = 0; k < 4; k++) {
    xs[k] = bspline3_mirror(static_cast<int>(fx) - 1 + k, w);
    if (xs[k] < 0 || xs[k] >= w) return false;
  }
  o = {};
  for (int a = 0; a < 4; a++) {
    const int ys = bspline3_mirror(static_cast<int>(fy) - 1 + a, h);
    if (ys < 0 || ys >= h) return false;
    const float* const c = C.row(ys);
    float l = 0, lx = 0, lxx = 0;
    for (int b = 0; b < 4; b++) {
      l += wx[b] * c[xs[b]];
      lx += dx[b] * c[xs[b]];
      lxx += ddx[b] * c[xs[b]];
    }
    o.v += wy[a] * l, o.gx += wy[a] * lx, o.gxx += wy[a] * lxx;
    o.gy += dy[a] * l, o.gxy += dy[a] * lx, o.gyy += ddy[a] * l;
  }
  return true;
}

void comp_H_tile(dUParamTile& T, float s, RowScratch& scratch) {
  const int nv = T.nv();
  for (Image<float>* H : {&T.Hxx, &T.Hyy, &T.Hzz, &T.Hxy, &T.Hyz, &T.Hxz}) H->resize(nv, nv, 0.0f);
  if (T.B.empty()) return;
  const float k = 0.01f / (s * s);
  for (int j = T.jmin, cell = -1; j <= T.jmax; j++) {
    if (j / T.dim != cell) expand_cell_row(T, cell = j / T.dim, scratch);
    const uint8_t* const b_row = T.B.row(j - T.jmin);
    const float y0 = T.bx0.val[j], y1 = T.bx1.val[j];
    for (int i = T.imin; i <= T.imax; i++) {
      const int n = i - T.imin;
      if ((b_row[n] & B_WEIGHT) == 0) continue;
      const float uz = scratch.u0z[n] + y1 * scratch.duz[n];
      SplineJet o;
      if (!eval_jet(*T.C, static_cast<float>(i + T.buf) + (scratch.u0x[n] + y1 * scratch.dux[n]),
                    static_cast<float>(j + T.buf) + (scratch.u0y[n] + y1 * scratch.duy[n]), o))
        continue;
      const float c = static_cast<float>(b_row[n] & B_WEIGHT) * k;
      const float r = o.v - T.Z->row(j)[i] - uz;
      const float hxx = c * (o.gx * o.gx + r * o.gxx), hyy = c * (o.gy * o.gy + r * o.gyy);
      const float hxy = c * (o.gx * o.gy + r * o.gxy);
      const float b[4] = {T.bx0.val[i] * y0, T.bx1.val[i] * y0, T.bx0.val[i] * y1, T.bx1.val[i] * y1};
      const uint32_t at[4] = {0, 1, static_cast<uint32_t>(nv), static_cast<uint32_t>(nv + 1)};
      for (int q = 0; q < 4; q++) {
        const uint32_t v = T.iy.val[j] + T.ix.val[i] + at[q];
        const float b2 = b[q] * b[q];
        T.Hxx.val[v] += hxx * b2, T.Hyy.val[v] += hyy * b2, T.Hxy.val[v] += hxy * b2;
        T.Hzz.val[v] += c * b2, T.Hyz.val[v] -= c * o.gy * b2, T.Hxz.val[v] -= c * o.gx * b2;
      }
    }
  }
}

// Standard deviations of vertex k from its information matrix. False if that is not positive definite.
bool invert_vertex(const dUParamTile& T, uint64_t k, xyz& unc) {
  const double xx = T.Hxx.val[k], yy = T.Hyy.val[k], zz = T.Hzz.val[k];
  const double xy = T.Hxy.val[k], yz = T.Hyz.val[k], xz = T.Hxz.val[k];
  const double cxx = yy * zz - yz * yz, cyy = xx * zz - xz * xz, czz = xx * yy - xy * xy;
  const double det = xx * cxx - xy * (xy * zz - yz * xz) + xz * (xy * yz - yy * xz);
  if (!(det > 0 && cxx >= 0 && cyy >= 0 && czz >= 0)) return false;
  unc.x = static_cast<float>(std::sqrt(cxx / det + 1e-6));
  unc.y = static_cast<float>(std::sqrt(cyy / det + 1e-6));
  unc.z = static_cast<float>(std::sqrt(czz / det + 1e-8));
  return true;
}
}  // namespace

void comp_unc(dUParamTiles& Q, Vector<Image<xyz>>& Unc) {
  const int64_t nt = static_cast<int64_t>(Q.tile.size());
  run_units(nt, comp_threads(Q, Q.npix), [&](int64_t t, int thread) {
    dUParamTile& T = Q.tile.val[t];
    comp_H_tile(T, std::hypot(Q.s, Q.sigma0), Q.scratch[static_cast<size_t>(thread)]);
    if (!T.B.empty())
      vertex_zw_tile(T);
    else {
      T.zV.resize(T.nv(), T.nv(), 0.0f);
      T.wV.resize(T.nv(), T.nv(), 0.0f);
    }
    return true;
  });
  for (Image<float> dUParamTile::*H :
       {&dUParamTile::Hxx, &dUParamTile::Hyy, &dUParamTile::Hzz, &dUParamTile::Hxy, &dUParamTile::Hyz,
        &dUParamTile::Hxz, &dUParamTile::zV, &dUParamTile::wV})
    add_seams<float>(Q, [H](dUParamTile& T) -> Image<float>& { return T.*H; });

  Unc.resize(static_cast<uint64_t>(nt));
  for (int64_t t = 0; t < nt; t++) {
    dUParamTile& T = Q.tile.val[t];
    Unc.val[t].resize(T.nv(), T.nv(), xyz{NR_NO_UNC, NR_NO_UNC, NR_NO_UNC});
    for (uint64_t k = 0; k < T.Vmap.size(); k++)
      if (T.Vmap.val[k] == V_ACTIVE && !invert_vertex(T, k, Unc.val[t].val[k])) T.Vmap.val[k] = V_OFF;
    norm_vertex_zw(T);
    if (!T.B.empty()) vertex_w_b_tile(T);
  }
  add_seams<float>(Q, [](dUParamTile& T) -> Image<float>& { return T.wV; });
}

void delete_Vmap_unc_wb(dUParamTile& T, const Image<xyz>& Unc, int ti) {
  const float w0 = MINFRAC * static_cast<float>(T.dim * T.dim);
  uint32_t ndelu = 0, ndelw = 0;
  for (uint64_t k = 0; k < T.Vmap.size(); k++) {
    if (T.Vmap.val[k] != V_ACTIVE) continue;
    const xyz& u = Unc.val[k];
    const bool weak = T.wV.val[k] <= w0;
    if (!weak && u.x < MAXREGUNC.x && u.y < MAXREGUNC.y && u.z < MAXREGUNC.z) continue;
    T.Vmap.val[k] = V_OFF;
    (weak ? ndelw : ndelu)++;
  }
  if (ndelu > 0) LOG_LINE("delete_Vmap_unc_wb ti=" << ti << " ndelu=" << ndelu << " ndelw=" << ndelw);
}
