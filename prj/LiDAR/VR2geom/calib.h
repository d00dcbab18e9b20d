// prj/LiDAR/VR2geom/calib.h
// The records of sensor geometry that users give as small text files: calibration, mount, shift.
#pragma once
#include <string>

#include "lib/DataStructure/vector.h"
#include "lib/Geometry/xyz.h"

namespace veld {
constexpr int N_INTERNAL = 7;  // internal parameters

constexpr int DIMCALINT = 7;  // internal parameters

struct Calib {                           // one set of calibration corrections, added to points
  xyz L = {0, 0, 0};                     // lever arm X, Y, Z, m
  xyz B = {0, 0, 0};                     // boresight roll, pitch, yaw, rad (degrees in its file)
  Vector<float> I{0, 0, 0, 0, 0, 0, 0};  // internal parameters I1..I7
  // Reads 6 to 13 numbers: 3 lever, 3 bore, internals. False after an ERROR line; missing internals are a
  // WARNING.
  [[nodiscard]] bool read_file(const std::string& name);
};

struct Mount {           // of a channel or group
  xyz IMU = {0, 0, 0};   // rotation between IMU and body: roll, pitch, yaw, degrees
  xyz Bore = {0, 0, 0};  // initial boresight, degrees
  // Reads 3 IMU angles and 3 boresight angles. False after an ERROR line; a missing boresight is a WARNING.
  [[nodiscard]] bool read_file(const std::string& name);
};

struct Shift {        // of a group or swath
  xyz S = {0, 0, 0};  // m
};
struct chShift : Shift {  // read from a file of three numbers
  [[nodiscard]] bool read_file(const std::string& name);
};
}  // namespace veld
