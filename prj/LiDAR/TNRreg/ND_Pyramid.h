// prj/LiDAR/TNRreg/ND_Pyramid.h
// Image pyramids of heights with holes: each level is filtered and halved, holes in most of the kernel stay
// holes.
#pragma once
#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"

namespace veld {
// levels(l - 1)(t): image t at level l = 1..depth, half the size (integer division) of level l - 1; pixel (i,
// j) is pixel (2i, 2j) of the filtered image. Holes are -9999.
void ND_Pyramid(Vector<Vector<Image<float>>>& levels, const Vector<Image<float>>& images, int nthreads,
                int depth);
}  // namespace veld
