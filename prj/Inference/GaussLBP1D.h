// prj/Inference/GaussLBP1D.h
// Gaussian belief propagation on a chain, and the filling of an image's holes by it, rows first, then
// columns. The model: information values h and precisions J at the nodes, neighbours tied by a membrane of
// constant precision. On a chain one forward and one backward sweep give the exact marginals.
#pragma once
#include "lib/DataStructure/image.h"
#include "lib/DataStructure/vector.h"

namespace veld {
constexpr float GLBP_TIE = 0.0001f;  // precision of the tie between neighbours

// In place: h becomes the marginal means, J the marginal precisions. Same size (asserted).
void pass_mess_GLBP(Vector<float>& h, Vector<float>& J);

// Z: values, 0 in holes; W: 1 at data, 0 in holes; same size (asserted). On return Z has its holes closed, W
// holds the marginal precisions. Without any data Z stays 0.
void GLBP_fill_image(Image<float>& Z, Image<float>& W);
}  // namespace veld
