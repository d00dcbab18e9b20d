// prj/LiDAR/report/report.h
// NAME_report.html: what was done and whether it is good, on one page for those who fly and those who pay.
// Here:     what the page is made of, and the one call.
// Not here: its sections (report_parts.h), statements on accuracy (accuracy.h), plots (svg_plots.h).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/LmTQCGCP/control.h"
#include "prj/LiDAR/LmTQCsep/separation.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"
#include "prj/LiDAR/VR2proc/sequence_corr.h"
#include "prj/LiDAR/project.h"
#include "prj/LiDAR/report/accuracy.h"
#include "prj/LiDAR/report/svg_plots.h"

namespace veld {
struct ReportInput {
  std::vector<MapSwath> swaths;  // outlines of the swaths, named by number
  double density = -1;           // points/m2
  ControlParam control;
  ControlQC before;               // control points and the swaths as they were
  std::vector<PairResult> pairs;  // of the registration; empty without one
  DZHistogram hist;               // of the height differences before
  SeparationResult separation;    // before (-sep)
  MapParam map;
  bool complete = true;  // nothing was left out or is uncertain
};

// One sentence: what was done, and the figures that tell whether it is good.
std::string report_sentence(const Project& prj, const CorrResult& corr, const ReportInput& in);

// Writes prj.name + "_report.html" from the results, with the pictures beside it inside. False after an ERROR line.
[[nodiscard]] bool write_report(const Project& prj, const CorrResult& corr, const ReportInput& in);
}  // namespace veld
