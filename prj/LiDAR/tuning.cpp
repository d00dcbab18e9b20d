#include "prj/LiDAR/tuning.h"

namespace veld {
Tuning TUNING;

std::string TMPDIR;
std::string INDIR;
std::string OUTDIR;
std::string GEODIR;
std::string SOFTINFO = "VELDRUNNER 2.26";
double DATAUNIT = 1.0;
double DATAUNIT_Z = 1.0;
double OUTDATAUNIT = 1.0;
double OUTDATAUNIT_Z = 1.0;

float KEEPZmin = -10000.0f;
float KEEPZmax = 10000.0f;
xyz MAXREGUNC = {5.0f, 5.0f, 5.0f};  // the largest -unc_max, so that the inversion alone decides below it
float H_STEP = 1.0f / 1024.0f;
double MAX_TRAJ_DT = 1.0;
}  // namespace veld
