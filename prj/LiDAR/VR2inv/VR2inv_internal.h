// prj/LiDAR/VR2inv/VR2inv_internal.h
// The state of one inversion and its steps, for the sources of VR2inv and their tests.
//
// Parameter vector x: externals (a run of ncalext entries per enabled one), internals (ncalint each), the
// global shift (3), that is dimcal; then per node of each line TAstride entries: T x y z, and A roll pitch
// yaw with attitude.
#pragma once
#include <algorithm>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "lib/Geometry/angle.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
constexpr xyz VAR_FLOOR = {1e-6f, 1e-6f, 1e-8f};  // m2, added to variances
constexpr int N_EXTERNAL = 6;
constexpr char EXT_LETTERS[] = "xyzwpk";  // of the externals, as -cal has them
constexpr int COV_MAX = 60;               // calibration parameters up to which their covariance is of use
constexpr int MAX_SLOT =
    2 * (N_EXTERNAL + N_INTERNAL + 6) + 3;  // most parameters that one vector touches in step 1

struct AttCols {        // drift attitude columns of many points; empty while attitude is off
  Vector<xyz> r, p, y;  // m per radian
};

struct SwState {
  bool mobile = false;  // not fixed and with a trajectory: gets corrections
  int ext_set = -1;     // calibration sets
  int int_set = -1;
  bool ext_on = false;    // external columns (off for the main channel of a relative calibration)
  int node0 = -1;         // first node of the line, -1 for none
  int nt = 0;             // nodes of the line
  double t0 = 0, Dt = 1;  // s
  AttCols A;              // at the samples
  dxyz ext_col2[N_EXTERNAL] = {}, int_col2[N_INTERNAL] = {};  // mean squares of the columns over the samples
  xyz T1 = {0, 0, 0};                                         // constant drift of step 1: m, rad
  xyz A1 = {0, 0, 0};
  Vector<xyz> Tt, At;  // drift of step 2 alone
};

struct PairState {         // vectors are those of the pair
  bool use = false;        // passed the filters and has accepted vectors
  bool rejected = false;   // passed the filters, but no vector did
  bool samegrpfl = false;  // same group and flight line
  uint64_t nok = 0;        // accepted vectors
  Vector<xyz> data;        // m, what the step explains: displacements less the initial shift
  Vector<xyz>
      beyond;  // m, what the latest boresight makes beyond the linear model, taken out of data; may be empty
  Vector<xyz> res;         // m, residuals of the latest solve
  Vector<xyz> W0;          // 1/m2, precisions by the uncertainties; 0 for vectors not used
  Vector<xyz> W;           // 1/m2, precisions in use: W0 by scale and robust weight
  Vector<float> weight;    // robust weights, 0 to 1
  dxyz floor = {0, 0, 0};  // m2, added to all variances of the pair
  dxyz scale = {1, 1, 1};  // residuals in units of the uncertainties, robust
  double down = 0;         // share of vectors with hardly any weight
  AttCols A[2];            // for the first and the second swath
};

// The prior of the drift: a process with these standard deviations and this
// correlation time, per component.
struct DriftPrior {
  xyz T = {0, 0, 0};  // m
  xyz A = {0, 0, 0};  // rad
  double rate = 0;    // m/sqrt(h), change of position: Spri. 0: nodes are independent
};

struct InvCalDrift {
  const InvInput& in;
  const InvParam& par;
  std::string name;
  int nsw = 0, nint = 0;
  SwathVector<SwState> sw;
  std::vector<PairState> pair;

  // Flags of the step that runs.
  int step = 1;
  bool FCAL = false;         // any calibration parameter
  bool drift = false;        // any drift parameter
  bool drift_att = false;    // attitude among them
  bool FE[N_EXTERNAL] = {};  // lever X Y Z, bore roll pitch yaw
  bool FI[N_INTERNAL] = {};
  bool FD[6] = {};        // drift X Y Z roll pitch yaw
  bool ShiftRef = false;  // once cleared it stays so
  bool hasfx = false;
  GeomFlags flags;

  // Layout of x.
  int ncalext = 0, ncalint = 0;  // sets of each kind
  int ext0[N_EXTERNAL] = {};     // first entry of each parameter, -1 when off
  int int0[N_INTERNAL] = {};
  int shift0 = -1;
  int dimcal = 0, dim = 0;
  int TAstride = 3;
  int nTA = 0, nTAnd = 0;  // nodes of all swaths, and without those that lines share

  Vector<double> x;  // parameters of the latest solve
  DriftPrior prior;
  xyz Ccal = {0, 0, 0};                 // m, effect on the surface that a calibration parameter may have
  dxyz corr_len = {1, 1, 1};            // vectors that count as one, since their errors go together
  bool weighted = false;                // robust weights have been found
  bool warm = false;                    // x of step 2 is near its solution
  bool want_cov = false;                // the next solve gives cov
  std::vector<Calib> ext_cal, int_cal;  // by set, from step 1
  dxyz shift = {0, 0, 0};               // global
  dxyz shift_base = {0, 0, 0};          // part of it that an earlier step holds
  Vector<double> post;                  // variances of all parameters; empty for large systems
  Image<double> cov;                    // of the first dimcal parameters
  std::string undetermined;             // calibration parameters that the data alone do not determine
  uint64_t nvec_used = 0;
  int npair_used = 0;

  InvCalDrift(const InvInput& input, const InvParam& param, const std::string& base)
      : in(input),
        par(param),
        name(base),
        nsw(static_cast<int>(input.swaths.size())),
        nint(static_cast<int>(input.pairs.size())),
        sw(input.swaths),
        pair(input.pairs.size()),
        ShiftRef(param.ShiftRef) {}
  int node_entry(int node) const { return dimcal + TAstride * node; }
  double dt() const { return step == 2 ? par.dt : 0.0; }
};

// Where what a vector was measured at lies in the first (side 0) or the second swath of its pair, m. Half a metre between
// them times the boresight is a millimetre.
inline dxyz place_in(const InvPair& p, int side, uint64_t i) {
  return side == 0 ? p.P[i] + to_dxyz(p.Def[i]) : p.P[i];
}

struct PairChi {         // residuals of a pair against their precisions, per axis
  dxyz c = {0, 0, 0};    // sqrt(chi2/n)
  dxyz rms = {0, 0, 0};  // m
  double n = 0;          // vectors by their robust weights
};

inline double axis(const xyz& v, int c) { return c == 0 ? v.x : c == 1 ? v.y : v.z; }
inline double axis(const dxyz& v, int c) { return c == 0 ? v.x : c == 1 ? v.y : v.z; }

// Calls work(k) for each pair in use, pairs side by side.
template <class Work>
void for_used_pairs(const InvCalDrift& inv, Work&& work) {
  run_units(inv.nint, NTHREADS, [&](int64_t k, int) {
    if (inv.pair[static_cast<size_t>(k)].use) work(static_cast<int>(k));
    return true;
  });
}
// The same with a part for each pair in use, make(k), which is handed to put(part) in the order of the pairs: sums do not
// depend on the number of threads.
template <class Make, class Put>
void sum_used_pairs(const InvCalDrift& inv, Make&& make, Put&& put) {
  constexpr int BATCH = 64;  // parts that are held at a time
  std::vector<std::optional<decltype(make(0))>> parts(BATCH);
  for (int first = 0; first < inv.nint; first += BATCH) {
    const int n = std::min(BATCH, inv.nint - first);
    run_units(n, NTHREADS, [&](int64_t i, int) {
      const int k = first + static_cast<int>(i);
      if (inv.pair[k].use) parts[static_cast<size_t>(i)].emplace(make(k));
      return true;
    });
    for (auto& part : parts) {
      if (part) put(*part);
      part.reset();
    }
  }
}

// Set-up (VR2inv_setup.cpp). False after an ERROR line.
[[nodiscard]] bool init(InvCalDrift& inv, int step);
[[nodiscard]] bool check_time_overlap(const InvCalDrift& inv);
[[nodiscard]] bool check_mem_init(const InvCalDrift& inv);
void init_A_int(InvCalDrift& inv);
void init_A_sw(InvCalDrift& inv);

// Precisions and statistics of the displacements (VR2inv_prec.cpp).
[[nodiscard]] bool init_prec(InvCalDrift& inv);
bool adj_prec(InvCalDrift& inv, const std::vector<PairChi>& chi);  // true if any pair changed
xyz comp_def_RMS(const InvCalDrift& inv, bool remove_mean);        // (1000, 1000, -9999) without data
// Change of the displacements along time, m/sqrt(s), between neighbouring bins of width dt, of one pair or
// all (k < 0). ng: differences that were found; 0 gives zeros.
xyz grad_stddev_def(const InvCalDrift& inv, double dt, int k, uint64_t& ng);

// Robust weights and residual scales (VR2inv_robust.cpp). Without par.robust weights and scales stay 1.
void init_weights(InvCalDrift& inv);   // W before the first solve
void comp_weights(InvCalDrift& inv);   // scales, weights and W from the residuals
void apply_weights(InvCalDrift& inv);  // W from W0, scales, weights and corr_len
void comp_corr_len(InvCalDrift& inv);  // corr_len and W from the residuals
std::vector<PairChi> comp_chi(const InvCalDrift& inv);
dxyz comp_res_scale(const InvCalDrift& inv);  // geometric mean of the pairs' scales, by their vectors
// Solves and weighs in turn until residuals stand still. residuals returns the RMS of their change, m.
[[nodiscard]] bool solve_reweighted(InvCalDrift& inv, bool (*solve)(InvCalDrift&),
                                    double (*residuals)(InvCalDrift&));

// RMS over all pairs, or more in one of the axes, of displacements in units of the uncertainty that the vectors of a pair
// have in common (VR2inv_signif.cpp). Infinite where nothing is common.
double comp_significance(const InvCalDrift& inv);

// Priors of drift (VR2inv_prior.cpp).
void init_prior(InvCalDrift& inv);
bool fit_prior(InvCalDrift& inv);  // to the constants that step 1 found; false once it stands still
// Variance of a line's mean drift in units of the drift's, by the line's time (s).
double line_var(const InvCalDrift& inv, double T);
void set_smoothness(InvCalDrift& inv);
dxyz prior_prec_T(const InvCalDrift& inv);  // 1/m2
dxyz prior_prec_A(const InvCalDrift& inv);  // 1/rad2
void init_calib_prior(InvCalDrift& inv);    // col2 of all swaths
// Solves for the covariance of the calibration, under a drift of a good INS at least, then under the prior itself.
bool solve_with_cov(InvCalDrift& inv, bool (*solve)(InvCalDrift&));
struct CalibPrior {
  Vector<double> own;  // by parameter, of the first dimcal: precision about 0
  struct Tie {
    int a, b;
    double prec;  // of the difference of two parameters
  };
  std::vector<Tie> ties;
};
CalibPrior calib_prior(const InvCalDrift& inv);
// Takes the priors of the calibration (not those of the drift) out of its covariance, so that parameters which the data
// do not tell apart show as uncertain and correlated. No change but of `undetermined` when the data leave one open.
void drop_calib_prior(InvCalDrift& inv);
// A component of drift along a line is a process with exponential correlation. Its prior is the sum of
// inner x_k^2 (outer at both ends) and step (x_k+1 - x_k)^2.
struct NodePrior {
  double inner, outer, step;
};
// c: component, position x y z, roll pitch yaw; Dt: s between nodes.
NodePrior comp_NodePrior(const InvCalDrift& inv, int c, double Dt);
// Standard deviation of a component of a swath's drift at a time, in units of that of the prior: 1 without accuracies. The
// prior is that of x_k / ratio then.
double drift_ratio(const InvCalDrift& inv, SwathId sw, int c, double t);
// The same for the constant drift of its line: root of the mean square over the line's time.
double line_ratio(const InvCalDrift& inv, SwathId sw, int c);

// Rows of step 1 (VR2inv_rows.cpp): the parameters that the vectors of a pair touch, and their columns.
struct PairSlots {
  int n = 0;
  int idx[MAX_SLOT];       // entries of x
  int ext[2][N_EXTERNAL];  // slot of each column per side; -1 for none
  int intl[2][N_INTERNAL];
  int ta[2][6];
  bool drift = true;
  int shift = -1;  // first of three slots
  double shift_sign = 0;
};
struct PairRow {
  double cx[MAX_SLOT], cy[MAX_SLOT], cz[MAX_SLOT];  // columns of J2 - J1, by slot
};
PairSlots make_slots(const InvCalDrift& inv, int k, bool drift);  // drift: with one node a line
void comp_row(const InvCalDrift& inv, int k, const PairSlots& slots, uint64_t i, PairRow& row);
// Moves the point of linearisation to the boresight of the latest solve: takes out of the data what its exact rotation
// makes beyond the columns. Points are corrected by that rotation.
void linearise_bore(InvCalDrift& inv);

// Step 1 (VR2inv_step1.cpp).
[[nodiscard]] bool invert_Cal_TA(InvCalDrift& inv);
double comp_res(InvCalDrift& inv);  // res := data - (J2 x - J1 x). Returns the RMS of the change, m
[[nodiscard]] bool invert_RA_Cal_TA(InvCalDrift& inv);

// Step 2 (VR2inv_step2.cpp).
[[nodiscard]] bool invert_HFTA(InvCalDrift& inv);
double comp_res_TA(InvCalDrift& inv);
[[nodiscard]] bool invert_RA_HFTA(InvCalDrift& inv);

// Takes the results of the latest solve: calibration sets and global shift, T1 and A1 in step 1, Tt and At in
// step 2.
void vec2par(InvCalDrift& inv);

// Words and files (VR2inv_display.cpp, VR2inv_stat.cpp).
void display_init(const InvCalDrift& inv);
[[nodiscard]] bool calib_display(const InvCalDrift& inv, InvResult& res);
[[nodiscard]] bool comp_write_STAT_res(const InvCalDrift& inv, InvResult& res, bool write_file);
void show_STAT_res(const InvCalDrift& inv);  // the totals alone, before uncertainties are adjusted
// "_int_rej.log": pairs of which no vector, or not enough of them, took part; no file without such a pair.
[[nodiscard]] bool write_rejected(const InvCalDrift& inv);

// What the parts of the correction move points by (VR2inv_comp.cpp).
void comp_corr_RMS_def(const InvCalDrift& inv, bool full, const xyz& def_rms);
// Statistics of each part of the final correction, and of their sum, at the vectors that took part, for both swaths of a
// pair.
void corr_comp_full(const InvCalDrift& inv, const InvResult& res);
void log_TA0(const InvCalDrift& inv);  // the constant drift that step 1 found, m and degrees, a line a swath

// Calibration values of a swath in the units of Calib; zeros for what is off.
Calib swath_calib(const InvCalDrift& inv, SwathId swath);
// Drift of a swath at a time: step 1 and step 2 together.
void swath_drift(const InvCalDrift& inv, SwathId swath, double t, xyz& T, xyz& A);
}  // namespace veld
