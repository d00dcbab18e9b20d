// tests/prj/LiDAR/TNRreg/synth_pair.h
// Synthetic pairs of height grids with a known displacement: analytic terrain, noise, holes, outliers,
// seeded.
#pragma once
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "prj/LiDAR/TNRreg/TNRreg.h"

namespace veld {
// Terrain as a sum of plane waves in random directions; lengths in pixels of the grid, heights in metres.
struct Terrain {
  struct Wave {
    double kx, ky, phase, amplitude;
  };
  std::vector<Wave> waves;
  double base = 300;
  double at(double x, double y) const {
    double z = base;
    for (const Wave& w : waves) z += w.amplitude * std::sin(w.kx * x + w.ky * y + w.phase);
    return z;
  }
};
// Slopes of about the given RMS (m per pixel) in all directions, spread over wave lengths from shortest to
// longest.
Terrain make_terrain(uint32_t seed, double slope, double shortest = 10, double longest = 300);

struct SynthPair {
  int ntx = 2, nty = 2;  // tiles
  int dim = 4, buf = 16;
  float mTsize = 4;
  uint32_t seed = 1;
  double slope = 0.15;
  double shortest = 10;
  double noise = 0.02;  // m, of each swath
  double outliers = 0;  // fraction of pixels of the first swath raised by up to 5 m
  double holes = 0;     // fraction of the area of each swath without data, in round holes
  // Position in the first swath less that in the second, for the pixel (x, y) of the second: pixels, pixels,
  // metres.
  std::function<dxyz(double x, double y)> disp = [](double, double) { return dxyz{0, 0, 0}; };
};
NRpair make_pair(const SynthPair& synth);
// Prepares and registers it.
bool register_pair(NRpair& pair, const NRparam& param, NRresult& result);

// Deviation of a result from the planted displacement over its vertices, in pixels and metres.
struct DefError {
  uint64_t n = 0;  // vertices with an estimate
  dxyz mean = {0, 0, 0}, rms = {0, 0, 0}, max = {0, 0, 0};
  dxyz chi = {0, 0, 0};  // RMS of error / uncertainty
  dxyz unc = {0, 0, 0};  // mean uncertainty
};
DefError compare(const SynthPair& synth, const NRresult& result);
}  // namespace veld
