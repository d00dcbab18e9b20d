#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

#include "lib/general/log.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"

namespace veld {
namespace {
constexpr uint64_t MIN_REF_VECTORS = 10;  // fewer can't carry a global shift

struct PrecCount {                        // what init_prec reports
  int nfiltered = 0;                      // pairs removed by the filters
  int nadjusted = 0;                      // pairs with thinned data
  int nint_ok = 0;                        // pairs with accepted vectors
  uint64_t n = 0;                         // vectors of the pairs that passed the filters
  uint64_t nok = 0;                       // accepted
  uint64_t nfu = 0, nfxu = 0, nffxu = 0;  // above Umax, XUmax, XFUmax
  uint64_t nout = 0;                      // without trajectory, or not finite
  uint64_t nref = 0;                      // accepted, with a reference swath
  dxyz sum2 = {0, 0, 0};                  // of accepted uncertainties
};

bool all_below(const xyz& u, float limit) {
  return u.x >= 0 && u.y >= 0 && u.z >= 0 && u.x < limit && u.y < limit && u.z < limit;
}

// A file may hold anything: one number that isn't finite would spoil the whole system.
bool is_finite(const InvPair& p, uint64_t i) {
  const xyz& d = p.Def[i];
  const dxyz& P = p.P[i];
  return std::isfinite(d.x + d.y + d.z) && std::isfinite(P.x + P.y + P.z) && std::isfinite(p.t1[i]) &&
         std::isfinite(p.t2[i]);
}

bool passes_filters(const InvCalDrift& inv, int k) {
  const InvPair& p = inv.in.pairs[k];
  const InvSwath &a = inv.in.swaths[p.sw1], &b = inv.in.swaths[p.sw2];
  if (a.fixed || b.fixed) return inv.par.REFC != 0 && !(a.fixed && b.fixed);
  if (inv.par.REFC == 2) return false;
  const bool same = inv.pair[k].samegrpfl;
  return inv.par.GRPC == 1 || (inv.par.GRPC == 0 ? same : !same);
}

// Displacements less the initial shift, and precisions from the uncertainties; rejected vectors get 0.
void pair_prec(InvCalDrift& inv, int k, const xyz& limits, PrecCount& count) {
  const InvPair& p = inv.in.pairs[k];
  PairState& state = inv.pair[k];
  const uint64_t np = p.P.size();
  const InvSwath &a = inv.in.swaths[p.sw1], &b = inv.in.swaths[p.sw2];
  const bool reference = a.fixed || b.fixed;
  const xyz shift0 = inv.in.shift0.size() > static_cast<uint64_t>(k) ? inv.in.shift0(k) : xyz{0, 0, 0};
  double thin = 1;
  if (p.nfull > np && np > 0) {
    thin = static_cast<double>(p.nfull) / static_cast<double>(np);
    count.nadjusted++;
  }
  state.nok = 0;
  for (uint64_t i = 0; i < np; i++) {
    const xyz U = p.Unc[i];
    count.n++;
    // The negated tests turn down what isn't a number, too.
    if (!all_below(U, limits.x))
      count.nfu++;
    else if (!reference && !state.samegrpfl && !all_below(U, limits.y))
      count.nfxu++;
    else if (reference && !all_below(U, limits.z))
      count.nffxu++;
    else if ((!a.fixed && p.O1[i].z == NODATA) || (!b.fixed && p.O2[i].z == NODATA) || !is_finite(p, i))
      count.nout++;
    else {
      const auto prec = [thin](float u, float floor) {
        return static_cast<float>(thin / (static_cast<double>(u) * u + floor));
      };
      state.W0[i] = {prec(U.x, VAR_FLOOR.x), prec(U.y, VAR_FLOOR.y), prec(U.z, VAR_FLOOR.z)};
      state.data[i] = p.Def[i] - shift0;
      state.nok++;
      count.sum2 +=
          {static_cast<double>(U.x) * U.x, static_cast<double>(U.y) * U.y, static_cast<double>(U.z) * U.z};
    }
  }
  state.W = state.W0;
  state.res = state.data;
  count.nok += state.nok;
  if (reference) count.nref += state.nok;
}

void check_sizes(const InvInput& in) {
  for (const InvPair& p : in.pairs) {
    const uint64_t np = p.P.size();
    ASSERT(p.Def.size() == np && p.Unc.size() == np && p.t1.size() == np && p.t2.size() == np);
    ASSERT(p.O1.size() == np && p.O2.size() == np && p.Att1.size() == np && p.Att2.size() == np);
    ASSERT(in.swaths.has(p.sw1) && in.swaths.has(p.sw2) && p.sw1 != p.sw2);
  }
  for (const InvSwath& s : in.swaths) {
    const uint64_t n = s.samples.P.size();
    ASSERT(s.samples.t.size() == n && s.samples.O.size() == n && s.samples.Att.size() == n);
  }
}

void report(const InvCalDrift& inv, const PrecCount& c, int nrejected) {
  const int nint = inv.nint, nused = nint - c.nfiltered;
  const bool different_out = inv.par.GRPC == 0;
  if (c.nadjusted > 0)
    LOG_MSG("registration data adjusted for " << c.nadjusted << " pairs due to missing/skipped pairs");
  if (c.nfiltered > 0)
    WARNING_MSG(c.nfiltered << " out of " << nint << " pairs removed using filtering options");
  LOG_MSG("Using " << c.nint_ok << " out of " << nint << " pairs"
                   << (different_out ? " (different groups and flight lines excluded)" : ""));
  if (nrejected > 0 && !inv.name.empty())
    LOG_MSG(nrejected << " out of " << nint << " pairs excluded from inversion, see file '" << inv.name
                      << "_int_rej.log'");
  const uint64_t ndropped = c.nfu + c.nfxu + c.nffxu;
  const double percent = c.n > 0 ? 100.0 * static_cast<double>(ndropped) / static_cast<double>(c.n) : 0;
  if (percent >= 1)
    LOG_MSG("dropping " << percent << "% of registration vectors (above uncertainty threshold"
                        << (c.nfxu > 0 ? ", different groups and flight lines)" : ")"));
  const char* words[] = {"same", "all", "diff"};
  const char* refs[] = {"off", "on", "only"};
  LOG_LINE("N vectors used " << c.nok << " out of " << c.n);
  LOG_LINE("N pairs used " << c.nint_ok << " out of " << nint);
  LOG_LINE("Pair filtering Grp=" << words[std::clamp(inv.par.GRPC, 0, 2)]
                                 << " Ref=" << refs[std::clamp(inv.par.REFC, 0, 2)]);
  const double n = std::max<double>(1, static_cast<double>(c.nok));
  LOG_LINE("rms=" << std::sqrt(c.sum2.x / n) << ' ' << std::sqrt(c.sum2.y / n) << ' '
                  << std::sqrt(c.sum2.z / n) << " nintused=" << nused << " nintok=" << c.nint_ok);
  LOG_LINE("filter: nintf=" << c.nfiltered << " nfok=" << c.nok << " nfu=" << c.nfu << " nfxu=" << c.nfxu
                            << " nffxu=" << c.nffxu << " nout=" << c.nout);
}
}  // namespace

bool init_prec(InvCalDrift& inv) {
  LOG_ENTER("init_prec nint=" << inv.nint << " nsw=" << inv.nsw << " Umax=" << inv.par.Umax
                              << " XUmax=" << inv.par.XUmax << " XFUmax=" << inv.par.XFUmax
                              << " GRPC=" << inv.par.GRPC << " REFC=" << inv.par.REFC);
  check_sizes(inv.in);
  const xyz limits = xyz{inv.par.Umax, inv.par.XUmax, inv.par.XFUmax} * inv.in.GSD;
  LOG_LINE("scaled*GSD Umax=" << limits.x << " XUmax=" << limits.y << " XFUmax=" << limits.z);
  PrecCount count;
  int nrejected = 0;
  for (int k = 0; k < inv.nint; k++) {
    const InvPair& p = inv.in.pairs[k];
    const InvSwath &a = inv.in.swaths[p.sw1], &b = inv.in.swaths[p.sw2];
    PairState& state = inv.pair[k];
    state.samegrpfl = a.group == b.group && a.fl == b.fl;
    state.data.resize(p.P.size(), xyz{0, 0, 0});
    state.W0.resize(p.P.size(), xyz{0, 0, 0});
    state.weight.resize(p.P.size(), 1.f);
    if (!passes_filters(inv, k)) {
      count.nfiltered++;
      state.use = false;
      continue;
    }
    pair_prec(inv, k, limits, count);
    state.use = state.nok > 0;
    if (state.use) {
      count.nint_ok++;
    } else {
      LOG_LINE("<!> npt=0 pair " << k);
      state.rejected = true;
      nrejected++;
    }
  }
  if (!write_rejected(inv)) return false;
  report(inv, count, nrejected);
  inv.nvec_used = count.nok;
  inv.npair_used = count.nint_ok;
  if (count.nok == 0) {
    ERROR_MSG("no registration vectors left for the inversion (check uncertainty limits and pair filters)");
    return false;
  }
  if (inv.ShiftRef && count.nref < MIN_REF_VECTORS) {
    WARNING_MSG("not enough registration vectors with reference data to estimate global shift");
    inv.ShiftRef = false;
  }
  return true;
}

bool adj_prec(InvCalDrift& inv, const std::vector<PairChi>& chi) {
  const int nint = inv.nint;
  ASSERT(chi.size() == static_cast<size_t>(nint));
  const bool forced = inv.par.UADJ == 3, only_up = inv.par.UADJ == 2;
  LOG_ENTER("adj_prec nint=" << nint << " UADJ=" << inv.par.UADJ);
  constexpr double SIGNIFICANT = 1.41;
  int nchanged = 0;
  for (int k = 0; k < nint; k++) {
    if (!inv.pair[k].use) continue;
    const dxyz c = {std::max(1.0, chi[k].c.x), std::max(1.0, chi[k].c.y), std::max(1.0, chi[k].c.z)};
    if (!forced && !(c.x > SIGNIFICANT || c.y > SIGNIFICANT || c.z > SIGNIFICANT)) continue;
    const auto adjust = [&](float& W, double ratio, double rms) {
      if (!only_up)
        W = static_cast<float>(W / (ratio * ratio));
      else if (1.0 / W < rms * rms)
        W = static_cast<float>(1.0 / (rms * rms));
    };
    for (xyz& W : inv.pair[k].W0) {
      if (!(W.x > 0)) continue;
      adjust(W.x, c.x, chi[k].rms.x);
      adjust(W.y, c.y, chi[k].rms.y);
      adjust(W.z, c.z, chi[k].rms.z);
    }
    nchanged++;
  }
  if (nchanged > 0)
    WARNING_MSG("uncertainty adjusted due to significant residuals for " << nchanged << " pairs");
  return nchanged > 0;
}

namespace {
// RMS of one axis without its noise, over the central 95% of magnitudes.
double def_RMS_T95(const InvCalDrift& inv, int c, double mean, double& CI95) {
  std::vector<float> mag;
  mag.reserve(inv.nvec_used);
  const auto each = [&](auto&& f) {
    for (int k = 0; k < inv.nint; k++) {
      if (!inv.pair[k].use) continue;
      const PairState& p = inv.pair[k];
      for (uint64_t i = 0; i < p.W.size(); i++)
        if (p.W[i].x > 0) f(axis(p.res[i], c) - mean, axis(p.W[i], c));
    }
  };
  each([&](double d, double) { mag.push_back(static_cast<float>(std::fabs(d))); });
  const size_t rank = (mag.size() * 95 - 1) / 100;
  std::nth_element(mag.begin(), mag.begin() + static_cast<std::ptrdiff_t>(rank), mag.end());
  CI95 = mag[rank];
  double sw = 0, swd = 0;
  each([&](double d, double W) {
    if (static_cast<float>(std::fabs(d)) > CI95) return;
    sw += W;
    swd += W * std::max(d * d - 1 / W, 0.0);
  });
  return sw > 0 ? std::sqrt(swd / sw) : 0;
}

dxyz def_mean(const InvCalDrift& inv) {
  dxyz sum = {0, 0, 0}, weight = {0, 0, 0};
  for (int k = 0; k < inv.nint; k++) {
    if (!inv.pair[k].use) continue;
    const PairState& p = inv.pair[k];
    for (uint64_t i = 0; i < p.W.size(); i++) {
      const xyz &d = p.res[i], &W = p.W[i];
      sum += {static_cast<double>(W.x) * d.x, static_cast<double>(W.y) * d.y, static_cast<double>(W.z) * d.z};
      weight += to_dxyz(W);
    }
  }
  return {sum.x / weight.x, sum.y / weight.y, sum.z / weight.z};
}
}  // namespace

xyz comp_def_RMS(const InvCalDrift& inv, bool remove_mean) {
  LOG_ENTER("InvCalDrift::comp_def_RMS nint=" << inv.nint);
  if (inv.nvec_used == 0) return NO_CORR;
  const dxyz mean = remove_mean ? def_mean(inv) : dxyz{0, 0, 0};
  if (remove_mean) LOG_LINE("comp_def_mean -> " << mean.x << ' ' << mean.y << ' ' << mean.z);
  dxyz CI95, rms;
  rms.x = def_RMS_T95(inv, 0, mean.x, CI95.x);
  rms.y = def_RMS_T95(inv, 1, mean.y, CI95.y);
  rms.z = def_RMS_T95(inv, 2, mean.z, CI95.z);
  LOG_LINE("comp_def_RMS_T95 -> CI95=" << CI95.x << ' ' << CI95.y << ' ' << CI95.z);
  if (inv.par.RMSALL) rms.x *= 1.1904762, rms.y *= 1.1904762;
  LOG_MSG((inv.par.RMSALL ? "100" : "95") << "% XYZ-displacements RMS: " << rms.x << ' ' << rms.y << ' '
                                          << rms.z << (remove_mean ? " (mean removed)" : ""));
  return to_xyz(rms);
}

xyz grad_stddev_def(const InvCalDrift& inv, double dt, int k, uint64_t& ng) {
  ng = 0;
  if (!(dt > 0)) return {0, 0, 0};
  struct Bin {
    dxyz sum = {0, 0, 0}, weight = {0, 0, 0};
  };
  dxyz sum2 = {0, 0, 0};
  for (int pk = k < 0 ? 0 : k; pk < (k < 0 ? inv.nint : k + 1); pk++) {
    if (!inv.pair[pk].use) continue;
    const InvPair& p = inv.in.pairs[pk];
    for (int side = 0; side < 2; side++) {
      const SwathId s = side == 0 ? p.sw1 : p.sw2;
      if (!inv.sw[s].mobile) continue;
      const Vector<double>& t = side == 0 ? p.t1 : p.t2;
      std::map<int64_t, Bin> bins;
      for (uint64_t i = 0; i < p.P.size(); i++) {
        const xyz &d = inv.pair[pk].res[i], &W = inv.pair[pk].W[i];
        if (!(W.x > 0)) continue;
        Bin& b = bins[static_cast<int64_t>(std::floor((t[i] - inv.in.swaths[s].tmin) / dt))];
        b.sum +=
            {static_cast<double>(W.x) * d.x, static_cast<double>(W.y) * d.y, static_cast<double>(W.z) * d.z};
        b.weight += to_dxyz(W);
      }
      const Bin* last = nullptr;
      int64_t last_i = 0;
      for (const auto& [i, b] : bins) {
        if (last && i == last_i + 1) {
          const auto change = [](double a, double wa, double c, double wc) { return c / wc - a / wa; };
          const double dx = change(last->sum.x, last->weight.x, b.sum.x, b.weight.x);
          const double dy = change(last->sum.y, last->weight.y, b.sum.y, b.weight.y);
          const double dz = change(last->sum.z, last->weight.z, b.sum.z, b.weight.z);
          sum2 += {dx * dx, dy * dy, dz * dz};
          ng++;
        }
        last = &b;
        last_i = i;
      }
    }
  }
  if (ng == 0) return {0, 0, 0};
  const double scale = 1.0 / (dt * static_cast<double>(ng));
  return to_xyz(dxyz{std::sqrt(sum2.x * scale), std::sqrt(sum2.y * scale), std::sqrt(sum2.z * scale)});
}
}  // namespace veld
