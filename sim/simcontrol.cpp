// Ground control of a simulated project: surveyed places on open, even ground.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/Geometry/angle.h"
#include "lib/general/result_file.h"
#include "sim/simproject.h"
#include "sim/simrand.h"

namespace veld {
namespace {
constexpr double RADIUS = 4;                        // m around a place that must be open
constexpr double SLOPE_MAX = 0.05;                  // of its ground
constexpr double BEND_MAX = 0.02;                   // m, from a plane
constexpr double SIGMA_XY = 0.01, SIGMA_Z = 0.005;  // m, of the survey
constexpr int TRIES = 3000;                         // places that are looked at for each point

bool is_open(const Terrain& t, double x, double y) {
  const double z = ground_height(t, x, y), d = 1;
  const double sx = (ground_height(t, x + d, y) - ground_height(t, x - d, y)) / (2 * d);
  const double sy = (ground_height(t, x, y + d) - ground_height(t, x, y - d)) / (2 * d);
  if (std::hypot(sx, sy) > SLOPE_MAX) return false;
  for (double v = -RADIUS; v <= RADIUS; v++)
    for (double u = -RADIUS; u <= RADIUS; u++) {
      Cover cover = Cover::ground;
      const double h = solid_height(t, x + u, y + v, cover), g = ground_height(t, x + u, y + v);
      if (cover != Cover::ground || crown_height(t, x + u, y + v) > g || is_wood(t, x + u, y + v) ||
          is_pond(t, x + u, y + v))
        return false;
      if (std::hypot(u, v) <= 2 && std::fabs(h - (z + sx * u + sy * v)) > BEND_MAX) return false;
    }
  return true;
}
}  // namespace

bool write_control(const SimSpec& spec, double unit, const std::string& dir) {
  const Terrain terrain = make_terrain(spec);
  SimRandom random(spec.seed * 1000 + 77);
  const double azimuth = spec.azimuth_deg * RAD_PER_DEG;
  const double half_across = spec.spacing * std::max(spec.nparallel - 1, 1) / 2,
               half_along = 0.45 * spec.length;
  ResultFile all, control, check;
  if (!all.open(dir + "/gcp_all.txt") || !control.open(dir + "/gcp.txt") ||
      !check.open(dir + "/gcp_check.txt"))
    return false;
  for (int i = 0; i < spec.ncontrol + spec.ncheck; i++) {
    const bool is_control = i < spec.ncontrol;
    for (int n = 0; n < TRIES; n++) {
      const double u = (2 * random.uniform() - 1) * half_across, v = (2 * random.uniform() - 1) * half_along;
      const double x = spec.east + u * std::cos(azimuth) + v * std::sin(azimuth),
                   y = spec.north - u * std::sin(azimuth) + v * std::cos(azimuth);
      if (!is_open(terrain, x, y)) continue;
      const double z = ground_height(terrain, x, y) + SIGMA_Z * random.normal() + spec.ref_shift.z;
      char line[120];
      std::snprintf(line, sizeof line, "%c%02d %.3f %.3f %.3f %.4f", is_control ? 'G' : 'C',
                    (is_control ? i : i - spec.ncontrol) + 1,
                    (x + SIGMA_XY * random.normal() + spec.ref_shift.x) / unit,
                    (y + SIGMA_XY * random.normal() + spec.ref_shift.y) / unit, z / spec.unit_z,
                    SIGMA_Z / spec.unit_z);
      all.fs << line << (is_control ? " 1\n" : " 0\n");
      (is_control ? control : check).fs << line << '\n';
      break;
    }
  }
  return all.commit() && control.commit() && check.commit();
}
}  // namespace veld
