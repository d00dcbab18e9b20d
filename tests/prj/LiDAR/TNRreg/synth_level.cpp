#include "tests/prj/LiDAR/TNRreg/synth_level.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "lib/ImgProc/bspline3.h"
#include "prj/LiDAR/TNRreg/Reg_Coef.h"

namespace veld {
LevelProblem::LevelProblem(int J, double size, double holes, bool whole) {
  SynthPair synth;
  synth.dim = 2;
  synth.buf = 8;
  synth.holes = holes;
  synth.slope = 0.3;
  pair = make_pair(synth);
  if (!whole) pair.TI(1, 1) = -1;
  const uint64_t nt = whole ? 4 : 3;
  set_flags(pair.F, pair.img1);
  Reg_Coef(pair.img1, 1, pair.C);
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> unit(-1, 1);
  const float amplitude = static_cast<float>(size);
  Def.resize(nt);
  Q.tile.resize(nt);
  init_neighbours(Q, pair.TI);
  for (uint64_t t = 0; t < nt; t++) {
    Def(t).resize(comp_dxp(J), comp_dxp(J));
    for (uint64_t k = 0; k < Def(t).size(); k++)
      Def(t)[k] = {amplitude * unit(rng), amplitude * unit(rng), 0.1f * unit(rng)};
    dUParamTile& T = Q.tile(t);
    T.Def = &Def(t);
  }
  sync_border(Q);
  for (uint64_t t = 0; t < nt; t++) {
    dUParamTile& T = Q.tile(t);
    EXPECT_TRUE(set_FCZ_ROI(T, {&pair.F(t), &pair.C(t), &pair.img2(t), nullptr}, pair.buf, pair.dim << J, 0));
    set_BI(T);
    EXPECT_TRUE(init_B_F(T, 0.02f, false));
    for (uint64_t k = 0; k < T.B.size(); k++)  // all sorts of weights
      if (T.B[k]) T.B[k] = static_cast<uint8_t>(B_USED + k % 101);
    vertex_zw_tile(T);
    init_Vmap_from_w(T, comp_dxp(J), false);
  }
  proc_Vmap_topo(Q);
  sync_border(Q);
  init_rows(Q);
  Q.s = 0.2f;
  Q.omega = {3, 5, 7};
}

namespace {
template <typename Visit>
void for_active(const dUParamTiles& Q, Visit&& visit) {
  for (int t = 0; t < static_cast<int>(Q.tile.size()); t++) {
    const Image<uint8_t>& Vmap = Q.tile(t).Vmap;
    for (int j = 0; j < Vmap.ysize(); j++)
      for (int i = 0; i < Vmap.xsize(); i++)
        if (Vmap(i, j) == V_ACTIVE) visit(t, i, j);
  }
}

double spline_at(const Image<float>& C, double x, double y) {
  double wx[4], wy[4], v = 0;
  const int ix = static_cast<int>(std::floor(x)), iy = static_cast<int>(std::floor(y));
  bspline3_weights(x - ix, wx);
  bspline3_weights(y - iy, wy);
  for (int a = 0; a < 4; a++)
    for (int b = 0; b < 4; b++)
      v += wx[b] * wy[a] *
           static_cast<double>(
               C(bspline3_mirror(ix - 1 + b, C.xsize()), bspline3_mirror(iy - 1 + a, C.ysize())));
  return v;
}

dxyz bilinear(const Image<xyz>& D, double x, double y) {
  const int i = static_cast<int>(x), j = static_cast<int>(y);
  const double f = x - i, g = y - j;
  return (to_dxyz(D(i, j)) * (1 - f) + to_dxyz(D(i + 1, j)) * f) * (1 - g) +
         (to_dxyz(D(i, j + 1)) * (1 - f) + to_dxyz(D(i + 1, j + 1)) * f) * g;
}
}  // namespace

Vector<float> pack_Def(const dUParamTiles& Q) {
  Vector<float> V(3ull * Q.Tnpar);
  int64_t n = 0;
  for_active(Q, [&](int t, int i, int j) {
    const xyz& u = (*Q.tile(t).Def)(i, j);
    for (const float v : {u.x, u.y, u.z}) V(n++) = v;
  });
  EXPECT_EQ(n, static_cast<int64_t>(V.size()));
  return V;
}

void unpack_Def(const Vector<float>& V, dUParamTiles& Q) {
  int64_t n = 0;
  for_active(Q, [&](int t, int i, int j) {
    (*Q.tile(t).Def)(i, j) = {V(n), V(n + 1), V(n + 2)};
    n += 3;
  });
  sync_border(Q);
}

Vector<float> pack(const dUParamTiles& Q, const NormalEq& N, const std::vector<V3<float>>& v) {
  Vector<float> V(3ull * Q.Tnpar);
  int64_t n = 0;
  for_active(Q, [&](int t, int i, int j) {
    const V3<float>& u = v[N.at(t, i, j)];
    for (const float c : {u.x, u.y, u.z}) V(n++) = c;
  });
  return V;
}

double slow_energy(dUParamTiles& Q, const Vector<float>& V) {
  unpack_Def(V, Q);
  double E = 0;
  for (const dUParamTile& T : Q.tile) {
    for (int j = T.jmin; j <= T.jmax; j++)
      for (int i = T.imin; i <= T.imax; i++) {
        const double w = (T.B(i - T.imin, j - T.jmin) & B_WEIGHT) / 100.0;
        if (w == 0) continue;
        const dxyz u = bilinear(*T.Def, static_cast<double>(i) / T.dim, static_cast<double>(j) / T.dim);
        const double r =
            static_cast<double>((*T.Z)(i, j)) + u.z - spline_at(T.C->value, i + T.buf + u.x, j + T.buf + u.y);
        E += 0.5 * w * r * r / static_cast<double>(Q.s * Q.s);
      }
    const auto prior = [&](int i, int j, int di, int dj) {
      if (!T.Vmap(i, j) || !T.Vmap(i - di, j - dj) || !T.Vmap(i + di, j + dj)) return;
      const dxyz d =
          to_dxyz((*T.Def)(i - di, j - dj)) - to_dxyz((*T.Def)(i, j)) * 2 + to_dxyz((*T.Def)(i + di, j + dj));
      const dxyz o = to_dxyz(Q.omega);
      E += 0.5 * (o.x * d.x * d.x + o.y * d.y * d.y + o.z * d.z * d.z);
    };
    for (int k = 0; k < T.nv(); k++)
      for (int m = 1; m < T.nv() - 1; m++) {
        prior(m, k, 1, 0);
        prior(k, m, 0, 1);
      }
  }
  return E;
}

double slow_product(dUParamTiles& Q, const Vector<float>& V, const Vector<float>& a, const Vector<float>& b) {
  // The residual's and the second differences' change along a direction, from the same dUParamTiles.
  Vector<Image<xyz>> at(Q.tile.size()), along_a(Q.tile.size()), along_b(Q.tile.size());
  for (const auto& [from, to] : {std::pair{&V, &at}, std::pair{&a, &along_a}, std::pair{&b, &along_b}}) {
    for (dUParamTile& T : Q.tile)
      for (uint64_t k = 0; k < T.Def->size(); k++) (*T.Def)[k] = {0, 0, 0};
    unpack_Def(*from, Q);
    for (uint64_t t = 0; t < Q.tile.size(); t++) (*to)[t] = *Q.tile[t].Def;
  }
  double sum = 0;
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    const dUParamTile& T = Q.tile[t];
    const Image<xyz>&u = at[t], &da = along_a[t], &db = along_b[t];
    for (int j = T.jmin; j <= T.jmax; j++)
      for (int i = T.imin; i <= T.imax; i++) {
        const double w = (T.B(i - T.imin, j - T.jmin) & B_WEIGHT) / 100.0, h = 1e-3;
        if (w == 0) continue;
        const double x = static_cast<double>(i) / T.dim, y = static_cast<double>(j) / T.dim;
        const dxyz d = bilinear(u, x, y);
        const double px = i + T.buf + d.x, py = j + T.buf + d.y;
        const double gx = (spline_at(T.C->value, px + h, py) - spline_at(T.C->value, px - h, py)) / (2 * h);
        const double gy = (spline_at(T.C->value, px, py + h) - spline_at(T.C->value, px, py - h)) / (2 * h);
        const dxyz J = {-gx, -gy, 1};
        sum += w * dot(J, bilinear(da, x, y)) * dot(J, bilinear(db, x, y)) / static_cast<double>(Q.s * Q.s);
      }
    const auto prior = [&](int i, int j, int di, int dj) {
      if (!T.Vmap(i, j) || !T.Vmap(i - di, j - dj) || !T.Vmap(i + di, j + dj)) return;
      const auto second = [&](const Image<xyz>& D) {
        return to_dxyz(D(i - di, j - dj)) - to_dxyz(D(i, j)) * 2 + to_dxyz(D(i + di, j + dj));
      };
      const dxyz o = to_dxyz(Q.omega), p = second(da), q = second(db);
      sum += o.x * p.x * q.x + o.y * p.y * q.y + o.z * p.z * q.z;
    };
    for (int k = 0; k < T.nv(); k++)
      for (int m = 1; m < T.nv() - 1; m++) {
        prior(m, k, 1, 0);
        prior(k, m, 0, 1);
      }
  }
  unpack_Def(V, Q);
  return sum;
}
}  // namespace veld
