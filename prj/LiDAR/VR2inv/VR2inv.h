// prj/LiDAR/VR2inv/VR2inv.h
// The inversion: from displacements between swaths to calibration and trajectory drift.
// Here:     its input, parameters, result and the one call.
// Not here: the DUT file (DUTio), synchronisation (VR2POsync), application to points (VR2geom, VR2proc).
//
// Signs: corrections are added to points. The displacement of a pair is the position in its first swath less
// that in its second, so with x the corrections d = J2 x - J1 x, and the residual is d - (J2 x - J1 x).
#pragma once
#include <string>
#include <vector>

#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "prj/LiDAR/VR2inv/inv_param.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
// ---- input

struct InvPair {  // one registered pair; all vectors of length np
  SwathId sw1, sw2;
  int pair = -1;       // number in the logs; -1: the place in the list
  uint64_t nfull = 0;  // vectors before thinning; above np, precisions grow by nfull / np. 0: not thinned
  Vector<dxyz> P;      // position of each vector, m
  Vector<xyz> Def;     // displacement, m: position in sw1 less that in sw2
  Vector<xyz> Unc;     // its standard deviations, m
  Vector<float>
      Com;  // of Unc z: what the vectors of the pair have in common; twice that in x, y. May be empty
  Vector<double> t1, t2;   // times in sw1, sw2; the same base as the trajectories
  Vector<dxyz> O1, O2;     // trajectory positions at these times; (1000, 1000, -9999) when there is none
  Vector<xyz> Att1, Att2;  // attitudes, degrees
};

struct InvSamples {  // where a swath has points: one sample per microtile. All vectors of the same length
  Vector<dxyz> P;    // centre and mean height, m; z = -9999 is skipped
  Vector<double> t;  // time, s
  Vector<dxyz> O;    // trajectory at that time; z = -9999 is skipped
  Vector<xyz> Att;   // degrees
};

struct DriftAccuracy {  // standard deviations of a trajectory at a time, as its processing has them
  double t;             // s, synchronised
  xyz T;                // m
  xyz A;                // rad, roll, pitch, yaw
};

struct InvSwath {
  int group = 1;       // 1-based group; 0 for fixed swaths
  int channel = 0;     // laser channel
  SwathId mainch;      // main channel of its line
  int fl = -1;         // trajectory file (flight line) number; below 0: none, the swath gets no correction
  bool fixed = false;  // a reference
  std::string name;    // for the tables
  double tmin = 0, tmax = 0;  // s, synchronised
  SwRot rot;
  InvSamples samples;                   // may be empty for fixed swaths
  std::vector<DriftAccuracy> accuracy;  // in order of time; empty: that of a good INS
};

struct InvInput {
  SwathVector<InvSwath> swaths;
  std::vector<InvPair> pairs;
  Vector<xyz> shift0;  // initial shift already subtracted from the displacements per pair; may be empty
  float GSD = 1;       // m, grid spacing: uncertainty limits are multiples of it
};

// ---- result

struct InvCorr {          // what a swath gets
  int cal = -1;           // calibration set; -1: none (fixed, or no trajectory)
  Vector<xyz> Tt;         // drift position per node, m (empty for fixed swaths)
  Vector<xyz> At;         // drift attitude, rad; same length as Tt
  double t0 = 0, Dt = 1;  // s, time of the first node, node interval
};

struct InvPairStat {  // residuals of a pair, of all vectors used
  int pair = -1;      // its number in the logs
  SwathId sw1, sw2;
  uint64_t n = 0;       // vectors
  xyz rms = {0, 0, 0};  // m
};

struct InvResult {
  std::vector<Calib> calib;  // distinct calibration sets (lever m, boresight rad, internals)
  SwathVector<InvCorr> swaths;
  bool CL = false, CB = false, CI = false;  // which kinds of calibration were estimated
  bool CT = false, CA = false;              // drift position, attitude estimated

  dxyz shift = {0, 0, 0};  // global shift of the mobile swaths to the reference data (ShiftRef)
  bool has_shift = false;

  // Standard deviations and correlations of the calibration (and the global shift), in the order of cal_names.
  std::vector<std::string> cal_names;
  Vector<double> cal_sigma;  // m, rad; empty when not available
  Image<double> cal_corr;
  std::vector<std::string> summary;  // a line a parameter: value and uncertainty, with its unit

  xyz def_rms = {0, 0, 0};  // m, weighted RMS of the displacements used
  xyz res_rms = {0, 0, 0};  // m, and of their residuals
  xyz chi = {0, 0, 0};      // sqrt(chi2/n) of the residuals, by the precisions in use
  xyz scale = {1, 1, 1};    // residuals in units of the uncertainties, robust; 1 without robust weights
  int npair_used = 0;
  uint64_t nvec_used = 0;
  std::vector<InvPairStat> pairs;  // those used
  bool step2_ok = false;           // time-dependent drift found
  bool significant =
      true;  // false: the displacements are no larger than what vegetation makes, nothing is corrected
  std::vector<Vector<xyz>>
      residuals;  // m, by pair of the input and its vectors; empty: the pair was not used
};

// Runs the inversion. name: base path of the outputs ("_cal.log", "_cal.txt", "_cal_cov.txt",
// "_inv_stat.log", "_int_rej.log"); empty for none. False after an ERROR line. A failed step 2 is a WARNING:
// the result of step 1 stands.
[[nodiscard]] bool inv_CalTAWarp(const std::string& name, const InvInput& in, const InvParam& par,
                                 InvResult& res);
}  // namespace veld
