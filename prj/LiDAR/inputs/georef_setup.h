// prj/LiDAR/inputs/georef_setup.h
// Units and coordinate system of the project, from the options and a WKT or LAS file.
#pragma once
#include "lib/general/filelist.h"
#include "prj/LiDAR/options/options.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Sets DATAUNIT, OUTDATAUNIT and the coordinate system. False after an ERROR line: WKT missing, empty or with
// a projection that is not supported.
[[nodiscard]] bool setup_georef(const Options& o, const PathRules& rules, GeoRefParam& georef);

// Projects the values of -test_proj2 or -test_proj3 (longitude, latitude, height) and back, and prints both.
void test_proj(const GeoRefParam& georef, const std::vector<double>& values);
}  // namespace veld
