// prj/LiDAR/inputs/tag_tree_internal.h
// The tree of a tagged input file as records, between its reading and the lists that are made of it.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/inputs/tag_tree.h"

namespace veld {
struct TreePO {  // one <po>
  std::vector<std::string> patterns;
  FileList files;
  int geo = 0, time = 0, rad = 0, att = 0;
  std::string parse, date;
  std::vector<double> imu;  // 3 angles, degrees; empty without
};

struct TreeInput {  // one <input>
  std::vector<std::string> patterns;
  int number = 0;            // over all flights, from 1: its group
  int flight = 0;            // from 1
  int channel = 0;           // in its flight, from 0; the first of a split input's
  std::vector<double> bore;  // 3 angles, degrees, or 3 for each channel of a split input; empty without
  bool is_split = false;
  SplitOpt split;
  std::vector<xyz> bores;   // by channel of a split input, from <bore>
  std::vector<int> map;     // from <map>
  int nbore = 0, nmap = 0;  // tags found
};

struct TreeFlight {
  std::vector<TreeInput> inputs;
  std::vector<TreePO> po;  // one for all inputs, or one each
};

struct TagTree {
  const PathRules& rules;
  std::vector<TreeFlight> flights;
  std::vector<std::string> refs;
  FileList mobile, fixed;          // with the group of each file
  std::vector<std::string> lines;  // of the <map> or <bore> that is open
};

// Trajectory of input i of a flight: its own, or the one that all inputs share.
inline const TreePO& po_of(const TreeFlight& f, size_t i) { return f.po[f.po.size() == 1 ? 0 : i]; }

// Tags and values to records. Goes on after a file that is missing, stops at a fault of the structure. False
// after ERROR lines.
[[nodiscard]] bool read_tag_tree(const std::vector<std::string>& taglist, TagTree& tree);
// Records to the same groups and values that options give.
[[nodiscard]] bool fill_tag_tree(const TagTree& tree, InputArgs& in, Options& o);
void log_tag_tree(const TagTree& tree, const InputArgs& in);
}  // namespace veld
