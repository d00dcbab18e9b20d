#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "lib/Optim/optimCG.h"
#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"
#include "prj/LiDAR/VR2inv/VR2inv_sparse.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t KITER = 10;  // iterations of the conjugate gradient per unknown

struct Entry {  // the columns of one vector or sample for one node
  int node;
  double col[6][3];  // by parameter of the node, then world axis
};

// Appends the two nodes that a swath has at time t; columns of a node that is there already are added up.
int add_nodes(const InvCalDrift& inv, SwathId swath, double t, double sign, const AttCols& A, uint64_t i,
              Entry* entries, int n) {
  const SwState& w = inv.sw[swath];
  if (!w.mobile || w.node0 < 0) return n;
  const NodePos pos = comp_NodePos(t, w.t0, w.Dt, w.nt);
  const bool att = inv.drift_att;
  const xyz J[3] = {att ? A.r[i] : xyz{0, 0, 0}, att ? A.p[i] : xyz{0, 0, 0}, att ? A.y[i] : xyz{0, 0, 0}};
  for (int side = 0; side < 2; side++) {
    const double weight = sign * (side == 0 ? 1 - static_cast<double>(pos.f) : static_cast<double>(pos.f));
    if (weight == 0) continue;
    const int node = w.node0 + pos.i0 + side;
    int e = 0;
    while (e < n && entries[e].node != node) e++;
    if (e == n) entries[n++] = Entry{node, {}};
    for (int c = 0; c < 3; c++)
      if (inv.FD[c]) entries[e].col[c][c] += weight;
    for (int m = 0; m < 3 && att; m++)
      if (inv.FD[3 + m])
        for (int c = 0; c < 3; c++) entries[e].col[3 + m][c] += weight * axis(J[m], c);
  }
  return n;
}

// All nodes that vector i of pair k touches, with the columns of J2 - J1.
int vector_entries(const InvCalDrift& inv, int k, uint64_t i, Entry* entries) {
  const InvPair& p = inv.in.pairs[k];
  const int n = add_nodes(inv, p.sw1, p.t1[i], -1, inv.pair[k].A[0], i, entries, 0);
  return add_nodes(inv, p.sw2, p.t2[i], 1, inv.pair[k].A[1], i, entries, n);
}

void add_square(BlockMap& nodes, int stride, const Entry* entries, int n, const dxyz& W) {
  for (int a = 0; a < n; a++)
    for (int b = 0; b < n; b++) {
      const Entry &ea = entries[a], &eb = entries[b];
      if (ea.node > eb.node) continue;
      double* to = nodes.block(ea.node, eb.node);
      for (int i = 0; i < stride; i++) {
        const double wx = W.x * ea.col[i][0], wy = W.y * ea.col[i][1], wz = W.z * ea.col[i][2];
        for (int j = 0; j < stride; j++)
          to[i * stride + j] += wx * eb.col[j][0] + wy * eb.col[j][1] + wz * eb.col[j][2];
      }
    }
}

// What one pair adds to the system.
struct PairSums {
  PairSlots slots;
  int stride;
  double block[MAX_SLOT * MAX_SLOT] = {}, right[MAX_SLOT] = {};
  BlockMap with_node;          // node: slots x stride values
  BlockMap nodes, node_right;  // as DriftEq::nodes; node: stride values

  PairSums(const InvCalDrift& inv, int k) : slots(make_slots(inv, k, false)), stride(inv.TAstride) {
    with_node.init(static_cast<size_t>(slots.n) * stride);
    nodes.init(static_cast<size_t>(stride) * stride);
    node_right.init(static_cast<size_t>(stride));
  }
  void add_nodes(const Entry* entries, int nentry, const xyz& W, const xyz& d) {
    add_square(nodes, stride, entries, nentry, to_dxyz(W));
    for (int e = 0; e < nentry; e++) {
      double* Y = node_right.block(0, entries[e].node);
      for (int c = 0; c < stride; c++)
        Y[c] += static_cast<double>(W.x) * d.x * entries[e].col[c][0] +
                static_cast<double>(W.y) * d.y * entries[e].col[c][1] +
                static_cast<double>(W.z) * d.z * entries[e].col[c][2];
    }
  }
  void add(const PairRow& row, const Entry* entries, int nentry, const xyz& W, const xyz& d) {
    const int n = slots.n;
    double w[MAX_SLOT][3];
    for (int a = 0; a < n; a++) {
      w[a][0] = W.x * row.cx[a], w[a][1] = W.y * row.cy[a], w[a][2] = W.z * row.cz[a];
      for (int b = 0; b < n; b++)
        block[a * n + b] += w[a][0] * row.cx[b] + w[a][1] * row.cy[b] + w[a][2] * row.cz[b];
      right[a] += w[a][0] * d.x + w[a][1] * d.y + w[a][2] * d.z;
    }
    for (int e = 0; e < nentry && n > 0; e++) {
      double* to = with_node.block(0, entries[e].node);
      for (int a = 0; a < n; a++)
        for (int c = 0; c < stride; c++)
          to[a * stride + c] += w[a][0] * entries[e].col[c][0] + w[a][1] * entries[e].col[c][1] +
                                w[a][2] * entries[e].col[c][2];
    }
  }
  void put(DriftEq& sys) const {
    const int n = slots.n;
    for (int a = 0; a < n; a++) {
      for (int b = 0; b < n; b++)
        if (slots.idx[a] <= slots.idx[b]) *sys.cal.block(slots.idx[a], slots.idx[b]) += block[a * n + b];
      sys.Y[slots.idx[a]] += right[a];
    }
    with_node.each([&](int, int node, const double* val) {
      for (int a = 0; a < n; a++) {
        double* to = sys.cal_node.block(slots.idx[a], node);
        for (int c = 0; c < stride; c++) to[c] += val[a * stride + c];
      }
    });
    nodes.each([&](int a, int b, const double* val) {
      double* to = sys.nodes.block(a, b);
      for (int c = 0; c < stride * stride; c++) to[c] += val[c];
    });
    node_right.each([&](int, int node, const double* val) {
      double* to = sys.Y.val + sys.dimcal + stride * node;
      for (int c = 0; c < stride; c++) to[c] += val[c];
    });
  }
};

PairSums make_sums(const InvCalDrift& inv, int k) {
  PairSums sums(inv, k);
  const PairState& p = inv.pair[k];
  Entry entries[4];
  PairRow row;
  for (uint64_t i = 0; i < p.W.size(); i++) {
    const xyz &W = p.W[i], &d = p.data[i];
    if (!(W.x > 0)) continue;
    const int n = vector_entries(inv, k, i, entries);
    sums.add_nodes(entries, n, W, d);
    if (sums.slots.n == 0) continue;
    comp_row(inv, k, sums.slots, i, row);
    sums.add(row, entries, n, W, d);
  }
  return sums;
}

void sparse_P_Y_drift(const InvCalDrift& inv, DriftEq& sys) {
  const Stopwatch watch;
  int nintpos = 0;
  sum_used_pairs(
      inv, [&](int k) { return make_sums(inv, k); },
      [&](const PairSums& sums) {
        nintpos++;
        sums.put(sys);
      });
  LOG_LINE("nintpos=" << nintpos << " nintm=" << inv.nint - nintpos << " nTA=" << inv.nTA
                      << " size=" << inv.dim << " AdimD=" << inv.dim << " NDdim=" << sys.nodes.count());
  LOG_LINE("HFTA STEP 0 TIME=" << watch.text());
}

bool is_sample(const InvSamples& m, uint64_t i) { return m.P[i].z != NODATA && m.O[i].z != NODATA; }

// The prior along each line: a process with the drift's standard deviation and correlation time.
void add_line_prior(const InvCalDrift& inv, DriftEq& sys) {
  std::vector<uint8_t> done(inv.nTAnd, 0);
  for (const SwathId id : inv.sw.ids()) {
    const SwState& w = inv.sw[id];
    if (!w.mobile || w.node0 < 0 || done[w.node0]) continue;
    done[w.node0] = 1;
    for (int c = 0; c < inv.TAstride; c++) {
      const NodePrior prior = comp_NodePrior(inv, c, w.Dt);
      double r = drift_ratio(inv, id, c, w.t0);
      for (int i = 0; i < w.nt; i++) {
        const int node = w.node0 + i;
        const bool end = i == 0 || i + 1 == w.nt;
        sys.add_diag(node, c, (end ? prior.outer : prior.inner) / (r * r));
        if (i + 1 == w.nt) continue;
        const double next = drift_ratio(inv, id, c, w.t0 + (i + 1) * w.Dt);
        sys.add_diag(node, c, prior.step / (r * r));
        sys.add_diag(node + 1, c, prior.step / (next * next));
        sys.nodes.block(node, node + 1)[c * sys.stride + c] -= prior.step / (r * next);
        r = next;
      }
    }
  }
}

// The prior on the points: position and attitude together move the swath's samples by no more than both may on
// their own. A node's samples count as one observation.
void add_sample_prior(const InvCalDrift& inv, DriftEq& sys) {
  uint64_t nep = 0;
  int nesw = 0;
  Entry entries[2];
  const xyz &T = inv.prior.T, &A = inv.prior.A;
  for (const SwathId s : inv.sw.ids()) {
    if (!inv.sw[s].mobile || inv.sw[s].node0 < 0) continue;
    nesw++;
    const InvSamples& m = inv.in.swaths[s].samples;
    const bool accurate = !inv.in.swaths[s].accuracy.empty();
    uint64_t nsample = 0;
    for (uint64_t i = 0; i < m.P.size(); i++) nsample += is_sample(m, i);
    const double share =
        static_cast<double>(inv.sw[s].nt) / std::max<double>(1, static_cast<double>(nsample));
    for (uint64_t i = 0; i < m.P.size(); i++) {
      if (!is_sample(m, i)) continue;
      nep++;
      double r[6];
      for (int c = 0; c < 6; c++) r[c] = accurate ? drift_ratio(inv, s, c, m.t[i]) : 1;
      const auto square = [](double v) { return v * v; };
      dxyz var = {square(T.x * r[0]) + VAR_FLOOR.x, square(T.y * r[1]) + VAR_FLOOR.y,
                  square(T.z * r[2]) + VAR_FLOOR.z};
      if (inv.drift_att) {
        const AttCols& J = inv.sw[s].A;
        const auto add = [&](const xyz& j, double a) {
          var += dxyz{square(j.x * a), square(j.y * a), square(j.z * a)};
        };
        add(J.r[i], A.x * r[3]), add(J.p[i], A.y * r[4]), add(J.y[i], A.z * r[5]);
      }
      const int n = add_nodes(inv, s, m.t[i], 1, inv.sw[s].A, i, entries, 0);
      add_square(sys.nodes, sys.stride, entries, n, {share / var.x, share / var.y, share / var.z});
    }
  }
  LOG_LINE("Aerr0 nep=" << nep << " nesw=" << nesw);
}

void add_sparse_P_pri(const InvCalDrift& inv, DriftEq& sys) {
  LOG_LINE("add_sparse_P_pri FTT=" << (inv.par.FA == 2) << " FAA=" << (inv.par.FA == 1)
                                   << " Epri=" << inv.par.Epri);
  const CalibPrior cal = calib_prior(inv);
  for (int i = 0; i < inv.dimcal; i++) *sys.cal.block(i, i) += cal.own[i];
  for (const CalibPrior::Tie& t : cal.ties) {
    *sys.cal.block(t.a, t.a) += t.prec;
    *sys.cal.block(t.b, t.b) += t.prec;
    *sys.cal.block(std::min(t.a, t.b), std::max(t.a, t.b)) -= t.prec;
  }
  add_line_prior(inv, sys);
  if (inv.par.Epri && !inv.want_cov)
    add_sample_prior(inv, sys);  // it holds the drift; it is no knowledge of it
}

// Columns of the inverse of P for the calibration parameters, one solve each.
bool comp_cal_cov(InvCalDrift& inv, const SparseList& list, double prec) {
  if (inv.dimcal > COV_MAX) inv.cov.clear();
  if (inv.dimcal == 0 || inv.dimcal > COV_MAX) return true;
  inv.cov.resize(inv.dimcal, inv.dimcal);
  Vector<double> column;
  for (int i = 0; i < inv.dimcal; i++) {
    SparseList copy = list;
    Vector<double> unit(inv.dim, 0.0);
    unit(i) = 1;
    if (!inv_sparse_LS_CG(column, unit, copy.D, copy.A, copy.U, copy.V, copy.n, KITER, prec)) return false;
    for (int j = 0; j < inv.dimcal; j++) inv.cov(j, i) = column(j);
  }
  return true;
}
// Solves for the change of x, which is small once the weights settle: the solver starts from zero and needs the
// fewer steps the less there is to find. The precision stays relative to the whole right-hand side.
bool solve_from(Vector<double>& x, Vector<double>& Y, SparseList& list, double prec) {
  constexpr double LOOSEST = 1e-4;
  const double whole = norm2(Y);
  for (uint64_t i = 0; i < x.size(); i++) Y[i] -= list.D[i] * x[i];
  for (uint64_t k = 0; k < list.n; k++) {
    const uint32_t u = list.U[k], v = list.V[k];
    Y[u] -= list.A[k] * x[v];
    Y[v] -= list.A[k] * x[u];
  }
  const double left = norm2(Y);
  if (left > 0) prec = std::min(LOOSEST, prec * std::max(1.0, whole / left));
  Vector<double> change;
  if (!inv_sparse_LS_CG(change, Y, list.D, list.A, list.U, list.V, list.n, KITER, prec)) return false;
  x += change;
  return true;
}
}  // namespace

bool invert_HFTA(InvCalDrift& inv) {
  const xyz& Cpri = inv.prior.T;
  LOG_ENTER("invert_HFTA dimcal=" << inv.dimcal << " dim=" << inv.dim << " Cpri=" << Cpri.x << ' ' << Cpri.y
                                  << ' ' << Cpri.z << " Spri=" << inv.prior.rate << " Epri=" << inv.par.Epri
                                  << " NR_BOOST=" << NR_BOOST);
  const bool warm = inv.warm && inv.x.size() == static_cast<uint64_t>(inv.dim);
  if (!warm) {
    inv.x.clear();
    inv.x.resize(inv.dim, 0.0);
  }
  if (inv.dim == 0) return true;
  DriftEq sys;
  sys.init(inv.dimcal, inv.TAstride, inv.dim);
  sparse_P_Y_drift(inv, sys);
  const Stopwatch watch2;
  add_sparse_P_pri(inv, sys);
  LOG_LINE("HFTA STEP 2 TIME=" << watch2.text());
  const Stopwatch watch3;
  SparseList list = sparsify_more(sys);
  LOG_LINE("HFTA STEP 3 TIME=" << watch3.text());
  const Stopwatch watch4;
  const double prec = std::pow(10.0, NR_BOOST - 2) * 1e-14;
  if (inv.want_cov && !comp_cal_cov(inv, list, prec)) return false;
  const bool ok = solve_from(inv.x, sys.Y, list, prec);
  inv.warm = ok;
  LOG_LINE("HFTA STEP 4 TIME=" << watch4.text());
  return ok && fast_vec_maxabs(inv.dim, inv.x, inv.dim);
}

double comp_res_TA(InvCalDrift& inv) {
  LOG_ENTER("InvCalDrift::comp_res_TA nint=" << inv.nint);
  struct Sums {
    dxyz square = {0, 0, 0};
    double change = 0;
  };
  std::vector<Sums> of_pair(inv.pair.size());
  for_used_pairs(inv, [&](int k) {
    PairState& p = inv.pair[k];
    Sums& sums = of_pair[static_cast<size_t>(k)];
    Entry entries[4];
    PairRow row;
    const PairSlots slots = make_slots(inv, k, false);
    for (uint64_t i = 0; i < p.W0.size(); i++) {
      if (!(p.W0[i].x > 0)) continue;
      const int n = vector_entries(inv, k, i, entries);
      dxyz model = {0, 0, 0};
      for (int e = 0; e < n; e++) {
        const double* x = inv.x.val + inv.node_entry(entries[e].node);
        for (int c = 0; c < inv.TAstride; c++)
          model += {entries[e].col[c][0] * x[c], entries[e].col[c][1] * x[c], entries[e].col[c][2] * x[c]};
      }
      if (slots.n > 0) comp_row(inv, k, slots, i, row);
      for (int a = 0; a < slots.n; a++) {
        const double x = inv.x[slots.idx[a]];
        model += {row.cx[a] * x, row.cy[a] * x, row.cz[a] * x};
      }
      const xyz res = p.data[i] - to_xyz(model);
      const dxyz d = to_dxyz(res);
      sums.change += static_cast<double>(dot(res - p.res[i], res - p.res[i]));
      p.res[i] = res;
      sums.square += {d.x * d.x, d.y * d.y, d.z * d.z};
    }
  });
  dxyz sum2 = {0, 0, 0};
  double change = 0;
  for (const Sums& s : of_pair) sum2 += s.square, change += s.change;
  const double n = std::max<double>(1, static_cast<double>(inv.nvec_used));
  LOG_LINE("RMS=" << std::sqrt(sum2.x / n) << ' ' << std::sqrt(sum2.y / n) << ' ' << std::sqrt(sum2.z / n));
  return std::sqrt(change / n);
}

bool invert_RA_HFTA(InvCalDrift& inv) {
  const auto solve = [&] { return solve_reweighted(inv, invert_HFTA, comp_res_TA); };
  if (!solve()) return false;
  const int nrounds = inv.par.UADJ == 0 ? 0 : inv.par.UADJ == 4 ? 2 : 1;
  for (int round = 0; round < nrounds; round++) {
    show_STAT_res(inv);
    if (!adj_prec(inv, comp_chi(inv))) break;
    if (!solve()) return false;
  }
  comp_corr_len(inv);
  if (!solve_with_cov(inv, invert_HFTA)) return false;
  comp_res_TA(inv);
  vec2par(inv);
  return true;
}
}  // namespace veld
