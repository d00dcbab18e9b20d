#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "lib/Optim/optimCG.h"
#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"
#include "prj/LiDAR/tuning.h"

namespace {
constexpr uint64_t KITER = 10;  // iterations of the conjugate gradient per unknown

// The normal matrix in blocks of stride x stride between groups of parameters: group 0 is the global shift
// (three entries), group k + 1 is node k. Only blocks (a, b) with a <= b are kept, in the order of their
// first use.
struct BlockMatrix {
  int stride = 3;
  std::unordered_map<uint64_t, size_t> index;
  std::vector<uint64_t> keys;
  std::vector<double> val;

  double* block(int a, int b) {
    const uint64_t key = static_cast<uint64_t>(a) << 32 | static_cast<uint32_t>(b);
    const auto [it, fresh] = index.try_emplace(key, keys.size());
    const size_t size = static_cast<size_t>(stride) * stride;
    if (fresh) {
      keys.push_back(key);
      val.resize(val.size() + size, 0.0);
    }
    return val.data() + it->second * size;
  }
};

struct Entry {  // the columns of one vector or sample for one group
  int group;
  double col[6][3];  // by parameter of the group, then world axis
};

struct SparseP {
  BlockMatrix P;
  Vector<double> Y;
};

int group_base(const InvCalDrift& inv, int group) {
  return group == 0 ? inv.shift0 : inv.node_entry(group - 1);
}
int group_size(const InvCalDrift& inv, int group) { return group == 0 ? 3 : inv.TAstride; }

// Appends the two nodes that a swath has at time t; columns of a group that is there already are added up.
int add_nodes(const InvCalDrift& inv, int swath, double t, double sign, const AttCols& A, uint64_t i,
              Entry* entries, int n) {
  const SwState& w = inv.sw[swath];
  if (!w.mobile || w.node0 < 0) return n;
  const NodePos pos = comp_NodePos(t, w.t0, w.Dt, w.nt);
  const bool att = inv.drift_att;
  const xyz J[3] = {att ? A.r.val[i] : xyz{0, 0, 0}, att ? A.p.val[i] : xyz{0, 0, 0},
                    att ? A.y.val[i] : xyz{0, 0, 0}};
  for (int side = 0; side < 2; side++) {
    const double weight = sign * (side == 0 ? 1 - static_cast<double>(pos.f) : static_cast<double>(pos.f));
    if (weight == 0) continue;
    const int group = w.node0 + pos.i0 + side + 1;
    int e = 0;
    while (e < n && entries[e].group != group) e++;
    if (e == n) entries[n++] = Entry{group, {}};
    for (int c = 0; c < 3; c++)
      if (inv.FD[c]) entries[e].col[c][c] += weight;
    for (int m = 0; m < 3 && att; m++)
      if (inv.FD[3 + m])
        for (int c = 0; c < 3; c++) entries[e].col[3 + m][c] += weight * axis(J[m], c);
  }
  return n;
}

void add_square(BlockMatrix& P, const Entry* entries, int n, const dxyz& W) {
  const int stride = P.stride;
  for (int a = 0; a < n; a++)
    for (int b = 0; b < n; b++) {
      const Entry &ea = entries[a], &eb = entries[b];
      if (ea.group > eb.group) continue;
      double* to = P.block(ea.group, eb.group);
      for (int i = 0; i < stride; i++) {
        const double wx = W.x * ea.col[i][0], wy = W.y * ea.col[i][1], wz = W.z * ea.col[i][2];
        for (int j = 0; j < stride; j++)
          to[i * stride + j] += wx * eb.col[j][0] + wy * eb.col[j][1] + wz * eb.col[j][2];
      }
    }
}

// All groups that vector i of pair k touches, with the columns of J2 - J1.
int vector_entries(const InvCalDrift& inv, int k, uint64_t i, Entry* entries) {
  const InvPair& p = inv.in.pairs[k];
  int n = add_nodes(inv, p.sw1, p.t1.val[i], -1, inv.pair[k].A[0], i, entries, 0);
  n = add_nodes(inv, p.sw2, p.t2.val[i], 1, inv.pair[k].A[1], i, entries, n);
  const bool fx1 = inv.in.swaths[p.sw1].fixed, fx2 = inv.in.swaths[p.sw2].fixed;
  if (inv.ShiftRef && fx1 != fx2) {
    Entry& e = entries[n++];
    e = Entry{0, {}};
    for (int c = 0; c < 3; c++) e.col[c][c] = fx1 ? 1 : -1;
  }
  return n;
}

void sparse_P_Y_drift(const InvCalDrift& inv, SparseP& sys) {
  const Stopwatch watch;
  Entry entries[5];
  int nintpos = 0;
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    nintpos++;
    const InvPair& p = inv.in.pairs[k];
    for (uint64_t i = 0; i < p.P.size(); i++) {
      const xyz &W = p.Unc.val[i], &d = p.Def.val[i];
      if (!(W.x > 0)) continue;
      const int n = vector_entries(inv, k, i, entries);
      add_square(sys.P, entries, n, to_dxyz(W));
      for (int e = 0; e < n; e++) {
        double* Y = sys.Y.val + group_base(inv, entries[e].group);
        for (int c = 0; c < group_size(inv, entries[e].group); c++)
          Y[c] += static_cast<double>(W.x) * d.x * entries[e].col[c][0] +
                  static_cast<double>(W.y) * d.y * entries[e].col[c][1] +
                  static_cast<double>(W.z) * d.z * entries[e].col[c][2];
      }
    }
  }
  LOG_LINE("nintpos=" << nintpos << " nintm=" << inv.nint - nintpos << " nTA=" << inv.nTA
                      << " size=" << inv.dim << " AdimD=" << inv.dim << " AdimND=" << sys.P.val.size()
                      << " NDdim=" << sys.P.keys.size());
  LOG_LINE("HFTA STEP 0 TIME=" << watch.text());
}

bool is_sample(const InvSamples& m, uint64_t i) { return m.P.val[i].z != NO_Z && m.O.val[i].z != NO_Z; }

void add_diag(BlockMatrix& P, int group, int i, double value) {
  P.block(group, group)[i * P.stride + i] += value;
}

// The prior at each node, and over the swath's samples.
void add_sparse_P_pri(const InvCalDrift& inv, const dxyz& W, SparseP& sys) {
  const bool FAA = inv.par.FA == 1, FTT = inv.par.FA == 2;
  LOG_LINE("add_sparse_P_pri FTT=" << FTT << " FAA=" << FAA << " Epri=" << inv.par.Epri);
  if (inv.ShiftRef)
    for (int c = 0; c < 3; c++) add_diag(sys.P, 0, c, 4 * axis(W, c));
  for (int node = 0; node < inv.nTAnd; node++) {
    for (int c = 0; c < 3; c++) add_diag(sys.P, node + 1, c, 4 * axis(W, c));
    for (int m = 0; m < 3 && inv.drift_att; m++) {
      const double sigma = axis(ATT_PRIOR, m);
      add_diag(sys.P, node + 1, 3 + m, ATT_PRIOR_UNIT / (sigma * sigma));
    }
  }
  if (!inv.par.Epri) return;
  uint64_t nep = 0;
  int nesw = 0;
  Entry entries[2];
  for (int s = 0; s < inv.nsw; s++) {
    if (!inv.sw[s].mobile || inv.sw[s].node0 < 0) continue;
    nesw++;
    const InvSamples& m = inv.in.swaths[s].samples;
    uint64_t nsample = 0;
    for (uint64_t i = 0; i < m.P.size(); i++) nsample += is_sample(m, i);
    // The samples of a swath count as one observation per node together. With the full weight each, priors
    // from the data (a few cm) outweigh the vectors, and half of the drift stays in the data.
    const dxyz W15 = W * (1.5 * inv.sw[s].nt / std::max<double>(1, static_cast<double>(nsample)));
    for (uint64_t i = 0; i < m.P.size(); i++) {
      if (!is_sample(m, i)) continue;
      nep++;
      const int n = add_nodes(inv, s, m.t.val[i], 1, inv.sw[s].A, i, entries, 0);
      add_square(sys.P, entries, n, W15);
      if (!FAA && !FTT) continue;
      for (int e = 0; e < n; e++)  // the part that isn't favoured counts once more
        for (int c = FAA ? 0 : 3; c < (FAA ? 3 : inv.TAstride); c++) {
          const double* col = entries[e].col[c];
          add_diag(sys.P, entries[e].group, c,
                   W15.x * col[0] * col[0] + W15.y * col[1] * col[1] + W15.z * col[2] * col[2]);
        }
    }
  }
  LOG_LINE("Aerr0 nep=" << nep << " nesw=" << nesw);
}

// Penalty w (x_a - x_b)^2 between neighbouring nodes, relative to the weight that the line's nodes have. That
// ratio is at most 1: a wide prior would otherwise tie all nodes together, although it says nothing about
// their change.
void add_smoothness(const InvCalDrift& inv, const dxyz& W, SparseP& sys) {
  if (!(inv.Kreg > 0)) return;
  const int stride = inv.TAstride;
  const double W_att = (W.x + W.y) / 2;  // attitude moves points sideways, in the main
  std::vector<uint8_t> done(inv.nTAnd, 0);
  for (const SwState& w : inv.sw) {
    if (!w.mobile || w.node0 < 0 || w.nt < 2 || done[w.node0]) continue;
    done[w.node0] = 1;
    double sum[6] = {}, weight[6] = {};
    int n[6] = {};
    for (int node = w.node0; node < w.node0 + w.nt; node++)
      for (int c = 0; c < stride; c++) {
        const double d = sys.P.block(node + 1, node + 1)[c * stride + c];
        if (d == 0) continue;
        sum[c] += d;
        n[c]++;
      }
    for (int c = 0; c < stride; c++) {
      const double ratio = inv.Kreg / w.Dt / (c < 3 ? axis(W, c) : W_att);
      weight[c] = n[c] == 0 ? 0 : sum[c] / n[c] * std::min(ratio, 1.0);
    }
    for (int node = w.node0; node + 1 < w.node0 + w.nt; node++)
      for (int c = 0; c < stride; c++) {
        add_diag(sys.P, node + 1, c, weight[c]);
        add_diag(sys.P, node + 2, c, weight[c]);
        sys.P.block(node + 1, node + 2)[c * stride + c] -= weight[c];
      }
  }
}

struct SparseList {
  Vector<double> D, A;
  Vector<uint32_t> U, V;
  uint64_t n = 0;
};

// Diagonal and strictly upper entries, without exact zeros.
SparseList sparsify_more(const InvCalDrift& inv, const BlockMatrix& P) {
  SparseList list;
  const int stride = P.stride;
  const auto each = [&](auto&& f) {
    const double* val = P.val.data();
    for (const uint64_t key : P.keys) {
      const int a = static_cast<int>(key >> 32), b = static_cast<int>(key & 0xFFFFFFFF);
      for (int i = 0; i < group_size(inv, a); i++)
        for (int j = a == b ? i : 0; j < group_size(inv, b); j++)
          f(group_base(inv, a) + i, group_base(inv, b) + j, val[i * stride + j]);
      val += static_cast<size_t>(stride) * stride;
    }
  };
  each([&](int u, int v, double value) { list.n += u != v && value != 0; });
  list.D.resize(inv.dim, 0.0);
  list.A.resize(list.n);
  list.U.resize(list.n);
  list.V.resize(list.n);
  uint64_t k = 0;
  each([&](int u, int v, double value) {
    if (u == v) {
      list.D.val[u] = value;
    } else if (value != 0) {
      list.A.val[k] = value;
      list.U.val[k] = static_cast<uint32_t>(u);
      list.V.val[k] = static_cast<uint32_t>(v);
      k++;
    }
  });
  const double dim2 = static_cast<double>(inv.dim) * inv.dim;
  LOG_LINE("sparsify_more dim*dim=" << dim2
                                    << " fill=" << (2.0 * static_cast<double>(list.n) + inv.dim) / dim2);
  return list;
}
}  // namespace

bool invert_HFTA(InvCalDrift& inv) {
  LOG_ENTER("invert_HFTA dimcal=" << inv.dimcal << " dim=" << inv.dim << " Cpri=" << inv.Cpri.x << ' '
                                  << inv.Cpri.y << ' ' << inv.Cpri.z << " Kreg=" << inv.Kreg
                                  << " Epri=" << inv.par.Epri << " NR_BOOST=" << NR_BOOST);
  inv.x.resize(inv.dim, 0.0);
  if (inv.dim == 0) return true;
  SparseP sys;
  sys.P.stride = inv.TAstride;
  sys.Y.resize(inv.dim, 0.0);
  sparse_P_Y_drift(inv, sys);
  const Stopwatch watch2;
  const auto w = [](double c, double floor) { return 1.0 / (c * c + floor); };
  const dxyz W = {w(inv.Cpri.x, VAR_FLOOR.x), w(inv.Cpri.y, VAR_FLOOR.y), w(inv.Cpri.z, VAR_FLOOR.z)};
  add_sparse_P_pri(inv, W, sys);
  add_smoothness(inv, W, sys);
  LOG_LINE("HFTA STEP 2 TIME=" << watch2.text());
  const Stopwatch watch3;
  SparseList list = sparsify_more(inv, sys.P);
  LOG_LINE("HFTA STEP 3 TIME=" << watch3.text());
  const Stopwatch watch4;
  const bool ok = inv_sparse_LS_CG(inv.x, sys.Y, list.D, list.A, list.U, list.V, list.n, KITER,
                                   std::pow(10.0, NR_BOOST - 2) * 1e-14);
  LOG_LINE("HFTA STEP 4 TIME=" << watch4.text());
  return ok && fast_vec_maxabs(inv.dim, inv.x, inv.dim);
}

void comp_res_TA(InvCalDrift& inv) {
  LOG_ENTER("InvCalDrift::comp_res_TA nint=" << inv.nint);
  Entry entries[5];
  dxyz sum2 = {0, 0, 0};
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    InvPair& p = inv.in.pairs[k];
    for (uint64_t i = 0; i < p.P.size(); i++) {
      if (!(p.Unc.val[i].x > 0)) continue;
      const int n = vector_entries(inv, k, i, entries);
      dxyz model = {0, 0, 0};
      for (int e = 0; e < n; e++) {
        const double* x = inv.x.val + group_base(inv, entries[e].group);
        for (int c = 0; c < group_size(inv, entries[e].group); c++)
          model += {entries[e].col[c][0] * x[c], entries[e].col[c][1] * x[c], entries[e].col[c][2] * x[c]};
      }
      xyz& d = p.Def.val[i];
      d -= to_xyz(model);
      sum2 +=
          {static_cast<double>(d.x) * d.x, static_cast<double>(d.y) * d.y, static_cast<double>(d.z) * d.z};
    }
  }
  const double n = std::max<double>(1, static_cast<double>(inv.nvec_used));
  LOG_LINE("RMS=" << std::sqrt(sum2.x / n) << ' ' << std::sqrt(sum2.y / n) << ' ' << std::sqrt(sum2.z / n));
}

bool invert_RA_HFTA(InvCalDrift& inv) {
  ASSERT(!inv.FCAL);
  const int nrounds = inv.par.UADJ == 0 ? 0 : inv.par.UADJ == 4 ? 2 : 1;
  for (int round = 0; round <= nrounds; round++) {
    if (round > 0 && !adj_prec(inv, comp_chi(inv))) break;
    if (!invert_HFTA(inv)) return false;
    comp_res_TA(inv);
    vec2par(inv);
  }
  return true;
}
