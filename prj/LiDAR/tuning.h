// prj/LiDAR/tuning.h
// The tuning values of a run: set once at start by the options, read everywhere, never changed by a stage.
// The log and these values are the only global state of the program.
#pragma once
#include <string>

#include "lib/Geometry/xyz.h"

namespace veld {
// Resources.
extern int MEM_MB;            // memory budget, MB (-mem)
extern int NTHREADS;          // worker threads (-nthreads)
extern int NTHREADSIO;        // threads of file-bound stages (-nthreads_io), never above NTHREADS
extern int DEBUG_LEVEL;       // debug number (-DEBUG)
extern std::string TMPDIR;    // temporary directory with its "/" (-tmpdir)
extern std::string INDIR;     // input directory with its "/" (-idir)
extern std::string OUTDIR;    // output directory with its "/" (-odir)
extern std::string GEODIR;    // geoid directory with its "/" (-gdir)
extern std::string INPARSE;   // text input columns (-iparse)
extern std::string OUTPARSE;  // text output columns (-oparse)
extern std::string SOFTINFO;  // the soft-info string that headers and saved options carry
extern double DATAUNIT;       // metres per unit of the input files
extern double DATAUNIT_Z;     // the same for their heights
extern double OUTDATAUNIT;    // metres per unit of the outputs

// Caches.
extern bool CACHE_TILE;       // reuse tile caches (-cache_tile)
extern bool CACHE_GRID;       // reuse grids (-cache_grid)
extern bool CACHE_REG;        // reuse registrations (-cache_reg)
extern bool CHECK_SW_TSTAMP;  // compare the time stamps of the sources (-cache_mt_chk)

// Tiling.
extern int DT_RANGE;     // s, full scale of the coded time range (-dt_range)
extern float DEV_RANGE;  // full scale of the coded time deviation, ratio (-dev_range)
extern bool AUTO_ADJ;    // take the adjusted-time flag from the time stamps (-auto_adj)

// Gridding.
extern float GZ_SMAXF;   // largest roughness kept, multiple of the grid spacing (-grid_rough_max)
extern float TARGET_DF;  // target points per pixel (-ppp)
extern float GGSD_OPT;   // fixed grid spacing in m, -1 for automatic (-ggsd)

// Registration.
extern float Z_SMAXF;   // largest roughness compared, m and grid spacings (-rough_max)
extern float KEEPZmin;  // height range compared, m
extern float KEEPZmax;
extern float NR_SMAX;     // residual scale bound per unit of 2^J (-reg_s_max)
extern int NR_BOOST;      // tolerance multiplier (-boost)
extern int J0_REG;        // lowest level at which SIGMA0_REG applies, from Jend (-reg_j0)
extern float SIGMA0_REG;  // noise floor, height units (-reg_s0)
extern xyz MAXREGUNC;     // largest accepted vertex standard deviation per axis: pixels, pixels, height units
extern float H_STEP;      // histogram bin width, height units

// Geometry.
extern bool CALINTGEN;      // generic internal model (-int_gen)
extern bool CALINTNOB;      // no range-bias shift (-int_nob)
extern float PO_SPEED_MAX;  // m/s, fastest step between trajectory records (-po_speed), 0 off
extern float PO_CLIMB_MAX;  // m/s, the same for heights (-po_climb)
extern float PO_RATE_MAX;   // degrees/s, the same for each angle (-po_rate)
extern float PO_BAD_MAX;    // percent of records that may be wrong (-po_bad)
extern double MAX_TRAJ_DT;  // s, largest accepted gap between trajectory samples
}  // namespace veld
