// tests/prj/LiDAR/TNRreg/synth_level.h
// A problem at one level, its parameters as a flat vector, and slow oracles of its energy.
#pragma once
#include "prj/LiDAR/TNRreg/TNRreg_normal.h"
#include "tests/prj/LiDAR/TNRreg/synth_pair.h"

namespace veld {
// At level J on a random displacement of a size in pixels; all sorts of weights. Unless whole, the tile of cell
// (1, 1) is missing: seams, fallback corners, holes.
struct LevelProblem {
  NRpair pair;
  Vector<Image<xyz>> Def;
  dUParamTiles Q;
  LevelProblem(int J, double size, double holes, bool whole = false);
};

// The parameters: tiles in order, active vertices in raster order, x y z each.
Vector<float> pack_Def(const dUParamTiles& Q);
void unpack_Def(const Vector<float>& V, dUParamTiles& Q);  // and the borders
Vector<float> pack(const dUParamTiles& Q, const NormalEq& N, const std::vector<V3<float>>& v);

// The energy by its definition, pixel by pixel and vertex by vertex.
double slow_energy(dUParamTiles& Q, const Vector<float>& V);
// a A b by its definition, slopes of the spline by differences.
double slow_product(dUParamTiles& Q, const Vector<float>& V, const Vector<float>& a, const Vector<float>& b);
}  // namespace veld
