#include "prj/LiDAR/VR2geom/calib.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lib/general/log.h"
#include "lib/general/txtfile.h"

namespace veld {
namespace {
// The numbers at the start of a file, up to nmax, over as many lines as they take; the first token that is
// not a finite number ends them. False when the file cannot be read.
bool read_numbers(const std::string& name, size_t nmax, std::vector<float>& v) {
  TxtFileIn file(name, true);
  if (!file.is_open()) return false;
  std::string line;
  while (v.size() < nmax && file.getline(line)) {
    const char* p = line.c_str();
    while (v.size() < nmax) {
      p += std::strspn(p, " \t,");
      if (*p == '\0') break;
      char* end = nullptr;
      const float number = std::strtof(p, &end);
      if (end == p || !std::isfinite(number)) return true;
      v.push_back(number);
      p = end;
    }
  }
  return true;
}

xyz triple(const std::vector<float>& v, size_t at) { return {v[at], v[at + 1], v[at + 2]}; }
}  // namespace

bool Calib::read_file(const std::string& name) {
  std::vector<float> v;
  if (!read_numbers(name, 6 + DIMCALINT, v)) return false;
  if (v.size() < 6) {
    ERROR_MSG("no calibration corrections (3 lever, 3 bore) found in file " << name);
    return false;
  }
  if (v.size() < 6 + DIMCALINT)
    WARNING_MSG("not all " << DIMCALINT << " internal corrections found in file " << name);
  v.resize(6 + DIMCALINT, 0.0f);
  L = triple(v, 0);
  B = triple(v, 3);
  I.resize(DIMCALINT);
  for (int k = 0; k < DIMCALINT; k++) I(k) = v[6 + static_cast<size_t>(k)];
  LOG_LINE("L: " << L.x << ' ' << L.y << ' ' << L.z << " B: " << B.x << ' ' << B.y << ' ' << B.z
                 << " int: " << I(0) << ' ' << I(1) << ' ' << I(2) << ' ' << I(3) << ' ' << I(4) << ' '
                 << I(5) << ' ' << I(6));
  B *= 0.01745329f;
  return true;
}

bool Mount::read_file(const std::string& name) {
  std::vector<float> v;
  if (!read_numbers(name, 6, v)) return false;
  if (v.size() < 3) {
    ERROR_MSG("no BODY/IMU rotation angles found in mount file " << name);
    return false;
  }
  IMU = triple(v, 0);
  Bore = {0, 0, 0};
  if (v.size() < 6)
    WARNING_MSG("no boresight angle found in mount file " << name);
  else
    Bore = triple(v, 3);
  LOG_LINE("IMU: " << IMU.x << ' ' << IMU.y << ' ' << IMU.z << " Bore: " << Bore.x << ' ' << Bore.y << ' '
                   << Bore.z);
  return true;
}

bool chShift::read_file(const std::string& name) {
  std::vector<float> v;
  if (!read_numbers(name, 3, v)) return false;
  if (v.size() < 3) {
    ERROR_MSG("no 3D shift vector found in file " << name);
    return false;
  }
  S = triple(v, 0);
  LOG_LINE("Shift: " << S.x << ' ' << S.y << ' ' << S.z);
  return true;
}
}  // namespace veld
