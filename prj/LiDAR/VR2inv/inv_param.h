// prj/LiDAR/VR2inv/inv_param.h
// The parameters of the inversion: which unknowns exist, their priors, which vectors take part.
#pragma once
#include "prj/LiDAR/VR2geom/calib.h"

namespace veld {
struct InvParam {
  // Calibration (-cal): which unknowns exist.
  bool Fx = false, Fy = false, Fz = false;  // lever X, Y, Z ("x", "y", "z", "L")
  bool Fw = false, Fp = false, Fk = false;  // boresight roll, pitch, yaw ("w", "p", "k", "B")
  bool FE[N_INTERNAL] = {};                 // internals 1..7 ("1".."7", "I"); 7 only with CALINTGEN
  bool CAL1 = false;                        // one set of all parameters for the project (-cal_1)
  bool INTSW = true;                        // internals: a set per swath, otherwise per group (-int_sw)
  bool EXTSW = false;                       // externals: a set per swath, otherwise per group (-ext_sw)
  bool CALR = false;                        // externals relative to the main channel of the group (-cal_rel)
  bool CALINTGEN = false;                   // generic internal model (-int_gen)
  bool CALINTNOB = false;                   // no range-bias shift (-int_nob)

  // Drift (-dpoc, -drift).
  bool Ftx = true, Fty = true, Ftz = true;     // position X, Y, Z ("x", "y", "z", "T")
  bool Faw = false, Fap = false, Fak = false;  // attitude roll, pitch, yaw ("w", "p", "k", "A")
  bool NOZ = false;                            // drift attitude has no Z effect (-noz)
  double dt = 0;                               // s, time interval of step 2; 0: constant per line ("con")
  bool HF = true;                              // step 2 wanted
  bool STEP1 = true;                           // step 1 wanted
  bool DCC = false;                            // drift components after calibration: none in step 1 (-dcc)
  bool FM = true;                              // subtract the mean drift (-drift_mean)
  bool ShiftRef = false;  // global shift between reference and mobile swaths (-shift_ref)
  int FA = 0;             // attitude mode (-fav_att): 0 symmetric, 1 favour attitude, 2 position

  // Priors.
  float Cpri0 = 0;      // m, IMU error prior (-imu_err); 0: a good INS, or more when the data show it
  float Spri = 0;       // smoothness prior (-imu_smooth), m/sqrt(h); 0: a correlation time of 120 s
  double lever_sd = 0;  // m, error of a lever arm that is not calibrated: part of the boresight's uncertainty
  float PriBoost = 1;   // divides the priors that are not given (-abs2rel)
  bool Epri = true;     // the prior acts over the whole swath in step 2, not only at the nodes (-refine)
  bool RMSALL = true;   // RMS for priors of all displacements; else of the central 95 % alone (-rms_all)

  // Filters.
  float Umax = 1;    // largest uncertainty of all pairs, multiple of GSD (-unc_max)
  float XUmax = 1;   // between groups or lines (-xg_unc_max)
  float XFUmax = 1;  // with reference swaths (-ref_unc_max)
  int GRPC = 1;      // pairs used: 0 same group and line, 1 all, 2 different (-corr_grp)
  int REFC = 1;      // pairs with a reference: 0 none, 1 all, 2 only these (-corr_ref)
  int UADJ = 0;  // uncertainty adjustment (-unc_adj): 0 none, 1 when significant, 2 only upward replacement,
                 // 3 always, 4 as 1 with a second round in step 2

  bool robust = true;  // weigh vectors by their residuals against the model (-robust)
  float SIGmin =
      2;  // least displacements that are corrected, in units of the vectors' common uncertainty (-sig_min)

  bool has_initial = false;  // the calibration files are to be updates of this one (-calib_param)
  Calib initial = {};

  bool residual_stat = true;  // write the residual statistics "_inv_stat.log"
};
}  // namespace veld
