#include <cmath>

#include "lib/Optim/optimCG.h"
#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"
#include "prj/LiDAR/tuning.h"

namespace {
constexpr uint64_t KITER = 10;  // iterations of the conjugate gradient per unknown

struct System {  // P x = Y, P dense and symmetric; the lower triangle is filled
  Image<double> P;
  Vector<double> Y;
  void add(int i, int j, double value) {
    if (i < j) std::swap(i, j);
    P.row(i)[j] += value;
  }
};

dxyz prior_weight(const xyz& Cpri, double factor) {
  const auto w = [factor](double c, double floor) { return 1.0 / (factor * c * (factor * c) + floor); };
  return {w(Cpri.x, VAR_FLOOR.x), w(Cpri.y, VAR_FLOOR.y), w(Cpri.z, VAR_FLOOR.z)};
}

double dot_W(const dxyz& W, const xyz& a, const xyz& b) {
  return W.x * a.x * b.x + W.y * a.y * b.y + W.z * a.z * b.z;
}

// Data: one small system per pair, whose vectors all touch the same parameters, put into P and Y at its end.
void P_Y_calib_drift_con(const InvCalDrift& inv, System& sys) {
  const Stopwatch watch;
  double block[MAX_SLOT * MAX_SLOT], right[MAX_SLOT];
  PairRow row;
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    const InvPair& p = inv.in.pairs[k];
    const PairSlots slots = make_slots(inv, k);
    const int n = slots.n;
    std::fill_n(block, n * n, 0.0);
    std::fill_n(right, n, 0.0);
    for (uint64_t i = 0; i < p.P.size(); i++) {
      const xyz &W = p.Unc.val[i], &d = p.Def.val[i];
      if (!(W.x > 0)) continue;
      comp_row(inv, k, slots, i, row);
      for (int a = 0; a < n; a++) {
        const double wx = W.x * row.cx[a], wy = W.y * row.cy[a], wz = W.z * row.cz[a];
        double* to = block + a * n;
        for (int b = 0; b < n; b++) to[b] += wx * row.cx[b] + wy * row.cy[b] + wz * row.cz[b];
        right[a] += wx * d.x + wy * d.y + wz * d.z;
      }
    }
    for (int a = 0; a < n; a++) {
      for (int b = 0; b <= a; b++) sys.add(slots.idx[a], slots.idx[b], block[a * n + b]);
      sys.Y.val[slots.idx[a]] += right[a];
    }
  }
  LOG_LINE("Cal_TA STEP 0 TIME=" << watch.text());
}

// Prior on the effect of a swath's constants, in metres, at every sample of the swath with full weight:
// vectors and samples are both one a microtile or so. A weaker prior leaves what flat ground cannot tell
// apart (pitch and a shift along the track) to the few vectors whose uncertainty is too small.
void add_P_drift_pri_con(const InvCalDrift& inv, System& sys) {
  const Stopwatch watch;
  const bool FAA = inv.par.FA == 1, FTT = inv.par.FA == 2;
  LOG_LINE("add_P_drift_pri_con FTT=" << FTT << " FAA=" << FAA);
  const dxyz W = prior_weight(inv.Cpri, 1);
  for (int s = 0; s < inv.nsw; s++) {
    const SwState& w = inv.sw[s];
    if (!w.mobile || w.node0 < 0) continue;
    const int T = inv.node_entry(w.node0), A = T + 3;
    for (int c = 0; c < 3; c++) sys.add(T + c, T + c, 4 * axis(W, c));
    const InvSamples& m = inv.in.swaths[s].samples;
    double n = 0;
    dxyz sum[3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};  // of the columns, per attitude axis
    double prod[3][3] = {};
    for (uint64_t i = 0; i < m.P.size(); i++) {
      if (m.P.val[i].z == NO_Z || m.O.val[i].z == NO_Z) continue;
      n++;
      if (!inv.drift_att) continue;
      const xyz J[3] = {w.A.r.val[i], w.A.p.val[i], w.A.y.val[i]};
      for (int a = 0; a < 3; a++) {
        sum[a] += to_dxyz(J[a]);
        for (int b = 0; b <= a; b++) prod[a][b] += dot_W(W, J[a], J[b]);
      }
    }
    for (int c = 0; c < 3; c++) sys.add(T + c, T + c, n * (FAA ? 2 : 1) * axis(W, c));
    if (!inv.drift_att) continue;
    for (int a = 0; a < 3; a++) {
      const double sigma = axis(ATT_PRIOR, a);
      sys.add(A + a, A + a,
              ATT_PRIOR_UNIT / (sigma * sigma) + (inv.FD[3 + a] ? (FTT ? 2 : 1) * prod[a][a] : 0));
      if (!inv.FD[3 + a]) continue;
      // The products of two attitudes keep the prior a sum of squares, in every mode.
      for (int b = 0; b < a; b++)
        if (inv.FD[3 + b]) sys.add(A + a, A + b, prod[a][b]);
      for (int c = 0; c < 3; c++)
        if (inv.FD[c]) sys.add(T + c, A + a, axis(W, c) * axis(sum[a], c));
    }
  }
  LOG_LINE("Cal_TA STEP 1 TIME=" << watch.text());
}

// Prior on calibration parameters: each moves the surface by about Cpri over the samples of all swaths.
void set_calib_prior_area(const InvCalDrift& inv, System& sys) {
  const Stopwatch watch;
  if (inv.ShiftRef)
    for (int c = 0; c < 3; c++) sys.add(inv.shift0 + c, inv.shift0 + c, 1.0);
  const dxyz W = prior_weight(inv.Cpri, inv.dense_path() ? 4 : 1);
  dxyz Wint[N_INTERNAL];
  for (int c = 0; c < N_INTERNAL; c++) Wint[c] = W * (c == 5 ? 10.0 : 1.0);
  const dxyz Wext = W * (inv.par.CALGE ? 0.06 : 1.0);
  for (int s = 0; s < inv.nsw; s++) {
    const SwState& w = inv.sw[s];
    if (!w.mobile) continue;
    const InvSamples& m = inv.in.swaths[s].samples;
    double ext[N_EXTERNAL] = {}, intl[N_INTERNAL] = {};
    TrajFrame frame;
    GeomCols cols;
    for (uint64_t i = 0; i < m.P.size(); i++) {
      if (m.P.val[i].z == NO_Z || m.O.val[i].z == NO_Z) continue;
      comp_TrajFrame(m.O.val[i], m.Att.val[i], inv.in.swaths[s].rot, frame);
      comp_GeomCols(frame, to_xyz(m.P.val[i] - frame.O), inv.flags, cols);
      for (int c = 0; c < 3; c++) {
        ext[c] += dot_W(Wext, cols.lever[c], cols.lever[c]);
        ext[3 + c] += dot_W(Wext, cols.bore[c], cols.bore[c]);
      }
      for (int c = 0; c < N_INTERNAL; c++) intl[c] += dot_W(Wint[c], cols.internal[c], cols.internal[c]);
    }
    for (int c = 0; c < N_EXTERNAL; c++)
      if (inv.FE[c] && w.ext_on) sys.add(inv.ext0[c] + w.ext_set, inv.ext0[c] + w.ext_set, ext[c]);
    for (int c = 0; c < N_INTERNAL; c++)
      if (inv.FI[c]) sys.add(inv.int0[c] + w.int_set, inv.int0[c] + w.int_set, intl[c]);
  }
  LOG_LINE("Cal_TA STEP 2 TIME=" << watch.text());
}

void mirror(Image<double>& P) {
  for (int i = 0; i < P.ysize(); i++)
    for (int j = 0; j < i; j++) P.row(j)[i] = P.row(i)[j];
}

bool solve_dense(InvCalDrift& inv, const System& sys) {
  if (!inv_M_Cholesky(sys.P, inv.cov)) {
    LOG_LINE("<!> Cholesky P");
    return false;
  }
  LOG_LINE("Cholesky OK");
  inv.x.resize(inv.dim);
  for (int i = 0; i < inv.dim; i++) {
    if (!(inv.cov(i, i) >= 0)) LOG_LINE("<!> CMjj<0 " << i);
    double sum = 0;
    for (int j = 0; j < inv.dim; j++) sum += inv.cov.row(i)[j] * sys.Y.val[j];
    inv.x.val[i] = sum;
  }
  return true;
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
  LOG_ENTER("invert_Cal_TA dimcal=" << inv.dimcal << " dim=" << inv.dim << " Cpri=" << inv.Cpri.x << ' '
                                    << inv.Cpri.y << ' ' << inv.Cpri.z << " calib=" << inv.FCAL
                                    << " NR_BOOST=" << NR_BOOST);
  inv.cov.clear();
  inv.x.resize(inv.dim, 0.0);
  if (inv.dim == 0) return true;  // nothing was asked for
  if (!check_memory(inv)) return false;
  System sys{Image<double>(inv.dim, inv.dim, 0.0), Vector<double>(inv.dim, 0.0)};
  P_Y_calib_drift_con(inv, sys);
  if (inv.drift) add_P_drift_pri_con(inv, sys);
  if (inv.dimcal > 0) set_calib_prior_area(inv, sys);
  int nz_diag = 0;
  for (int i = 0; i < inv.dim; i++)
    if (sys.P(i, i) == 0) {
      sys.P(i, i) = 1;
      nz_diag++;
    }
  LOG_LINE("nz_diag=" << nz_diag);
  const Stopwatch watch;
  mirror(sys.P);
  const bool ok = inv.dense_path()
                      ? solve_dense(inv, sys)
                      : inv_LS_CG_sparsify(inv.x, sys.P, sys.Y, KITER, std::pow(10.0, NR_BOOST - 2) * 1e-18);
  LOG_LINE("Cal_TA STEP 3 TIME=" << watch.text());
  return ok && fast_vec_maxabs(inv.dim, inv.x, inv.dim);
}

void comp_res(InvCalDrift& inv) {
  LOG_ENTER("InvCalDrift::comp_res nint=" << inv.nint);
  PairRow row;
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    InvPair& p = inv.in.pairs[k];
    const PairSlots slots = make_slots(inv, k);
    for (uint64_t i = 0; i < p.P.size(); i++) {
      if (!(p.Unc.val[i].x > 0)) continue;
      comp_row(inv, k, slots, i, row);
      dxyz model = {0, 0, 0};
      for (int a = 0; a < slots.n; a++) {
        const double x = inv.x.val[slots.idx[a]];
        model += {row.cx[a] * x, row.cy[a] * x, row.cz[a] * x};
      }
      p.Def.val[i] -= to_xyz(model);
    }
  }
}

// The second solve works on the residuals of the first, with priors as they stand: its parameters are added.
bool invert_RA_Cal_TA(InvCalDrift& inv) {
  const Stopwatch watch;
  if (!invert_Cal_TA(inv)) return false;
  comp_res(inv);
  vec2par(inv);
  if (inv.par.UADJ != 0 && adj_prec(inv, comp_chi(inv))) {
    if (!invert_Cal_TA(inv)) return false;
    comp_res(inv);
    vec2par(inv);
  }
  LOG_MSG("Inversion step 1 successful | " << watch.text());
  LOG_LINE("/// INV STEP 1 TIME=" << watch.text());
  return true;
}
