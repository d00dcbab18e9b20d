#include "sim/terrain.h"

#include <algorithm>
#include <cmath>

#include "sim/simrand.h"

namespace veld {
namespace {
constexpr double LOT = 26;        // m, side of a lot: at most one house or one tree stands on it
constexpr double TREE_LOT = 9;    // m
constexpr double POND_LOT = 130;  // m

double smooth(double f) { return f * f * (3 - 2 * f); }

// Lattice noise in -1..1 with smooth interpolation.
double noise(uint64_t seed, double x, double y, uint64_t layer) {
  const double xf = std::floor(x), yf = std::floor(y);
  const int64_t i = static_cast<int64_t>(xf), j = static_cast<int64_t>(yf);
  const double u = smooth(x - xf), v = smooth(y - yf);
  const double a = sim_cell(seed, i, j, layer), b = sim_cell(seed, i + 1, j, layer);
  const double c = sim_cell(seed, i, j + 1, layer), d = sim_cell(seed, i + 1, j + 1, layer);
  return 2 * ((a + (b - a) * u) * (1 - v) + (c + (d - c) * u) * v) - 1;
}

struct House {
  double cx, cy, cos_a, sin_a, half_l, half_w, eaves, ridge, base;
};

// The house of lot (i, j), if there is one.
bool house_of_lot(const Terrain& t, int64_t i, int64_t j, House& h) {
  if (sim_cell(t.seed, i, j, 40) > t.house_frac) return false;
  h.cx = t.x0 + (static_cast<double>(i) + 0.5) * LOT;
  h.cy = t.y0 + (static_cast<double>(j) + 0.5) * LOT;
  const double dx = h.cx - t.x0, dy = h.cy - t.y0;
  if (dx * dx + dy * dy > t.village * t.village) return false;
  const double angle = M_PI * sim_cell(t.seed, i, j, 41);
  h.cos_a = std::cos(angle);
  h.sin_a = std::sin(angle);
  h.half_l = 4.5 + 3.5 * sim_cell(t.seed, i, j, 42);
  h.half_w = 3.5 + 2.0 * sim_cell(t.seed, i, j, 43);
  h.eaves = 3.0 + 3.0 * sim_cell(t.seed, i, j, 44);
  const bool flat = sim_cell(t.seed, i, j, 45) < 0.3;
  h.ridge = flat ? 0 : h.half_w * (0.6 + 0.4 * sim_cell(t.seed, i, j, 46));
  h.base = ground_height(t, h.cx, h.cy);
  return true;
}

double roof_height(const House& h, double x, double y) {
  const double dx = x - h.cx, dy = y - h.cy;
  const double u = dx * h.cos_a + dy * h.sin_a, v = dy * h.cos_a - dx * h.sin_a;
  if (std::fabs(u) > h.half_l || std::fabs(v) > h.half_w) return -1e9;
  return h.base + h.eaves + h.ridge * (1 - std::fabs(v) / h.half_w);
}
}  // namespace

double ground_height(const Terrain& t, double x, double y) {
  const double u = x - t.x0, v = y - t.y0;
  double z = t.z0;
  z += t.relief * noise(t.seed, u / 190, v / 190, 1);
  z += 0.30 * t.relief * noise(t.seed, u / 61, v / 61, 2);
  z += 0.07 * t.relief * noise(t.seed, u / 19, v / 19, 3);
  z += 0.12 * noise(t.seed, u / 4.1, v / 4.1, 4);
  // Terraces: fields step down by up to a metre along two families of crooked lines, in both directions.
  const double du = u + 9 * noise(t.seed, u / 83, v / 83, 5), dv = v + 9 * noise(t.seed, u / 83, v / 83, 6);
  const double su = du / 47 - std::floor(du / 47), sv = dv / 53 - std::floor(dv / 53);
  z += 0.9 * smooth(std::clamp((su - 0.46) / 0.06, 0.0, 1.0)) - 0.9 * su;
  z += 0.9 * smooth(std::clamp((sv - 0.46) / 0.06, 0.0, 1.0)) - 0.9 * sv;
  // A ditch and a bank run across at an angle.
  const double ditch = std::fabs(0.6 * u + 0.8 * v - 60 + 5 * noise(t.seed, u / 70, v / 70, 7));
  if (ditch < 2.2) z -= 1.1 * smooth(1 - ditch / 2.2);
  const double bank = std::fabs(0.8 * u - 0.6 * v + 45 + 6 * noise(t.seed, u / 90, v / 90, 8));
  if (bank < 7) z += 1.6 * smooth(std::clamp((7 - bank) / 3.5, 0.0, 1.0));
  return z;
}

double solid_height(const Terrain& t, double x, double y, Cover& cover) {
  double z = ground_height(t, x, y);
  cover = Cover::ground;
  const int64_t i0 = static_cast<int64_t>(std::floor((x - t.x0) / LOT));
  const int64_t j0 = static_cast<int64_t>(std::floor((y - t.y0) / LOT));
  House h;  // a house stays on its lot, so one lot is looked at
  if (house_of_lot(t, i0, j0, h)) {
    const double roof = roof_height(h, x, y);
    if (roof > z) {
      z = roof;
      cover = Cover::roof;
    }
  }
  return z;
}

double crown_height(const Terrain& t, double x, double y) {
  const int64_t i = static_cast<int64_t>(std::floor((x - t.x0) / TREE_LOT));
  const int64_t j = static_cast<int64_t>(std::floor((y - t.y0) / TREE_LOT));
  // Woods: whole patches are dense, the rest of the land has single trees.
  const double frac = is_wood(t, x, y) ? 0.85 : 0.3 * t.tree_frac;
  if (sim_cell(t.seed, i, j, 51) > frac) return -1e9;
  const double cx = t.x0 + (static_cast<double>(i) + 0.5) * TREE_LOT;
  const double cy = t.y0 + (static_cast<double>(j) + 0.5) * TREE_LOT;
  const double radius = 2.0 + 2.4 * sim_cell(t.seed, i, j, 52);
  const double d2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
  if (d2 > radius * radius) return -1e9;
  const double top = 6 + 11 * sim_cell(t.seed, i, j, 53);
  return ground_height(t, cx, cy) + top - 2.5 * d2 / (radius * radius);
}

bool is_wood(const Terrain& t, double x, double y) {
  return noise(t.seed, (x - t.x0) / 90, (y - t.y0) / 90, 50) > t.wood;
}

bool is_pond(const Terrain& t, double x, double y) {
  if (t.pond_frac <= 0) return false;
  const double u = (x - t.x0) / POND_LOT, v = (y - t.y0) / POND_LOT;
  const int64_t i = static_cast<int64_t>(std::floor(u)), j = static_cast<int64_t>(std::floor(v));
  if (sim_cell(t.seed, i, j, 60) > t.pond_frac) return false;
  const double du = (u - static_cast<double>(i) - 0.5) * POND_LOT;
  const double dv = (v - static_cast<double>(j) - 0.5) * POND_LOT;
  const double radius = (0.12 + 0.28 * sim_cell(t.seed, i, j, 61)) * POND_LOT;
  const double shore = 1 + 0.3 * noise(t.seed, x / 17, y / 17, 62);
  return du * du + 1.7 * dv * dv < radius * radius * shore * shore;
}

bool cast_beam(const Terrain& t, const GridBeam& beam, double max_range, bool through, BeamHit& hit) {
  if (beam.dir.z >= 0) return false;
  const double ztop = t.z0 + 1.5 * t.relief + 20;  // nothing stands higher
  double r = std::max(0.0, (beam.origin.z - ztop) / -beam.dir.z);
  constexpr double STEP = 0.8;                          // m
  const auto above = [&](double range, Cover& cover) {  // height of the beam above what stands there
    const dxyz p = beam.at(range);
    double top = solid_height(t, p.x, p.y, cover);
    if (!through) {
      const double crown = crown_height(t, p.x, p.y);
      if (crown > top) {
        top = crown;
        cover = Cover::tree;
      }
    }
    return p.z - top;
  };
  Cover cover;
  double gap = above(r, cover);
  while (gap > 0) {
    // Far above the surface the step may be longer: slopes stay below 0.6, houses and trees below 18 m.
    const double next = r + std::max(STEP, 0.6 * (gap - 18));
    if (next > max_range) return false;
    const double g = above(next, cover);
    if (g <= 0) {
      double lo = r, hi = next;
      for (int k = 0; k < 16; k++) {
        const double mid = 0.5 * (lo + hi);
        Cover c;
        (above(mid, c) > 0 ? lo : hi) = mid;
      }
      hit.range = 0.5 * (lo + hi);
      above(hi, hit.cover);
      return true;
    }
    r = next;
    gap = g;
  }
  return false;
}
}  // namespace veld
