// prj/LiDAR/VR2proc/corr_param.h
// The parameters of a correction run, by inversion or by hand.
#pragma once
#include <string>
#include <vector>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/LmTQCGCP/control_param.h"
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTinter/pair_filter.h"
#include "prj/LiDAR/VR2POsync/PO_sync_param.h"
#include "prj/LiDAR/VR2geom/calib.h"
#include "prj/LiDAR/VR2inv/inv_param.h"
#include "prj/LiDAR/VR2proc/out_name.h"
#include "prj/LiDAR/VR2proc/output_param.h"

namespace veld {
struct GeometryParam {
  bool AROT = false;   // attitudes are rotated by the IMU angles of the mount (-att_imu)
  bool ICS = true;     // swaths that do not fit their trajectory are an ERROR, else a WARNING (-ics_err)
  bool ICS_r = false;  // the table of the statistics too (-ics)
};

struct ManualParam {  // what is corrected by hand; shifts and calibrations of groups stand in the project
  bool on = false;
  xyz shift = {0, 0, 0};  // m, of all swaths (-shift)
  float tcorr = 0;        // s, time delay: points were seen so much later than their times say (-t_corr)
};

struct BeamParam {  // calibration of the beams that share a file (-beam_param, -beam_calib_corr)
  BeamSplit split;
  std::vector<Calib> sets;  // by beam; empty: none
};

struct CorrParam {
  std::string dut;  // base path of the DUT files: dut + ".dut", dut + "_idx.log"
  // Calibration, drift, priors and filters of the inversion.
  InvParam inv = {.ShiftRef = true, .lever_sd = 0.02};
  bool auto_dt = true;   // the drift interval is worked out from the data (-drift auto); else inv.dt stands
  bool accuracy = true;  // drift is expected as the accuracy files beside the trajectories say (-po_acc)
  bool REG2 = true;      // register again about what was found, and invert that (-reg2)
  POsyncParam sync;      // matching of swaths and trajectories
  ManualParam manual;
  BeamParam beams;
  // Quality control.
  bool QC = true;          // relative QC after correction (-qc)
  GeometryParam geometry;  // check of the geometry
  MapParam map;            // maps and plots of the check and of residuals
  GtileParam gtile;        // gridded tiles as files
  PairFilter qc;           // pairs of the QC (-qc_grp, -qc_ref, -qc_ch, -dz_all); RDIM is not used
  // Global shifts.
  bool CGM = false;  // cancel the mean correction (-mean)
  bool CD = true;    // cancel the flat effect of range bias and scale (-d_dz)
  bool CR = true;    // the same: both must be on (-r_dz)
  float AGL = 0;     // m, height above ground for the effect of the range scale (-agl); 0: from the data
  bool fill = true;  // microtiles without a time get the correction of those around them (-fill)
  // Ground control.
  ControlParam control;  // control points (-gcp, -xyz_gcp), and points: as they were read
  ControlPoints points;
  bool CZ = true;     // subtract the mean height difference (-gcp_dz)
  bool CXYZ = true;   // subtract the mean difference to targets (-xyz_gcp_corr)
  bool GCPG = false;  // both per group of swaths (-gcp_grp)
  // Output.
  bool nil = false;         // no corrected files, only logs (-nil, -calib)
  OutputName out;           // name pattern (-out)
  std::string odir;         // output directory with its "/"
  bool lax = false;         // write a spatial index of each corrected file (-olax)
  bool lax_append = false;  // at the end of the file itself if that is a LAZ (-lax_append)
  bool undo = false;        // write undo data of each corrected file (-oundo)
  TileParam tile;           // output tiles instead of swaths (-otile)
  PointRewrite rewrite;     // attributes of points (-ot, -oa, -oi, -op)
  bool corr_all = false;    // copy the swaths that get no correction (-corr_all)
  bool opo = false;         // write corrected trajectories (-opo)
  bool oposeg = false;      // write the corrected trajectory of each swath (-oposeg)
  bool ocorr = false;       // and its corrections (-ocorr)
  int po_sub = 10;          // of these two every n-th record (-po_sub)
};
}  // namespace veld
