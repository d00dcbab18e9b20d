#include <algorithm>
#include <cmath>
#include <map>

#include "lib/general/log.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
void set_flags(InvCalDrift& inv, int step) {
  const InvParam& p = inv.par;
  inv.step = step;
  const bool ext[N_EXTERNAL] = {p.Fx, p.Fy, p.Fz, p.Fw, p.Fp, p.Fk};
  const bool dri[6] = {p.Ftx, p.Fty, p.Ftz, p.Faw, p.Fap, p.Fak};
  inv.FCAL = inv.drift = inv.drift_att = inv.hasfx = false;
  // Step 2 finds the calibration once more, beside the drift; not when drift comes after calibration.
  const bool cal = step == 1 || (p.STEP1 && !p.DCC);
  for (int k = 0; k < N_EXTERNAL; k++) inv.FCAL |= inv.FE[k] = ext[k] && cal;
  for (int k = 0; k < N_INTERNAL; k++)
    inv.FCAL |= inv.FI[k] = p.FE[k] && cal && (k < N_INTERNAL - 1 || p.CALINTGEN);
  for (int k = 0; k < 6; k++) {
    inv.FD[k] = dri[k] && !(step == 1 && p.DCC);
    inv.drift |= inv.FD[k];
    inv.drift_att |= inv.FD[k] && k >= 3;
  }
  inv.flags = {p.CALINTGEN, p.CALINTNOB, p.NOZ};
  for (const InvSwath& s : inv.in.swaths) inv.hasfx |= s.fixed;
  inv.ShiftRef = inv.ShiftRef && inv.hasfx && (inv.FCAL || inv.drift);
}

// The swath whose nodes a swath uses: that of its main channel, if it can have any.
SwathId line_of(const InvCalDrift& inv, SwathId s) {
  const SwathId main = inv.in.swaths[s].mainch;
  return inv.sw[main].mobile ? main : s;
}

bool check_main_channels(const InvCalDrift& inv) {
  for (const SwathId s : inv.sw.ids()) {
    const InvSwath& w = inv.in.swaths[s];
    if (w.fixed || inv.sw.has(w.mainch)) continue;
    ERROR_MSG("main channel swath not found for swath " << s << " having channel " << w.channel);
    return false;
  }
  return true;
}

// Calibration sets: numbers of groups and swaths in use are made consecutive, so that no set is without a
// swath.
void set_calibration_sets(InvCalDrift& inv) {
  std::map<int, int> group_set;
  for (const SwathId s : inv.sw.ids())
    if (inv.sw[s].mobile) group_set.emplace(inv.in.swaths[s].group, 0);
  int ngrp = 0, nmob = 0;
  for (auto& g : group_set) g.second = ngrp++;
  for (const SwathId s : inv.sw.ids()) {
    SwState& w = inv.sw[s];
    w.ext_set = w.int_set = -1;
    if (!w.mobile) continue;
    const int grp = group_set[inv.in.swaths[s].group];
    w.ext_set = inv.par.CAL1 ? 0 : !inv.par.EXTSW ? grp : nmob;
    w.int_set = inv.par.CAL1 ? 0 : !inv.par.INTSW ? grp : nmob;
    w.ext_on = !(inv.par.CALR && inv.in.swaths[s].channel == 0);
    nmob++;
  }
  const bool ext = std::any_of(inv.FE, inv.FE + N_EXTERNAL, [](bool b) { return b; });
  const bool intl = std::any_of(inv.FI, inv.FI + N_INTERNAL, [](bool b) { return b; });
  inv.ncalext = !ext ? 0 : inv.par.CAL1 ? 1 : !inv.par.EXTSW ? ngrp : nmob;
  inv.ncalint = !intl ? 0 : inv.par.CAL1 ? 1 : !inv.par.INTSW ? ngrp : nmob;
}

int nodes_of(const InvSwath& s, double dt) {
  if (dt <= 0) return 1;
  const double n = std::trunc((s.tmax - s.tmin) / dt + 1.5);
  return n < 3 ? 2 : static_cast<int>(std::min(n, 1e8));
}

void set_nodes(InvCalDrift& inv) {
  inv.nTA = inv.nTAnd = 0;
  for (SwState& w : inv.sw) w.node0 = -1, w.nt = 0;
  if (!inv.drift) return;
  for (int pass = 0; pass < 2; pass++)  // lines first, then the channels that share their nodes
    for (const SwathId s : inv.sw.ids()) {
      SwState& w = inv.sw[s];
      if (!w.mobile) continue;
      const SwathId line = line_of(inv, s);
      if ((line == s) != (pass == 0)) continue;
      const InvSwath& from = inv.in.swaths[line];
      w.t0 = from.tmin;
      w.nt = nodes_of(from, inv.dt());
      w.Dt = inv.dt() > 0 ? inv.dt() : std::max(from.tmax - from.tmin, 1e-3);
      w.node0 = line == s ? inv.nTAnd : inv.sw[line].node0;
      if (line == s) inv.nTAnd += w.nt;
      inv.nTA += w.nt;
    }
}

void set_layout(InvCalDrift& inv) {
  int n = 0;
  for (int k = 0; k < N_EXTERNAL; k++) {
    inv.ext0[k] = inv.FE[k] ? n : -1;
    if (inv.FE[k]) n += inv.ncalext;
  }
  for (int k = 0; k < N_INTERNAL; k++) {
    inv.int0[k] = inv.FI[k] ? n : -1;
    if (inv.FI[k]) n += inv.ncalint;
  }
  inv.shift0 = inv.ShiftRef ? n : -1;
  if (inv.ShiftRef) n += 3;
  inv.dimcal = n;
  inv.TAstride = inv.drift_att ? 6 : 3;
  inv.dim = n + inv.TAstride * inv.nTAnd;
}

double time_overlap(const InvSwath& a, const InvSwath& b) {
  return std::min(a.tmax, b.tmax) - std::max(a.tmin, b.tmin);
}
}  // namespace

bool init(InvCalDrift& inv, int step) {
  set_flags(inv, step);
  LOG_ENTER("init step=" << step << " nsw=" << inv.nsw << " nint=" << inv.nint << " FCAL=" << inv.FCAL
                         << " CAL1=" << inv.par.CAL1 << " CALGI=" << !inv.par.INTSW
                         << " CALGE=" << !inv.par.EXTSW << " CALR=" << inv.par.CALR << " hasfx=" << inv.hasfx
                         << " ShiftRef=" << inv.ShiftRef << " dt=" << inv.dt());
  for (const SwathId s : inv.sw.ids()) inv.sw[s].mobile = !inv.in.swaths[s].fixed && inv.in.swaths[s].fl >= 0;
  if (step == 1 && !check_main_channels(inv)) return false;
  if (inv.FCAL || step == 1)
    set_calibration_sets(inv);
  else
    inv.ncalext = inv.ncalint = 0;
  set_nodes(inv);
  set_layout(inv);
  for (SwState& w : inv.sw)
    if (step == 2 && w.nt > 0) {
      w.Tt.resize(w.nt, xyz{0, 0, 0});
      w.At.resize(w.nt, xyz{0, 0, 0});
    }
  if (inv.step == 1) {
    inv.ext_cal.assign(std::max(1, inv.ncalext), Calib{});
    inv.int_cal.assign(std::max(1, inv.ncalint), Calib{});
  }
  LOG_LINE("ncalext=" << inv.ncalext << " ncalint=" << inv.ncalint << " dimcal=" << inv.dimcal
                      << " nTA=" << inv.nTA << " nTAnd=" << inv.nTAnd << " dim=" << inv.dim);
  return true;
}

bool check_time_overlap(const InvCalDrift& inv) {
  LOG_ENTER("check_time_overlap nsw=" << inv.nsw);
  constexpr double TOL = 0.1;  // s
  const InvParam& p = inv.par;
  const bool time_dependent = p.HF && p.dt > 0 && (p.Ftx || p.Fty || p.Ftz || p.Faw || p.Fap || p.Fak);
  int nchannel = 0;
  bool ok = true;
  for (const SwathId a : inv.sw.ids())
    for (const SwathId b : inv.sw.ids()) {
      const InvSwath &A = inv.in.swaths[a], &B = inv.in.swaths[b];
      if (a >= b || !inv.sw[a].mobile || !inv.sw[b].mobile || !(time_overlap(A, B) > TOL)) continue;
      if (A.channel == B.channel) nchannel += A.group != B.group;
      if (A.group != B.group) continue;
      if (time_dependent) {
        if (ok)
          ERROR_MSG("at least 2 swaths ("
                    << a << " and " << b << ") in group " << A.group
                    << " have time overlap, time-dependent corrections cannot be computed");
        ok = false;
      } else {
        WARNING_MSG("swaths " << a << " and " << b << " in group " << A.group << " should be merged");
      }
    }
  if (nchannel > 0)
    WARNING_MSG(nchannel << " mobile pairs with same channel have time overlap regardless of group");
  return ok;
}

bool check_mem_init(const InvCalDrift& inv) {
  uint64_t nvec = 0, npm = 0, nsample = 0, nmtm = 0;
  for (const InvPair& p : inv.in.pairs) {
    nvec += p.P.size();
    npm = std::max(npm, p.P.size());
  }
  for (const InvSwath& s : inv.in.swaths) {
    nsample += s.samples.P.size();
    nmtm = std::max(nmtm, s.samples.P.size());
  }
  const uint64_t per_vec = sizeof(dxyz) * 3 + sizeof(xyz) * 8 + sizeof(double) * 2 + sizeof(float),
                 per_sample = 68;
  const uint64_t att = inv.drift_att ? 3 * sizeof(xyz) : 0;
  const double MB =
      static_cast<double>(nvec * (per_vec + 2 * att) + nsample * (per_sample + att)) / 1048576.0;
  LOG_ENTER("check_mem_init nint=" << inv.nint << " nsw=" << inv.nsw << " npm=" << npm << " nmtm=" << nmtm);
  LOG_LINE("INVERSION INIT MEMORY=" << std::ceil(MB) << " MB");
  if (MB <= MEM_MB) return true;
  ERROR_MSG("inversion requires " << static_cast<int64_t>(std::ceil(MB)) << " MB, only " << MEM_MB
                                  << " reserved (use option -mem)");
  return false;
}

namespace {
void comp_A(const Vector<dxyz>& P, const Vector<dxyz>& O, const Vector<xyz>& Att, const GridShape& grid,
            bool NOZ, AttCols& A) {
  const uint64_t n = P.size();
  A.r.resize(n);
  A.p.resize(n);
  A.y.resize(n);
  TrajFrame frame;
  SwRot none;  // the drift axes don't depend on the mount
  none.grid = grid;
  for (uint64_t i = 0; i < n; i++) {
    xyz cols[3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    if (P[i].z != NODATA && O[i].z != NODATA) {
      comp_TrajFrame(O[i], Att[i], none, frame);
      comp_att_cols(frame, to_xyz(P[i] - O[i]), NOZ, cols);
    }
    A.r[i] = cols[0];
    A.p[i] = cols[1];
    A.y[i] = cols[2];
  }
}
}  // namespace

void init_A_int(InvCalDrift& inv) {
  LOG_ENTER("init_A_int nint=" << inv.nint << " att=" << inv.drift_att);
  if (!inv.drift_att) return;
  for (int k = 0; k < inv.nint; k++) {
    const InvPair& p = inv.in.pairs[k];
    if (!inv.pair[k].use) continue;
    const auto grid = [&](SwathId s) -> const GridShape& { return inv.in.swaths[s].rot.grid; };
    if (inv.sw[p.sw1].mobile) comp_A(p.P, p.O1, p.Att1, grid(p.sw1), inv.par.NOZ, inv.pair[k].A[0]);
    if (inv.sw[p.sw2].mobile) comp_A(p.P, p.O2, p.Att2, grid(p.sw2), inv.par.NOZ, inv.pair[k].A[1]);
  }
}

void init_A_sw(InvCalDrift& inv) {
  LOG_ENTER("init_A_sw nsw=" << inv.nsw << " att=" << inv.drift_att);
  if (!inv.drift_att) return;
  for (const SwathId s : inv.sw.ids()) {
    const InvSamples& m = inv.in.swaths[s].samples;
    if (inv.sw[s].mobile) comp_A(m.P, m.O, m.Att, inv.in.swaths[s].rot.grid, inv.par.NOZ, inv.sw[s].A);
  }
}
}  // namespace veld
