// prj/LiDAR/report/report_parts.h
// Private to report: the sections of the page, in the order of the page, and the texts that they share.
#pragma once
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/report/report.h"

namespace veld {
constexpr uint64_t MAX_PICTURE = 6000000;  // bytes, larger maps stay beside the page

inline std::string m3(double v) { return LOG_STR(v); }  // metres, three decimals
inline std::string m3_or_none(double v) { return v < 0 ? "-" : m3(v); }
inline std::string m3(float v) { return m3(static_cast<double>(v)); }

inline std::string short_name(const Project& prj, SwathId id) {
  return prj.swaths.has(id) ? base_name(prj.swaths.name(id)) : to_string(id);
}
inline std::string pair_name(const Project& prj, SwathId a, SwathId b) {
  return short_name(prj, a) + " / " + short_name(prj, b);
}

struct PointRow {  // a control point over all swaths
  int n0 = 0, n = 0;
  double dz0 = 0, dz = 0;  // m, sums
  double slope = 0;        // of the ground, the largest
  bool rejected = false;   // as an outlier, in one swath at least
  std::string refused;     // why its heights were not taken, empty when one was
};
std::vector<PointRow> point_rows(const ControlQC& before, const ControlQC& after);
// Points that were rejected as outliers, by name.
std::vector<std::string> rejected_points(const ControlQC& before, const ControlQC& after);

void put_map_section(std::ostream& os, const CorrResult& corr, const ReportInput& in);
void put_differences(std::ostream& os, const Project& prj, const CorrResult& corr, const ReportInput& in);
void put_control(std::ostream& os, const CorrResult& corr, const ReportInput& in);
void put_statements(std::ostream& os, const CorrResult& corr, const ReportInput& in);
AccuracyFigures accuracy_figures(const CorrResult& corr, const ReportInput& in);
void put_calibration(std::ostream& os, const CorrResult& corr);
void put_drifts(std::ostream& os, const Project& prj, const CorrResult& corr);
void put_residuals(std::ostream& os, const Project& prj, const CorrResult& corr, const ReportInput& in);
void put_rejected(std::ostream& os, const Project& prj, const CorrResult& corr, const ReportInput& in);
// What was found of the calibration, a line a parameter.
std::vector<std::string> calibration_lines(const CorrResult& corr);
}  // namespace veld
