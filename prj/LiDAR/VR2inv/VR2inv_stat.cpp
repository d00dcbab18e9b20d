#include <cmath>
#include <string>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/txtfile.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"
#include "prj/LiDAR/stat_xyz.h"

namespace {
struct ResStat {
  StatXYZ stat;
  dxyz chi2 = {0, 0, 0};
  void add(const xyz& d, const xyz& W) {
    const dxyz v = to_dxyz(d);
    stat.add(v);
    chi2 += {W.x * v.x * v.x, W.y * v.y * v.y, W.z * v.z * v.z};
  }
  dxyz chi() const {
    const double n = std::fmax(1, static_cast<double>(stat.n));
    return {std::sqrt(chi2.x / n), std::sqrt(chi2.y / n), std::sqrt(chi2.z / n)};
  }
};

std::string text(const dxyz& v) { return LOG_STR(v.x << ' ' << v.y << ' ' << v.z); }

void put_pair(std::ostream& os, const InvCalDrift& inv, int k, const ResStat& r) {
  const InvPair& p = inv.in.pairs[k];
  os.width(4), os << (p.pair < 0 ? k : p.pair) << ' ' << p.sw1 << ' ' << p.sw2;
  for (const dxyz& v : {r.stat.mean(), r.stat.stddev(), r.stat.rms(), r.stat.vmin, r.stat.vmax}) {
    os << "  ";
    put_xyz(os, v);
  }
  uint64_t ng = 0;
  const dxyz hf = to_dxyz(grad_stddev_def(inv, inv.par.dt, k, ng)) * 60.0;
  os << "  " << r.stat.n << "  ";
  put_xyz(os, r.chi());
  os << "  ";
  put_xyz(os, hf);
  os << '\n';
}

void put_total(std::ostream& os, int npair, const ResStat& r) {
  os << "NPairs StdDev{X Y Z} RMS{X Y Z} Min{X Y Z} Max{X Y Z} NPts Sqrt(Chi2/n){X Y Z}\n" << npair;
  for (const dxyz& v : {r.stat.stddev(), r.stat.rms(), r.stat.vmin, r.stat.vmax}) {
    os << "  ";
    put_xyz(os, v);
  }
  os << "  " << r.stat.n << "  ";
  put_xyz(os, r.chi());
  os << '\n';
}
}  // namespace

bool comp_write_STAT_res(const InvCalDrift& inv, InvResult& res, bool write_file) {
  const std::string name = inv.name + "_inv_stat.log", part = name + ".part";
  write_file = write_file && !inv.name.empty();
  LOG_ENTER("comp_write_STAT_res nint=" << inv.nint << " file=" << write_file << " disp=1");
  TxtFileOut out(true);
  if (write_file) {
    LOG_MSG("Writing inversion stats " << name);
    if (!out.open(part, 0)) return false;
    out.fs << "Pair# Swath#1 Swath#2 Mean{X Y Z} StdDev{X Y Z} RMS{X Y Z} Min{X Y Z} Max{X Y Z} NPts "
              "Sqrt(Chi2/n){X Y Z} "
              "HFDrift{X Y Z}\n";
  }
  ResStat total;
  int npair = 0;
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    npair++;
    const InvPair& p = inv.in.pairs[k];
    ResStat r;
    for (uint64_t i = 0; i < p.P.size(); i++)
      if (p.Unc.val[i].x > 0) r.add(p.Def.val[i], p.Unc.val[i]);
    total.stat.add(r.stat);
    total.chi2 += r.chi2;
    if (write_file) put_pair(out.fs, inv, k, r);
  }
  if (total.stat.n == 0) LOG_LINE("<!> sum");
  if (write_file) {
    put_total(out.fs, npair, total);
    if (!out.close()) return false;
    if (!rename_file(part, name)) {
      ERROR_MSG("could not write file " << name);
      return false;
    }
  }
  res.res_rms = to_xyz(total.stat.rms());
  res.chi = to_xyz(total.chi());
  res.npair_used = npair;
  res.nvec_used = total.stat.n;
  LOG_LINE("StdDev " << text(total.stat.stddev()));
  LOG_LINE("RMS " << text(total.stat.rms()));
  LOG_LINE("Min " << text(total.stat.vmin));
  LOG_LINE("Max " << text(total.stat.vmax));
  LOG_MSG("Sqrt(Chi2/n) " << text(total.chi()));
  LOG_MSG("N vectors " << total.stat.n);
  LOG_MSG("Residual RMS: " << text(total.stat.rms()));
  return true;
}

void swath_drift(const InvCalDrift& inv, int swath, double t, xyz& T, xyz& A) {
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
      if (!(p.Unc.val[i].x > 0)) continue;
      if (inv.sw[p.sw1].mobile) {
        swath_drift(inv, p.sw1, p.t1.val[i], T, A);
        overlap.add(T, A, p.P.val[i], p.O1.val[i], p.Att1.val[i], inv.par.NOZ);
      }
      if (inv.sw[p.sw2].mobile) {
        swath_drift(inv, p.sw2, p.t2.val[i], T, A);
        overlap.add(T, A, p.P.val[i], p.O2.val[i], p.Att2.val[i], inv.par.NOZ);
      }
    }
  }
  if (!full) {
    LOG_MSG("Drift XYZ-Corrections RMS: " << text(overlap.rms()) << " (overlap only, HF component)");
    LOG_LINE("HF Drift RMS (overlap) " << text(overlap.rms()));
    return;
  }
  for (int s = 0; s < inv.nsw; s++) {
    const InvSamples& m = inv.in.swaths[s].samples;
    for (uint64_t i = 0; inv.sw[s].mobile && i < m.P.size(); i++) {
      if (m.P.val[i].z == NO_Z || m.O.val[i].z == NO_Z) continue;
      swath_drift(inv, s, m.t.val[i], T, A);
      area.add(T, A, m.P.val[i], m.O.val[i], m.Att.val[i], inv.par.NOZ);
    }
  }
  LOG_MSG("Drift XYZ-Corrections RMS: " << text(overlap.rms()) << " (overlap only) " << text(area.rms())
                                        << " (full area)");
  LOG_LINE("Drift RMS (overlap) " << text(overlap.rms()));
  LOG_LINE("Drift RMS (full) " << text(area.rms()));
  const dxyz r = area.rms();
  if (norm(r) > norm(def_rms)) WARNING_MSG("drift corrections are large compared to displacements");
}
