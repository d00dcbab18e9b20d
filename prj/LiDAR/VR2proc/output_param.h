// prj/LiDAR/VR2proc/output_param.h
// What is rewritten in the points of corrected swaths, which beam a point is of, output tiles.
#pragma once
#include <array>
#include <cstdint>
#include <vector>

#include "prj/LiDAR/swath/split_type.h"

namespace veld {
struct PointRewrite {      // attributes that are rewritten; angles need a trajectory
  bool time = false;       // GPS time: synchronised, with the time delay (-ot)
  bool las_angle = false;  // scan angle: across the heading, from the vertical (-oa)
  bool int_angle = false;  // scan angle: in the scanner (-oi)
  bool pitch = false;      // user data: pitch in the scanner + 90 degrees (-op)
};

constexpr uint8_t NO_BEAM = 255;
struct BeamSplit {  // which beam a point is of, by the value of an attribute
  SplitType type = SplitType::direction;
  std::array<uint8_t, 256> beam{};  // by value: from 0; NO_BEAM or one beyond the sets: none
};

struct TileParam {                  // of a run
  double size = 0;                  // units of the swaths; 0: no tiles (-otile)
  std::vector<double> origin = {};  // x, y (-otile_origin); empty: 0, 0
  int id = 0;                       // point source ID (-otile_id): TILE_ID_SWATH ...
  double x0() const { return origin.empty() ? 0 : origin[0]; }
  double y0() const { return origin.empty() ? 0 : origin[1]; }
  int buffer = 32768;  // points that a swath keeps of a tile before they go into its file (-otile_buf)
};
constexpr int TILE_ID_SWATH = 1,
              TILE_ID_GROUP = 2;  // number of the swath + 1; of the group; 0: as in the swath
}  // namespace veld
