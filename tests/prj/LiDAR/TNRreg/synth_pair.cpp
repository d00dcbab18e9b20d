#include "tests/prj/LiDAR/TNRreg/synth_pair.h"

#include <algorithm>
#include <cmath>

Terrain make_terrain(uint32_t seed, double slope, double shortest, double longest) {
  constexpr int NWAVES = 24;
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(0, 1);
  Terrain t;
  for (int k = 0; k < NWAVES; k++) {
    const double length = shortest * std::pow(longest / shortest, (k + unit(rng)) / NWAVES);
    const double angle = M_PI * (k * 0.618034 + 0.1 * unit(rng)), wave = 2 * M_PI / length;
    // equal slope in each wave: sum of (amplitude wave)^2 / 2 is twice the squared slope of one axis
    t.waves.push_back({wave * std::cos(angle), wave * std::sin(angle), 2 * M_PI * unit(rng),
                       2 * slope / std::sqrt(NWAVES) / wave});
  }
  return t;
}

namespace {
void punch_holes(Image<float>& img, double fraction, std::mt19937& rng) {
  std::uniform_real_distribution<double> unit(0, 1);
  const double radius = std::max(2.0, img.xsize() / 24.0);
  const int n = static_cast<int>(fraction * static_cast<double>(img.size()) / (M_PI * radius * radius));
  for (int k = 0; k < n; k++) {
    const double cx = unit(rng) * img.xsize(), cy = unit(rng) * img.ysize();
    for (int y = 0; y < img.ysize(); y++)
      for (int x = 0; x < img.xsize(); x++)
        if (std::hypot(x - cx, y - cy) < radius) img(x, y) = NR_NODATA;
  }
}

// Value and holes of a pixel of the first swath must not depend on the tile that shows it: noise by hashed position.
double noise_at(int64_t x, int64_t y, uint32_t seed) {
  std::seed_seq key{static_cast<uint32_t>(x + 100000), static_cast<uint32_t>(y + 100000), seed};
  uint32_t out[4];
  key.generate(out, out + 4);
  double sum = 0;  // four uniforms make a Gaussian of variance 1/3
  for (const uint32_t u : out) sum += u / 4294967296.0 - 0.5;
  return sum * std::sqrt(3.0);
}
}  // namespace

NRpair make_pair(const SynthSpec& spec) {
  const Terrain terrain = make_terrain(spec.seed, spec.slope, spec.shortest);
  const int n = 32 * spec.dim, m = n + 2 * spec.buf;
  std::mt19937 rng(spec.seed + 1);
  NRpair pair;
  pair.buf = spec.buf;
  pair.dim = spec.dim;
  pair.mTsize = spec.mTsize;
  const int nt = spec.ntx * spec.nty;
  pair.TI.resize(spec.ntx, spec.nty);
  pair.img1.resize(static_cast<uint64_t>(nt));
  pair.img2.resize(static_cast<uint64_t>(nt));
  for (int t = 0; t < nt; t++) {
    const int tx = t % spec.ntx, ty = t / spec.ntx;
    pair.TI(tx, ty) = static_cast<int16_t>(t);
    Image<float>&one = pair.img1(t), &two = pair.img2(t);
    one.resize(m, m);
    two.resize(n, n);
    for (int j = 0; j < n; j++)
      for (int i = 0; i < n; i++) {
        const int x = tx * n + i, y = ty * n + j;
        two(i, j) = static_cast<float>(terrain.at(x, y) + spec.noise * noise_at(x, y, 2));
      }
    for (int j = 0; j < m; j++)
      for (int i = 0; i < m; i++) {
        const int x = tx * n + i - spec.buf, y = ty * n + j - spec.buf;
        double px = x, py = y;  // where this position lies in the second swath
        for (int k = 0; k < 8; k++) {
          const dxyz u = spec.disp(px, py);
          px = x - u.x, py = y - u.y;
        }
        double z = terrain.at(px, py) + spec.disp(px, py).z + spec.noise * noise_at(x, y, 3);
        if (spec.outliers > 0 && std::fabs(noise_at(x, y, 4)) < 1.25 * spec.outliers)
          z += 5 * std::fabs(noise_at(x, y, 5));
        one(i, j) = static_cast<float>(z);
      }
    if (spec.holes > 0) {
      punch_holes(one, spec.holes, rng);
      punch_holes(two, spec.holes, rng);
    }
  }
  return pair;
}

DefError compare(const SynthSpec& spec, const NRresult& result) {
  const int n = 32 * spec.dim;
  DefError e;
  const auto add = [](dxyz& sum, const dxyz& v) { sum += v; };
  for (int t = 0; t < spec.ntx * spec.nty; t++) {
    const Image<xyz>& D = result.Def(t);
    const int cell = n / (D.xsize() - 1);
    for (int j = 0; j < D.ysize(); j++)
      for (int i = 0; i < D.xsize(); i++) {
        if (D(i, j).z == NR_NODATA) continue;
        const dxyz d = to_dxyz(D(i, j)) - spec.disp(t % spec.ntx * n + i * cell, t / spec.ntx * n + j * cell);
        const xyz& u = result.Unc(t)(i, j);
        e.n++;
        add(e.mean, d);
        add(e.rms, {d.x * d.x, d.y * d.y, d.z * d.z});
        e.max = {std::max(e.max.x, std::fabs(d.x)), std::max(e.max.y, std::fabs(d.y)), std::max(e.max.z, std::fabs(d.z))};
        add(e.unc, to_dxyz(u));
        add(e.chi, {d.x * d.x / (u.x * u.x), d.y * d.y / (u.y * u.y), d.z * d.z / (u.z * u.z)});
      }
  }
  if (e.n == 0) return e;
  const double k = 1.0 / static_cast<double>(e.n);
  e.mean *= k, e.rms *= k, e.unc *= k, e.chi *= k;
  e.rms = {std::sqrt(e.rms.x), std::sqrt(e.rms.y), std::sqrt(e.rms.z)};
  e.chi = {std::sqrt(e.chi.x), std::sqrt(e.chi.y), std::sqrt(e.chi.z)};
  return e;
}
