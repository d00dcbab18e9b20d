#include "prj/LiDAR/run/fill_param.h"

#include "las/lasreader.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/options/steer_opt.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
void set_tuning(const Options& o) {
  MEM_MB = o.mem;
  NTHREADS = o.nthreads;
  NTHREADSIO = o.nthreads_io;
  DEBUG_LEVEL = o.DEBUG;
  INPARSE = o.iparse;
  OUTPARSE = o.oparse;
  CACHE_TILE = o.cache_tile != 0;
  CACHE_GRID = o.cache_grid != 0;
  CACHE_REG = o.cache_reg != 0;
  CHECK_SW_TSTAMP = o.cache_mt_chk != 0;
  DT_RANGE = o.dt_range;
  DEV_RANGE = o.dev_range;
  AUTO_ADJ = o.auto_adj != 0;
  GZ_SMAXF = o.grid_rough_max;
  TARGET_DF = o.ppp;
  GGSD_OPT = o.ggsd;
  Z_SMAXF = o.rough_max;
  NR_SMAX = o.reg_s_max;
  NR_BOOST = o.boost;
  J0_REG = o.reg_j0;
  SIGMA0_REG = o.reg_s0;
  CALINTGEN = o.int_gen != 0;
  CALINTNOB = o.int_nob != 0;
  PO_SPEED_MAX = o.po_speed;
  PO_CLIMB_MAX = o.po_climb;
  PO_RATE_MAX = o.po_rate;
  PO_BAD_MAX = o.po_bad;
  las_set_threads(o.nthreads);
}

void fill_scan_param(const Options& o, const std::vector<uint8_t>& xcls, bool reg, ScanParam& par) {
  par = ScanParam();
  par.REG = reg;
  par.QC = o.qc != 0;
  par.FULL = o.full != 0;
  par.tiling.xcls = xcls;
  par.tiling.DTS = o.dev_max;
  par.tiling.syn = o.keep_synthetic != 0;
  par.tiling.all = o.keep_all != 0;
  par.tiling.last = o.last != 0;
  par.tiling.large = o.large != 0;
  par.tiling.xlevel = o.xlevel;
  par.tiling.tproc = true;
  par.tiling.LAREA = o.large != 0;
  par.cache_tile = o.cache_tile != 0;
  par.rej_ref = o.rej_ref != 0;
  par.median = o.ggsd_mean == 0;
  par.fix_ch0 = o.fix_ch0 != 0;
  par.regpairs.RDIM = o.reg_reduce;
  par.regpairs.GRP = o.reg_grp;
  par.regpairs.REF = o.reg_ref;
  par.regpairs.CH = o.reg_ch;
  par.regpairs.ALLDZ = o.dz_all != 0;
  par.qcpairs.GRP = o.qc_grp;
  par.qcpairs.REF = o.qc_ref;
  par.qcpairs.CH = o.qc_ch;
  par.qcpairs.ALLDZ = o.dz_all != 0;
  par.Jinit = o.init;
  par.Jend = o.coarse;
  par.DZ_sub = o.sub;
  par.BB = o.bb != 0;
  par.OUTOBJ = o.obj != 0;
}

namespace {
POsyncParam sync_param(const Options& o) {
  POsyncParam par;
  par.tol = static_cast<double>(o.po_tol);
  par.AROT = o.att_imu != 0;
  par.DAY = o.daysec != 0;
  par.ICH = o.ich != 0;
  return par;
}
}  // namespace

void fill_po_scan_param(const Options& o, POscanParam& par) {
  par.sync = sync_param(o);
  par.geometry = {o.att_imu != 0, o.ics || o.ics_err != 0, o.ics};
}

bool fill_corr_param(const Options& o, const std::string& dut, CorrParam& par) {
  par = CorrParam();
  InvParam& inv = par.inv;
  DriftOpt drift;
  bool ok = parse_calib_opt(o.cal, o.uav != 0, inv);
  ok = parse_drift_opt(o.drift, drift) && ok;
  ok = parse_drift_comp_opt(o.dpoc, inv) && ok;
  if (!parse_output_name(o.out, par.out) || !ok) return false;
  par.dut = dut;
  par.auto_dt = drift.auto_dt;
  inv.dt = drift.dt;
  inv.HF = !drift.con && !drift.none;
  if (drift.none) inv.Ftx = inv.Fty = inv.Ftz = inv.Faw = inv.Fap = inv.Fak = false;
  const bool any_drift = inv.Ftx || inv.Fty || inv.Ftz || inv.Faw || inv.Fap || inv.Fak;
  if (!any_drift) inv.HF = par.auto_dt = false;
  inv.CAL1 = o.cal_1 != 0;
  inv.CALGI = o.int_sw == 0;
  inv.CALGE = o.ext_sw == 0;
  inv.CALR = o.cal_rel != 0;
  inv.CALINTGEN = o.int_gen != 0;
  inv.CALINTNOB = o.int_nob != 0;
  inv.NOZ = o.noz != 0;
  inv.DCC = o.dcc != 0;
  inv.FM = o.drift_mean != 0;
  inv.ShiftRef = o.shift_ref != 0;
  inv.FA = o.fav_att;
  inv.Cpri0 = o.imu_err;
  inv.Spri = o.imu_smooth;
  inv.PriBoost = o.abs2rel;
  inv.Epri = o.refine != 0;
  inv.RMS95 = o.rms_all == 0;
  inv.Umax = o.unc_max;
  inv.XUmax = o.xg_unc_max;
  inv.XFUmax = o.ref_unc_max;
  inv.GRPC = o.corr_grp;
  inv.REFC = o.corr_ref;
  inv.UADJ = o.unc_adj;
  inv.robust = o.robust != 0;
  par.sync = sync_param(o);
  par.QC = o.qc != 0;
  par.ICS = o.ics || o.ics_err != 0;
  par.ICS_r = o.ics;
  par.qc.GRP = o.qc_grp;
  par.qc.REF = o.qc_ref;
  par.qc.CH = o.qc_ch;
  par.qc.ALLDZ = o.dz_all != 0;
  par.qc.RDIM = 0;
  par.CGM = o.mean != 0;
  par.CD = o.d_dz != 0;
  par.CR = o.r_dz != 0;
  par.AGL = static_cast<double>(o.agl);
  par.fill = o.fill != 0;
  par.CORR = !o.nil;
  par.odir = OUTDIR;
  par.lax = o.olax != 0;
  par.lax_append = o.lax_append != 0;
  par.nthreads = o.nthreads;
  return true;
}
}  // namespace veld
