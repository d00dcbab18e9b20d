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
  void add(const ResStat& o) {
    stat.add(o.stat);
    chi2 += o.chi2;
    n += o.n;
    down += o.down;
  }
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

namespace {
void show_total(const InvCalDrift& inv, const ResStat& total) {
  if (total.stat.n == 0) LOG_LINE("<!> sum");
  LOG_LINE("StdDev " << text(total.stat.stddev()));
  LOG_LINE("RMS " << text(total.stat.rms()));
  LOG_LINE("Min " << text(total.stat.vmin));
  LOG_LINE("Max " << text(total.stat.vmax));
  LOG_MSG("Sqrt(Chi2/n) " << text(total.chi()));
  LOG_MSG("N vectors " << total.stat.n);
  if (inv.par.robust)
    LOG_MSG("residuals in units of the uncertainties: "
            << text(comp_res_scale(inv)) << ", vectors put aside "
            << 100 * total.down / std::fmax(1, static_cast<double>(total.stat.n)) << "%");
  LOG_MSG("Residual RMS: " << text(total.stat.rms()));
}
}  // namespace

void show_STAT_res(const InvCalDrift& inv) {
  LOG_ENTER("comp_write_STAT_res nint=" << inv.nint << " file=0 disp=1");
  ResStat total;
  const std::vector<PairChi> chi = comp_chi(inv);
  for (int k = 0; k < inv.nint; k++)
    if (inv.pair[k].use) total.add(pair_stat(inv.pair[k], chi[k]));
  show_total(inv, total);
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
    total.add(r);
    const InvPair& p = inv.in.pairs[k];
    res.pairs.push_back({p.pair < 0 ? k : p.pair, p.sw1, p.sw2, r.stat.n, to_xyz(r.stat.rms())});
    if (write_file) put_pair(out.fs, inv, k, r);
  }
  if (write_file) {
    put_total(out.fs, npair, total);
    if (!out.commit()) return false;
  }
  res.res_rms = to_xyz(total.stat.rms());
  res.chi = to_xyz(total.chi());
  res.scale = to_xyz(comp_res_scale(inv));
  res.npair_used = npair;
  res.nvec_used = total.stat.n;
  show_total(inv, total);
  return true;
}
}  // namespace veld
