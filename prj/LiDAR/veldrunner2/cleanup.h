// prj/LiDAR/veldrunner2/cleanup.h
// Removal of caches from the temporary directory, as -clear_xyz and -clear_tmp ask for.
#pragma once
#include "prj/LiDAR/veldrunner2/options.h"

void cleanup(const Options& o);
