#include "tests/prj/LiDAR/TNRreg/synth_pair.h"

#include <algorithm>
#include <cmath>

namespace veld {
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
// Calls set(pixel, k) on the pixels of random discs k that cover about a fraction of the image.
template <typename Set>
void for_discs(Image<float>& img, double fraction, double radius, std::mt19937& rng, Set&& set) {
  std::uniform_real_distribution<double> unit(0, 1);
  const int n = static_cast<int>(fraction * static_cast<double>(img.size()) / (M_PI * radius * radius));
  for (int k = 0; k < n; k++) {
    const double cx = unit(rng) * img.xsize(), cy = unit(rng) * img.ysize();
    const int x0 = std::max(0, static_cast<int>(cx - radius)),
              x1 = std::min(img.xsize() - 1, static_cast<int>(cx + radius));
    const int y0 = std::max(0, static_cast<int>(cy - radius)),
              y1 = std::min(img.ysize() - 1, static_cast<int>(cy + radius));
    for (int y = y0; y <= y1; y++)
      for (int x = x0; x <= x1; x++)
        if (std::hypot(x - cx, y - cy) < radius) set(img(x, y), k);
  }
}

// Noise of a whole frame: white, then smoothed as the gridding kernel does, since a white one would favour
// displacements by half pixels, where interpolation smoothes most. RMS 1.
Image<float> noise_field(int w, int h, uint32_t seed) {
  constexpr float TAPS[5] = {0.0156f, 0.2363f, 0.5f, 0.2363f, 0.0156f};
  constexpr float RMS = 0.6017f * 0.6017f;  // of the taps, both axes
  std::mt19937 rng(seed);
  std::normal_distribution<float> gauss;
  Image<float> white(w + 4, h + 4), rows(w, h + 4), field(w, h, 0.0f);
  for (uint64_t k = 0; k < white.size(); k++) white[k] = gauss(rng);
  for (int y = 0; y < h + 4; y++)
    for (int x = 0; x < w; x++) {
      float sum = 0;
      for (int k = 0; k < 5; k++) sum += TAPS[k] * white(x + k, y);
      rows(x, y) = sum;
    }
  for (int y = 0; y < h; y++)
    for (int x = 0; x < w; x++)
      for (int k = 0; k < 5; k++) field(x, y) += TAPS[k] / RMS * rows(x, y + k);
  return field;
}
}  // namespace

NRpair make_pair(const SynthPair& synth) {
  const Terrain terrain = make_terrain(synth.seed, synth.slope, synth.shortest);
  const int n = 32 * synth.dim, m = n + 2 * synth.buf;
  std::mt19937 rng(synth.seed + 1);
  const int W = synth.ntx * n + 2 * synth.buf, H = synth.nty * n + 2 * synth.buf;
  const Image<float> noise1 = noise_field(W, H, synth.seed + 2), noise2 = noise_field(W, H, synth.seed + 3);
  Image<float> raised(W, H, 0.0f);  // vehicles, trees: what only one swath saw
  for_discs(raised, synth.outliers, 3.5, rng,
            [](float& z, int k) { z = 1.0f + 0.5f * static_cast<float>(k % 8); });
  NRpair pair;
  pair.buf = synth.buf;
  pair.dim = synth.dim;
  pair.mTsize = synth.mTsize;
  const int nt = synth.ntx * synth.nty;
  pair.TI.resize(synth.ntx, synth.nty);
  pair.img1.resize(static_cast<uint64_t>(nt));
  pair.img2.resize(static_cast<uint64_t>(nt));
  for (int t = 0; t < nt; t++) {
    const int tx = t % synth.ntx, ty = t / synth.ntx;
    pair.TI(tx, ty) = static_cast<int16_t>(t);
    Image<float>&one = pair.img1(t), &two = pair.img2(t);
    one.resize(m, m);
    two.resize(n, n);
    for (int j = 0; j < n; j++)
      for (int i = 0; i < n; i++) {
        const int x = tx * n + i, y = ty * n + j;
        two(i, j) = static_cast<float>(terrain.at(x, y) + synth.noise * static_cast<double>(noise2(x, y)));
      }
    for (int j = 0; j < m; j++)
      for (int i = 0; i < m; i++) {
        const int x = tx * n + i - synth.buf, y = ty * n + j - synth.buf;
        double px = x, py = y;  // where this position lies in the second swath
        for (int k = 0; k < 8; k++) {
          const dxyz u = synth.disp(px, py);
          px = x - u.x, py = y - u.y;
        }
        double z = terrain.at(px, py) + synth.disp(px, py).z +
                   synth.noise * static_cast<double>(noise1(x + synth.buf, y + synth.buf));
        one(i, j) = static_cast<float>(z) + raised(x + synth.buf, y + synth.buf);
      }
    for (Image<float>* img : {&one, &two})
      for_discs(*img, synth.holes, n / 24.0, rng, [](float& z, int) { z = NR_NODATA; });
  }
  return pair;
}

bool register_pair(NRpair& pair, const NRparam& param, NRresult& result) {
  NRstart start = start_reg(pair.img2.size(), param);
  prepare_pair(pair, start.depth(), param.nthreads);
  return mg_nr_reg_tiles(pair, param, std::move(start), result);
}

DefError compare(const SynthPair& synth, const NRresult& result) {
  const int n = 32 * synth.dim;
  DefError e;
  const auto add = [](dxyz& sum, const dxyz& v) { sum += v; };
  for (int t = 0; t < synth.ntx * synth.nty; t++) {
    const Image<xyz>& D = result.Def(t);
    const int cell = n / (D.xsize() - 1);
    const float pixel = static_cast<float>(comp_pixel(D.xsize()));
    for (int j = 0; j < D.ysize(); j++)
      for (int i = 0; i < D.xsize(); i++) {
        if (D(i, j).z == NR_NODATA) continue;
        const dxyz d = dxyz{D(i, j).x * pixel, D(i, j).y * pixel, D(i, j).z} -
                       synth.disp(t % synth.ntx * n + i * cell, t / synth.ntx * n + j * cell);
        xyz u = result.Unc(t)(i, j);
        u.x *= pixel, u.y *= pixel;
        e.n++;
        add(e.mean, d);
        add(e.rms, {d.x * d.x, d.y * d.y, d.z * d.z});
        e.max = {std::max(e.max.x, std::fabs(d.x)), std::max(e.max.y, std::fabs(d.y)),
                 std::max(e.max.z, std::fabs(d.z))};
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
}  // namespace veld
