// prj/LiDAR/LmTQCimg/fast_QC_groups.h
// Height differences within groups of swaths and between them, straight from the grids.
// Here:     the sums of a tile and of the project.
// Not here: the maps (fast_QC.h).
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lib/DataStructure/image.h"

namespace veld {
// g1 = g2: largest less smallest height of a group's swaths; else mean height of g1 less that of g2.
struct GroupDZ {
  int g1 = 0, g2 = 0;
  uint64_t n = 0;            // map pixels
  double mean = 0, rms = 0;  // m
};

// "Group 1: Zmax-Zmin mean=... RMS=..." or "Groups 1-2: Z-difference mean=... RMS=...", m.
std::string group_text(const GroupDZ& g);

class GroupSums {
 public:
  struct Sum {
    uint64_t n = 0;
    double sum = 0, sum2 = 0;
    void add(double dz) { n++, sum += dz, sum2 += dz * dz; }
  };
  void add(int g1, int g2, const Sum& from);  // nothing without pixels
  void add(const GroupSums& o);
  std::vector<GroupDZ> result() const;  // by g1, then g2

 private:
  std::map<std::pair<int, int>, Sum> sums_;
};

// The groups on one tile.
class TileGroups {
 public:
  void clear() { layers_.clear(); }
  // words: of a swath's grid at the map pixels of the tile; those with a roughness code above smax (as in the word) do not
  // count.
  void add(int group, const Image<uint32_t>& words, uint32_t smax);
  void put(GroupSums& sums) const;

 private:
  struct Layer {
    Image<float> low, high, sum;
    Image<uint16_t> n;
  };
  std::map<int, Layer> layers_;
};
}  // namespace veld
