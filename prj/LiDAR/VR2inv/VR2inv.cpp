#include "prj/LiDAR/VR2inv/VR2inv.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"

namespace veld {
namespace {
constexpr double MEAN_SHIFT_MIN = 0.001;  // m, mean drift worth a word

// One set per combination of external and internal set that occurs.
void collect_sets(const InvCalDrift& inv, InvResult& res) {
  std::map<std::pair<int, int>, int> known;
  res.calib.clear();
  res.swaths = SwathVector<InvCorr>(inv.sw);
  for (const SwathId s : inv.sw.ids()) {
    const SwState& w = inv.sw[s];
    if (!w.mobile) continue;
    const bool ext = w.ext_on && inv.ncalext > 0;
    const std::pair<int, int> key = {ext ? w.ext_set : -1, inv.ncalint > 0 ? w.int_set : -1};
    const auto [it, fresh] = known.try_emplace(key, static_cast<int>(res.calib.size()));
    if (fresh) res.calib.push_back(swath_calib(inv, s));
    res.swaths[s].cal = it->second;
  }
  const auto any = [](const bool* f, int n) { return std::any_of(f, f + n, [](bool b) { return b; }); };
  res.CL = any(inv.FE, 3);
  res.CB = any(inv.FE + 3, 3);
  res.CI = any(inv.FI, N_INTERNAL);
}

void show_prior(const InvCalDrift& inv) {
  const xyz &T = inv.prior.T, A = inv.prior.A * static_cast<float>(DEG_PER_RAD);
  LOG_MSG("-> STEP " << inv.step << " IMU Error Prior=" << T.x << ' ' << T.y << ' ' << T.z);
  if (inv.drift_att)
    LOG_MSG("-> STEP " << inv.step << " IMU Attitude Prior=" << A.x << ' ' << A.y << ' ' << A.z);
}

// Whether the displacements are worth a correction (-sig_min).
bool check_significance(const InvCalDrift& inv) {
  const double most = comp_significance(inv);
  LOG_LINE("comp_significance -> " << most << " SIGmin=" << inv.par.SIGmin);
  if (most >= static_cast<double>(inv.par.SIGmin)) return true;
  LOG_MSG("no significant correction: displacements are " << most << " times what vegetation makes (-sig_min "
                                                          << inv.par.SIGmin
                                                          << "), points stay where they are");
  return false;
}

// Parameters found, not significant: none is left, their uncertainties are.
void drop_corrections(InvCalDrift& inv) {
  for (double& x : inv.x) x = 0;
  linearise_bore(inv);
  comp_res(inv);
  vec2par(inv);
}

bool run_step1(InvCalDrift& inv, bool significant, InvResult& res) {
  show_prior(inv);
  display_init(inv);
  LOG_MSG("IVERSION STEP 1, " << inv.dim << " parameters:");
  if (!invert_RA_Cal_TA(inv)) {
    ERROR_MSG("inversion step 1 failed, singular or badly scaled system");
    return false;
  }
  if (!significant) drop_corrections(inv);
  collect_sets(inv, res);
  return comp_write_STAT_res(inv, res, false);
}

// What step 2 replaces, for the case that it fails.
struct Step1Result {
  SwathVector<SwState> sw;
  std::vector<Calib> ext_cal, int_cal;
  Vector<double> x;
  Image<double> cov;
  dxyz shift;

  explicit Step1Result(const InvCalDrift& inv)
      : sw(inv.sw), ext_cal(inv.ext_cal), int_cal(inv.int_cal), x(inv.x), cov(inv.cov), shift(inv.shift) {}
};

bool restore_step1(InvCalDrift& inv, const Step1Result& old) {
  if (!init(inv, 1)) return false;
  inv.sw = old.sw;
  inv.ext_cal = old.ext_cal;
  inv.int_cal = old.int_cal;
  inv.x = old.x;
  inv.cov = old.cov;
  inv.shift = old.shift;
  for (PairState& p : inv.pair) p.res = p.data;
  if (inv.par.STEP1 && !inv.par.DCC) comp_res(inv);
  return true;
}

// False after an ERROR line. A system that can't be solved is a WARNING and leaves the result of step 1.
bool run_step2(InvCalDrift& inv, InvResult& res) {
  const Stopwatch watch;
  const Step1Result old(inv);
  if (!init(inv, 2)) return false;
  inv.shift_base = {0, 0, 0};
  if (inv.par.STEP1 && inv.par.DCC) {  // the calibration stands, and only what it left is explained
    for (PairState& p : inv.pair) p.data = p.res;
    inv.shift_base = old.shift;
  }
  for (SwState& w : inv.sw) w.T1 = w.A1 = {0, 0, 0};  // the nodes hold all of the drift
  inv.warm = false;
  init_A_int(inv);
  init_A_sw(inv);
  if (inv.par.dt > 0) set_smoothness(inv);
  show_prior(inv);
  display_init(inv);
  if (inv.par.STEP1)
    LOG_MSG("INVERSION STEP 2, " << inv.dim << " parameters: ");
  else
    LOG_MSG("INVERSION STEP 2, " << inv.dim << " parameters: [STEP 1 SKIPPED]");
  res.step2_ok = invert_RA_HFTA(inv);
  if (res.step2_ok) {
    LOG_MSG("Inversion step 2 successful | " << watch.text());
    if (inv.FCAL) collect_sets(inv, res);
  } else {
    WARNING_MSG("HF inversion failed, increase prior with -E or time interval with -D");
    if (!restore_step1(inv, old)) return false;
  }
  LOG_LINE("STEP 2 INV_TIME=" << watch.text());
  return true;
}

// Mean effect of the drift attitudes at the samples. Position and attitude drift of a line may cancel each
// other: their means are only small together.
dxyz mean_att_effect(const InvCalDrift& inv, const InvResult& res) {
  dxyz sum = {0, 0, 0};
  double n = 0;
  for (const SwathId s : inv.sw.ids()) {
    const InvSamples& m = inv.in.swaths[s].samples;
    const AttCols& J = inv.sw[s].A;
    const InvCorr& corr = res.swaths[s];
    for (uint64_t i = 0; i < J.r.size() && !corr.At.empty(); i++) {
      if (m.P[i].z == NODATA || m.O[i].z == NODATA) continue;
      const xyz A = InterpVt(m.t[i], corr.t0, corr.Dt, corr.At);
      sum += to_dxyz(J.r[i] * A.x + J.p[i] * A.y + J.y[i] * A.z);
      n++;
    }
  }
  return n > 0 ? sum / n : sum;
}

void subtract_mean(const InvCalDrift& inv, InvResult& res) {
  dxyz mean = {0, 0, 0};
  uint64_t n = 0;
  for (const InvCorr& corr : res.swaths) {
    for (const xyz& T : corr.Tt) mean += to_dxyz(T);
    n += corr.Tt.size();
  }
  if (n == 0) return;
  mean /= static_cast<double>(n);
  if (inv.drift_att) mean += mean_att_effect(inv, res);
  if (!(norm(mean) > MEAN_SHIFT_MIN)) return;
  LOG_MSG("Subtracting drift correction mean shift: " << mean.x << ' ' << mean.y << ' ' << mean.z);
  for (InvCorr& corr : res.swaths)
    for (xyz& T : corr.Tt) T -= to_xyz(mean);
}

// Tables of all swaths: the constants of step 1 and, when there was one, the nodes of step 2.
void collect_drift(const InvCalDrift& inv, InvResult& res) {
  const bool* F = inv.FD;
  res.CT = F[0] || F[1] || F[2];
  res.CA = inv.drift_att;
  if (!inv.drift) return;
  for (const SwathId s : inv.sw.ids()) {
    const SwState& w = inv.sw[s];
    if (!w.mobile) continue;
    const uint64_t n = std::max<uint64_t>(1, w.Tt.size());
    InvCorr& corr = res.swaths[s];
    corr.t0 = w.t0;
    corr.Dt = w.Tt.empty() ? std::max(inv.in.swaths[s].tmax - inv.in.swaths[s].tmin, 1e-3) : w.Dt;
    corr.Tt.resize(n, w.T1);
    corr.At.resize(n, w.A1);
    if (w.Tt.empty()) continue;
    corr.Tt += w.Tt;
    corr.At += w.At;
  }
  if (inv.par.FM && !inv.hasfx && res.CT) subtract_mean(inv, res);
}
}  // namespace

Calib swath_calib(const InvCalDrift& inv, SwathId swath) {
  const SwState& w = inv.sw[swath];
  Calib cal;
  if (w.ext_on && w.ext_set >= 0 && inv.ncalext > 0) {
    cal.L = inv.ext_cal[w.ext_set].L;
    cal.B = inv.ext_cal[w.ext_set].B;
  }
  if (w.int_set >= 0 && inv.ncalint > 0) cal.I = inv.int_cal[w.int_set].I;
  return cal;
}

void vec2par(InvCalDrift& inv) {
  LOG_ENTER("vec2par dim=" << inv.dim);
  const auto set3 = [&](xyz& to, int c, double v) {
    float* at[3] = {&to.x, &to.y, &to.z};
    *at[c] = static_cast<float>(v);
  };
  if (inv.shift0 >= 0) {
    inv.shift = inv.shift_base + dxyz{inv.x(inv.shift0), inv.x(inv.shift0 + 1), inv.x(inv.shift0 + 2)};
    LOG_LINE("vec2par S: " << inv.shift.x << ' ' << inv.shift.y << ' ' << inv.shift.z);
  }
  for (int c = 0; c < N_EXTERNAL; c++)
    for (int set = 0; inv.FE[c] && set < inv.ncalext; set++)
      set3(c < 3 ? inv.ext_cal[set].L : inv.ext_cal[set].B, c % 3, inv.x(inv.ext0[c] + set));
  for (int k = 0; k < N_INTERNAL; k++)
    for (int set = 0; inv.FI[k] && set < inv.ncalint; set++)
      inv.int_cal[set].I(k) = static_cast<float>(inv.x(inv.int0[k] + set));
  for (SwState& w : inv.sw) {
    if (!w.mobile || w.node0 < 0) continue;
    for (int node = 0; node < w.nt; node++) {
      xyz& T = inv.step == 1 ? w.T1 : w.Tt(node);
      xyz& A = inv.step == 1 ? w.A1 : w.At(node);
      const int entry = inv.node_entry(w.node0 + node);
      for (int c = 0; c < 3; c++) {
        if (inv.FD[c]) set3(T, c, inv.x(entry + c));
        if (inv.FD[3 + c]) set3(A, c, inv.x(entry + 3 + c));
      }
    }
  }
}

bool inv_CalTAWarp(const std::string& name, const InvInput& in, const InvParam& par, InvResult& res) {
  LOG_ENTER("inv_CalTAWarp name='" << name << "' nsw=" << in.swaths.size() << " nint=" << in.pairs.size()
                                   << " dt=" << par.dt << " Cpri0=" << par.Cpri0 << " Spri=" << par.Spri
                                   << " PriBoost=" << par.PriBoost << " Umax=" << par.Umax
                                   << " XUmax=" << par.XUmax << " XFUmax=" << par.XFUmax
                                   << " UADJ=" << par.UADJ << " HF=" << par.HF << " STEP1=" << par.STEP1);
  const Stopwatch watch;
  res = InvResult{};
  InvCalDrift inv(in, par, name);
  if (!init(inv, 1) || !check_time_overlap(inv) || !init_prec(inv)) return false;
  if (!init(inv, 1)) return false;  // again: the layout depends on what init_prec left of the global shift
  if (!check_mem_init(inv)) return false;
  init_A_int(inv);
  init_A_sw(inv);
  LOG_LINE("INV INIT TIME=" << watch.text());
  res.def_rms = comp_def_RMS(inv, false);
  init_prior(inv);
  init_calib_prior(inv);
  init_weights(inv);

  const bool drift_wanted = par.Ftx || par.Fty || par.Ftz || par.Faw || par.Fap || par.Fak;
  const bool after_calibration = par.DCC && par.STEP1;  // step 1 had no drift: constants at least
  const bool significant = res.significant = check_significance(inv);
  const bool step2 = significant && drift_wanted && ((par.HF && par.dt > 0) || after_calibration);
  const bool cal_in_step1 = !step2 || after_calibration;
  if (par.STEP1) {
    if (!run_step1(inv, significant, res) || (cal_in_step1 && !calib_display(inv, res))) return false;
  } else {
    collect_sets(inv, res);  // zeros for all swaths
    res.CL = res.CB = res.CI = false;
  }
  if (step2) {
    if (!run_step2(inv, res)) return false;
    if (res.step2_ok) comp_corr_RMS_def(inv, false, res.def_rms);
  }
  if (par.STEP1 && !cal_in_step1 && !calib_display(inv, res)) return false;
  res.has_shift = inv.ShiftRef;
  res.shift = inv.shift;
  if (res.has_shift)
    LOG_MSG("Global shift correction component from reference data: " << res.shift.x << ' ' << res.shift.y
                                                                      << ' ' << res.shift.z);
  collect_drift(inv, res);
  if (inv.drift) comp_corr_RMS_def(inv, true, res.def_rms);
  LOG_MSG("RESIDUAL STATISTICS");
  if (!comp_write_STAT_res(inv, res, par.residual_stat) || !write_rejected(inv)) return false;
  corr_comp_full(inv, res);
  res.residuals.resize(in.pairs.size());
  for (int k = 0; k < inv.nint; k++)
    if (inv.pair[k].use) res.residuals[static_cast<size_t>(k)] = inv.pair[k].res;
  LOG_LINE("/// TOTAL_INV_TIME=" << watch.text());
  return true;
}
}  // namespace veld
