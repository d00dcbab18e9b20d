// prj/LiDAR/LmTinter/pair_footprints.h
// Where pairs of swaths are compared: the outlines of their overlaps.
#pragma once
#include <vector>

#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTQCimg/swath_geojson.h"
#include "prj/LiDAR/LmTinter/LmTinter.h"

namespace veld {
// Writes prj.name + "_op_fp.txt", with obj "_op_fp.obj", and "_op_fp.geojson" with what is known of each pair.
class PairFootprints {
 public:
  [[nodiscard]] bool open(const Project& prj, bool obj);  // all: false after an ERROR line
  bool is_open() const { return txt_.is_open(); }
  void add(const Project& prj, const PairResult& pair, const Tocc& tiles);  // nothing when not open
  [[nodiscard]] bool commit(const Project& prj);

 private:
  ResultFile txt_, obj_;
  std::vector<MapShape> shapes_;
};
}  // namespace veld
