// Seams between tiles: which vertices are one parameter, and how values cross the seams.
#include "lib/general/log.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"

namespace veld {
SeamVertex corner_partner(const dUParamTiles& Q, int t, int nv) {
  if (Q.diag(t) >= 0) return {Q.diag(t), 0, 0};
  if (Q.right(t) >= 0) return {Q.right(t), 0, nv - 1};
  if (Q.up(t) >= 0) return {Q.up(t), nv - 1, 0};
  return {};
}

void proc_Vmap_topo(dUParamTiles& Q) {
  const auto enslave = [](uint8_t& slave, uint8_t& partner) {
    if (slave != V_ACTIVE) return;
    slave = V_SLAVE;
    partner = V_ACTIVE;
  };
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    Image<uint8_t>& V = Q.tile[t].Vmap;
    const int nv = V.xsize();
    if (Q.right[t] >= 0)
      for (int k = 0; k < nv - 1; k++) enslave(V(nv - 1, k), Q.tile(Q.right[t]).Vmap(0, k));
    if (Q.up[t] >= 0)
      for (int k = 0; k < nv - 1; k++) enslave(V(k, nv - 1), Q.tile(Q.up[t]).Vmap(k, 0));
    const SeamVertex corner = corner_partner(Q, static_cast<int>(t), nv);
    if (corner.tile >= 0) enslave(V(nv - 1, nv - 1), Q.tile(corner.tile).Vmap(corner.i, corner.j));
  }
  Q.Tnpar = 0;
  for (dUParamTile& T : Q.tile) {
    T.Tnpar = 0;
    for (uint64_t k = 0; k < T.Vmap.size(); k++) T.Tnpar += T.Vmap[k] == V_ACTIVE;
    Q.Tnpar += T.Tnpar;
  }
  LOG_LINE("proc_Vmap_topo -> Tnpar=" << Q.Tnpar);
}

void sync_border(dUParamTiles& Q) {
  if (Q.tile.size() == 0) return;
  for_seams(Q, Q.tile[0].nv(), [&](int t, int i, int j, const SeamVertex& p) {
    (*Q.tile(t).Def)(i, j) = (*Q.tile(p.tile).Def)(p.i, p.j);
  });
}

namespace {
bool valid(const xyz& v) { return v.z != NR_NODATA; }

// One step of growth: each vertex without estimate that has estimated neighbours takes their mean. Returns
// the number of vertices still without.
uint64_t grow_Def(Image<xyz>& D, Image<xyz>& before) {
  before = D;
  uint64_t nleft = 0;
  for (int j = 0; j < D.ysize(); j++)
    for (int i = 0; i < D.xsize(); i++) {
      if (valid(before(i, j))) continue;
      xyz sum = {0, 0, 0};
      int n = 0;
      for (int y = std::max(j - 1, 0); y <= std::min(j + 1, D.ysize() - 1); y++)
        for (int x = std::max(i - 1, 0); x <= std::min(i + 1, D.xsize() - 1); x++)
          if (valid(before(x, y))) {
            sum += before(x, y);
            n++;
          }
      if (n > 0)
        D(i, j) = sum * (1.0f / static_cast<float>(n));
      else
        nleft++;
    }
  return nleft;
}

// Estimates cross the seams in both directions, where one side has one and the other has not.
void share_seams(dUParamTiles& Q) {
  const auto share = [](xyz& a, xyz& b) {
    if (valid(a) && !valid(b))
      b = a;
    else if (!valid(a) && valid(b))
      a = b;
  };
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    Image<xyz>& D = *Q.tile[t].Def;
    const int n = D.xsize() - 1;
    if (Q.right[t] >= 0)
      for (int k = 0; k < n; k++) share(D(n, k), (*Q.tile(Q.right[t]).Def)(0, k));
    if (Q.up[t] >= 0)
      for (int k = 0; k < n; k++) share(D(k, n), (*Q.tile(Q.up[t]).Def)(k, 0));
    const SeamVertex corner = corner_partner(Q, static_cast<int>(t), n + 1);
    if (corner.tile >= 0) share(D(n, n), (*Q.tile(corner.tile).Def)(corner.i, corner.j));
  }
}
}  // namespace

void fill_ND_Def(dUParamTiles& Q) {
  uint64_t nleft = 0, nvalid = 0;
  for (dUParamTile& T : Q.tile)
    for (uint64_t k = 0; k < T.Def->size(); k++) (valid((*T.Def)[k]) ? nvalid : nleft)++;
  Image<xyz> before;
  while (nleft > 0 && nvalid > 0) {
    share_seams(Q);
    const uint64_t last = nleft;
    nleft = 0;
    for (dUParamTile& T : Q.tile) nleft += grow_Def(*T.Def, before);
    if (nleft >= last) break;  // tiles that touch no other tile with an estimate
  }
  for (dUParamTile& T : Q.tile)
    for (uint64_t k = 0; k < T.Def->size(); k++)
      if (!valid((*T.Def)[k])) (*T.Def)[k] = {0, 0, 0};
  sync_border(Q);
}

bool apply_Vmap_ND(dUParamTiles& Q) {
  const uint32_t before = Q.Tnpar;
  Q.Tnpar = 0;
  for (dUParamTile& T : Q.tile) {
    T.Tnpar = 0;
    for (uint64_t k = 0; k < T.Vmap.size(); k++) {
      if (T.Vmap[k] == V_ACTIVE)
        T.Tnpar++;
      else
        (*T.Def)[k].z = NR_NODATA;
    }
    Q.Tnpar += T.Tnpar;
  }
  LOG_LINE("apply_Vmap_ND Tnpar=" << before << " TnparND=" << Q.Tnpar);
  return Q.Tnpar > 0;
}
}  // namespace veld
