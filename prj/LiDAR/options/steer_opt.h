// prj/LiDAR/options/steer_opt.h
// Option strings that steer the inversion and the output: -cal, -dpoc, -drift, -out.
#pragma once
#include <string>

#include "prj/LiDAR/VR2inv/inv_param.h"
#include "prj/LiDAR/VR2proc/out_name.h"
#include "prj/LiDAR/options/options.h"

namespace veld {
// -cal: letters of "0LBIxyzwpk1234567". Empty: the default, by uav. False after an ERROR line.
[[nodiscard]] bool parse_calib_opt(const std::string& arg, bool uav, InvParam& inv);

// -drift: "con", "auto", or an interval in seconds; 0 is no drift.
struct DriftOpt {
  bool con = false;      // a constant per swath
  bool auto_dt = false;  // interval worked out from the data
  bool none = false;     // no drift at all
  double dt = 0;         // s
};
[[nodiscard]] bool parse_drift_opt(const std::string& arg, DriftOpt& drift);

// -dpoc: letters of "0TAxyzwpk". Empty: position.
[[nodiscard]] bool parse_drift_comp_opt(const std::string& arg, InvParam& inv);

// -out: prefix, one star, suffix, extension. A star alone keeps name and extension.
[[nodiscard]] bool parse_output_name(const std::string& pattern, OutputName& out);
// Parses -cal, -drift, -dpoc and -out into the parameters of a correction. False after an ERROR line for each
// mistake.
[[nodiscard]] bool steer_correction(const Options& o, CorrParam& par);

// Reports names and kinds of the corrected files on the console.
void show_output_name(const OutputName& out, const Options& o);

// Checks the four strings for runs that do not use them, so that a mistake in them is reported too.
[[nodiscard]] bool check_steering(const Options& o);
}  // namespace veld
