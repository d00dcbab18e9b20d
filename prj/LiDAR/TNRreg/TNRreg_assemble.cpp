// Assembly of the normal equations: data term on threads by rows of vertex cells, prior, seams.
#include <algorithm>
#include <cmath>

#include "prj/LiDAR/TNRreg/TNRreg_normal.h"

namespace veld {
namespace {
void init_prior(NormalEq& N, const dUParamTiles& Q) {
  N.cx.assign(N.size(), 0.0f);
  N.cy.assign(N.size(), 0.0f);
  for (int t = 0; t < N.nt; t++) {
    const Image<uint8_t>& Vmap = Q.tile[t].Vmap;
    const auto on = [&](int i, int j) { return Vmap.row(j)[i] != V_OFF; };
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++) {
        if (!on(i, j)) continue;
        if (i > 0 && i < N.nv - 1 && on(i - 1, j) && on(i + 1, j)) N.cx[N.at(t, i, j)] = 1.0f;
        if (j > 0 && j < N.nv - 1 && on(i, j - 1) && on(i, j + 1)) N.cy[N.at(t, i, j)] = 1.0f;
      }
  }
}
void init_runs(NormalEq& N, const dUParamTiles& Q) {
  N.runs.clear();
  for (int t = 0; t < N.nt; t++)
    for (int j = 0; j < N.nv; j++) {
      const uint8_t* const state = Q.tile[t].Vmap.row(j);
      int first = 0, end = N.nv;
      while (first < end && state[first] == V_OFF) first++;
      while (end > first && state[end - 1] == V_OFF) end--;
      if (first < end) N.runs.push_back({N.at(t, first, j), N.at(t, end, j)});
    }
}
}  // namespace

void init_normal(NormalEq& N, const dUParamTiles& Q) {
  N.nt = static_cast<int>(Q.tile.size());
  N.nv = N.nt > 0 ? Q.tile[0].nv() : 0;
  N.stride = N.nv + 2 * NormalEq::MARGIN;
  N.omega = Q.omega;
  init_prior(N, Q);
  init_runs(N, Q);
  N.seam.clear();
  for_seams(Q, N.nv, [&](int t, int i, int j, const SeamVertex& partner) {
    N.seam.emplace_back(static_cast<uint32_t>(N.at(t, i, j)),
                        static_cast<uint32_t>(N.at(partner.tile, partner.i, partner.j)));
  });
  N.slot.resize(Q.rows.size() * static_cast<size_t>(N.nv * NSLOT));
}

namespace {
// Brings the column sums of a row of cells to its vertices: the lower row's directly, the upper row's into the
// slot.
void reduce_sums(const dUParamTile& T, const RowScratch& s, VertexBlock* block, V3<float>* g, float* slot) {
  std::fill_n(slot, T.nv() * NSLOT, 0.0f);
  for (int i = T.imin; i <= T.imax;) {
    const int v = static_cast<int>(T.ix[i]);
    const int end = std::min(T.imax + 1, (v + 1) * T.dim);
    float aa[NQ] = {}, ab[18] = {}, bb[NQ] = {};  // weights x0 x0, x0 x1, x1 x1; of g: x0, unused, x1
    for (; i < end; i++) {
      const int c = i - T.imin;
      const float* const sum = s.sums.data() + (c / LANES) * NQ * LANES + c % LANES;
      const float x0 = T.bx0[i], x1 = T.bx1[i];
      const float x00 = x0 * x0, x01 = x0 * x1, x11 = x1 * x1;
      for (int q = 0; q < 18; q++) {
        const float value = sum[q * LANES];
        aa[q] += x00 * value, ab[q] += x01 * value, bb[q] += x11 * value;
      }
      for (int q = 18; q < NQ; q++) aa[q] += x0 * sum[q * LANES], bb[q] += x1 * sum[q * LANES];
    }
    VertexBlock &left = block[v], &right = block[v + 1];
    float *upper_left = slot + v * NSLOT, *upper_right = upper_left + NSLOT;
    for (int q = 0; q < 6; q++) {
      left.self[q] += aa[q], right.self[q] += bb[q], left.right[q] += ab[q];
      left.up[q] += aa[6 + q], right.up[q] += bb[6 + q], left.cross[q] += ab[6 + q];
      upper_left[q] += aa[12 + q], upper_right[q] += bb[12 + q], upper_left[6 + q] += ab[12 + q];
    }
    g[v].x += aa[18], g[v].y += aa[19], g[v].z += aa[20];
    g[v + 1].x += bb[18], g[v + 1].y += bb[19], g[v + 1].z += bb[20];
    for (int q = 0; q < 3; q++) upper_left[12 + q] += aa[21 + q], upper_right[12 + q] += bb[21 + q];
  }
}

void add_slot(const float* slot, int nv, VertexBlock* block, V3<float>* g) {
  for (int v = 0; v < nv; v++, slot += NSLOT) {
    for (int q = 0; q < 6; q++) block[v].self[q] += slot[q], block[v].right[q] += slot[6 + q];
    g[v].x += slot[12], g[v].y += slot[13], g[v].z += slot[14];
  }
}

// Adds the prior's share of g, minus its product with the displacements.
void add_prior(NormalEq& N, const dUParamTiles& Q) {
  const auto second = [](const xyz& a, const xyz& b, const xyz& c) { return (a - b) + (c - b); };
  for (int t = 0; t < N.nt; t++) {
    const dUParamTile& T = Q.tile[t];
    const auto d = [&](int i, int j) { return T.Def->row(j)[i]; };
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++) {
        const size_t k = N.at(t, i, j);
        const auto spread = [&](const xyz& u, size_t step) {
          const V3<float> f = {N.omega.x * u.x, N.omega.y * u.y, N.omega.z * u.z};
          for (const size_t q : {k - step, k + step}) N.g[q].x -= f.x, N.g[q].y -= f.y, N.g[q].z -= f.z;
          N.g[k].x += 2 * f.x, N.g[k].y += 2 * f.y, N.g[k].z += 2 * f.z;
        };
        if (N.cx[k] > 0) spread(second(d(i - 1, j), d(i, j), d(i + 1, j)), 1);
        if (N.cy[k] > 0) spread(second(d(i, j - 1), d(i, j), d(i, j + 1)), static_cast<size_t>(N.stride));
      }
  }
}

// A's own blocks: data and prior, slaves added to their partners.
void set_self(NormalEq& N) {
  N.self.assign(N.size(), SymBlock{});
  const size_t up = static_cast<size_t>(N.stride);
  for (int t = 0; t < N.nt; t++)
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++) {
        const size_t k = N.at(t, i, j);
        const float terms =
            N.cx[k - 1] + 4 * N.cx[k] + N.cx[k + 1] + N.cy[k - up] + 4 * N.cy[k] + N.cy[k + up];
        SymBlock& s = N.self[k];
        for (int q = 0; q < 6; q++) s.v[q] = N.block[k].self[q];
        s.v[0] += terms * N.omega.x, s.v[3] += terms * N.omega.y, s.v[5] += terms * N.omega.z;
      }
  for (const auto& [slave, partner] : N.seam) {
    for (int q = 0; q < 6; q++) N.self[partner].v[q] += N.self[slave].v[q];
    N.self[slave] = SymBlock{};
  }
}
}  // namespace

void assemble_normal(NormalEq& N, dUParamTiles& Q) {
  ASSERT(Q.s > 0.0f);
  const float k = 0.01f / (Q.s * Q.s);
  N.block.assign(N.size(), VertexBlock{});
  N.g.assign(N.size(), V3<float>{0, 0, 0});
  const size_t nslot = static_cast<size_t>(N.nv * NSLOT);
  for_cell_rows(Q, true, [&](const CellRow& cells) {
    zero_sums(cells.tile, cells.scratch);
    for (int j = cells.jmin; j <= cells.jmax; j++) sum_row(cells.tile, j, k, N.slope_noise, cells.scratch);
    const size_t first = N.lower(cells.place);
    reduce_sums(cells.tile, cells.scratch, &N.block[first], &N.g[first], &N.slot[cells.unit * nslot]);
  });
  for (size_t unit = 0; unit < Q.rows.size(); unit++) {
    const size_t upper = N.upper(Q.rows[unit]);
    add_slot(&N.slot[unit * nslot], N.nv, &N.block[upper], &N.g[upper]);
  }
  add_prior(N, Q);
  for (const auto& [slave, partner] : N.seam) {
    V3<float>&from = N.g[slave], &to = N.g[partner];
    to.x += from.x, to.y += from.y, to.z += from.z;
    from = {0, 0, 0};
  }
  for (int t = 0; t < N.nt; t++)
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++)
        if (Q.tile[t].Vmap.row(j)[i] != V_ACTIVE) N.g[N.at(t, i, j)] = {0, 0, 0};
  set_self(N);
}

void set_damping(NormalEq& N, float damping, float common) {
  N.damping = damping;
  N.common = common;
  N.inverse.assign(N.size(), SymBlock{});
  N.added.assign(N.size(), V3<float>{0, 0, 0});
  for (size_t k = 0; k < N.size(); k++) {
    const float* const a = N.self[k].v;
    const float sum = a[0] + a[3] + a[5];
    if (!(sum > 0)) continue;
    N.added[k] = {damping * a[0] + common, damping * a[3] + common, damping * a[5] + common};
    // A vertex without data or neighbours in one direction: enough to keep the inverse of single precision
    // positive.
    const double least = 1e-6 * static_cast<double>(sum);
    const double xx = static_cast<double>(a[0] + N.added[k].x) + least;
    const double yy = static_cast<double>(a[3] + N.added[k].y) + least;
    const double zz = static_cast<double>(a[5] + N.added[k].z) + least;
    const double xy = static_cast<double>(a[1]), xz = static_cast<double>(a[2]),
                 yz = static_cast<double>(a[4]);
    const double cxx = yy * zz - yz * yz, cxy = xz * yz - xy * zz, cxz = xy * yz - xz * yy;
    const double det = xx * cxx + xy * cxy + xz * cxz;
    if (!(det > 0)) continue;
    const double v[6] = {cxx, cxy, cxz, xx * zz - xz * xz, xy * xz - xx * yz, xx * yy - xy * xy};
    for (int q = 0; q < 6; q++) N.inverse[k].v[q] = static_cast<float>(v[q] / det);
  }
}

double prior_energy(const NormalEq& N, const dUParamTiles& Q) {
  double sum = 0;
  const auto square = [&](const xyz& a, const xyz& b, const xyz& c) {
    const dxyz d = to_dxyz(a) - 2.0 * to_dxyz(b) + to_dxyz(c), o = to_dxyz(N.omega);
    return o.x * d.x * d.x + o.y * d.y * d.y + o.z * d.z * d.z;
  };
  for (int t = 0; t < N.nt; t++) {
    const auto at = [&](int i, int j) { return Q.tile[t].Def->row(j)[i]; };
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++) {
        const size_t k = N.at(t, i, j);
        if (N.cx[k] > 0) sum += square(at(i - 1, j), at(i, j), at(i + 1, j));
        if (N.cy[k] > 0) sum += square(at(i, j - 1), at(i, j), at(i, j + 1));
      }
  }
  return 0.5 * sum;
}
}  // namespace veld
