// prj/LiDAR/project.h
// The project record: what travels from stage to stage.
// Here:     the table of swaths, groups, trajectories, mounts, and the scale of tiles and grids.
// Not here: the points (tile caches, LmTidx_r), results of a stage (that stage's own struct).
#pragma once
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "geo/georef.h"
#include "prj/LiDAR/VR2geom/calib.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
struct POfile {
  std::string path;
  int group = 1;  // 1-based trajectory group
};

struct POgroup {         // parameters that all trajectory files of one group share
  int geo = 0;           // coordinates (-po_geo): 0 projected, 1 geographic, 2 earth-centred; see POio
  int time = 0;          // time format code 0..10 (-po_time)
  bool has_time = true;  // false: -po_time was not given, and the times of the swaths tell it
  int rad = 0;           // 1: angles of text files are radians (-po_rad)
  int att = 0;         // attitude mode (-po_att); 1: recomputed from the track, 2: SBET heading as it stands
  std::string col;     // columns of text files (-po_parse)
  uint32_t gweek = 0;  // GPS week of the user's date, 0 when not given
  uint32_t gday = 0;   // day of the week of that date
};

struct TileScale {  // geometry of tiles and grids, the same for all swaths
  bool large = false;
  int xlevel = 0;
  int level = 7;      // max(5, 3*large + 7 - xlevel)
  float Tsize = 128;  // m, side of a tile: 2^level
  float mTsize = 4;   // m, side of a microtile: Tsize/32
  int dim = 0;        // pixels along the side of a microtile; 0 until the statistics have been made
  float GSD() const { return mTsize / static_cast<float>(dim); }  // m
};

inline TileScale make_tile_scale(bool large, int xlevel) {
  TileScale s;
  s.large = large;
  s.xlevel = xlevel;
  s.level = 3 * (large ? 1 : 0) + 7 - xlevel;
  if (s.level < 5) s.level = 5;
  s.Tsize = static_cast<float>(1 << s.level);
  s.mTsize = s.Tsize / 32;
  return s;
}

struct Project {
  std::string name;        // base path of the outputs: output directory + run name
  SwathTable swaths;       // mobile swaths first, then fixed ones, then unions of these
  int nmgrp = 0;           // groups of mobile swaths
  int ngrp = 0;            // all groups
  std::vector<int> chgrp;  // channel of each mobile group
  std::vector<POfile> pofiles;
  std::vector<POgroup> pogroups;  // by group - 1
  std::vector<Mount> mounts;      // by group - 1; one entry serves all groups
  std::vector<Shift> shifts;      // by group - 1, of a manual correction; empty without
  std::vector<Calib> calibs;      // the same
  GeoRefParam georef;
  TileScale scale;
  double time_res = 0;  // s, mean time resolution of a microtile over the swaths
};
}  // namespace veld
