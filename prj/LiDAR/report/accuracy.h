// prj/LiDAR/report/accuracy.h
// Statements on accuracy by published rules, from the figures of a run.
// Here:     the rules as tables, each with its figure, its limit, and whether it is kept.
// Not here: the figures (LmTQC, LmTQCGCP), the page that shows them (report.cpp).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/LmTQCGCP/LmTQCGCP.h"

namespace veld {
struct AccuracyFigures {   // m; below 0: not known
  int nNVA = 0, nVVA = 0;  // check points on open ground, under vegetation
  double rmse_NVA = -1;    // of these, heights of the swaths less those of the points, each point once
  double rmse_VVA = -1;
  double sigma_survey = 0;  // RMS of the standard deviations of the check points on open ground
  double rms_overlap = -1;  // height differences between overlapping swaths
  double max_pair = -1;     // the same of the worst pair
  double rms_open = -1, p95_open = -1, max_open = -1;  // differences of cells on open, even ground
  double precision = -1,
         max_precision = -1;  // heights within a cell of a swath on hard ground: 95 %, largest
  double density = -1;        // points/m2 of a swath
  // The vertical error with that of the survey.
  double rmse_V() const;
};

// Check points whose names begin with "VVA" stand under vegetation. A point counts once, by the mean over its swaths;
// outliers are left out.
void add_check_points(const GCPresult& r, AccuracyFigures& f);

enum class Kept {
  yes,
  no,
  open,
  figure
};  // open: the rule cannot be tested; figure: it asks for the figure alone
struct Statement {
  std::string rule;    // what is asked for
  std::string figure;  // what was found, with its unit
  Kept kept;
  std::string limit = {};  // of a rule that levels share
};

// ASPRS Positional Accuracy Standards for Digital Geospatial Data, Edition 2 (2023): vertical accuracy class of the
// swaths by check points on open ground, with the survey's error; the number of points; relative accuracy.
std::vector<Statement> asprs_statements(const AccuracyFigures& f);

// USGS Lidar Base Specification: the quality levels, best first, each with what it asks for; the rules are the same
// for all. A largest value beyond its limit fails when one of twenty cells is beyond it too; else a car may be the
// cause, and the rule is open.
struct QualityLevel {
  std::string name;
  std::vector<Statement> statements;
  Kept kept;  // of all together
};
std::vector<QualityLevel> usgs_levels(const AccuracyFigures& f);
}  // namespace veld
