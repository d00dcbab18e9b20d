#include "prj/LiDAR/VR2geom/beam_calib.h"

#include <cmath>
#include <cstdlib>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "lib/general/txtfile.h"

namespace veld {
namespace {
constexpr size_t NCOLUMN = 6 + DIMCALINT + 5;  // with the two counts, swath, group, channel
constexpr size_t GROUP = NCOLUMN - 2, CHANNEL = NCOLUMN - 1;
constexpr size_t MAX_LINES = 4096;  // far more than there are beams

using Row = std::vector<double>;

// The numbers of a line; empty when it has anything else or not all columns.
Row parse_row(const std::string& line) {
  Row row;
  const char* at = line.c_str();
  char* end = nullptr;
  for (double v = std::strtod(at, &end); end != at; v = std::strtod(at, &end)) {
    if (!std::isfinite(v)) return {};
    row.push_back(v);
    at = end;
  }
  return row.size() == NCOLUMN ? row : Row();
}

// Which line each beam's set stands in, by a column whose values count from `first`. False when they don't.
bool order_by(const std::vector<Row>& rows, size_t column, int first, std::vector<size_t>& line_of) {
  line_of.assign(rows.size(), rows.size());
  for (size_t i = 0; i < rows.size(); i++) {
    const double beam = rows[i][column] - first;
    if (!(beam >= 0 && beam < static_cast<double>(rows.size())) || beam != std::floor(beam)) return false;
    size_t& line = line_of[static_cast<size_t>(beam)];
    if (line != rows.size()) return false;
    line = i;
  }
  return true;
}

Calib to_calib(const Row& row) {
  const auto at = [&row](size_t i) { return static_cast<float>(row[i]); };
  Calib cal;
  cal.L = {at(0), at(1), at(2)};
  cal.B = xyz{at(3), at(4), at(5)} * DEG2RAD;
  for (int k = 0; k < DIMCALINT; k++) cal.I(k) = at(6 + static_cast<size_t>(k));
  return cal;
}
}  // namespace

bool read_beam_calib(const std::string& name, int ns, std::vector<Calib>& sets) {
  LOG_ENTER("read_beam_calib ns=" << ns << " '" << name << "'");
  sets.clear();
  if (!name.ends_with(".log")) {
    ERROR_MSG("wrong extension for beam calibration log file " << name);
    return false;
  }
  TxtFileIn in(name, true);
  if (!in.is_open()) return false;
  std::string line;
  if (!in.getline(line) || line.find("Lever") == std::string::npos) {
    ERROR_MSG("wrong format for beam calibration log file " << name);
    return false;
  }
  std::vector<Row> rows;
  while (rows.size() < MAX_LINES && in.getline(line)) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    rows.push_back(parse_row(line));
    if (!rows.back().empty()) continue;
    ERROR_MSG("wrong format for beam calibration log file " << name << ", line " << rows.size() + 1);
    return false;
  }
  const size_t n = static_cast<size_t>(ns);
  if (rows.size() < n) {
    ERROR_MSG("missing parameters for " << n - rows.size() << " beams in beam calibration file " << name);
    return false;
  }
  std::vector<size_t> line_of;
  if (rows.size() != n || (!order_by(rows, CHANNEL, 0, line_of) && !order_by(rows, GROUP, 1, line_of))) {
    ERROR_MSG("inconsistent swath, group, channel info in beam calibration log file " << name << ", " << n
                                                                                      << " beams expected");
    return false;
  }
  for (const size_t i : line_of) {
    sets.push_back(to_calib(rows[i]));
    LOG_LINE("L: " << rows[i][0] << ' ' << rows[i][1] << ' ' << rows[i][2] << " B: " << rows[i][3] << ' '
                   << rows[i][4] << ' ' << rows[i][5] << " int: " << rows[i][6] << ' ' << rows[i][7] << ' '
                   << rows[i][8] << ' ' << rows[i][9] << ' ' << rows[i][10] << ' ' << rows[i][11] << ' '
                   << rows[i][12]);
  }
  return true;
}
}  // namespace veld
