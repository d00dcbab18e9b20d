#include "prj/LiDAR/report/accuracy.h"

#include <cmath>
#include <cstdio>
#include <map>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTQCsep/separation.h"

namespace veld {
namespace {
constexpr int NPOINT_MIN = 30;                    // check points that a statement needs
constexpr double WITHIN = 0.8, WITHIN_MAX = 1.6;  // overlap differences in units of the class: RMS, largest

std::string cm(double m) {
  char text[40];
  std::snprintf(text, sizeof text, "%.1f cm", 100 * m);
  return text;
}

std::string per_m2(double density) {
  char text[40];
  std::snprintf(text, sizeof text, "%.3g points/m2", density);
  return text;
}

Kept test(double value, double limit) {
  return value < 0 ? Kept::open : value <= limit ? Kept::yes : Kept::no;
}

std::string known(double m) { return m < 0 ? "not known" : cm(m); }

bool is_vegetated(const std::string& name) {
  std::string s = name.substr(0, 3);
  for (char& c : s)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return s == "VVA";
}
}  // namespace

double AccuracyFigures::rmse_V() const {
  return rmse_NVA < 0 ? -1 : std::sqrt(rmse_NVA * rmse_NVA + sigma_survey * sigma_survey);
}

void add_check_points(const GCPresult& r, AccuracyFigures& f) {
  struct Mean {
    double sum = 0;
    int n = 0;
  };
  std::map<int, Mean> points;
  for (const GCPoccur& o : r.occ)
    if (o.in && !r.gcp[static_cast<size_t>(o.gcp)].control) points[o.gcp].sum += o.dz, points[o.gcp].n++;
  double open2 = 0, veg2 = 0, survey2 = 0;
  for (const auto& [k, mean] : points) {
    const GCP& g = r.gcp[static_cast<size_t>(k)];
    const double d = mean.sum / mean.n;
    if (is_vegetated(g.name))
      veg2 += d * d, f.nVVA++;
    else
      open2 += d * d, survey2 += g.sigma * g.sigma, f.nNVA++;
  }
  if (f.nNVA > 0) f.rmse_NVA = std::sqrt(open2 / f.nNVA), f.sigma_survey = std::sqrt(survey2 / f.nNVA);
  if (f.nVVA > 0) f.rmse_VVA = std::sqrt(veg2 / f.nVVA);
}

std::vector<Statement> asprs_statements(const AccuracyFigures& f) {
  std::vector<Statement> s;
  s.push_back({LOG_STR("at least " << NPOINT_MIN << " check points on open ground (NVA)"),
               LOG_STR(f.nNVA << " points"), f.nNVA >= NPOINT_MIN ? Kept::yes : Kept::no});
  const double v = f.rmse_V();
  s.push_back({"vertical RMSE of the check points, the survey's error included", known(v),
               v < 0 ? Kept::open : Kept::figure});
  if (v < 0) return s;
  const int cls = std::max(1, static_cast<int>(std::ceil(100 * v - 1e-9)));  // whole centimetres
  const double x = cls / 100.0;
  s.push_back({LOG_STR("vertical accuracy class " << cls << " cm: RMSE at most " << cls << " cm"), known(v),
               f.nNVA >= NPOINT_MIN ? Kept::yes : Kept::open});
  s.push_back({LOG_STR("that class: swath to swath RMS at most " << cm(WITHIN * x)), known(f.rms_overlap),
               test(f.rms_overlap, WITHIN * x)});
  s.push_back({LOG_STR("that class: worst pair at most " << cm(WITHIN_MAX * x)), known(f.max_pair),
               test(f.max_pair, WITHIN_MAX * x)});
  s.push_back({"vegetated ground (VVA), reported as found",
               f.nVVA > 0 ? LOG_STR(cm(f.rmse_VVA) << " RMSE, " << f.nVVA << " points")
                          : std::string("no check points named VVA..."),
               f.nVVA > 0 ? Kept::figure : Kept::open});
  return s;
}

std::vector<QualityLevel> usgs_levels(const AccuracyFigures& f) {
  const struct {
    const char* name;
    double rmse, density;  // m, points/m2
  } rows[] = {{"QL0", 0.05, 8}, {"QL1", 0.10, 8}, {"QL2", 0.10, 2}, {"QL3", 0.20, 0.5}};
  const auto with_largest = [](double typical, double largest) {
    return typical < 0 ? std::string("not measured")
                       : LOG_STR("95 % within " << cm(typical) << ", largest " << cm(largest));
  };
  const auto test_largest = [](double typical, double largest, double limit) {
    return typical < 0 ? Kept::open : largest <= limit ? Kept::yes : typical > limit ? Kept::no : Kept::open;
  };
  std::vector<QualityLevel> levels;
  for (const auto& row : rows) {
    const SeparationLimits& sep = QUALITY_LEVELS[levels.size()];
    const double overlap = static_cast<double>(sep.rms), largest = static_cast<double>(sep.largest),
                 range = static_cast<double>(sep.precision);
    const double between = f.rms_open >= 0 ? f.rms_open : f.rms_overlap;
    QualityLevel q{row.name, {}, Kept::yes};
    q.statements = {
        {"check points on open ground, RMSE", known(f.rmse_NVA), test(f.rmse_NVA, row.rmse), cm(row.rmse)},
        {f.rms_open >= 0 ? "between swaths on open ground, RMS" : "between swaths, RMS", known(between),
         test(between, overlap), cm(overlap)},
        {"between swaths on open ground, largest", with_largest(f.p95_open, f.max_open),
         test_largest(f.p95_open, f.max_open, largest), cm(largest)},
        {"within a swath on hard ground, largest", with_largest(f.precision, f.max_precision),
         test_largest(f.precision, f.max_precision, range), cm(range)},
        {"density of a swath, at least", f.density < 0 ? std::string("not known") : per_m2(f.density),
         f.density < 0              ? Kept::open
         : f.density >= row.density ? Kept::yes
                                    : Kept::no,
         per_m2(row.density)}};
    for (const Statement& s : q.statements)
      if (s.kept == Kept::no || (s.kept == Kept::open && q.kept == Kept::yes)) q.kept = s.kept;
    levels.push_back(q);
  }
  return levels;
}
}  // namespace veld
