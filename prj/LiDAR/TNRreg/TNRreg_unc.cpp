// Uncertainty of the vertices at the last level, from samples of the noise carried through the normal
// equations, and the removal of vertices that are too weak.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/TNRreg/TNRreg_noise.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Of a sample's solution. Long waves on flat ground are a small part of the right-hand side and a large one of the
// solution.
constexpr double CG_TOL = 0.005;
constexpr int CG_LIMIT = 200;
// What is known of each vertex without data: 3 pixels, 3 m. Groups that the prior alone holds need it.
constexpr float COMMON = 0.1f;
// Square of three times the slope that noise makes in a grid, a quarter of its variance a pixel (half of s^2 each).
constexpr float SLOPE_NOISE = 9 * 0.25f / 2;

// Vertices that no second difference of the prior reaches go off: nothing but their own few pixels holds them.
void drop_isolated(NormalEq& N, dUParamTiles& Q) {
  std::vector<float> terms(N.size(), 0.0f);
  const size_t up = static_cast<size_t>(N.stride);
  for (int t = 0; t < N.nt; t++)
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++) {
        const size_t k = N.at(t, i, j);
        terms[k] = N.cx[k - 1] + N.cx[k] + N.cx[k + 1] + N.cy[k - up] + N.cy[k] + N.cy[k + up];
      }
  for (const auto& [slave, partner] : N.seam) terms[partner] += terms[slave];
  for (int t = 0; t < N.nt; t++)
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++) {
        uint8_t& state = Q.tile[t].Vmap.row(j)[i];
        if (state != V_ACTIVE || terms[N.at(t, i, j)] > 0) continue;
        state = V_OFF;
        N.self[N.at(t, i, j)] = SymBlock{};
        N.g[N.at(t, i, j)] = V3<float>{0, 0, 0};
      }
}

// Adds the squares of the solutions of the samples to the sums of each parameter.
void add_squares(const PCGwork<v8f>& w, std::vector<V3<float>>& sum) {
  for (size_t k = 0; k < sum.size(); k++)
    for (int l = 0; l < LANES; l++) {
      sum[k].x += w.x[k].x[l] * w.x[k].x[l];
      sum[k].y += w.x[k].y[l] * w.x[k].y[l];
      sum[k].z += w.x[k].z[l] * w.x[k].z[l];
    }
}

// Variances of the parameters under the noise of the pixels: that of the solutions of samples of the noise. The
// prior takes part as it does in the estimate, so that a vertex on flat ground has what its neighbours know. floor:
// the noise of the pixels is not below it.
void sample_variances(dUParamTiles& Q, NormalEq& N, float floor, std::vector<V3<float>>& variance) {
  std::vector<LocalScale> scale;
  comp_local_scale(N, Q, floor * floor / (Q.s * Q.s), scale);
  set_damping(N, 0.0f, COMMON);
  const float long_share = comp_long_share(Q);
  PCGwork<v8f> w;
  variance.assign(N.size(), V3<float>{0, 0, 0});
  std::string marks;
  for (int group = 0; group < NSAMPLE_GROUPS; group++) {
    sample_noise(N, Q, group, long_share, scale, w.r);
    marks += std::to_string(solve_PCG(N, w, CG_TOL, CG_LIMIT)) + " ";
    add_squares(w, variance);
  }
  LOG_LINE("sample_variances long_share=" << long_share << " CG >>> " << marks);
  constexpr float MEAN = 1.0f / (NSAMPLE_GROUPS * LANES);
  for (V3<float>& v : variance) v = {v.x * MEAN, v.y * MEAN, v.z * MEAN};
}
}  // namespace

void comp_unc(dUParamTiles& Q, Vector<Image<xyz>>& Unc) {
  const float s = Q.s, sigma0 = Q.sigma0;
  Q.s = std::hypot(s, sigma0);  // information on the same scale as the weights
  Q.sigma0 = 0;
  NormalEq N;
  init_normal(N, Q);
  N.slope_noise = SLOPE_NOISE * Q.s * Q.s;
  assemble_normal(N, Q);
  drop_isolated(N, Q);
  std::vector<V3<float>> variance;
  sample_variances(Q, N, sigma0, variance);
  Q.s = s;
  Q.sigma0 = sigma0;
  const RoughWeights weights = rough_weights(Q);
  for (dUParamTile& T : Q.tile) {
    T.zV.resize(T.nv(), T.nv(), 0.0f);
    T.wV.resize(T.nv(), T.nv(), 0.0f);
    if (!T.B.empty()) vertex_zw_tile(T);
  }
  for (Image<float> dUParamTile::*H : {&dUParamTile::zV, &dUParamTile::wV})
    add_seams<float>(Q, [H](dUParamTile& T) -> Image<float>& { return T.*H; });

  Unc.resize(Q.tile.size());
  for (int t = 0; t < N.nt; t++) {
    dUParamTile& T = Q.tile[t];
    Image<xyz>& U = Unc[t];
    U.resize(T.nv(), T.nv(), xyz{NR_NO_UNC, NR_NO_UNC, NR_NO_UNC});
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++) {
        if (T.Vmap.row(j)[i] != V_ACTIVE) continue;
        const V3<float>& v = variance[N.at(t, i, j)];
        U.row(j)[i] = {std::sqrt(v.x + 1e-6f), std::sqrt(v.y + 1e-6f), std::sqrt(v.z + 1e-8f)};
      }
    norm_vertex_zw(T);
    if (!T.B.empty()) vertex_w_b_tile(T, weights);
  }
  add_seams<float>(Q, [](dUParamTile& T) -> Image<float>& { return T.wV; });
}

void comp_rough(dUParamTiles& Q, Vector<Image<float>>& Rough) {
  const uint64_t nt = Q.tile.size();
  Rough.resize(nt);
  Vector<Image<float>> weight(nt);
  for (uint64_t t = 0; t < nt; t++) vertex_rough_tile(Q.tile[t], Rough[t], weight[t]);
  if (nt == 0) return;
  for (Vector<Image<float>>* sum : {&Rough, &weight})
    for_seams(Q, Rough[0].xsize(), [sum](int t, int i, int j, const SeamVertex& p) {
      (*sum)(p.tile)(p.i, p.j) += (*sum)(t)(i, j);
    });
  for (uint64_t t = 0; t < nt; t++)
    for (uint64_t k = 0; k < Rough[t].size(); k++) {
      const float w = weight[t][k];
      Rough[t][k] = w > 0 ? Q.rough_unit * Rough[t][k] / w : 0.0f;
    }
}

void delete_Vmap_unc_wb(dUParamTile& T, const Image<xyz>& Unc, int ti) {
  const float w0 = MINFRAC * static_cast<float>(T.dim * T.dim);
  uint32_t ndelu = 0, ndelw = 0;
  for (uint64_t k = 0; k < T.Vmap.size(); k++) {
    if (T.Vmap[k] != V_ACTIVE) continue;
    const xyz& u = Unc[k];
    const bool weak = T.wV[k] <= w0;
    if (!weak && u.x < MAXREGUNC.x && u.y < MAXREGUNC.y && u.z < MAXREGUNC.z) continue;
    T.Vmap[k] = V_OFF;
    (weak ? ndelw : ndelu)++;
  }
  if (ndelu > 0) LOG_LINE("delete_Vmap_unc_wb ti=" << ti << " ndelu=" << ndelu << " ndelw=" << ndelw);
}
}  // namespace veld
