// prj/LiDAR/TNRreg/Reg_Coef.h
// Heights with holes to cubic B-spline coefficients: holes closed by belief propagation, then the spline
// transform.
#pragma once
#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"

namespace veld {
// In place, for each image, on nthreads threads.
void Reg_Coef(Vector<Image<float>>& images, int nthreads);
// The same for level l of a pyramid.
void Reg_Coef_mg(Vector<Vector<Image<float>>>& levels, int l, int nthreads);
}  // namespace veld
