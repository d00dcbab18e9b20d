// Sections of the report on swaths against each other: differences, calibration, drift, residuals.
#include <algorithm>
#include <cmath>
#include <set>

#include "lib/Geometry/angle.h"
#include "prj/LiDAR/report/html.h"
#include "prj/LiDAR/report/report_parts.h"

namespace veld {
namespace {
using Rows = std::vector<std::vector<std::string>>;
constexpr size_t MAX_BARS = 40;    // pairs drawn; the table has all of them
constexpr int MAX_MATRIX = 12;     // parameters whose correlations make a table
constexpr size_t MAX_LISTED = 40;  // correlations of more of them
constexpr double LISTED = 0.5;     // those of at least this size
constexpr size_t MAX_FLIGHTS = 8;  // drawn; the table of the drift has all

std::string fixed(double v, int digits) {
  char text[48];
  std::snprintf(text, sizeof text, "%.*f", digits, v);
  return text;
}

// A parameter in words, by its name in the correlations: a letter or internal, and the number of its set.
std::string parameter_words(const std::string& name) {
  const struct {
    const char *letter, *words;
  } known[] = {{"x", "lever X"},        {"y", "lever Y"},         {"z", "lever Z"},
               {"w", "boresight roll"}, {"p", "boresight pitch"}, {"k", "boresight yaw"},
               {"SX", "shift X"},       {"SY", "shift Y"},        {"SZ", "shift Z"}};
  const size_t bar = name.find('_');
  const std::string letter = name.substr(0, bar),
                    set = bar == std::string::npos ? "" : ", set " + name.substr(bar + 1);
  for (const auto& k : known)
    if (letter == k.letter) return k.words + set;
  return "internal " + letter + set;
}

bool is_angle(const std::string& name) { return name[0] == 'w' || name[0] == 'p' || name[0] == 'k'; }

// How far an uncertain roll or pitch moves the ground below.
std::string on_ground(const std::string& name, double sigma, double AGL) {
  return (name[0] == 'w' || name[0] == 'p') && AGL > 0 ? m3(sigma * AGL) : "-";
}

void put_correlations(std::ostream& os, const InvResult& inv, double AGL) {
  const int n = static_cast<int>(inv.cal_names.size());
  if (n == 0 || inv.cal_sigma.empty()) return;
  const bool matrix = n <= MAX_MATRIX;
  std::vector<std::string> head = {"Parameter", "Uncertainty", "Unit", "On the ground, m"};
  Rows rows;
  for (int i = 0; i < n; i++) {
    const std::string& name = inv.cal_names[static_cast<size_t>(i)];
    const double sigma = inv.cal_sigma(i);
    rows.push_back({parameter_words(name),
                    is_angle(name)   ? fixed(sigma * DEG_PER_RAD, 5)
                    : name[0] == 'I' ? LOG_STR(std::scientific << sigma)
                                     : fixed(sigma, 4),
                    is_angle(name)   ? "degrees"
                    : name[0] == 'I' ? "internal"
                                     : "m",
                    on_ground(name, sigma, AGL)});
    if (!matrix) continue;
    head.push_back(parameter_words(name));
    for (int j = 0; j < n; j++) rows.back().push_back(j < i ? "" : fixed(inv.cal_corr(j, i), 2));
  }
  put_table(os,
            matrix ? "Uncertainties (one standard deviation) and correlations"
                   : "Uncertainties (one standard deviation)",
            head, rows, 1);
  if (matrix) return;
  rows.clear();
  for (int i = 0; i < n; i++)
    for (int j = i + 1; j < n; j++)
      if (std::fabs(inv.cal_corr(j, i)) >= LISTED && rows.size() < MAX_LISTED)
        rows.push_back({parameter_words(inv.cal_names[static_cast<size_t>(i)]),
                        parameter_words(inv.cal_names[static_cast<size_t>(j)]),
                        fixed(inv.cal_corr(j, i), 2)});
  if (rows.empty())
    os << "<p>No correlation is 0.5 or more.</p>\n";
  else
    put_table(os, "Correlations of 0.5 and more, the first 40", {"Parameter", "With", "Correlation"}, rows,
              2);
}

// One axis of a drift: 0 to 2 position in metres, 3 to 5 attitude in degrees.
double drift_value(const InvCorr& c, uint64_t node, int axis) {
  const xyz& v = axis < 3 ? c.Tt[node] : c.At[node];
  const int k = axis % 3;
  const double value = static_cast<double>(k == 0 ? v.x : k == 1 ? v.y : v.z);
  return axis < 3 ? value : value * DEG_PER_RAD;
}

// Corrections by hand have none.
bool has_drift(const CorrResult& corr, SwathId sw) {
  return corr.inv.swaths.has(sw) && !corr.inv.swaths[sw].Tt.empty();
}

// A row a swath: the value of largest magnitude on each axis.
void put_drift_table(std::ostream& os, const Project& prj, const CorrResult& corr) {
  Rows rows;
  for (const SwathId sw : corr.swc) {
    if (!has_drift(corr, sw)) continue;
    const InvCorr& c = corr.inv.swaths[sw];
    std::vector<std::string> row = {to_string(sw), short_name(prj, sw), std::to_string(c.Tt.size())};
    for (int axis = 0; axis < 6; axis++) {
      double most = 0;
      for (uint64_t k = 0; k < (axis < 3 ? c.Tt.size() : c.At.size()); k++)
        if (const double v = drift_value(c, k, axis); std::fabs(v) > std::fabs(most)) most = v;
      row.push_back(fixed(most, axis < 3 ? 3 : 4));
    }
    rows.push_back(row);
  }
  put_table(
      os, "Largest correction of the drift in each swath",
      {"Swath", "File", "Nodes", "X, m", "Y, m", "Z, m", "Roll, degrees", "Pitch, degrees", "Yaw, degrees"},
      rows, 2);
}
}  // namespace

void put_differences(std::ostream& os, const Project& prj, const CorrResult& corr, const ReportInput& in) {
  os << "<h2 id=\"pairs\">Height differences between swaths</h2>\n";
  if (corr.qc.nused == 0) {
    os << "<p>The differences after the correction were not measured.</p>\n";
    return;
  }
  std::vector<PairQC> pairs = corr.qc.pairs;
  std::ranges::stable_sort(pairs, std::greater<>(), [](const PairQC& p) { return p.stat.rms; });
  std::vector<BarPair> bars;
  Rows rows;
  for (const PairQC& p : pairs) {
    const std::string name = pair_name(prj, p.sw1, p.sw2);
    if (bars.size() < MAX_BARS)
      bars.push_back({name, static_cast<double>(p.before.rms), static_cast<double>(p.stat.rms)});
    rows.push_back(
        {name, m3(p.before.m), m3(p.before.rms), m3(p.stat.m), m3(p.stat.rms), std::to_string(p.stat.n)});
  }
  put_bars(os, pairs.size() > MAX_BARS ? "The 40 worst pairs, RMS" : "RMS by pair, the worst first", bars);
  put_table(os, "All pairs on the ground that both have, the worst first, m",
            {"Pair", "Median before", "RMS before", "Median after", "RMS after", "Pixels"}, rows, 1);
  put_histograms(os, "Height differences of all pairs", in.hist, corr.qc.hist);
  const bool first = put_picture(os, prj.name + "_DZ.jpg",
                                 "Height differences before, the largest at each place", MAX_PICTURE),
             second = put_picture(os, prj.name + "_DZcorr.jpg",
                                  "Height differences after, the largest at each place", MAX_PICTURE);
  if (first || second)
    put_scale(os,
              in.map.DZ_mix ? "Colours of the maps of height differences"
                            : "Colours of the maps of height differences, by magnitude",
              dz_scale(in.map));
  else
    os << "<p>No maps of the differences stand here: they were not drawn as JPEG, or are larger than 6 "
          "MB.</p>\n";
}

std::vector<std::string> calibration_lines(const CorrResult& corr) {
  std::vector<std::string> lines;
  for (std::string line : corr.inv.summary) {
    if (line.starts_with("Found ")) line.erase(0, 6);
    if (const size_t at = line.find("+-"); at != std::string::npos) line.replace(at, 2, "\u00b1");
    lines.push_back(line);
  }
  return lines;
}

void put_calibration(std::ostream& os, const CorrResult& corr) {
  os << "<h2 id=\"cal\">Calibration</h2>\n";
  const std::vector<std::string> lines = calibration_lines(corr);
  if (lines.empty()) {
    os << "<p>No calibration was estimated.</p>\n";
  } else {
    os << "<p>Corrections to be added, with one standard deviation:</p>\n<ul>";
    for (const std::string& line : lines) os << "<li>" << html_text(line) << "</li>\n";
    os << "</ul>\n";
  }
  if (!corr.inv.significant)
    os << "<p>The displacements are no larger than what vegetation makes: nothing was corrected.</p>\n";
  put_correlations(os, corr.inv, corr.AGL);
}

void put_drifts(std::ostream& os, const Project& prj, const CorrResult& corr) {
  os << "<h2 id=\"drift\">Drift of the trajectory</h2>\n";
  const char* const labels[] = {"Position X, m", "Position Y, m",  "Position Z, m",
                                "Roll, degrees", "Pitch, degrees", "Yaw, degrees"};
  std::map<int, std::vector<SwathId>> flights;  // by trajectory file
  for (const SwathId sw : corr.swc)
    if (has_drift(corr, sw)) flights[prj.swaths[sw].track.file].push_back(sw);
  if (flights.empty()) {
    os << "<p>No drift was estimated.</p>\n";
    return;
  }
  os << "<p>Corrections added to positions and attitudes. A line of the plots is a swath, with its "
        "number.</p>\n";
  put_drift_table(os, prj, corr);
  size_t nflight = 0;
  for (const auto& [file, swaths] : flights) {
    if (nflight++ == MAX_FLIGHTS) {
      os << "<p>Plots of the first 8 flights; the others stand in the table, and by time in "
         << html_text(base_name(prj.name)) << "_TA.log.</p>\n";
      break;
    }
    std::string flight;
    if (flights.size() > 1)
      flight = file >= 0 && static_cast<size_t>(file) < prj.pofiles.size()
                   ? base_name(prj.pofiles[static_cast<size_t>(file)].path) + ": "
                   : "flight " + std::to_string(nflight) + ": ";
    for (int axis = 0; axis < 6; axis++) {
      std::vector<DriftLine> lines;
      for (const SwathId sw : swaths) {
        const InvCorr& c = corr.inv.swaths[sw];
        DriftLine line;
        line.name = to_string(sw);
        for (uint64_t k = 0; k < (axis < 3 ? c.Tt.size() : c.At.size()); k++) {
          line.t.push_back(c.t0 + static_cast<double>(k) * c.Dt);
          line.v.push_back(drift_value(c, k, axis));
        }
        lines.push_back(std::move(line));
      }
      put_drift(os, flight + labels[axis], lines);
    }
  }
}

void put_residuals(std::ostream& os, const Project& prj, const CorrResult& corr, const ReportInput& in) {
  os << "<h2 id=\"res\">Displacements that are left</h2>\n";
  Rows rows;
  for (const InvPairStat& p : corr.inv.pairs)
    rows.push_back(
        {pair_name(prj, p.sw1, p.sw2), m3(p.rms.x), m3(p.rms.y), m3(p.rms.z), std::to_string(p.n)});
  if (rows.empty()) {
    os << "<p>No statistics of residuals.</p>\n";
    return;
  }
  const xyz &a = corr.inv.def_rms, &b = corr.inv.res_rms;
  put_table(os, "RMS of the displacements between swaths, m", {"All pairs", "X", "Y", "Z"},
            {{"measured", m3(a.x), m3(a.y), m3(a.z)}, {"left by the corrections", m3(b.x), m3(b.y), m3(b.z)}},
            1);
  put_table(os, "What is left, by pair, m", {"Pair", "X", "Y", "Z", "Vectors"}, rows, 1);
  const float range = in.map.p_range > 0 ? in.map.p_range : in.map.vectors.range;
  for (const char* const axis : {"XY", "XZ", "YZ"})
    put_picture(os, prj.name + "_res_" + axis + ".jpg",
                std::string("Residuals in the plane ") + axis[0] + ", " + axis[1] +
                    LOG_STR(", from -" << range << " to " << range << " m; the brightest places have most"),
                MAX_PICTURE, true);
}
}  // namespace veld
