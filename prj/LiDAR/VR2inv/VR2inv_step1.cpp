#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "lib/Optim/optimCG.h"
#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t KITER = 10;  // iterations of the conjugate gradient per unknown
constexpr int DENSE_MAX = 500;  // unknowns up to which the system is inverted: tenths of a second

struct System {  // P x = Y, P dense and symmetric; the lower triangle is filled
  Image<double> P;
  Vector<double> Y;
  void add(int i, int j, double value) {
    if (i < j) std::swap(i, j);
    P.row(i)[j] += value;
  }
};

// The small system of a pair, whose vectors all touch the same parameters.
struct PairSystem {
  PairSlots slots;
  double block[MAX_SLOT * MAX_SLOT] = {}, right[MAX_SLOT] = {};
};

PairSystem make_system(const InvCalDrift& inv, int k) {
  PairSystem s{make_slots(inv, k, true)};
  const PairState& p = inv.pair[k];
  const int n = s.slots.n;
  PairRow row;
  for (uint64_t i = 0; i < p.W.size(); i++) {
    const xyz &W = p.W[i], &d = p.data[i];
    if (!(W.x > 0)) continue;
    comp_row(inv, k, s.slots, i, row);
    for (int a = 0; a < n; a++) {
      const double wx = W.x * row.cx[a], wy = W.y * row.cy[a], wz = W.z * row.cz[a];
      double* to = s.block + a * n;
      for (int b = 0; b < n; b++) to[b] += wx * row.cx[b] + wy * row.cy[b] + wz * row.cz[b];
      s.right[a] += wx * d.x + wy * d.y + wz * d.z;
    }
  }
  return s;
}

void P_Y_calib_drift_con(const InvCalDrift& inv, System& sys) {
  const Stopwatch watch;
  sum_used_pairs(
      inv, [&](int k) { return make_system(inv, k); },
      [&](const PairSystem& s) {
        const int* const idx = s.slots.idx;
        for (int a = 0; a < s.slots.n; a++) {
          for (int b = 0; b <= a; b++) sys.add(idx[a], idx[b], s.block[a * s.slots.n + b]);
          sys.Y[idx[a]] += s.right[a];
        }
      });
  LOG_LINE("Cal_TA STEP 0 TIME=" << watch.text());
}

// Prior on the constants of each line, once a line: a line has one drift, however many points show it. A
// weight per sample would shrink what the data show.
void add_P_drift_pri_con(const InvCalDrift& inv, System& sys) {
  const Stopwatch watch;
  LOG_LINE("add_P_drift_pri_con FTT=" << (inv.par.FA == 2) << " FAA=" << (inv.par.FA == 1));
  const dxyz T = prior_prec_T(inv), A = prior_prec_A(inv);
  std::vector<uint8_t> done(inv.nTAnd, 0);
  for (const SwathId id : inv.sw.ids()) {
    const SwState& w = inv.sw[id];
    if (!w.mobile || w.node0 < 0 || done[w.node0]) continue;
    done[w.node0] = 1;
    const int entry = inv.node_entry(w.node0);
    for (int c = 0; c < (inv.drift_att ? 6 : 3); c++) {
      const double ratio = line_ratio(inv, id, c);
      sys.add(entry + c, entry + c,
              (c < 3 ? axis(T, c) : axis(A, c - 3)) / (line_var(inv, w.Dt) * ratio * ratio));
    }
  }
  LOG_LINE("Cal_TA STEP 1 TIME=" << watch.text());
}

void mirror(Image<double>& P) {
  for (int i = 0; i < P.ysize(); i++)
    for (int j = 0; j < i; j++) P.row(j)[i] = P.row(i)[j];
}

bool solve_dense(InvCalDrift& inv, const System& sys) {
  Image<double> inverse;
  if (!inv_M_Cholesky(sys.P, inverse)) {
    LOG_LINE("<!> Cholesky P");
    return false;
  }
  LOG_LINE("Cholesky OK");
  inv.x.resize(inv.dim);
  for (int i = 0; i < inv.dim; i++) {
    if (!(inverse(i, i) >= 0)) LOG_LINE("<!> CMjj<0 " << i);
    double sum = 0;
    for (int j = 0; j < inv.dim; j++) sum += inverse.row(i)[j] * sys.Y[j];
    inv.x[i] = sum;
  }
  inv.post.resize(inv.dim);
  for (int i = 0; i < inv.dim; i++) inv.post[i] = inverse(i, i);
  if (!inv.want_cov || inv.dimcal > COV_MAX) return true;
  inv.cov.resize(inv.dimcal, inv.dimcal);
  for (int i = 0; i < inv.dimcal; i++)
    for (int j = 0; j < inv.dimcal; j++) inv.cov(j, i) = inverse(j, i);
  return true;
}

// Without drift among the unknowns, that of each line stays in the residuals and goes into the parameters. Its
// size shows in the mean residuals of the pairs, which differ by that of two lines; the covariance grows by its
// effect.
void add_line_effects(InvCalDrift& inv) {
  const int n = inv.dimcal;
  const size_t size = 3 * static_cast<size_t>(n);
  std::vector<double> effect(size);
  SwathVector<std::vector<double>> effects(
      inv.sw);        // per parameter, axis: what a shift of the swath adds to Y
  double nlines = 0;  // swaths that may take part
  for (const SwathId s : inv.sw.ids()) {
    effects[s].assign(size, 0.0);
    nlines += inv.sw[s].mobile || inv.in.swaths[s].fixed;
  }
  dxyz excess = {0, 0, 0};
  double npair = 0;
  PairRow row;
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    const PairState& p = inv.pair[k];
    const PairSlots slots = make_slots(inv, k, false);
    std::fill(effect.begin(), effect.end(), 0.0);
    dxyz sum = {0, 0, 0}, weight = {0, 0, 0};
    for (uint64_t i = 0; i < p.W.size(); i++) {
      const xyz& W = p.W[i];
      if (!(W.x > 0)) continue;
      comp_row(inv, k, slots, i, row);
      for (int a = 0; a < slots.n; a++) {
        double* to = effect.data() + 3 * static_cast<size_t>(slots.idx[a]);
        to[0] += W.x * row.cx[a], to[1] += W.y * row.cy[a], to[2] += W.z * row.cz[a];
      }
      const dxyz w = to_dxyz(W), d = to_dxyz(p.res[i]);
      sum += {w.x * d.x, w.y * d.y, w.z * d.z};
      weight += w;
    }
    const auto over = [](double s, double w) { return s * s / (w * w) - 1 / w; };
    excess += {over(sum.x, weight.x), over(sum.y, weight.y), over(sum.z, weight.z)};
    npair++;
    std::vector<double>&first = effects[inv.in.pairs[k].sw1], &second = effects[inv.in.pairs[k].sw2];
    for (size_t j = 0; j < size; j++) first[j] -= effect[j], second[j] += effect[j];
  }
  // The parameters have taken their share of what the lines' shifts, less a common one, may be.
  const double nfree = std::max(1.0, 3.0 * (nlines - 1));
  const double scale = 0.5 / npair * nfree / std::max(1.0, nfree - n);
  const double var[3] = {std::max(0.0, excess.x * scale), std::max(0.0, excess.y * scale),
                         std::max(0.0, excess.z * scale)};
  const Image<double> cov = inv.cov;
  Vector<double> moved(n, 0.0);  // by how much parameters move with the line
  for (const std::vector<double>& of_swath : effects)
    for (int c = 0; c < 3; c++) {
      const double* Y = of_swath.data() + c;
      for (int i = 0; i < n; i++) {
        moved(i) = 0;
        for (int j = 0; j < n; j++) moved(i) += cov(j, i) * Y[3 * static_cast<size_t>(j)];
      }
      for (int i = 0; i < n; i++)
        for (int j = 0; j < n; j++) inv.cov(j, i) += var[c] * moved(i) * moved(j);
    }
  LOG_LINE("line effects " << std::sqrt(var[0]) << ' ' << std::sqrt(var[1]) << ' ' << std::sqrt(var[2]));
}

bool check_memory(const InvCalDrift& inv) {
  const double MB = std::ceil(static_cast<double>(inv.dim) * inv.dim * 16 / 1048576.0);
  LOG_LINE("INVERSION 1 MEMORY=" << MB << " Mb");
  if (MB <= MEM_MB) return true;
  ERROR_MSG(inv.dim << "-parameter inversion STEP 1 requires " << static_cast<int64_t>(MB) << " MB, only "
                    << MEM_MB << " reserved (use option -mem)");
  return false;
}
}  // namespace

bool invert_Cal_TA(InvCalDrift& inv) {
  const xyz& Cpri = inv.prior.T;
  LOG_ENTER("invert_Cal_TA dimcal=" << inv.dimcal << " dim=" << inv.dim << " Cpri=" << Cpri.x << ' ' << Cpri.y
                                    << ' ' << Cpri.z << " calib=" << inv.FCAL << " NR_BOOST=" << NR_BOOST);
  inv.cov.clear();
  inv.post.clear();
  inv.x.resize(inv.dim, 0.0);
  if (inv.dim == 0) return true;  // nothing was asked for
  if (!check_memory(inv)) return false;
  System sys{Image<double>(inv.dim, inv.dim, 0.0), Vector<double>(inv.dim, 0.0)};
  P_Y_calib_drift_con(inv, sys);
  if (inv.drift) add_P_drift_pri_con(inv, sys);
  const CalibPrior prior = calib_prior(inv);
  for (int i = 0; i < inv.dimcal; i++) sys.add(i, i, prior.own[i]);
  for (const CalibPrior::Tie& t : prior.ties) {
    sys.add(t.a, t.a, t.prec);
    sys.add(t.b, t.b, t.prec);
    sys.add(t.a, t.b, -t.prec);
  }
  int nz_diag = 0;
  for (int i = 0; i < inv.dim; i++)
    if (sys.P(i, i) == 0) {
      sys.P(i, i) = 1;
      nz_diag++;
    }
  LOG_LINE("nz_diag=" << nz_diag);
  const Stopwatch watch;
  mirror(sys.P);
  const bool ok = inv.dim <= DENSE_MAX
                      ? solve_dense(inv, sys)
                      : inv_LS_CG_sparsify(inv.x, sys.P, sys.Y, KITER, std::pow(10.0, NR_BOOST - 2) * 1e-18);
  LOG_LINE("Cal_TA STEP 3 TIME=" << watch.text());
  return ok && fast_vec_maxabs(inv.dim, inv.x, inv.dim);
}

double comp_res(InvCalDrift& inv) {
  LOG_ENTER("InvCalDrift::comp_res nint=" << inv.nint);
  std::vector<double> changes(inv.pair.size(), 0.0);
  for_used_pairs(inv, [&](int k) {
    PairState& p = inv.pair[k];
    double& change = changes[static_cast<size_t>(k)];
    PairRow row;
    const PairSlots slots = make_slots(inv, k, true);
    for (uint64_t i = 0; i < p.W0.size(); i++) {
      if (!(p.W0[i].x > 0)) continue;
      comp_row(inv, k, slots, i, row);
      dxyz model = {0, 0, 0};
      for (int a = 0; a < slots.n; a++) {
        const double x = inv.x[slots.idx[a]];
        model += {row.cx[a] * x, row.cy[a] * x, row.cz[a] * x};
      }
      const xyz res = p.data[i] - to_xyz(model);
      change += static_cast<double>(dot(res - p.res[i], res - p.res[i]));
      p.res[i] = res;
    }
  });
  const double change = std::accumulate(changes.begin(), changes.end(), 0.0);
  return std::sqrt(change / static_cast<double>(std::max<uint64_t>(1, inv.nvec_used)));
}

bool invert_RA_Cal_TA(InvCalDrift& inv) {
  const Stopwatch watch;
  const auto solve = [&] { return solve_reweighted(inv, invert_Cal_TA, comp_res); };
  constexpr int MAX_FITS = 20;
  int nfit = 0;
  do {
    if (!solve()) return false;
    comp_corr_len(inv);
  } while (inv.drift && fit_prior(inv) && ++nfit < MAX_FITS);
  if (inv.par.UADJ != 0) {
    show_STAT_res(inv);
    if (adj_prec(inv, comp_chi(inv)) && !solve()) return false;
  }
  comp_corr_len(inv);
  if (!solve_with_cov(inv, invert_Cal_TA)) return false;
  comp_res(inv);
  vec2par(inv);
  if (inv.drift) log_TA0(inv);
  if (!inv.drift && !inv.cov.empty()) add_line_effects(inv);
  LOG_MSG("Inversion step 1 successful | " << watch.text());
  LOG_LINE("/// INV STEP 1 TIME=" << watch.text());
  return true;
}
}  // namespace veld
