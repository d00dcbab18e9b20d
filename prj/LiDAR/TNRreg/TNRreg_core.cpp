// One level of the registration: set-up of the tiles, the robust outer loop, what is kept afterwards.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/TNRreg/TNRreg_normal.h"
#include "prj/LiDAR/TNRreg/reg_cache.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr float S_ZERO = 0.0001f;  // a residual scale of this or less is no scale
// Of the prior, for a vertex spacing of 1 m. A tenth of it held neighbours too loosely: twice the errors.
constexpr float PRIOR_WEIGHT = 100.0f;
// What departs from a model is drift and errors of the model: smoother than the displacement.
constexpr float MODEL_WEIGHT = 10.0f;
constexpr int MAX_OUTER = 15;  // steps a level
// Steps end when they change the vertices by this share of their uncertainties, RMS, times NR_BOOST.
constexpr double SETTLED = 0.02;
}  // namespace

bool core_nr_reg_tiles(dUParamTiles& Q, int J) {
  const float dx = static_cast<float>(1 << J), smax = dx * NR_SMAX;
  LOG_ENTER("core_nr_reg_tiles Tnpar=" << Q.Tnpar << " dx=" << dx << " smax=" << smax);
  LOG_LINE("s=" << Q.s << " out=" << Q.out << " ff=" << Q.ff);
  GNwork work;
  init_normal(work.N, Q);
  GNstep step;
  int count = 0, cgt = 0, passes = 0;
  std::string marks;
  for (bool more = Q.s > S_ZERO; more;) {
    const double E0 = update_weights(Q) + prior_energy(work.N, Q);
    step = gauss_newton_step(Q, work, E0);
    take_pixels(Q);
    robust_stat(Q.hist, H_STEP, Q.s, Q.out, Q.ff);
    marks += std::to_string(step.cg_iterations) + (step.accepted ? " " : "<!> DIV ");
    cgt += step.cg_iterations;
    passes += 1 + step.trials;
    count++;
    if (Q.ff < 0) marks += "<!> FAIL ";
    more =
        Q.ff >= 0 && step.accepted && step.change >= SETTLED * NR_BOOST && count < MAX_OUTER && Q.s > S_ZERO;
  }
  update_weights(Q);
  if (Q.s <= S_ZERO) marks += "<!> s~0 ";
  LOG_LINE("CG >>> " << marks);
  const bool ok = cgt != 0 && Q.s < smax;
  LOG_LINE("maxdev=" << step.max_z << " change=" << step.change << " iter=" << count << " cgt=" << cgt
                     << " passes=" << passes << (cgt == 0 ? " <!> FAIL" : ""));
  LOG_LINE("s=" << Q.s << " out=" << Q.out << " ff=" << Q.ff << " ok=" << ok);
  return ok;
}

namespace {
// Set-up of all tiles. Returns the number of tiles whose images overlap enough; 0: nothing to register.
int setup_tiles(dUParamTiles& Q, const Vector<FCZptr>& img, const NRpair& pair, const NRlevel& lev,
                bool cached) {
  const int64_t nt = static_cast<int64_t>(img.size());
  init_neighbours(Q, pair.TI);
  if (!cached) fill_ND_Def(Q);
  int nok2 = 0, nok12 = 0, nokpar = 0;
  for (int64_t t = 0; t < nt; t++) {
    dUParamTile& T = Q.tile[t];
    T.Vmap.resize(T.nv(), T.nv(), V_OFF);
    if (!set_FCZ_ROI(T, img[t], lev.buf, lev.dim, static_cast<int>(t))) continue;
    nok2++;
    set_BI(T);
    T.Vmap.clear();  // no vertex restricts the pixels yet
    const bool good = init_B_F(T, cached ? 0.0f : MINFRAC, true);
    if (good) {
      nok12++;
      vertex_zw_tile(T);
      init_Vmap_from_w(T, comp_dxp(lev.J), cached);
      nokpar += T.Tnpar > 0;
    } else {
      T.B.clear();
      T.Vmap.resize(T.nv(), T.nv(), V_OFF);
    }
  }
  LOG_LINE("nt=" << nt << " -> nok2=" << nok2 << " nok12=" << nok12 << " nokpar=" << nokpar);
  return nok12;
}

// The uncertainty stage at the last level: Unc, Rough, Zv, and Def without the vertices that are too weak.
bool keep_certain(dUParamTiles& Q, NRresult& result) {
  comp_unc(Q, result.Unc);
  comp_rough(Q, result.Rough);
  for (uint64_t t = 0; t < Q.tile.size(); t++)
    delete_Vmap_unc_wb(Q.tile[t], result.Unc[t], static_cast<int>(t));
  const bool any = apply_Vmap_ND(Q);
  const xyz none = {NR_NO_UNC, NR_NO_UNC, NR_NO_UNC};
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    dUParamTile& T = Q.tile[t];
    result.Zv[t] = T.zV;
    for (uint64_t k = 0; k < T.zV.size(); k++) {
      if (T.zV[k] == NR_NODATA) (*T.Def)[k].z = NR_NODATA;
      if ((*T.Def)[k].z == NR_NODATA) result.Unc[t][k] = none;
    }
  }
  return any;
}

// Writes the deformation as it stands before weak vertices go; those that were never estimated are marked, so
// that a run from the cache has the same vertices.
bool write_cache(const dUParamTiles& Q, const std::string& path) {
  Vector<Image<xyz>> Def(Q.tile.size());
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    const dUParamTile& T = Q.tile[t];
    Def[t] = *T.Def;
    for (uint64_t k = 0; k < T.Vmap.size(); k++)
      if (T.Vmap[k] == V_OFF) Def[t][k].z = NR_NODATA;
  }
  return write_reg_cache(path, Def);
}
}  // namespace

int nr_reg_tiles(const Vector<FCZptr>& img, const NRpair& pair, const NRparam& param, const NRlevel& lev,
                 NRresult& result, DZmap* dzmap) {
  const bool cached = result.from_cache;
  LOG_ENTER("nr_reg_tiles J=" << lev.J << " dim=" << lev.dim << " buf=" << lev.buf << " Jstart=" << lev.Jstart
                              << " Jend=" << lev.Jend << " cached=" << cached);
  dUParamTiles Q;
  Q.nthreads = param.nthreads;
  Q.tile.resize(img.size());
  for (uint64_t t = 0; t < img.size(); t++) Q.tile[t].Def = &result.Def[t];
  const float cell = pair.mTsize * static_cast<float>(1 << lev.Jend);
  const float w = PRIOR_WEIGHT * cell * cell * (param.about_model ? MODEL_WEIGHT : 1.0f);
  Q.omega = {w, w, w};
  Q.rough_unit = pair.rough_unit;
  // Counted from the final level: where that is a coarse one, the floor shall not reach it unasked.
  Q.sigma0 = lev.J - lev.Jend >= J0_REG ? SIGMA0_REG : 0.0f;

  if (setup_tiles(Q, img, pair, lev, cached) == 0) {
    sync_border(Q);
    return 0;
  }
  proc_Vmap_topo(Q);
  sync_border(Q);
  init_rows(Q);
  resid_pass(Q);
  take_pixels(Q);
  robust_stat(Q.hist, H_STEP, Q.s, Q.out, Q.ff);
  bool any_residual = false;
  for (const uint32_t n : Q.hist) any_residual |= n > 0;
  if (!any_residual) return -1;

  bool ok = true;
  if (cached)
    update_weights(Q);
  else
    ok = core_nr_reg_tiles(Q, lev.J);
  if (lev.J == lev.Jend) update_subDZ_def(Q, pair, true, true, true, result.before, result.after, dzmap);
  if (lev.J != lev.Jend) {
    ok &= apply_Vmap_ND(Q);
    sync_border(Q);
    return ok;
  }
  if (!ok) return 0;
  if (!cached && !param.cache.empty()) result.cache_written = write_cache(Q, param.cache);
  return keep_certain(Q, result);
}
}  // namespace veld
