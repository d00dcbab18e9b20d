// prj/LiDAR/veldrunner2/sequence_internal.h
// Steps of the scan sequence that have a source of their own.
#pragma once
#include <vector>

#include "prj/LiDAR/veldrunner2/sequence.h"

// Compares the boxes of the fixed swaths with the microtiles of the mobile ones (used: those with tiles).
// dropped: fixed swaths beside them. False after an ERROR line, also when no reference is left.
[[nodiscard]] bool select_references(const Project& prj, const std::vector<bool>& used,
                                     std::vector<bool>& dropped);
