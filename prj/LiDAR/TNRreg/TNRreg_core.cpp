// One level of the registration: set-up of the tiles, the robust outer loop, what is kept afterwards.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/TNRreg/TNRreg_internal.h"
#include "prj/LiDAR/TNRreg/reg_cache.h"
#include "prj/LiDAR/tuning.h"

namespace {
constexpr float S_ZERO = 0.0001f;  // a residual scale of this or less is no scale
constexpr int MAX_OUTER = 15;      // conjugate gradient runs a level

// Runs step(tile) on the tiles that take part, on threads.
template <typename Step>
void for_tiles_in(dUParamTiles& Q, Step&& step) {
  run_units(static_cast<int64_t>(Q.tile.size()), comp_threads(Q, Q.npix), [&](int64_t t, int) {
    if (!Q.tile.val[t].B.empty()) step(Q.tile.val[t]);
    return true;
  });
}

float max_dz(const Vector<float>& a, const Vector<float>& b) {
  float maxdev = 0;
  for (uint64_t i = 2; i < a.size(); i += 3) maxdev = std::max(maxdev, std::fabs(a.val[i] - b.val[i]));
  return maxdev;
}

// A conjugate gradient run at fixed weights. The parameters go in units of their own curvature, so that
// shifts on gentle slopes and heights, which differ in curvature by orders of magnitude, settle at the same
// pace; in plain pixels and metres the first steps after each restart are too short for the soft ones, and
// the run ends early.
NLCGresult run_cg(dUParamTiles& Q, Vector<float>& V, const Vector<float>& wild, const Vector<float>& prec) {
  Vector<float> scale(V.size()), unscaled(V.size()), wild_s(V.size()), prec_s(V.size());
  comp_scale(scale, Q);
  for (uint64_t i = 0; i < V.size(); i++) {
    V.val[i] /= scale.val[i];
    wild_s.val[i] = wild.val[0] / scale.val[i];
    prec_s.val[i] = prec.val[0] / scale.val[i];
  }
  const auto gradient = [&](Vector<float>& g, const Vector<float>& at) {
    for (uint64_t i = 0; i < at.size(); i++) unscaled.val[i] = at.val[i] * scale.val[i];
    const double f = dUdef_W_nr_reg_tiles(g, at.size(), unscaled, Q);
    for (uint64_t i = 0; i < at.size(); i++) g.val[i] *= scale.val[i];
    return f;
  };
  const NLCGresult cg = OptNLCG(V, gradient, wild_s, prec_s, 3 * static_cast<int64_t>(Q.Tnpar) - 1, Q.work);
  for (uint64_t i = 0; i < V.size(); i++) V.val[i] *= scale.val[i];
  return cg;
}

// A conjugate gradient run, then pixels, statistics and weights at the new position. Returns the
// largest change of a vertex' height displacement, 0 after a divergence or without residuals.
float outer_step(dUParamTiles& Q, Vector<float>& V, const Vector<float>& wild, const Vector<float>& prec,
                 NLCGresult& cg, std::string& marks) {
  const Vector<float> before = V;
  cg = run_cg(Q, V, wild, prec);
  if (cg.div) marks += "<!> DIV ";
  float maxdev = max_dz(before, V);
  conv_V2D(V, Q);
  sync_border(Q);
  for_tiles_in(Q, [](dUParamTile& T) { init_B_F(T, 0.0f, false); });
  comp_stat(Q);
  if (Q.ff < 0) {
    marks += "<!> FAIL ";
    maxdev = 0;
  }
  update_weights(Q);
  return maxdev;
}
}  // namespace

bool core_nr_reg_tiles(dUParamTiles& Q, int J) {
  const float dx = static_cast<float>(1 << J), smax = dx * NR_SMAX;
  LOG_ENTER("core_nr_reg_tiles Tnpar=" << Q.Tnpar << " dx=" << dx << " smax=" << smax);
  LOG_LINE("s=" << Q.s << " out=" << Q.out << " ff=" << Q.ff);
  const Vector<float> wild = {1.0f}, prec = {static_cast<float>(NR_BOOST) * 0.001f};
  const float threshold = static_cast<float>(NR_BOOST) * 0.002f;
  Vector<float> V;
  conv_D2V(V, Q);

  float maxdev = 0;
  int count = 0, cgt = 0, neval = 0;
  std::string marks;
  for (bool more = Q.s > S_ZERO; more;) {
    NLCGresult cg;
    maxdev = outer_step(Q, V, wild, prec, cg, marks);
    marks += std::to_string(cg.niter) + " ";
    cgt += cg.niter;
    neval += cg.neval;
    count++;
    more = maxdev >= threshold && count < MAX_OUTER && Q.s > S_ZERO;
  }
  if (Q.s <= S_ZERO) marks += "<!> s~0 ";
  LOG_LINE("CG >>> " << marks);
  const bool ok = cgt != 0 && Q.s < smax;
  LOG_LINE("maxdev=" << maxdev << " iter=" << count << " cgt=" << cgt << " neval=" << neval
                     << (cgt == 0 ? " <!> FAIL" : ""));
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
    dUParamTile& T = Q.tile.val[t];
    T.Vmap.resize(T.nv(), T.nv(), V_OFF);
    if (!set_FCZ_ROI(T, img.val[t], lev.buf, lev.dim, static_cast<int>(t))) continue;
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

// The uncertainty stage at the last level: Unc, Zv, and Def without the vertices that are too weak.
bool keep_certain(dUParamTiles& Q, NRresult& result) {
  comp_unc(Q, result.Unc);
  for (uint64_t t = 0; t < Q.tile.size(); t++)
    delete_Vmap_unc_wb(Q.tile.val[t], result.Unc.val[t], static_cast<int>(t));
  const bool any = apply_Vmap_ND(Q);
  const xyz none = {NR_NO_UNC, NR_NO_UNC, NR_NO_UNC};
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    dUParamTile& T = Q.tile.val[t];
    result.Zv.val[t] = T.zV;
    for (uint64_t k = 0; k < T.zV.size(); k++) {
      if (T.zV.val[k] == NR_NODATA) T.Def->val[k].z = NR_NODATA;
      if (T.Def->val[k].z == NR_NODATA) result.Unc.val[t].val[k] = none;
    }
  }
  return any;
}

// Writes the deformation as it stands before weak vertices go; those that were never estimated are marked, so
// that a run from the cache has the same vertices.
bool write_cache(const dUParamTiles& Q, const std::string& path) {
  Vector<Image<xyz>> Def(Q.tile.size());
  for (uint64_t t = 0; t < Q.tile.size(); t++) {
    const dUParamTile& T = Q.tile.val[t];
    Def.val[t] = *T.Def;
    for (uint64_t k = 0; k < T.Vmap.size(); k++)
      if (T.Vmap.val[k] == V_OFF) Def.val[t].val[k].z = NR_NODATA;
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
  for (uint64_t t = 0; t < img.size(); t++) Q.tile.val[t].Def = &result.Def.val[t];
  const float cell = pair.mTsize * static_cast<float>(1 << lev.Jend), w = 10.0f * cell * cell;
  Q.omega = {w, w, w};
  // Counted from the final level: where that is a coarse one, the floor shall not reach it unasked.
  Q.sigma0 = lev.J - lev.Jend >= J0_REG ? SIGMA0_REG : 0.0f;

  if (setup_tiles(Q, img, pair, lev, cached) == 0) {
    sync_border(Q);
    return 0;
  }
  proc_Vmap_topo(Q);
  sync_border(Q);
  init_rows(Q);
  for_tiles_in(Q, [](dUParamTile& T) { init_B_F(T, 0.0f, false); });
  comp_stat(Q);
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
