// Gauss-Newton with Levenberg's damping: a step at fixed weights and scale.
#include <algorithm>
#include <cmath>

#include "prj/LiDAR/TNRreg/TNRreg_normal.h"

namespace veld {
namespace {
// Conjugate gradients end at this residual: the linearisation itself is no better.
constexpr double CG_TOL = 0.1;
constexpr int CG_LIMIT = 100;
constexpr int MAX_TRIALS = 8;
constexpr float FIRST_DAMPING = 1e-3f, DAMPING_STEP = 10.0f;

// Def = start + x at the parameters, borders in step. Returns the largest change of a height.
float move_Def(dUParamTiles& Q, const GNwork& work) {
  const NormalEq& N = work.N;
  float max_z = 0;
  for (int t = 0; t < N.nt; t++) {
    const dUParamTile& T = Q.tile[t];
    for (int j = 0; j < N.nv; j++)
      for (int i = 0; i < N.nv; i++) {
        if (T.Vmap.row(j)[i] != V_ACTIVE) continue;
        const V3<float>& x = work.pcg.x[N.at(t, i, j)];
        T.Def->row(j)[i] = work.start[t].row(j)[i] + xyz{x.x, x.y, x.z};
        max_z = std::max(max_z, std::fabs(x.z));
      }
  }
  sync_border(Q);
  return max_z;
}

void restore_Def(dUParamTiles& Q, const GNwork& work) {
  for (uint64_t t = 0; t < Q.tile.size(); t++) *Q.tile[t].Def = work.start[t];
}
}  // namespace

GNstep gauss_newton_step(dUParamTiles& Q, GNwork& work, double E0) {
  NormalEq& N = work.N;
  assemble_normal(N, Q);
  work.start.resize(Q.tile.size());
  for (uint64_t t = 0; t < Q.tile.size(); t++) work.start[t] = *Q.tile[t].Def;
  GNstep step;
  for (; step.trials < MAX_TRIALS && !step.accepted; step.trials++) {
    set_damping(N, N.damping);
    work.pcg.r = N.g;
    step.cg_iterations += solve_PCG(N, work.pcg, CG_TOL, CG_LIMIT);
    double xg = 0;  // d A d, as A d = g
    for (size_t k = 0; k < N.size(); k++) xg += static_cast<double>(dot3(work.pcg.x[k], N.g[k]));
    step.change = std::sqrt(std::max(xg, 0.0) / (3.0 * std::max(Q.Tnpar, 1u)));
    step.max_z = move_Def(Q, work);
    step.energy = resid_pass(Q) + prior_energy(N, Q);
    step.accepted = step.energy <= E0;
    if (!step.accepted)
      N.damping = std::max(FIRST_DAMPING, N.damping * DAMPING_STEP);
    else
      N.damping = N.damping > FIRST_DAMPING ? N.damping / DAMPING_STEP : 0.0f;
  }
  if (!step.accepted) {
    restore_Def(Q, work);
    step.energy = resid_pass(Q) + prior_energy(N, Q);
    step.max_z = 0;
    step.change = 0;
  }
  return step;
}
}  // namespace veld
