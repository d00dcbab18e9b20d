#include "sim/space.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "sim/place.h"

namespace veld {
namespace {
template <int N>
void chebyshev(double u, double (&T)[N]) {
  T[0] = 1, T[1] = u;
  for (int k = 2; k < N; k++) T[k] = 2 * u * T[k - 1] - T[k - 2];
}
dxyz from_axes(const Mat3& axes, const dxyz& v) {
  return v.x * axes.r[0] + v.y * axes.r[1] + v.z * axes.r[2];
}
}  // namespace

bool SimSpace::open(const SimSpec& spec) {
  SimPlace place;
  if (!place.open(spec)) return false;
  east_ = spec.east, north_ = spec.north;
  struct Ground {
    dxyz at, up;
  };
  const auto ground = [&](double u, double v) -> Ground {
    double lat = 0, lon = 0, convergence = 0;
    place.inverse(east_ + REACH * u, north_ + REACH * v, lat, lon, convergence);
    return {place.earth_centred(lat, lon, place.geoid(lat, lon)),
            {std::cos(lat) * std::cos(lon), std::cos(lat) * std::sin(lon), std::sin(lat)}};
  };
  const dxyz middle = ground(0, 0).at;
  std::fill_n(&surface_[0][0], N * N, dxyz{0, 0, 0});
  std::fill_n(&up_[0][0], N * N, dxyz{0, 0, 0});
  for (int a = 0; a < N; a++)
    for (int b = 0; b < N; b++) {
      const double u = std::cos(M_PI * (a + 0.5) / N), v = std::cos(M_PI * (b + 0.5) / N);
      const Ground node = ground(u, v);
      double Tu[N], Tv[N];
      chebyshev(u, Tu);
      chebyshev(v, Tv);
      for (int i = 0; i < N; i++)
        for (int j = 0; j < N; j++) {
          const double w = Tu[i] * Tv[j] * (i > 0 ? 2 : 1) * (j > 0 ? 2 : 1) / (N * N);
          surface_[i][j] += w * (node.at - middle);
          up_[i][j] += w * node.up;
        }
    }
  const double off =
      norm(in_space({east_ + 0.3 * REACH, north_ - 0.4 * REACH, 0}) - (ground(0.3, -0.4).at - middle));
  if (off < 1e-6) return true;  // also when it is no number
  ERROR_MSG("the projection has no smooth grid around " << east_ << ' ' << north_);
  return false;
}

dxyz SimSpace::in_space(const dxyz& grid) const {
  double Tu[N], Tv[N];
  chebyshev((grid.x - east_) / REACH, Tu);
  chebyshev((grid.y - north_) / REACH, Tv);
  dxyz p{0, 0, 0};
  for (int i = 0; i < N; i++)
    for (int j = 0; j < N; j++) p += (Tu[i] * Tv[j]) * (surface_[i][j] + grid.z * up_[i][j]);
  return p;
}

Horizon SimSpace::horizon(const dxyz& grid) const {
  Horizon h;
  h.grid = grid;
  h.space = in_space(grid);
  const dxyz up = in_space(grid + dxyz{0, 0, 1}) - h.space;
  const dxyz step = in_space(grid + dxyz{0, 1, 0}) - in_space(grid - dxyz{0, 1, 0});
  const dxyz level = step - dot(step, up) * up;  // heights may count from a geoid, which is not level here
  const dxyz north = level / norm(level);
  h.axes = {{cross(north, up), north, up}};
  return h;
}

dxyz SimSpace::end_of(const Horizon& from, const dxyz& v) const {
  const dxyz end = from.space + from_axes(from.axes, v);
  dxyz p = from.grid + v;
  for (int step = 0; step < 20; step++) {  // a scale of 1.001 takes four
    const dxyz left = apply(from.axes, end - in_space(p));
    p += left;
    if (norm(left) < 1e-7) break;
  }
  return p;
}

dxyz SimSpace::vector_to(const Horizon& from, const dxyz& grid) const {
  return apply(from.axes, in_space(grid) - from.space);
}
}  // namespace veld
