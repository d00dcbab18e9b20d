#include <cmath>
#include <string>
#include <vector>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"
#include "prj/LiDAR/stat_xyz.h"

namespace veld {
namespace {
struct ResStat {
  StatXYZ stat;            // of all vectors used, whatever their weights
  dxyz chi2 = {0, 0, 0};   // by the weights
  double n = 0, down = 0;  // vectors by their weights; vectors put aside
  dxyz chi() const {
    const double m = std::fmax(1, n);
    return {std::sqrt(chi2.x / m), std::sqrt(chi2.y / m), std::sqrt(chi2.z / m)};
  }
};

ResStat pair_stat(const PairState& p, const PairChi& chi) {
  ResStat r;
  for (uint64_t i = 0; i < p.W0.size(); i++)
    if (p.W0[i].x > 0) r.stat.add(to_dxyz(p.res[i]));
  r.chi2 = dxyz{chi.c.x * chi.c.x, chi.c.y * chi.c.y, chi.c.z * chi.c.z} * chi.n;
  r.n = chi.n;
  r.down = p.down * static_cast<double>(p.nok);
  return r;
}

std::string text(const dxyz& v) { return LOG_STR(v.x << ' ' << v.y << ' ' << v.z); }

std::string names_of(const InvCalDrift& inv, const InvPair& p) {
  return " " + inv.in.swaths[p.sw1].name + " " + inv.in.swaths[p.sw2].name;
}

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
  os << "  ";
  put_xyz(os, inv.pair[k].scale);
  os << "  " << 100 * inv.pair[k].down << names_of(inv, p) << '\n';
}

void put_total(std::ostream& os, int npair, const ResStat& r) {
  os << "\nNPairs StdDev{X Y Z} RMS{X Y Z} Min{X Y Z} Max{X Y Z} NPts Sqrt(Chi2/n){X Y Z} [m]\n" << npair;
  for (const dxyz& v : {r.stat.stddev(), r.stat.rms(), r.stat.vmin, r.stat.vmax}) {
    os << "  ";
    put_xyz(os, v);
  }
  os << "  " << r.stat.n << "  ";
  put_xyz(os, r.chi());
  os << '\n';
}
}  // namespace

bool write_rejected(const InvCalDrift& inv) {
  if (inv.name.empty()) return true;
  constexpr double MANY = 0.25;  // share of vectors put aside that makes a pair worth a look
  std::vector<int> pairs;
  for (int k = 0; k < inv.nint; k++)
    if (inv.pair[k].rejected || inv.pair[k].down > MANY) pairs.push_back(k);
  if (pairs.empty()) return true;
  ResultFile out;
  if (!out.open(inv.name + "_int_rej.log")) return false;
  out.fs << "Pair# Swath#1 Swath#2 Down% FileName1 FileName2\n";
  for (int k : pairs) {
    const InvPair& p = inv.in.pairs[k];
    out.fs << (p.pair < 0 ? k : p.pair) << ' ' << p.sw1 << ' ' << p.sw2 << ' '
           << (inv.pair[k].rejected ? 100 : 100 * inv.pair[k].down) << names_of(inv, p) << '\n';
  }
  return out.commit();
}

bool comp_write_STAT_res(const InvCalDrift& inv, InvResult& res, bool write_file) {
  const std::string name = inv.name + "_inv_stat.log";
  write_file = write_file && !inv.name.empty();
  LOG_ENTER("comp_write_STAT_res nint=" << inv.nint << " file=" << write_file << " disp=1");
  ResultFile out;
  if (write_file) {
    LOG_MSG("Writing inversion stats " << name);
    if (!out.open(name)) return false;
    out.fs << "Pair# Swath#1 Swath#2 Mean{X Y Z} StdDev{X Y Z} RMS{X Y Z} Min{X Y Z} Max{X Y Z} NPts "
              "Sqrt(Chi2/n){X Y Z} HFDrift{X Y Z} ResScale{X Y Z} Down% "
              "FileName1 FileName2 [Mean to Max m, HFDrift m/sqrt(h)]\n";
  }
  ResStat total;
  int npair = 0;
  res.pairs.clear();
  const std::vector<PairChi> chi = comp_chi(inv);
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    npair++;
    const ResStat r = pair_stat(inv.pair[k], chi[k]);
    total.stat.add(r.stat);
    total.chi2 += r.chi2;
    total.n += r.n;
    total.down += r.down;
    const InvPair& p = inv.in.pairs[k];
    res.pairs.push_back({p.pair < 0 ? k : p.pair, p.sw1, p.sw2, r.stat.n, to_xyz(r.stat.rms())});
    if (write_file) put_pair(out.fs, inv, k, r);
  }
  if (total.stat.n == 0) LOG_LINE("<!> sum");
  if (write_file) {
    put_total(out.fs, npair, total);
    if (!out.commit()) return false;
  }
  res.res_rms = to_xyz(total.stat.rms());
  res.chi = to_xyz(total.chi());
  const dxyz scale = comp_res_scale(inv);
  res.scale = to_xyz(scale);
  res.npair_used = npair;
  res.nvec_used = total.stat.n;
  LOG_LINE("StdDev " << text(total.stat.stddev()));
  LOG_LINE("RMS " << text(total.stat.rms()));
  LOG_LINE("Min " << text(total.stat.vmin));
  LOG_LINE("Max " << text(total.stat.vmax));
  LOG_MSG("Sqrt(Chi2/n) " << text(total.chi()));
  LOG_MSG("N vectors " << total.stat.n);
  if (inv.par.robust)
    LOG_MSG("residuals in units of the uncertainties: "
            << text(scale) << ", vectors put aside "
            << 100 * total.down / std::fmax(1, static_cast<double>(total.stat.n)) << "%");
  LOG_MSG("Residual RMS: " << text(total.stat.rms()));
  return true;
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
