// prj/LiDAR/inputs/georef_setup.h
// Units and coordinate system of the project: from the options, a WKT or LAS file, or the swaths themselves.
#pragma once
#include "lib/general/filelist.h"
#include "prj/LiDAR/options/options.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Sets DATAUNIT, OUTDATAUNIT and the coordinate system from the options: -utm, or -wkt with a file of well-known text, a
// point file, or the text, code or PROJ string itself. False after an ERROR line: missing, empty, or with a projection that
// is not supported.
[[nodiscard]] bool setup_georef(const Options& o, const PathRules& rules, GeoRefParam& georef);

// Compares the system of the options with those that the swaths hold (WKT record or GeoTIFF keys); without such an
// option takes that of the mobile swaths. WARNINGs say where files differ among each other or from the option. False
// after an ERROR line: geographic trajectories, and no system, or one that is not supported.
[[nodiscard]] bool adopt_swath_system(const Options& o, Project& prj);

// Projects the values of -test_proj2 or -test_proj3 (longitude, latitude, height) and back, and prints both.
void test_proj(const GeoRefParam& georef, const std::vector<double>& values);
}  // namespace veld
