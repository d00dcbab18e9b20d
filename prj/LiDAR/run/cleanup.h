// prj/LiDAR/run/cleanup.h
// Removal of caches from the temporary directory, as -clear_xyz and -clear_tmp ask for.
#pragma once
#include "prj/LiDAR/options/options.h"

namespace veld {
void cleanup(const Options& o);
}  // namespace veld
