#include "prj/LiDAR/tuning.h"

namespace veld {
int MEM_MB = 4096;
int NTHREADS = 1;
int NTHREADSIO = 1;
int DEBUG_LEVEL = 0;
std::string TMPDIR;
std::string INDIR;
std::string OUTDIR;
std::string GEODIR;
std::string INPARSE = "xyzt";
std::string OUTPARSE = "xyzt";
std::string SOFTINFO = "VELDRUNNER 2.26";
double DATAUNIT = 1.0;
double DATAUNIT_Z = 1.0;
double OUTDATAUNIT = 1.0;

bool CACHE_TILE = true;
bool CACHE_GRID = true;
bool CACHE_REG = true;
bool CHECK_SW_TSTAMP = true;

int DT_RANGE = 4;
float DEV_RANGE = 0.2f;
bool AUTO_ADJ = false;

float GZ_SMAXF = 1000.0f;
float TARGET_DF = 1.0f;
float GGSD_OPT = -1.0f;

float Z_SMAXF = 1.5f;
float KEEPZmin = -10000.0f;
float KEEPZmax = 10000.0f;
float NR_SMAX = 0.1f;
int NR_BOOST = 2;
int J0_REG = 1;
float SIGMA0_REG = 0.0f;
xyz MAXREGUNC = {5.0f, 5.0f, 5.0f};  // the largest -unc_max, so that the inversion alone decides below it
float H_STEP = 1.0f / 1024.0f;

bool CALINTGEN = false;
bool CALINTNOB = false;
float PO_SPEED_MAX = 300.0f;
float PO_CLIMB_MAX = 100.0f;
float PO_RATE_MAX = 500.0f;
float PO_BAD_MAX = 1.0f;
double MAX_TRAJ_DT = 1.0;
}  // namespace veld
