// Measurement of a pair: height differences at displacement 0 and under a deformation, their statistics and
// maps.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Calls visit(tile, i, j, r, thread) for each pixel in use; rows of a tile on any thread.
template <typename Visit>
void for_differences(dUParamTiles& Q, Visit&& visit) {
  for_resid_rows(Q, [&](dUParamTile& T, int j, int thread) {
    const uint8_t* const b = T.B.row(j - T.jmin);
    const float* const res = Q.scratch[static_cast<size_t>(thread)].res.data();
    for (int c = 0; c < T.B.xsize(); c++)
      if (b[c] != 0) visit(T, T.imin + c, j, res[c], thread);
  });
}

// Statistics of the differences at the present Def and B of the tiles.
DZstat comp_DZstat(dUParamTiles& Q) {
  const float h = H_STEP;
  Vector<Vector<uint32_t>> part(Q.scratch.size()), part_abs(Q.scratch.size());
  for (uint64_t k = 0; k < part.size(); k++) {
    part[k].resize(2 * H_SIZE, 0);
    part_abs[k].resize(H_SIZE, 0);
  }
  for_differences(Q, [&](dUParamTile&, int, int, float r, int thread) {
    const float k = r / h;
    if (!(std::fabs(k) < static_cast<float>(H_SIZE - 1))) return;
    part[thread][static_cast<int>(std::lrint(k)) + H_SIZE]++;
    part_abs[thread][static_cast<int>(std::fabs(k))]++;
  });
  for (uint64_t k = 1; k < part.size(); k++) {
    part[0] += part[k];
    part_abs[0] += part_abs[k];
  }
  DZstat stat;
  for (const uint32_t n : part[0]) stat.n += n;
  if (stat.n == 0) return stat;
  float s = 0, out = 0;
  robust_stat(part_abs[0], h, s, out, stat.ff);
  stat.ff = std::max(stat.ff, 0.0f);  // no scale is no failure here: the grids may be equal
  sigma_histo_med(stat.m, stat.s, stat.out, part[0], h);
  stat.rms = std::hypot(stat.m, stat.s);
  return stat;
}

// The maps of the tiles from the differences at the present Def and B.
void fill_maps(dUParamTiles& Q, const NRpair& pair, int sub, Vector<Image<float>>& maps) {
  const int n = 32 * pair.dim, side = n / sub;
  ASSERT(side * sub == n);
  maps.resize(Q.tile.size());
  Vector<Image<uint16_t>> count(Q.tile.size());
  for (uint64_t t = 0; t < maps.size(); t++) {
    maps[t].resize(side, side, 0.0f);
    count[t].resize(side, side, uint16_t{0});
  }
  const int nthreads = Q.nthreads;
  Q.nthreads = 1;  // cells at a seam of units are shared
  for_differences(Q, [&](dUParamTile& T, int i, int j, float r, int) {
    const int grid = n / T.Z->xsize();  // a level's pixel is this many grid pixels wide
    const int64_t t = &T - Q.tile.val;
    maps[t].row(j * grid / sub)[i * grid / sub] += r;
    count[t].row(j * grid / sub)[i * grid / sub]++;
  });
  Q.nthreads = nthreads;
  for (uint64_t t = 0; t < maps.size(); t++)
    for (uint64_t i = 0; i < maps[t].size(); i++) {
      const uint16_t k = count[t][i];
      maps[t][i] = k > 0 ? maps[t][i] / static_cast<float>(k) : NR_NODATA;
    }
}
}  // namespace

void update_subDZ_def(dUParamTiles& Q, const NRpair& pair, bool QC0, bool QC, bool def, DZstat& before,
                      DZstat& after, DZmap* dzmap) {
  LOG_ENTER("update_subDZ_def dxs=" << (dzmap ? dzmap->sub : 0) << " QC=" << QC << " QC0=" << QC0
                                    << " def=" << def);
  int ntok = 0;
  for (const dUParamTile& T : Q.tile) ntok += !T.B.empty();
  if (QC && def) {
    after = comp_DZstat(Q);
    if (dzmap && dzmap->want) fill_maps(Q, pair, dzmap->sub, dzmap->dz);
  }
  if (QC0) {  // the same steps on zero displacements, with their own pixels; the tiles' own are put back
    Vector<Image<xyz>*> own(Q.tile.size());
    Vector<Image<xyz>> zero(Q.tile.size());
    Vector<Image<uint8_t>> B(Q.tile.size()), Vmap(Q.tile.size());
    for (uint64_t t = 0; t < Q.tile.size(); t++) {
      dUParamTile& T = Q.tile[t];
      own[t] = T.Def;
      zero[t].resize(T.nv(), T.nv(), xyz{0, 0, 0});
      T.Def = &zero[t];
      B[t].swap(T.B);
      Vmap[t].swap(T.Vmap);
      if (!B[t].empty()) init_B_F(T, 0.0f, false);
    }
    before = comp_DZstat(Q);
    if (dzmap && dzmap->want0) fill_maps(Q, pair, dzmap->sub, dzmap->dz0);
    for (uint64_t t = 0; t < Q.tile.size(); t++) {
      dUParamTile& T = Q.tile[t];
      T.Def = own[t];
      B[t].swap(T.B);
      Vmap[t].swap(T.Vmap);
    }
  }
  LOG_LINE("nt=" << Q.tile.size() << " ntok=" << ntok << " out=" << after.out << " ff=" << after.ff
                 << " ndz=" << after.n << " m0=" << before.m << " s0=" << before.s << " out0=" << before.out
                 << " ff0=" << before.ff << " ndz0=" << before.n);
}

namespace {
// Calls measure with zero displacements in place of the tiles' own; B stays.
template <typename Measure>
void with_zero_Def(dUParamTiles& Q, Measure&& measure) {
  Vector<Image<xyz>> zero(Q.tile.size());
  Vector<Image<xyz>*> own(Q.tile.size());
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    dUParamTile& T = Q.tile[t];
    zero[t].resize(T.nv(), T.nv(), xyz{0, 0, 0});
    own[t] = T.Def;
    T.Def = &zero[t];
  }
  measure();
  for (uint64_t t = 0; t < Q.tile.size(); t++) Q.tile[t].Def = own[t];
}

// Takes the pixels out of B that have no counterpart at displacement 0.
void keep_common_pixels(dUParamTiles& Q) {
  with_zero_Def(Q, [&] {
    for (dUParamTile& T : Q.tile) {
      if (T.B.empty()) continue;
      Image<uint8_t> moved;
      moved.swap(T.B);
      (void)init_B_F(T, 0.0f, false);
      for (uint64_t k = 0; k < T.B.size(); k++)
        if (moved[k] == 0) T.B[k] = 0;
    }
  });
}

// Measures under Def (all zero when def is off). Returns the number of tiles with common data.
int nr_qc_tiles(const NRpair& pair, Vector<Image<xyz>>& Def, bool def, int nthreads, DZstat& stat,
                DZmap* dzmap, DZstat* before) {
  LOG_ENTER("nr_qc_tiles nt=" << Def.size() << " buf=" << pair.buf << " mTsize=" << pair.mTsize
                              << " dim=" << pair.dim << " DEF=" << def);
  dUParamTiles Q;
  Q.nthreads = nthreads;
  Q.tile.resize(Def.size());
  for (uint64_t t = 0; t < Def.size(); t++) Q.tile[t].Def = &Def[t];
  init_neighbours(Q, pair.TI);
  if (def) sync_border(Q);
  int ntok = 0;
  for (uint64_t t = 0; t < Def.size(); t++) {
    dUParamTile& T = Q.tile[t];
    const int cell = 32 * pair.dim / (T.nv() - 1);
    if (!set_FCZ_ROI(T, {&pair.F[t], &pair.C[t], &pair.img2[t], nullptr}, pair.buf, cell,
                     static_cast<int>(t)))
      continue;
    set_BI(T);
    if (def) {  // pixels count where all their vertices have an estimate
      T.Vmap.resize(T.nv(), T.nv(), V_OFF);
      for (uint64_t k = 0; k < T.Vmap.size(); k++) T.Vmap[k] = (*T.Def)[k].z != NR_NODATA ? V_ACTIVE : V_OFF;
    }
    const bool ok2 = init_B_F(T, 0.0f, false);
    if (def) LOG_LINE("ti=" << t << " ok2=" << ok2);
    ntok += ok2;
    if (!ok2) T.B.clear();
  }
  init_rows(Q);
  if (before) {
    keep_common_pixels(Q);
    with_zero_Def(Q, [&] { *before = comp_DZstat(Q); });
  }
  DZstat other;
  update_subDZ_def(Q, pair, !def, def, def, def ? other : stat, def ? stat : other, dzmap);
  return ntok;
}
}  // namespace

bool acc_qc_tiles(const NRpair& pair, const Vector<Image<xyz>>* Def, int nthreads, DZstat& stat, DZmap* dzmap,
                  DZstat* before) {
  const uint64_t nt = pair.img2.size();
  LOG_ENTER("acc_qc_tiles nt=" << nt << " buf=" << pair.buf << " mTsize=" << pair.mTsize
                               << " dim=" << pair.dim << " DEF=" << (Def != nullptr)
                               << " timg: " << pair.TI.xsize() << " " << pair.TI.ysize());
  const Stopwatch watch;
  stat = {};
  ASSERT(pair.C.size() == nt && (!Def || Def->size() == nt));
  Vector<Image<xyz>> D(nt);
  for (uint64_t t = 0; t < nt; t++) {
    if (!Def) {
      D[t].resize(2, 2, xyz{0, 0, 0});
      continue;
    }
    D[t] = (*Def)[t];
    const float grid = static_cast<float>(comp_pixel(D[t].xsize()));
    for (uint64_t k = 0; k < D[t].size(); k++) D[t][k].x *= grid, D[t][k].y *= grid;
  }
  const int ntok = nr_qc_tiles(pair, D, Def != nullptr, nthreads, stat, dzmap, Def ? before : nullptr);
  const bool ok = ntok > 0 && stat.ff >= 0;
  LOG_LINE("out=" << stat.out);
  LOG_LINE("/// ACC_QC_TIME=" << watch.text());
  if (!ok) LOG_LINE("<!> ACC_QC FAIL");
  return ok;
}
}  // namespace veld
