// Uncertainty of the vertices at the last level: the information matrix of each vertex from the curvature of
// the data term, its inverse's diagonal, and the removal of vertices that are too weak.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/TNRreg/TNRreg_normal.h"
#include "prj/LiDAR/tuning.h"

namespace {
// Standard deviations of a vertex from its information matrix. False if that is not positive definite.
bool invert_vertex(const SymBlock& H, xyz& unc) {
  const double xx = H.v[0], yy = H.v[3], zz = H.v[5], xy = H.v[1], xz = H.v[2], yz = H.v[4];
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
  const float s = Q.s;
  Q.s = std::hypot(Q.s, Q.sigma0);
  NormalEq N;
  N.omega = {0, 0, 0};
  init_normal(N, Q);
  N.omega = {0, 0, 0};
  assemble_normal(N, Q);
  Q.s = s;
  for (dUParamTile& T : Q.tile) {
    T.zV.resize(T.nv(), T.nv(), 0.0f);
    T.wV.resize(T.nv(), T.nv(), 0.0f);
    if (!T.B.empty()) vertex_zw_tile(T);
  }
  for (Image<float> dUParamTile::*H : {&dUParamTile::zV, &dUParamTile::wV})
    add_seams<float>(Q, [H](dUParamTile& T) -> Image<float>& { return T.*H; });

  Unc.resize(static_cast<uint64_t>(nt));
  for (int64_t t = 0; t < nt; t++) {
    dUParamTile& T = Q.tile.val[t];
    Unc.val[t].resize(T.nv(), T.nv(), xyz{NR_NO_UNC, NR_NO_UNC, NR_NO_UNC});
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++)
        if (T.Vmap(i, j) == V_ACTIVE && !invert_vertex(N.self[N.at(t, i, j)], Unc.val[t](i, j)))
          T.Vmap(i, j) = V_OFF;
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
