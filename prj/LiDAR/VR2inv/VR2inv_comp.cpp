// What the parts of the correction move the points by.
#include <array>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"
#include "prj/LiDAR/stat_xyz.h"

namespace veld {
namespace {
std::string text(const dxyz& v) { return LOG_STR(v.x << ' ' << v.y << ' ' << v.z); }

enum Part { LEVER, BORE, INTERNAL, POSITION, ATTITUDE, SHIFT, ALL, NPART };
using PartSums = std::array<xyz, NPART>;  // m, at one point

// The correction of a point of a swath at a time, part by part, linear as the inversion has it.
PartSums comp_parts(const InvCalDrift& inv, const InvResult& res, SwathId sw, const dxyz& P, const dxyz& O,
                    const xyz& Att, double t) {
  PartSums sum;
  sum.fill({0, 0, 0});
  const InvCorr& corr = res.swaths[sw];
  TrajFrame frame;
  GeomCols cols;
  comp_TrajFrame(O, Att, inv.in.swaths[sw].rot, frame);
  comp_GeomCols(frame, to_xyz(P - O), inv.flags, cols);
  if (corr.cal >= 0) {
    const Calib& cal = res.calib[static_cast<size_t>(corr.cal)];
    const float L[3] = {cal.L.x, cal.L.y, cal.L.z}, B[3] = {cal.B.x, cal.B.y, cal.B.z};
    for (int c = 0; c < 3; c++) {
      sum[LEVER] += cols.lever[c] * L[c];
      sum[BORE] += cols.bore[c] * B[c];
    }
    for (int k = 0; k < N_INTERNAL; k++) sum[INTERNAL] += cols.internal[k] * cal.I(k);
  }
  if (!corr.Tt.empty()) {
    xyz A;
    InterpTA(t, corr.t0, corr.Dt, corr.Tt, corr.At, sum[POSITION], A);
    sum[ATTITUDE] = cols.att[0] * A.x + cols.att[1] * A.y + cols.att[2] * A.z;
  }
  if (res.has_shift) sum[SHIFT] = to_xyz(res.shift);
  for (int part = 0; part < ALL; part++) sum[ALL] += sum[static_cast<size_t>(part)];
  return sum;
}
}  // namespace

void corr_comp_full(const InvCalDrift& inv, const InvResult& res) {
  LOG_ENTER("corr_comp_full nint=" << inv.nint);
  const struct {
    const char* name;
    bool on;
  } parts[NPART] = {{"Lever arm ", res.CL}, {"Boresight ", res.CB}, {"Internal  ", res.CI},
                    {"Position  ", res.CT}, {"Attitude  ", res.CA}, {"Shift     ", res.has_shift},
                    {"All       ", true}};
  std::array<StatXYZ, NPART> stat;
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    const InvPair& p = inv.in.pairs[k];
    const PairState& state = inv.pair[k];
    for (uint64_t i = 0; i < p.P.size(); i++) {
      if (!(state.W0[i].x > 0)) continue;
      for (int side = 0; side < 2; side++) {
        const SwathId sw = side == 0 ? p.sw1 : p.sw2;
        if (!inv.sw[sw].mobile) continue;
        const PartSums sum = comp_parts(inv, res, sw, place_in(p, side, i), side == 0 ? p.O1[i] : p.O2[i],
                                        side == 0 ? p.Att1[i] : p.Att2[i], side == 0 ? p.t1[i] : p.t2[i]);
        for (size_t part = 0; part < NPART; part++) stat[part].add(to_dxyz(sum[part]));
      }
    }
  }
  if (stat[ALL].n == 0) return;
  LOG_MSG("CORRECTION COMPONENT STATISTICS");
  for (int part = 0; part < NPART; part++) {
    const StatXYZ& s = stat[static_cast<size_t>(part)];
    if (!parts[part].on) continue;
    LOG_MSG(parts[part].name << "Mean " << text(s.mean()) << " StdDev " << text(s.stddev()) << " Min "
                             << text(s.vmin) << " Max " << text(s.vmax));
  }
}

void log_TA0(const InvCalDrift& inv) {
  for (const SwathId s : inv.sw.ids()) {
    const SwState& w = inv.sw[s];
    if (!w.mobile) continue;
    const xyz A = w.A1 * static_cast<float>(DEG_PER_RAD);
    LOG_LINE("TA0 sw=" << s << " T=" << w.T1.x << ' ' << w.T1.y << ' ' << w.T1.z << " A=" << A.x << ' ' << A.y
                       << ' ' << A.z);
  }
}

void swath_drift(const InvCalDrift& inv, SwathId swath, double t, xyz& T, xyz& A) {
  const SwState& w = inv.sw[swath];
  T = {0, 0, 0};
  A = {0, 0, 0};
  if (!w.Tt.empty()) InterpTA(t, w.t0, w.Dt, w.Tt, w.At, T, A);
  T += w.T1;
  A += w.A1;
}

namespace {
struct CorrRMS {
  dxyz sum2 = {0, 0, 0};
  uint64_t n = 0;
  void add(const xyz& T, const xyz& A, const dxyz& P, const dxyz& O, const xyz& Att, bool NOZ) {
    xyz C = T;
    if (!(A == xyz{0, 0, 0})) {
      TrajFrame frame;
      xyz cols[3];
      comp_TrajFrame(O, Att, SwRot{}, frame);
      comp_att_cols(frame, to_xyz(P - O), NOZ, cols);
      C += cols[0] * A.x + cols[1] * A.y + cols[2] * A.z;
    }
    sum2 += {static_cast<double>(C.x) * C.x, static_cast<double>(C.y) * C.y, static_cast<double>(C.z) * C.z};
    n++;
  }
  dxyz rms() const {
    const double m = std::fmax(1, static_cast<double>(n));
    return {std::sqrt(sum2.x / m), std::sqrt(sum2.y / m), std::sqrt(sum2.z / m)};
  }
};
}  // namespace

void comp_corr_RMS_def(const InvCalDrift& inv, bool full, const xyz& def_rms) {
  LOG_ENTER("InvCalDrift::comp_corr_RMS_def nint=" << inv.nint);
  CorrRMS overlap, area;
  xyz T, A;
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    const InvPair& p = inv.in.pairs[k];
    for (uint64_t i = 0; i < p.P.size(); i++) {
      if (!(inv.pair[k].W0[i].x > 0)) continue;
      if (inv.sw[p.sw1].mobile) {
        swath_drift(inv, p.sw1, p.t1[i], T, A);
        overlap.add(T, A, p.P[i], p.O1[i], p.Att1[i], inv.par.NOZ);
      }
      if (inv.sw[p.sw2].mobile) {
        swath_drift(inv, p.sw2, p.t2[i], T, A);
        overlap.add(T, A, p.P[i], p.O2[i], p.Att2[i], inv.par.NOZ);
      }
    }
  }
  if (!full) {
    LOG_MSG("Drift XYZ-Corrections RMS: " << text(overlap.rms()) << " (overlap only, HF component)");
    LOG_LINE("HF Drift RMS (overlap) " << text(overlap.rms()));
    return;
  }
  for (const SwathId s : inv.sw.ids()) {
    const InvSamples& m = inv.in.swaths[s].samples;
    for (uint64_t i = 0; inv.sw[s].mobile && i < m.P.size(); i++) {
      if (m.P[i].z == NODATA || m.O[i].z == NODATA) continue;
      swath_drift(inv, s, m.t[i], T, A);
      area.add(T, A, m.P[i], m.O[i], m.Att[i], inv.par.NOZ);
    }
  }
  LOG_MSG("Drift XYZ-Corrections RMS: " << text(overlap.rms()) << " (overlap only) " << text(area.rms())
                                        << " (full area)");
  LOG_LINE("Drift RMS (overlap) " << text(overlap.rms()));
  LOG_LINE("Drift RMS (full) " << text(area.rms()));
  const dxyz r = area.rms();
  if (norm(r) > norm(def_rms)) WARNING_MSG("drift corrections are large compared to displacements");
}
}  // namespace veld
