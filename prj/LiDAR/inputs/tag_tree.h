// prj/LiDAR/inputs/tag_tree.h
// The inputs of a project given as a tree of tags: flights with their inputs (channels) and trajectories, and
// reference swaths.
// Here:     from the tags to the same groups and per-group values that options give.
// Not here: reading of tagged files (opttags.h), expansion of patterns into the project (inputs.h).
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/inputs/inputs.h"

namespace veld {
// taglist: tags and values in file order. Replaces the groups of `in` and the per-group options of `o`
// (channels, trajectory parameters, angles of the mount). Checks that every pattern names files. False after
// an ERROR line.
[[nodiscard]] bool get_tag_tree_input(const std::vector<std::string>& taglist, InputArgs& in, Options& o);
}  // namespace veld
