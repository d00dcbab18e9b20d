// prj/LiDAR/TNRreg/Reg_Coef.h
// Heights with holes to cubic B-spline coefficients: holes closed by belief propagation, then the spline
// transform.
#pragma once
#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"
#include "prj/LiDAR/TNRreg/TNRreg.h"

namespace veld {
// For each image, on nthreads threads. The coefficients take the memory of the heights, which are empty afterwards.
void Reg_Coef(Vector<Image<float>>& heights, int nthreads, Vector<CoefImage>& coef);
// The same for the levels of a pyramid.
void Reg_Coef_mg(Vector<Vector<Image<float>>>& heights, int nthreads, Vector<Vector<CoefImage>>& coef);
}  // namespace veld
