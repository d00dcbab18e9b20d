// prj/LiDAR/tuning.h
// The global values of a run, set once at its start, read everywhere, changed by no stage.
// Here:     the tuning values, which options set as one struct; directories, units and the name of the program,
//           which follow from options and files.
// Not here: parameters of one stage (its own struct).
//
// Also global, each behind its own header: the logs, the progress on the console and the list of unfinished results
// (lib/general), the threads of the codecs and the list of open sources (las/las_context.h), the debug level of the
// solvers (lib/Optim/optimCG.h). PROJ's objects belong to the thread that uses them (geo/georef.h).
#pragma once
#include <string>

#include "lib/Geometry/xyz.h"

namespace veld {
struct Tuning {
  // Resources.
  int MEM_MB = 4096;              // memory budget, MB (-mem)
  int NTHREADS = 1;               // worker threads (-nthreads)
  int NTHREADSIO = 1;             // threads of file-bound stages (-nthreads_io), never above NTHREADS
  int DEBUG_LEVEL = 0;            // debug number (-DEBUG)
  std::string INPARSE = "xyzt";   // text input columns (-iparse)
  std::string OUTPARSE = "xyzt";  // text output columns (-oparse)

  // Caches.
  bool CACHE_GRID = true;       // reuse grids (-cache_grid)
  bool CACHE_REG = true;        // reuse registrations (-cache_reg)
  bool CHECK_SW_TSTAMP = true;  // compare the time stamps of the sources (-cache_mt_chk)

  // Tiling.
  int DT_RANGE = 4;        // s, full scale of the coded time range (-dt_range)
  float DEV_RANGE = 0.2f;  // full scale of the coded time deviation, ratio (-dev_range)
  bool AUTO_ADJ = false;   // take the adjusted-time flag from the time stamps (-auto_adj)

  // Gridding.
  float GZ_SMAXF = 1000.0f;  // largest roughness kept, multiple of the grid spacing (-grid_rough_max)
  float TARGET_DF = 1.0f;    // target points per pixel (-ppp)
  float GGSD_OPT = -1.0f;    // fixed grid spacing in m, -1 for automatic (-ggsd)

  // Registration.
  float Z_SMAXF = 1.5f;     // largest roughness compared, m and grid spacings (-rough_max)
  float NR_SMAX = 0.1f;     // residual scale bound per unit of 2^J (-reg_s_max)
  int NR_BOOST = 2;         // tolerance multiplier (-boost)
  int J0_REG = 1;           // lowest level at which SIGMA0_REG applies, from Jend (-reg_j0)
  float SIGMA0_REG = 0.0f;  // noise floor, height units (-reg_s0)

  // Geometry.
  bool CALINTGEN = false;        // generic internal model (-int_gen)
  bool CALINTNOB = false;        // no range-bias shift (-int_nob)
  float PO_SPEED_MAX = 300.0f;   // m/s, fastest step between trajectory records (-po_speed), 0 off
  float PO_CLIMB_MAX = 100.0f;   // m/s, the same for heights (-po_climb)
  float PO_RATE_MAX = 500.0f;    // degrees/s, the same for each angle (-po_rate)
  float PO_BAD_MAX = 1.0f;       // percent of records that may be wrong (-po_bad)
  bool POF_IGNORE_UNIT = false;  // the time unit of POF headers (-pof_unit)
  bool POF_IGNORE_INFO = false;  // their GPS/UTC information (-pof_info)
};
extern Tuning TUNING;

// The values by their names alone.
inline int& MEM_MB = TUNING.MEM_MB;
inline int& NTHREADS = TUNING.NTHREADS;
inline int& NTHREADSIO = TUNING.NTHREADSIO;
inline int& DEBUG_LEVEL = TUNING.DEBUG_LEVEL;
inline std::string& INPARSE = TUNING.INPARSE;
inline std::string& OUTPARSE = TUNING.OUTPARSE;
inline bool& CACHE_GRID = TUNING.CACHE_GRID;
inline bool& CACHE_REG = TUNING.CACHE_REG;
inline bool& CHECK_SW_TSTAMP = TUNING.CHECK_SW_TSTAMP;
inline int& DT_RANGE = TUNING.DT_RANGE;
inline float& DEV_RANGE = TUNING.DEV_RANGE;
inline bool& AUTO_ADJ = TUNING.AUTO_ADJ;
inline float& GZ_SMAXF = TUNING.GZ_SMAXF;
inline float& TARGET_DF = TUNING.TARGET_DF;
inline float& GGSD_OPT = TUNING.GGSD_OPT;
inline float& Z_SMAXF = TUNING.Z_SMAXF;
inline float& NR_SMAX = TUNING.NR_SMAX;
inline int& NR_BOOST = TUNING.NR_BOOST;
inline int& J0_REG = TUNING.J0_REG;
inline float& SIGMA0_REG = TUNING.SIGMA0_REG;
inline bool& CALINTGEN = TUNING.CALINTGEN;
inline bool& CALINTNOB = TUNING.CALINTNOB;
inline float& PO_SPEED_MAX = TUNING.PO_SPEED_MAX;
inline float& PO_CLIMB_MAX = TUNING.PO_CLIMB_MAX;
inline float& PO_RATE_MAX = TUNING.PO_RATE_MAX;
inline float& PO_BAD_MAX = TUNING.PO_BAD_MAX;
inline bool& POF_IGNORE_UNIT = TUNING.POF_IGNORE_UNIT;
inline bool& POF_IGNORE_INFO = TUNING.POF_IGNORE_INFO;

// Directories, each with its "/", and units.
extern std::string TMPDIR;    // temporary directory (-tmpdir)
extern std::string INDIR;     // input directory (-idir)
extern std::string OUTDIR;    // output directory (-odir)
extern std::string GEODIR;    // geoid directory (-gdir)
extern std::string SOFTINFO;  // the soft-info string that headers and saved options carry
extern double DATAUNIT;       // metres per unit of the input files
extern double DATAUNIT_Z;     // the same for their heights
extern double OUTDATAUNIT;    // metres per unit of exported places: world files, boxes, tracks, transects
extern double OUTDATAUNIT_Z;  // the same for their heights

// Limits that no option changes.
extern float KEEPZmin;  // height range compared, m
extern float KEEPZmax;
extern xyz MAXREGUNC;  // largest accepted vertex standard deviation per axis: pixels, pixels, height units
extern float H_STEP;   // histogram bin width, height units
extern double MAX_TRAJ_DT;  // s, largest accepted gap between trajectory samples
}  // namespace veld
