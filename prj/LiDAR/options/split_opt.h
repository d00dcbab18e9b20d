// prj/LiDAR/options/split_opt.h
// Inputs that hold several channels: by which attribute of the points they are split, and into how many
// files.
// Here:     the option's arguments, and the lists of boresights and channels that go with a split input.
// Not here: the splitting itself; the tags that carry the same (tag_tree.h).
#pragma once
#include <string>
#include <vector>

#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/swath/split_type.h"

namespace veld {
constexpr int MAX_CH_SPLIT = 32;   // channels that one input may be split into
constexpr int SPLIT_VALUES = 256;  // values that an attribute can have

struct SplitOpt {
  SplitType type = SplitType::direction;
  int ns = 0;            // output channels, 2 to MAX_CH_SPLIT; 0: not given
  std::string map_file;  // channel of each value; empty without
};

// Type, number of channels, map file. Each mistake is an ERROR line.
[[nodiscard]] bool parse_split_opt(const std::vector<std::string>& args, SplitOpt& split);
// The number of channels where it was not given: 2 for scan direction and angle. False after an ERROR line
// that ends in `where`: missing for another type, or not 2 for these.
[[nodiscard]] bool settle_split_count(SplitOpt& split, const std::string& where);

// Three angles a line, one line a channel. from: "list" or "file", where: the end of messages about the tag.
[[nodiscard]] bool read_bore_file(const std::vector<std::string>& lines, const std::string& name, int ns,
                                  const std::string& from, const std::string& where, std::vector<xyz>& bore);
// A channel (1 to ns) a line for the values 0, 1, 2 ..., or a value and its channel. map: by value, 0 none.
[[nodiscard]] bool read_map_file(const std::vector<std::string>& lines, const std::string& name, int ns,
                                 const std::string& from, const std::string& where, std::vector<int>& map);
// The lines of a text file that hold something. False after an ERROR line.
[[nodiscard]] bool read_list_file(const std::string& name, std::vector<std::string>& lines);
}  // namespace veld
