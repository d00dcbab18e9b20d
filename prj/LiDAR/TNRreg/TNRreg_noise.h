// prj/LiDAR/TNRreg/TNRreg_noise.h
// Samples of what the noise of the pixels does to the vertices. Private to this folder and its tests.
#pragma once
#include "prj/LiDAR/TNRreg/TNRreg_normal.h"

namespace veld {
constexpr int NSAMPLE_GROUPS = 4;  // of LANES samples each

// Share of the residuals' variance that reaches over many pixels: their correlation at 8 to 16 pixels.
float comp_long_share(const dUParamTiles& Q);

// How much larger residuals are about a vertex than the model has them, as a variance: xy for shifts, where steep
// pixels count, z for heights. Large ones count more than in proportion, since they come in patches: (variance)^2
// and (variance)^1.5 fitted the errors of simulated villages and woods. least: a bound from below.
struct LocalScale {
  float xy = 1, z = 1;
};
void comp_local_scale(const NormalEq& N, dUParamTiles& Q, float least, std::vector<LocalScale>& scale);

// Right-hand sides of one group of samples: sums over the pixels of b J w / s^2 times a noise of the model's size
// and correlation, with random signs; times the local scale (empty: 1); and the noise of the prior. 0 but at
// parameters. The same for any number of threads. After set_damping.
void sample_noise(const NormalEq& N, dUParamTiles& Q, int group, float long_share,
                  const std::vector<LocalScale>& scale, std::vector<V3<v8f>>& r);
}  // namespace veld
