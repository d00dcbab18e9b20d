// prj/LiDAR/run/report_input.h
// What the report takes from the scan.
#pragma once
#include "prj/LiDAR/report/report.h"
#include "prj/LiDAR/run/sequence.h"

namespace veld {
ReportInput make_ReportInput(const Project& prj, const ScanResult& scanned, const ControlParam& control,
                             const MapParam& map, bool complete);
}  // namespace veld
