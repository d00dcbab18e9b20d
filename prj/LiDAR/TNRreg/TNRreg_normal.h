// prj/LiDAR/TNRreg/TNRreg_normal.h
// Normal equations of the vertices of all tiles at one level, and their solution by conjugate gradients.
//
// The residuals are linearised at the present displacement, r(u + d) = r + J d with J = (-gx, -gy, 1), so that
// a step d solves A d = g, A = sum of w / s^2 J' J + prior, g = -dE/du. A pixel ties the four vertices of its
// cell, the prior vertices two apart on a line of a tile. A vertex on a seam stands in each of its tiles, with
// what that tile gives; products are added across the seams.
// Private to this folder and its tests.
#pragma once
#include <cstdint>
#include <utility>
#include <vector>

#include "prj/LiDAR/TNRreg/TNRreg_internal.h"
#include "prj/LiDAR/TNRreg/TNRreg_spline8.h"

namespace veld {
// Blocks of a vertex (i, j), symmetric 3 x 3 as xx xy xz yy yz zz: with itself, with its right and its upper
// neighbour; cross stands for (i, j) with (i + 1, j + 1) and for (i + 1, j) with (i, j + 1), which are equal.
struct VertexBlock {
  float self[6], right[6], up[6], cross[6];
};
struct SymBlock {
  float v[6];
};

// A vector over the vertices: V is float, or v8f for eight vectors side by side. The alignment is given, as the
// compiler's own depends on the instruction set.
template <typename V>
struct alignas(sizeof(V)) V3 {
  V x, y, z;
};
template <typename V>
[[gnu::always_inline]] inline V dot3(const V3<V>& a, const V3<V>& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

struct VertexRun {  // [first, end)
  size_t first, end;
};

// Tiles stand one after the other, vertices in raster order with a margin of two on each side that stays 0.
struct NormalEq {
  static constexpr int MARGIN = 2;
  int nt = 0, nv = 0, stride = 0;  // tiles; vertices along a tile's side, with the margins
  xyz omega = {0, 0, 0};           // weight of the prior
  std::vector<VertexBlock> block;  // data term of each tile's own pixels
  std::vector<float> cx, cy;       // 1 where the second difference about the vertex is part of the prior
  std::vector<VertexRun> runs;     // the rows of the tiles, each from its first vertex in use to its last
  std::vector<V3<float>> g;        // descent direction; 0 but at parameters
  std::vector<SymBlock> self;      // A's own block of each parameter, all tiles together
  std::vector<SymBlock> inverse;   // of self with the damping; 0 but at parameters
  std::vector<std::pair<uint32_t, uint32_t>> seam;  // slave, partner
  // Squared slope, of the size that noise makes, below which slopes count for less: 0 in the steps, which follow the
  // gradient; for uncertainties, as slopes of noise say nothing about shifts.
  float slope_noise = 0;
  float damping = 0;             // share of the diagonal that is added to it
  float common = 0;              // added to the diagonal of each parameter
  std::vector<V3<float>> added;  // what is added to it
  size_t at(int64_t t, int i, int j) const {
    return static_cast<size_t>((t * stride + j + MARGIN) * stride + i + MARGIN);
  }
  // The first vertex of the lower and of the upper vertex row of a unit.
  size_t lower(const thRowInfo& place) const { return at(place.tile, 0, static_cast<int>(place.row)); }
  size_t upper(const thRowInfo& place) const { return at(place.tile, 0, static_cast<int>(place.row) + 1); }
  size_t size() const {
    return static_cast<size_t>(nt) * static_cast<size_t>(stride) * static_cast<size_t>(stride);
  }
  std::vector<float> slot;  // of the units of assembly: what they give to their upper vertex row
};

// Sums of a column of pixels: three weights along y of each entry of a block (18), then the descent direction for
// the lower (3) and the upper (3) vertex row.
constexpr int NQ = 24;
constexpr int NSLOT = 15;  // floats of a slot's vertex: self, right, g

// --- Assembly (TNRreg_assemble.cpp)
void init_normal(NormalEq& N, const dUParamTiles& Q);            // sizes, prior, seams
void assemble_normal(NormalEq& N, dUParamTiles& Q);              // block, g, self at the present Def, B and s
void set_damping(NormalEq& N, float damping, float common = 0);  // added, inverse
double prior_energy(const NormalEq& N, const dUParamTiles& Q);

// --- Solution (TNRreg_pcg.cpp)
template <typename V>
struct PCGwork {  // vectors of NormalEq::size()
  std::vector<V3<V>> x, r, p, Ap;
};
// Solves A x = r from x = 0; r holds the right-hand sides before (0 but at parameters), residuals after. Ends
// when the residual, in the norm of the preconditioner (inverse), is below tol of its start for all of V, or
// after limit iterations. x is 0 but at parameters. Returns the iterations.
int solve_PCG(const NormalEq& N, PCGwork<float>& w, double tol, int limit);
int solve_PCG(const NormalEq& N, PCGwork<v8f>& w, double tol, int limit);

// --- Minimisation at fixed weights and scale (TNRreg_newton.cpp)
struct GNwork {
  NormalEq N;
  PCGwork<float> pcg;
  Vector<Image<xyz>> start;  // Def before the step
};
struct GNstep {
  bool accepted = false;  // the energy fell; otherwise Def is as before
  int cg_iterations = 0, trials = 0;
  float max_z = 0;    // largest change of a height
  double change = 0;  // RMS over the parameters of the change in units of the curvature, d A d / n
  double energy = 0;  // after the step
};
// One step from Def at energy E0: assembles, solves, tries with growing damping until the energy falls. Leaves
// the residuals, histogram and pixels of the new position in Q (see resid_pass).
GNstep gauss_newton_step(dUParamTiles& Q, GNwork& work, double E0);
}  // namespace veld
