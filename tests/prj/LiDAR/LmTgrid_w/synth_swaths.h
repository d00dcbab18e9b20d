// tests/prj/LiDAR/LmTgrid_w/synth_swaths.h
// A small project of tiled swaths over one landscape: strips side by side, each with an error of its own.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/project.h"
#include "tests/support/temp_dir.h"

namespace veld {
struct SynthStrip {
  double east = 0;          // m, of the strip's axis from the first one's
  xyz error = {0, 0, 0};    // m, added to every point
  double tstart = 1000000;  // s
  double length = 280, width = 130, density = 9;
  double noise = 0.03;  // m, standard deviation of the heights; without any, a registration finds no scale
  bool fixed = false;
};

// Relief in all directions, with steps of buildings.
double synth_height(double x, double y);

// Writes and tiles the strips into dir (also the temporary directory); dim 4, level 7. Aborts when that
// fails.
Project make_synth_project(const TempDir& dir, const std::vector<SynthStrip>& strips);
// The overlap map of all swaths of it.
Tovr make_synth_Tovr(const Project& prj);
}  // namespace veld
