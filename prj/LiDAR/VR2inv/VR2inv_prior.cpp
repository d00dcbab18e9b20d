// Priors of drift: what a good INS is expected to do, and more where the data show more.
#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <utility>

#include "lib/Optim/optimCG.h"
#include "lib/general/log.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"

namespace veld {
namespace {
// Post-processed GNSS and INS on good days: a few cm, a few thousandths of a degree, over a minute. Its drift is
// smooth from second to second; a process with exponential correlation needs a longer time to be as smooth.
constexpr double INS_POS = 0.05;                 // m
constexpr dxyz INS_ATT = {0.004, 0.004, 0.008};  // degrees, roll pitch yaw
constexpr double INS_TIME = 120;                 // s, correlation time
constexpr double SPRI_MAX = 400;                 // m/sqrt(h), change from which on the prior says nothing

double rate_of(double sigma, double tau) { return 60 * sigma * std::sqrt(2 / tau); }
}  // namespace

void init_prior(InvCalDrift& inv) {
  const InvParam& p = inv.par;
  const double boost = p.PriBoost, pos = p.Cpri0 > 0 ? p.Cpri0 : INS_POS / boost;
  const double att = p.Cpri0 > 0 ? p.Cpri0 / INS_POS : 1 / boost;
  inv.prior.T = to_xyz(dxyz{pos, pos, pos});
  inv.prior.A = to_xyz(INS_ATT * (att / DEG_PER_RAD));
  const xyz rms = comp_def_RMS(inv, false);
  const auto twice = [](float r) { return std::max(2 * r, 0.01f); };
  inv.Ccal = {twice(rms.x), twice(rms.y), twice(rms.z)};
}

// Variance of the mean of a process over the time T, in units of its own.
double mean_var(double T) {
  const double u = std::max(T, 1e-3) / INS_TIME;
  return u < 1e-3 ? 1 : 2 * (u - 1 + std::exp(-u)) / (u * u);
}

// One step of expectation and maximisation: the factor of the prior's variance under which the constants of the
// lines, with what is uncertain of them, are likely. Axes share it; the prior itself counts as a few constants.
bool fit_prior(InvCalDrift& inv) {
  if (inv.par.Cpri0 > 0 || inv.dim == 0) return false;
  constexpr double OWN = 3, SETTLED = 0.01;
  constexpr double STRIDE =
      1.7;  // steps of this method are too short: each leaves some 0.6 of what is missing
  const double boost = inv.par.PriBoost;
  double change = 0;
  for (int kind = 0; kind < (inv.drift_att ? 2 : 1); kind++) {
    const dxyz known = kind == 0 ? dxyz{INS_POS, INS_POS, INS_POS} : INS_ATT / DEG_PER_RAD;
    double sum = OWN, n = OWN;
    std::vector<uint8_t> done(inv.nTAnd, 0);
    for (const SwathId id : inv.sw.ids()) {
      const SwState& w = inv.sw[id];
      if (!w.mobile || w.node0 < 0 || done[w.node0]) continue;
      done[w.node0] = 1;
      for (int c = 0; c < 3; c++) {
        if (!inv.FD[3 * kind + c]) continue;
        const int entry = inv.node_entry(w.node0) + 3 * kind + c;
        const double s = line_ratio(inv, id, 3 * kind + c) * axis(known, c) / boost, v = inv.x(entry);
        const double var = inv.post.empty() ? 0 : inv.post(entry);
        sum += (v * v + var) / (s * s * mean_var(w.Dt));
        n++;
      }
    }
    double factor = std::sqrt(sum / n) / boost;
    if (inv.post.empty()) factor = std::max(factor, 1 / boost);  // uncertainties unknown: upwards only
    xyz& prior = kind == 0 ? inv.prior.T : inv.prior.A;
    const double before = prior.z / known.z;
    const double step = inv.post.empty() ? 1 : STRIDE;
    factor = before * std::pow(factor / before, step);
    change = std::max(change, std::fabs(std::log(factor / before)));
    prior = to_xyz(known * factor);
  }
  LOG_LINE("fit_prior T=" << inv.prior.T.x << " A=" << inv.prior.A.x * DEG_PER_RAD << " change=" << change);
  return change > SETTLED;
}

// At one height the boresight takes what is wrong with a lever arm that is not calibrated for its own.
void add_lever_effect(InvCalDrift& inv) {
  if (inv.cov.empty()) return;
  const int angle_of[2] = {4, 3};  // X turns into pitch, Y into roll
  for (int lever = 0; lever < 2; lever++) {
    const int angle = angle_of[lever];
    if (inv.FE[lever] || !inv.FE[angle]) continue;
    for (int set = 0; set < inv.ncalext; set++) {
      double square = 0, n = 0;  // of the height above ground, m2
      for (const SwState& w : inv.sw) {
        if (!w.mobile || !w.ext_on || w.ext_set != set) continue;
        square += w.ext_col2[4].x + w.ext_col2[4].y;
        n++;
      }
      const int entry = inv.ext0[angle] + set;
      if (square > 0) inv.cov(entry, entry) += inv.par.lever_sd * inv.par.lever_sd * n / square;
    }
  }
}

// A few lines may fit a prior that is small by chance. What it shrinks is not better known for that.
bool solve_with_cov(InvCalDrift& inv, bool (*solve)(InvCalDrift&)) {
  const DriftPrior fitted = inv.prior;
  if (inv.par.Cpri0 <= 0) {
    const double boost = inv.par.PriBoost,
                 s = std::max(1.0, INS_POS / boost / static_cast<double>(fitted.T.x));
    const double a = std::max(1.0, INS_ATT.x / DEG_PER_RAD / boost / static_cast<double>(fitted.A.x));
    inv.prior.T = to_xyz(to_dxyz(fitted.T) * s);
    inv.prior.A = to_xyz(to_dxyz(fitted.A) * a);
  }
  inv.want_cov = true;
  bool ok = solve(inv);
  inv.want_cov = false;
  inv.prior = fitted;
  const Image<double> cov = inv.cov;
  ok = ok && solve(inv);
  inv.cov = cov;
  if (!ok) return false;
  drop_calib_prior(inv);
  add_lever_effect(inv);
  return true;
}

void set_smoothness(InvCalDrift& inv) {
  uint64_t ng = 0;
  const xyz g = grad_stddev_def(inv, inv.par.dt, -1, ng);
  if (ng == 0)
    LOG_LINE("<!> ng=0");
  else
    LOG_MSG("Registration data HF drift: " << g.x * 60 << ' ' << g.y * 60 << ' ' << g.z * 60
                                           << "/sqrt[h] for dt=" << inv.par.dt << " s");
  inv.prior.rate = inv.par.Spri;
  if (inv.par.Spri <= 0) {
    inv.prior.rate = rate_of(std::min<double>(inv.prior.T.x, INS_POS / inv.par.PriBoost), INS_TIME);
    LOG_MSG("-> IMU Smoothness Prior=" << inv.prior.rate);
  }
  if (inv.prior.rate < SPRI_MAX && inv.prior.rate > 0) return;
  WARNING_MSG("IMU smoothness prior disabled");
  inv.prior.rate = 0;
}

double drift_ratio(const InvCalDrift& inv, SwathId sw, int c, double t) {
  constexpr double LEAST = 0.1, MOST = 1000;  // formal standard deviations may be far too small
  const std::vector<DriftAccuracy>& list = inv.in.swaths[sw].accuracy;
  if (list.empty() || inv.par.Cpri0 > 0) return 1;
  const auto value = [&](const DriftAccuracy& a) {
    return c < 3 ? axis(a.T, c) / INS_POS : axis(a.A, c - 3) * DEG_PER_RAD / axis(INS_ATT, c - 3);
  };
  const auto next = std::upper_bound(list.begin(), list.end(), t,
                                     [](double at, const DriftAccuracy& a) { return at < a.t; });
  double ratio = 0;
  if (next == list.begin() || next == list.end()) {
    ratio = value(next == list.end() ? list.back() : *next);
  } else {
    const DriftAccuracy& before = *(next - 1);
    const double f = (t - before.t) / (next->t - before.t);
    ratio = (1 - f) * value(before) + f * value(*next);
  }
  return std::clamp(ratio, LEAST, MOST);
}

double line_ratio(const InvCalDrift& inv, SwathId sw, int c) {
  constexpr int N = 8;
  const InvSwath& s = inv.in.swaths[sw];
  if (s.accuracy.empty()) return 1;
  double sum = 0;
  for (int i = 0; i < N; i++) {
    const double ratio = drift_ratio(inv, sw, c, s.tmin + (i + 0.5) / N * (s.tmax - s.tmin));
    sum += ratio * ratio;
  }
  return std::sqrt(sum / N);
}

double line_var(const InvCalDrift& inv, double T) { return inv.par.Cpri0 > 0 ? 1 : mean_var(T); }

dxyz prior_prec_T(const InvCalDrift& inv) {
  const double f = inv.par.FA == 1 ? 2 : 1;
  const xyz& s = inv.prior.T;
  return {f / (s.x * s.x + VAR_FLOOR.x), f / (s.y * s.y + VAR_FLOOR.y), f / (s.z * s.z + VAR_FLOOR.z)};
}

dxyz prior_prec_A(const InvCalDrift& inv) {
  constexpr double FLOOR = 1e-14;  // rad2
  const double f = inv.par.FA == 2 ? 2 : 1;
  const xyz& s = inv.prior.A;
  return {f / (s.x * s.x + FLOOR), f / (s.y * s.y + FLOOR), f / (s.z * s.z + FLOOR)};
}

NodePrior comp_NodePrior(const InvCalDrift& inv, int c, double Dt) {
  const double sigma = c < 3 ? axis(inv.prior.T, c) : axis(inv.prior.A, c - 3);
  const double prec = c < 3 ? axis(prior_prec_T(inv), c) : axis(prior_prec_A(inv), c - 3);
  // A larger drift than an INS has is a constant one, in the main: it changes no faster.
  const double ins = c < 3 ? INS_POS : axis(INS_ATT, c - 3) / DEG_PER_RAD;
  const double rate = inv.prior.rate <= 0 ? 0
                      : inv.par.Spri > 0  ? inv.prior.rate * ins / INS_POS
                                          : rate_of(std::min(sigma, ins / inv.par.PriBoost), INS_TIME);
  const double tau = rate > 0 ? 7200 * sigma * sigma / (rate * rate) : 0;
  const double phi = tau > 0 ? std::exp(-Dt / tau) : 0;
  return {prec * (1 - phi) / (1 + phi), prec / (1 + phi), prec * phi / (1 - phi * phi)};
}

void init_calib_prior(InvCalDrift& inv) {
  for (const SwathId s : inv.sw.ids()) {
    if (!inv.FCAL) break;
    SwState& w = inv.sw[s];
    if (!w.mobile) continue;
    const InvSamples& m = inv.in.swaths[s].samples;
    double n = 0;
    TrajFrame frame;
    GeomCols cols;
    const auto square = [](const xyz& J) { return to_dxyz({J.x * J.x, J.y * J.y, J.z * J.z}); };
    for (uint64_t i = 0; i < m.P.size(); i++) {
      if (m.P[i].z == NODATA || m.O[i].z == NODATA) continue;
      n++;
      comp_TrajFrame(m.O[i], m.Att[i], inv.in.swaths[s].rot, frame);
      comp_GeomCols(frame, to_xyz(m.P[i] - frame.O), inv.flags, cols);
      for (int c = 0; c < 3; c++) {
        w.ext_col2[c] += square(cols.lever[c]);
        w.ext_col2[3 + c] += square(cols.bore[c]);
      }
      for (int c = 0; c < N_INTERNAL; c++) w.int_col2[c] += square(cols.internal[c]);
    }
    for (dxyz& v : w.ext_col2) v /= std::max(1.0, n);
    for (dxyz& v : w.int_col2) v /= std::max(1.0, n);
  }
}

// Each calibration parameter moves the surface by some size or other, in the mean over the samples: externals by as much as
// twice the displacements, once a swath, internals by as much as drift may, once a sensor, the sixth by a third of that. With
// internals by swath those of a sensor are tied from swath to swath: it does not become another one in between. Free of each
// other, they take the place of drift, and the block turns and bends.
CalibPrior calib_prior(const InvCalDrift& inv) {
  CalibPrior result;
  Vector<double>& prior = result.own;
  prior.resize(inv.dimcal, 0.0);
  for (int c = 0; c < 3 && inv.shift0 >= 0; c++) prior(inv.shift0 + c) = 1;
  const auto prec = [](const xyz& s) {
    return dxyz{1 / (s.x * s.x + VAR_FLOOR.x), 1 / (s.y * s.y + VAR_FLOOR.y), 1 / (s.z * s.z + VAR_FLOOR.z)};
  };
  const dxyz Wext = prec(inv.Ccal), Wint = prec(inv.prior.T);
  const auto product = [](const dxyz& a, const dxyz& b) { return a.x * b.x + a.y * b.y + a.z * b.z; };
  const auto sensor = [&](SwathId s) { return std::pair(inv.in.swaths[s].group, inv.in.swaths[s].channel); };
  std::map<std::pair<int, int>, int> nswaths;  // of each sensor
  for (const SwathId s : inv.sw.ids()) nswaths[sensor(s)] += inv.sw[s].mobile;
  Vector<double> tie(inv.dimcal, 0.0);
  for (const SwathId s : inv.sw.ids()) {
    const SwState& w = inv.sw[s];
    if (!w.mobile) continue;
    for (int c = 0; c < N_EXTERNAL; c++)
      if (inv.FE[c] && w.ext_on) prior(inv.ext0[c] + w.ext_set) += product(Wext, w.ext_col2[c]);
    for (int c = 0; c < N_INTERNAL; c++) {
      if (!inv.FI[c]) continue;
      const int entry = inv.int0[c] + w.int_set;
      const double W = product(Wint, w.int_col2[c]) * (c == 5 ? 10 : 1);
      prior(entry) += W / nswaths[sensor(s)];
      tie(entry) += W;
    }
  }
  constexpr double CHANGE = 0.01;  // of an internal from swath to swath, of what it may be
  std::map<std::pair<int, int>, const SwState*> last;
  for (const SwathId s : inv.sw.ids()) {
    const SwState& w = inv.sw[s];
    if (!w.mobile) continue;
    const SwState*& before = last[sensor(s)];
    for (int c = 0; c < N_INTERNAL && before && before->int_set != w.int_set; c++) {
      if (!inv.FI[c]) continue;
      const int a = inv.int0[c] + before->int_set, b = inv.int0[c] + w.int_set;
      result.ties.push_back({a, b, std::sqrt(tie(a) * tie(b)) / (2 * CHANGE * CHANGE)});
    }
    before = &w;
  }
  return result;
}

// The covariance holds what the data say and what the priors do; as information both add up.
void drop_calib_prior(InvCalDrift& inv) {
  const int n = inv.cov.xsize();
  if (n == 0 || n != inv.dimcal) return;  // none, or that of a step before
  inv.undetermined.clear();
  const CalibPrior prior = calib_prior(inv);
  Image<double> P0, cov0;
  bool ok = inv_M_Cholesky(inv.cov, P0);
  for (int i = 0; ok && i < n; i++) P0(i, i) -= prior.own(i);
  ok = ok && inv_M_Cholesky(P0, cov0);
  constexpr double ROUNDING =
      1e4;  // variance over the prior's beyond which information is the rest of a difference
  for (int i = 0; ok && i < n; i++) ok = cov0(i, i) * prior.own(i) < ROUNDING;
  if (ok) {
    inv.cov = cov0;
    return;
  }
  LOG_LINE("<!> Cholesky P0");
  const auto held = [&](int first,
                        int nset) {  // all sets of a parameter: the prior says more of them than the data
    constexpr double MOST = 0.5;
    double sum = 0;
    for (int i = first; i < first + nset; i++) sum += prior.own(i) * inv.cov(i, i);
    return sum > MOST * nset;
  };
  for (int c = 0; c < N_EXTERNAL; c++)
    if (inv.FE[c] && held(inv.ext0[c], inv.ncalext)) inv.undetermined += std::string(" ") + EXT_LETTERS[c];
  for (int k = 0; k < N_INTERNAL; k++)
    if (inv.FI[k] && held(inv.int0[k], inv.ncalint)) inv.undetermined += " I" + std::to_string(k + 1);
  if (inv.undetermined.empty()) inv.undetermined = " all";
}
}  // namespace veld
