// prj/LiDAR/VR2inv/VR2inv_internal.h
// The state of one inversion and its steps, for the sources of VR2inv and their tests.
//
// Parameter vector x: externals (a run of ncalext entries per enabled one), internals (ncalint each), the
// global shift (3), that is dimcal; then per node of each line TAstride entries: T x y z, and A roll pitch
// yaw with attitude.
#pragma once
#include <string>
#include <unordered_map>
#include <vector>

#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "prj/LiDAR/VR2inv/VR2inv.h"

constexpr xyz VAR_FLOOR = {1e-6f, 1e-6f, 1e-8f};  // m2, added to variances
constexpr xyz ATT_PRIOR = {0.2f, 0.2f, 0.4f};     // degrees, roll pitch yaw
constexpr double ATT_PRIOR_UNIT = 3282.80713;     // (degrees per radian) squared
constexpr double DEG = 57.2957795131;
constexpr int N_EXTERNAL = 6;
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
  xyz T1 = {0, 0, 0};     // constant drift of step 1: m, rad
  xyz A1 = {0, 0, 0};
  Vector<xyz> Tt, At;  // drift of step 2 alone
};

struct PairState {
  bool use = false;        // passed the filters and has accepted vectors
  bool samegrpfl = false;  // same group and flight line
  uint64_t nok = 0;        // accepted vectors
  AttCols A[2];            // for the first and the second swath
};

struct InvCalDrift {
  InvInput& in;
  const InvParam& par;
  std::string name;
  int nsw = 0, nint = 0;
  std::vector<SwState> sw;
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

  Vector<double> x;                     // parameters of the latest solve
  xyz Cpri = {0, 0, 0};                 // m, prior in use
  double Spri = 0, Kreg = 0;            // m/sqrt(h); 1/m2 s
  std::vector<Calib> ext_cal, int_cal;  // by set, from step 1
  dxyz shift = {0, 0, 0};               // sum over the steps
  Image<double> cov;                    // step 1, dense path
  uint64_t nvec_used = 0;
  int npair_used = 0;

  InvCalDrift(InvInput& input, const InvParam& param, const std::string& base)
      : in(input),
        par(param),
        name(base),
        nsw(static_cast<int>(input.swaths.size())),
        nint(static_cast<int>(input.pairs.size())),
        sw(input.swaths.size()),
        pair(input.pairs.size()),
        ShiftRef(param.ShiftRef) {}
  int node_entry(int node) const { return dimcal + TAstride * node; }
  double dt() const { return step == 2 ? par.dt : 0.0; }
  bool dense_path() const { return !drift && ncalext <= 1 && ncalint <= 1; }
};

struct PairChi {         // residuals of a pair against their precisions, per axis
  dxyz c = {0, 0, 0};    // sqrt(chi2/n)
  dxyz rms = {0, 0, 0};  // m
};

inline double axis(const xyz& v, int c) { return c == 0 ? v.x : c == 1 ? v.y : v.z; }
inline double axis(const dxyz& v, int c) { return c == 0 ? v.x : c == 1 ? v.y : v.z; }

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
std::vector<PairChi> comp_chi(const InvCalDrift& inv);

// Rows of step 1 (VR2inv_rows.cpp): the parameters that the vectors of a pair touch, and their columns.
struct PairSlots {
  int n = 0;
  int idx[MAX_SLOT];       // entries of x
  int ext[2][N_EXTERNAL];  // slot of each column per side; -1 for none
  int intl[2][N_INTERNAL];
  int ta[2][6];
  int shift = -1;  // first of three slots
  double shift_sign = 0;
};
struct PairRow {
  double cx[MAX_SLOT], cy[MAX_SLOT], cz[MAX_SLOT];  // columns of J2 - J1, by slot
};
PairSlots make_slots(const InvCalDrift& inv, int k);
void comp_row(const InvCalDrift& inv, int k, const PairSlots& slots, uint64_t i, PairRow& row);

// Step 1 (VR2inv_step1.cpp).
[[nodiscard]] bool invert_Cal_TA(InvCalDrift& inv);
void comp_res(InvCalDrift& inv);  // d := d - (J2 x - J1 x)
[[nodiscard]] bool invert_RA_Cal_TA(InvCalDrift& inv);

// Step 2 (VR2inv_step2.cpp).
[[nodiscard]] bool invert_HFTA(InvCalDrift& inv);
void comp_res_TA(InvCalDrift& inv);
[[nodiscard]] bool invert_RA_HFTA(InvCalDrift& inv);

// Adds one solve to the results: step 1 adds to sets, T1 and A1, step 2 to Tt and At; both to the global
// shift.
void vec2par(InvCalDrift& inv);

// Words and files (VR2inv_display.cpp, VR2inv_stat.cpp).
void display_init(const InvCalDrift& inv);
[[nodiscard]] bool calib_display(const InvCalDrift& inv, InvResult& res);
[[nodiscard]] bool comp_write_STAT_res(const InvCalDrift& inv, InvResult& res, bool write_file);
void comp_corr_RMS_def(const InvCalDrift& inv, bool full, const xyz& def_rms);

// Calibration values of a swath in the units of Calib; zeros for what is off.
Calib swath_calib(const InvCalDrift& inv, int swath);
// Drift of a swath at a time: step 1 and step 2 together.
void swath_drift(const InvCalDrift& inv, int swath, double t, xyz& T, xyz& A);
