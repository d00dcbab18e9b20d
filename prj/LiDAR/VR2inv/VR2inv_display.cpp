#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <ostream>
#include <set>
#include <string_view>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"

namespace veld {
namespace {
constexpr double HIGH_CORR = 0.5, TOO_HIGH_CORR = 0.95;
constexpr double MAX_BORE = 0.00872664526;  // rad: half a degree

const char* ROW_LABELS[N_EXTERNAL] = {"LX       ", "LY       ", "LZ       ",
                                      "Roll     ", "Pitch    ", "Yaw      "};

std::string letters(const bool* flags, const char* alphabet, int n) {
  std::string text;
  for (int k = 0; k < n; k++)
    if (flags[k]) text += alphabet[k];
  return text.empty() ? "0" : text;
}

std::string number(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

double in_degrees(int c) {
  return c >= 3 && c < N_EXTERNAL ? DEG_PER_RAD : 1.0;
}  // factor of row c of the table
float value_of(const Calib& cal, int c) {
  return static_cast<float>(c < 3            ? axis(cal.L, c)
                            : c < N_EXTERNAL ? axis(cal.B, c - 3)
                                             : cal.I(c - N_EXTERNAL));
}

// Writes a file under a name of its own and gives it the final one when it is complete.
bool write_whole(const std::string& name, const std::function<void(std::ostream&)>& body) {
  ResultFile out;
  if (!out.open(name)) return false;
  body(out.fs);
  return out.commit();
}

void put_calib(std::ostream& os, const Calib& cal) {
  for (int c = 0; c < N_EXTERNAL; c++) os << number("%.6f ", value_of(cal, c) * in_degrees(c));
  for (int k = 0; k < N_INTERNAL; k++) os << number(k + 1 < N_INTERNAL ? "%.8f " : "%.8f", cal.I(k));
}

// The first swath of a set; none for a set without.
SwathId first_of_set(const InvResult& res, int set) {
  for (const SwathId s : res.swaths.ids())
    if (res.swaths[s].cal == set) return s;
  return SwathId();
}

// A set as the calibration files have it: what was found, on top of the calibration that the swaths were made with.
Calib updated(const InvParam& par, Calib cal) {
  if (!par.has_initial) return cal;
  cal.L += par.initial.L;
  cal.B += par.initial.B;
  for (int k = 0; k < N_INTERNAL; k++) cal.I(k) += par.initial.I(k);
  return cal;
}

// Swaths of each set, and the row of "_cal.log" for it.
void put_cal_log(std::ostream& os, const InvCalDrift& inv, const InvResult& res) {
  os << "Lever{X Y Z} Bore{Roll Pitch Yaw} Int{I1 I2 I3 I4 I5 I6 I7} NSwaths{Ext Int} Swath# Group# Ch# "
        "FileName "
        "[Lever m, Bore degrees, I m or rad]\n";
  for (size_t set = 0; set < res.calib.size(); set++) {
    const SwathId first = first_of_set(res, static_cast<int>(set));
    if (first == SwathId()) continue;
    int next = 0, nint = 0;
    for (const SwState& w : inv.sw) {
      next += w.mobile && w.ext_set == inv.sw[first].ext_set;
      nint += w.mobile && w.int_set == inv.sw[first].int_set;
    }
    put_calib(os, res.calib[set]);
    os << ' ' << next << ' ' << nint << ' ' << first << ' ' << inv.in.swaths[first].group << ' '
       << inv.in.swaths[first].channel << ' ' << inv.in.swaths[first].name << '\n';
  }
}

// Of a value and uncertainty as the covariance has them, by the first letter of the parameter's name.
const char* unit_of(const std::string& name) {
  constexpr int NLEVER = 3;
  if (name[0] == 'I') return "internal";
  if (name[0] == 'S') return "m";
  const std::string_view letters(EXT_LETTERS);
  return letters.find(name[0]) < NLEVER ? "m" : "rad";
}

void put_cov(std::ostream& os, const InvResult& res) {
  const int n = static_cast<int>(res.cal_names.size());
  os << "Parameter Unit Uncertainty Correlations{upper triangle}\n";
  for (int i = 0; i < n; i++) {
    os << res.cal_names[i] << ' ' << unit_of(res.cal_names[i]) << ' ' << number("%.3e", res.cal_sigma(i))
       << ' ';
    for (int j = 0; j < n; j++) os << (j < i ? "       ." : number("%8.4f", res.cal_corr(j, i)));
    os << '\n';
  }
}

// In the order of x. With several sets of a kind the set's number follows.
void name_parameters(const InvCalDrift& inv, InvResult& res) {
  const auto put = [&](const std::string& name, int nset) {
    for (int set = 0; set < nset; set++)
      res.cal_names.push_back(nset > 1 ? name + "_" + std::to_string(set) : name);
  };
  for (int c = 0; c < N_EXTERNAL; c++)
    if (inv.FE[c]) put(std::string(1, EXT_LETTERS[c]), inv.ncalext);
  for (int k = 0; k < N_INTERNAL; k++)
    if (inv.FI[k]) put("I" + std::to_string(k + 1), inv.ncalint);
  if (inv.ShiftRef)
    for (const char* name : {"SX", "SY", "SZ"}) res.cal_names.push_back(name);
}

// Standard deviations and correlations from the covariance.
void comp_correlations(const InvCalDrift& inv, InvResult& res) {
  const int n = inv.cov.xsize();
  name_parameters(inv, res);
  ASSERT(res.cal_names.size() == static_cast<size_t>(n));
  res.cal_sigma.resize(n);
  res.cal_corr.resize(n, n);
  for (int i = 0; i < n; i++) res.cal_sigma(i) = std::sqrt(std::fmax(0.0, inv.cov(i, i)));
  for (int i = 0; i < n; i++)
    for (int j = 0; j < n; j++) {
      const double s = res.cal_sigma(i) * res.cal_sigma(j);
      res.cal_corr(j, i) = s > 0 ? inv.cov(j, i) / s : 0;
    }
}

// One parameter of two sets is not counted: channels that fly together have their difference far better determined than
// what they share, and need no fewer parameters for that; internals of swaths are tied to each other.
void warn_correlations(const InvResult& res) {
  const auto parameter = [&](int i) {
    const std::string& name = res.cal_names[static_cast<size_t>(i)];
    return name.substr(0, name.find('_'));
  };
  int nhigh = 0, ntoohigh = 0;
  for (int i = 0; i < res.cal_corr.ysize(); i++)
    for (int j = 0; j < i; j++) {
      if (parameter(i) == parameter(j)) continue;
      const double c = std::fabs(res.cal_corr(j, i));
      nhigh += c > HIGH_CORR;
      ntoohigh += c > TOO_HIGH_CORR;
    }
  if (nhigh > 0) LOG_MSG(nhigh << " calibration correlation coefficients > 0.5");
  if (ntoohigh > 0) WARNING_MSG(ntoohigh << " calibration correlation coefficients > 0.95");
}

// Uncertainty of row c of the table for the calibration set of a swath.
double sigma_of(const InvCalDrift& inv, const InvResult& res, SwathId swath, int c) {
  const SwState& w = inv.sw[swath];
  if (c < N_EXTERNAL) return w.ext_on ? res.cal_sigma(inv.ext0[c] + w.ext_set) * in_degrees(c) : 0;
  return res.cal_sigma(inv.int0[c - N_EXTERNAL] + w.int_set);
}

// The closing line of a parameter: its value and uncertainty, or the range over the sets where these differ.
std::string summary_line(const InvCalDrift& inv, const InvResult& res, int c) {
  const char* const names[N_EXTERNAL] = {"lever X",        "lever Y",         "lever Z",
                                         "boresight roll", "boresight pitch", "boresight yaw"};
  const std::string name = c < N_EXTERNAL ? names[c] : "internal I" + std::to_string(c - N_EXTERNAL + 1);
  const auto [lo, hi] =
      std::ranges::minmax(res.calib, {}, [c](const Calib& cal) { return value_of(cal, c); });
  if (value_of(lo, c) != value_of(hi, c))
    return "Found " + name + ": " + std::to_string(res.calib.size()) + " sets," +
           number(" %.6f", value_of(lo, c) * in_degrees(c)) + " to" +
           number(" %.6f", value_of(hi, c) * in_degrees(c)) + ", see _cal.log";
  const char* const unit = c < 3 ? " m" : c < N_EXTERNAL ? " degrees" : "";
  std::string text =
      "Found " + name + number(c < 3 ? " %.4f" : " %.6f", value_of(res.calib[0], c) * in_degrees(c));
  const SwathId sw = first_of_set(res, 0);
  if (!res.cal_sigma.empty() && sw != SwathId())
    text += number(c < 3 ? " +- %.4f" : " +- %.6f", sigma_of(inv, res, sw, c));
  return text + unit;
}

void show_table(const InvCalDrift& inv, InvResult& res) {
  res.summary.clear();
  constexpr size_t MAX_COLUMNS = 8;  // more sets stand in the file only
  const size_t nset = std::min(res.calib.size(), MAX_COLUMNS);
  for (int c = 0; c < N_EXTERNAL + N_INTERNAL; c++) {
    if (!(c < N_EXTERNAL ? inv.FE[c] : inv.FI[c - N_EXTERNAL])) continue;
    std::string line = c < N_EXTERNAL ? ROW_LABELS[c] : "I" + std::to_string(c - N_EXTERNAL + 1) + "       ";
    std::string unc = "UNC      ";
    const char* format = c < 3 ? " %10.4f" : " %10.6f";
    for (size_t set = 0; set < nset; set++) {
      line += number(format, value_of(res.calib[set], c) * in_degrees(c));
      const SwathId sw = first_of_set(res, static_cast<int>(set));
      if (!res.cal_sigma.empty() && sw != SwathId()) unc += number(format, sigma_of(inv, res, sw, c));
    }
    LOG_MSG(line);
    if (!res.cal_sigma.empty()) LOG_MSG(unc);
    res.summary.push_back(summary_line(inv, res, c));
  }
}

bool write_files(const InvCalDrift& inv, const InvResult& res) {
  LOG_MSG("Writing calibration component output " << inv.name << "_cal.log");
  if (!write_whole(inv.name + "_cal.log", [&](std::ostream& os) { put_cal_log(os, inv, res); })) return false;
  for (size_t s = 0; s < res.calib.size(); s++) {  // a file a set: the form holds only one
    const std::string file =
        inv.name + (res.calib.size() > 1 ? "_cal_" + std::to_string(s) : "_cal") + ".txt";
    LOG_MSG("Writing Sarnel-compatible calibration file " << file);
    const auto put = [&](std::ostream& os) {
      put_calib(os, updated(inv.par, res.calib[s]));
      if (inv.par.has_initial) os << "\n# update of the initial calibration";
      os << "\n# lever X Y Z (m), boresight roll pitch yaw (degrees), internal I1 to I7 (m, rad, 1)\n";
    };
    if (!write_whole(file, put)) return false;
  }
  if (res.cal_sigma.empty()) return true;
  LOG_MSG("Writing calibration correlations and uncertainties " << inv.name << "_cal_cov.txt");
  return write_whole(inv.name + "_cal_cov.txt", [&](std::ostream& os) { put_cov(os, res); });
}
}  // namespace

void display_init(const InvCalDrift& inv) {
  LOG_ENTER("display_init step=" << inv.step);
  const InvParam& p = inv.par;
  const std::string ext = letters(inv.FE, EXT_LETTERS, N_EXTERNAL),
                    intl = letters(inv.FI, "1234567", N_INTERNAL);
  LOG_MSG("INVERSION STEP " << inv.step << ": CAL " << (ext == "0" ? "" : ext) << (intl == "0" ? "" : intl)
                            << (inv.FCAL ? "" : "0") << " | DRIFT=" << letters(inv.FD, EXT_LETTERS, 6));
  if (inv.FCAL)
    LOG_MSG("EXT=" << ext
                   << (p.CAL1     ? ""
                       : !p.EXTSW ? "/grp"
                                  : "/sw")
                   << " n=" << inv.ncalext << (p.CALR ? " (REL) " : " ") << "INT=" << intl
                   << (p.CAL1     ? ""
                       : !p.INTSW ? "/grp"
                                  : "/sw")
                   << " n=" << inv.ncalint << ' ' << (p.CALINTGEN ? "Generic " : "")
                   << (p.CALINTNOB ? "NoBias " : ""));
  const char* modes[] = {"Sym ", "FavAtt ", "FavPos "};
  LOG_MSG("Pri=" << modes[p.FA >= 0 && p.FA < 3 ? p.FA : 0] << (p.FM ? "MeanSub " : "")
                 << (inv.ShiftRef ? "ShiftRef " : ""));
  int nline = 0, nmin = 0, nmax = 0;
  std::set<int> seen;
  for (const SwState& w : inv.sw) {
    if (!w.mobile || w.node0 < 0 || !seen.insert(w.node0).second) continue;
    nmin = nline == 0 ? w.nt : std::min(nmin, w.nt);
    nmax = std::max(nmax, w.nt);
    nline++;
  }
  if (!inv.drift)
    LOG_MSG("Time-dependent corrections: [SKIP]");
  else if (nmax <= 1)
    LOG_MSG("Time-dependent corrections: " << inv.nTAnd << " CP total, 1 CP/line (const/line)");
  else if (nmax == 2 && nmin == 2)
    LOG_MSG("Time-dependent corrections: " << inv.nTAnd
                                           << " CP total, with 2 CP/line (linear drift) dt=" << inv.dt());
  else
    LOG_MSG("Time-dependent corrections: " << inv.nTAnd << " CP total, btw " << nmin << " and " << nmax
                                           << " CP/line, dt=" << inv.dt());
  LOG_MSG("Step " << inv.step << " inversion dim " << inv.dim);
  LOG_LINE("Calib param " << (inv.FCAL ? ext + intl : "0"));
  LOG_LINE("Step " << inv.step << " drift param " << inv.TAstride * inv.nTAnd);
}

bool calib_display(const InvCalDrift& inv, InvResult& res) {
  LOG_ENTER("calib_display nset=" << res.calib.size() << " ncalint=" << inv.ncalint << " ncalext="
                                  << inv.ncalext << " CAL1=" << inv.par.CAL1 << " CALGI=" << !inv.par.INTSW
                                  << " CALGE=" << !inv.par.EXTSW << " calib=" << inv.FCAL);
  if (!inv.FCAL) return true;
  if (!inv.cov.empty()) comp_correlations(inv, res);
  show_table(inv, res);
  if (!inv.name.empty() && !write_files(inv, res)) return false;
  if (!inv.undetermined.empty() && !inv.name.empty())
    WARNING_MSG(
        "the overlaps alone do not determine the whole calibration, priors hold it:" << inv.undetermined);
  warn_correlations(res);
  for (const Calib& cal : res.calib)
    if (std::fabs(cal.B.x) > MAX_BORE || std::fabs(cal.B.y) > MAX_BORE) {
      WARNING_MSG("boresight exceeds 0.5 deg, may not produce accurate results when exported");
      break;
    }
  return true;
}
}  // namespace veld
