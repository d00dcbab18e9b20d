#include "prj/LiDAR/options/steer_opt.h"

#include <cmath>
#include <cstdlib>
#include <string_view>

#include "lib/general/log.h"

namespace veld {
namespace {
constexpr std::string_view CAL_LETTERS = "0LBIxyzwpk1234567";
constexpr std::string_view DPOC_LETTERS = "0TAxyzwpk";
constexpr std::string_view ILLEGAL = "\\/:?*\"<>|";  // characters that must not stand in a file name

// Whether each letter of arg is one of the alphabet, and none comes twice.
bool letters_ok(const char* option, const std::string& arg, std::string_view alphabet) {
  size_t matched = 0;
  for (const char c : alphabet)
    if (arg.find(c) != std::string::npos) matched++;
  if (matched == arg.size()) return true;
  ERROR_MSG("option " << option << ": could not parse argument '" << arg << "', expecting {" << alphabet
                      << "}");
  return false;
}

bool has(const std::string& arg, char letter, char group) {
  if (arg.find('0') != std::string::npos) return false;  // "0" clears all
  return arg.find(letter) != std::string::npos || arg.find(group) != std::string::npos;
}
}  // namespace

bool parse_calib_opt(const std::string& arg, bool uav, InvParam& inv) {
  const std::string deflt = uav ? "B3" : "B23456";
  LOG_ENTER("parse_calib_opt arg='" << arg << "' ref='" << CAL_LETTERS << "' def='" << deflt << "'");
  std::string value = arg;
  if (value.empty()) {
    value = deflt;
    LOG_MSG("calibration parameter string: using default " << value);
  }
  if (!letters_ok("-cal", value, CAL_LETTERS)) return false;
  inv.Fx = has(value, 'x', 'L');
  inv.Fy = has(value, 'y', 'L');
  inv.Fz = has(value, 'z', 'L');
  inv.Fw = has(value, 'w', 'B');
  inv.Fp = has(value, 'p', 'B');
  inv.Fk = has(value, 'k', 'B');
  for (int k = 0; k < N_INTERNAL; k++) inv.FE[k] = has(value, static_cast<char>('1' + k), 'I');
  return true;
}

bool parse_drift_opt(const std::string& arg, DriftOpt& drift) {
  LOG_ENTER("parse_drift_opt arg='" << arg << "'");
  drift = DriftOpt();
  if (arg.find("con") != std::string::npos) {
    drift.con = true;
    return true;
  }
  if (arg.find("auto") != std::string::npos) {
    drift.auto_dt = true;
    return true;
  }
  char* end = nullptr;
  const float dt = std::strtof(arg.c_str(), &end);
  if (arg.empty() || *end != '\0' || !std::isfinite(dt)) {
    ERROR_MSG("option -drift: invalid argument " << arg << " - expecting 'con' or nonzero time interval");
    return false;
  }
  if (dt < 0) {
    ERROR_MSG("option -drift: time interval must be >=0");
    return false;
  }
  drift.none = dt == 0;
  drift.dt = static_cast<double>(dt);
  return true;
}

bool parse_drift_comp_opt(const std::string& arg, InvParam& inv) {
  LOG_ENTER("parse_drift_comp_opt arg='" << arg << "'");
  const std::string value = arg.empty() ? "TA" : arg;
  if (!letters_ok("-dpoc", value, DPOC_LETTERS)) return false;
  inv.Ftx = has(value, 'x', 'T');
  inv.Fty = has(value, 'y', 'T');
  inv.Ftz = has(value, 'z', 'T');
  inv.Faw = has(value, 'w', 'A');
  inv.Fap = has(value, 'p', 'A');
  inv.Fak = has(value, 'k', 'A');
  return true;
}

bool parse_output_name(const std::string& pattern, OutputName& out) {
  LOG_ENTER("parse_output_name '" << pattern << "'");
  out = OutputName();
  const size_t star = pattern.find('*');
  std::string suffix;
  if (star != std::string::npos) {
    out.prefix = pattern.substr(0, star);
    suffix = pattern.substr(star + 1);
    const size_t dot = suffix.rfind('.');
    if (dot != std::string::npos) {
      out.ext = suffix.substr(dot);
      suffix.resize(dot);
    }
    out.suffix = suffix;
  }
  if (star == std::string::npos || (out.prefix + suffix).find_first_of(ILLEGAL) != std::string::npos) {
    ERROR_MSG("invalid output format, prefix*suffix.ext required, no illegal characters");
    return false;
  }
  for (char& c : out.ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (!out.ext.empty() && out.ext != ".las" && out.ext != ".laz") {
    ERROR_MSG("output format extension not supported");
    return false;
  }
  return true;
}

void show_output_name(const OutputName& out, const Options& o) {
  LOG_MSG("LiDAR output: '" << out.prefix << "*" << out.suffix << out.ext << "'" << (o.opls ? " + PLS" : "")
                            << (o.oplz ? " + PLZ" : "") << (o.correction.lax ? " + LAX" : "")
                            << (o.correction.lax && o.correction.lax_append ? "(append)" : "")
                            << (o.correction.tile.size > 0 ? " [TILES] " : ""));
}

bool steer_correction(const Options& o, CorrParam& par) {
  InvParam& inv = par.inv;
  DriftOpt drift;
  bool ok = parse_calib_opt(o.cal, o.uav != 0, inv);
  ok = parse_drift_opt(o.drift, drift) && ok;
  ok = parse_drift_comp_opt(o.dpoc, inv) && ok;
  if (!parse_output_name(o.out, par.out) || !ok) return false;
  if (drift.none) inv.Ftx = inv.Fty = inv.Ftz = inv.Faw = inv.Fap = inv.Fak = false;
  const bool any_drift = inv.Ftx || inv.Fty || inv.Ftz || inv.Faw || inv.Fap || inv.Fak;
  inv.dt = drift.dt;
  inv.HF = any_drift && !drift.con;
  par.auto_dt = any_drift && drift.auto_dt;
  return true;
}

bool check_steering(const Options& o) {
  InvParam inv;
  DriftOpt drift;
  OutputName out;
  bool ok = o.cal.empty() || parse_calib_opt(o.cal, o.uav != 0, inv);
  ok = parse_drift_opt(o.drift, drift) && ok;
  ok = parse_drift_comp_opt(o.dpoc, inv) && ok;
  return parse_output_name(o.out, out) && ok;
}
}  // namespace veld
