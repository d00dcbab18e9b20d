#include "sim/place.h"

#include <geodesic.h>
#include <proj.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "lib/general/result_file.h"

namespace veld {
namespace {
constexpr double GEOID_HEIGHT = 40, GEOID_EAST = 3, GEOID_NORTH = 2;  // m, m per degree
constexpr double GEOID_STEP = 0.05, GEOID_REACH = 0.5;                // degrees, of the grid's file
constexpr double FOOT_US = 1200.0 / 3937.0;

int unit_code(double unit) { return unit == 1 ? 9001 : std::fabs(unit - FOOT_US) < 1e-9 ? 9003 : 9002; }

template <typename T>
void put_big_endian(std::string& bytes, T value) {
  char raw[sizeof value];
  std::memcpy(raw, &value, sizeof value);
  if constexpr (std::endian::native == std::endian::little) std::reverse(raw, raw + sizeof value);
  bytes.append(raw, sizeof value);
}
}  // namespace

struct SimPlace::System {
  PJ_CONTEXT* context = proj_context_create();
  PJ* to_geodetic = nullptr;  // longitude and latitude of the system's own datum, degrees
  int code = 0;
  geod_geodesic earth;
  ~System() {
    proj_destroy(to_geodetic);
    proj_context_destroy(context);
  }
  bool open(const std::string& name, double& unit, double& a, double& f);
};

bool SimPlace::System::open(const std::string& name, double& unit, double& a, double& f) {
  PJ* const crs = proj_create(context, name.c_str());
  PJ* const base = crs ? proj_crs_get_geodetic_crs(context, crs) : nullptr;
  PJ* const axes = crs ? proj_crs_get_coordinate_system(context, crs) : nullptr;
  PJ* const ellipsoid = crs ? proj_get_ellipsoid(context, crs) : nullptr;
  PJ* const raw = base ? proj_create_crs_to_crs_from_pj(context, crs, base, nullptr, nullptr) : nullptr;
  if (raw) to_geodetic = proj_normalize_for_visualization(context, raw);
  const bool found =
      axes &&
      proj_cs_get_axis_info(context, axes, 0, nullptr, nullptr, nullptr, &unit, nullptr, nullptr, nullptr) &&
      ellipsoid && proj_ellipsoid_get_parameters(context, ellipsoid, &a, nullptr, nullptr, &f);
  f = f == 0 ? 0 : 1 / f;
  geod_init(&earth, a, f);
  for (PJ* const p : {crs, base, axes, ellipsoid, raw}) proj_destroy(p);
  code = std::atoi(name.c_str() + std::min(name.find(':') + 1, name.size()));
  return found && to_geodetic;
}

SimPlace::SimPlace() = default;
SimPlace::~SimPlace() = default;

bool SimPlace::open(const SimSpec& spec) {
  zone_ = spec.zone;
  geoid_ = spec.geoid;
  if (!spec.crs.empty()) {
    system_ = std::make_unique<System>();
    if (!system_->open(spec.crs, unit_, a_, f_)) {
      ERROR_MSG("unknown coordinate system '" << spec.crs << "'");
      return false;
    }
  }
  double lat = 0, lon = 0, convergence = 0;
  inverse(spec.east, spec.north, lat, lon, convergence);
  lat0_ = std::round(lat / RAD_PER_DEG * 10) / 10;
  lon0_ = std::round(lon / RAD_PER_DEG * 10) / 10;
  return std::isfinite(lat) && std::isfinite(lon);
}

void SimPlace::inverse(double east, double north, double& lat, double& lon, double& convergence) const {
  if (!system_) {
    utm_inverse(zone_, east, north, lat, lon, convergence);
    return;
  }
  constexpr double STEP = 20;  // m along grid north
  const auto degrees = [&](double y) {
    return proj_trans(system_->to_geodetic, PJ_FWD, proj_coord(east / unit_, y / unit_, 0, 0)).lp;
  };
  const PJ_LP here = degrees(north), behind = degrees(north - STEP), before = degrees(north + STEP);
  double length = 0, azimuth1 = 0, azimuth2 = 0;
  geod_inverse(&system_->earth, behind.phi, behind.lam, before.phi, before.lam, &length, &azimuth1,
               &azimuth2);
  lat = here.phi * RAD_PER_DEG;
  lon = here.lam * RAD_PER_DEG;
  convergence = (azimuth1 + 0.5 * std::remainder(azimuth2 - azimuth1, 360)) * RAD_PER_DEG;
}

dxyz SimPlace::earth_centred(double lat, double lon, double h) const {
  const double e2 = f_ * (2 - f_), N = a_ / std::sqrt(1 - e2 * std::sin(lat) * std::sin(lat));
  return {(N + h) * std::cos(lat) * std::cos(lon), (N + h) * std::cos(lat) * std::sin(lon),
          (N * (1 - e2) + h) * std::sin(lat)};
}

double SimPlace::geoid(double lat, double lon) const {
  if (!geoid_) return 0;
  return GEOID_HEIGHT + GEOID_EAST * (lon / RAD_PER_DEG - lon0_) + GEOID_NORTH * (lat / RAD_PER_DEG - lat0_);
}

bool SimPlace::write_geoid(const std::string& path) const {
  const int n = static_cast<int>(std::lround(2 * GEOID_REACH / GEOID_STEP)) + 1;
  std::string bytes;
  for (const double value : {lat0_ - GEOID_REACH, lon0_ - GEOID_REACH, GEOID_STEP, GEOID_STEP})
    put_big_endian(bytes, value);
  put_big_endian(bytes, int32_t{n});
  put_big_endian(bytes, int32_t{n});
  for (int row = 0; row < n; row++)  // from the south
    for (int col = 0; col < n; col++)
      put_big_endian(bytes,
                     static_cast<float>(geoid((lat0_ - GEOID_REACH + row * GEOID_STEP) * RAD_PER_DEG,
                                              (lon0_ - GEOID_REACH + col * GEOID_STEP) * RAD_PER_DEG)));
  BinResultFile file;
  return file.open(path) && file.write(bytes.data(), bytes.size()) && file.commit();
}

std::vector<uint16_t> SimPlace::geotiff_keys(double unit_z) const {
  const uint16_t entries[][2] = {{1024, 1},  // projected
                                 {1025, 1},
                                 {3072, static_cast<uint16_t>(system_ ? system_->code : 0)},
                                 {3076, static_cast<uint16_t>(unit_code(unit_))},
                                 {4099, static_cast<uint16_t>(unit_code(unit_z))}};
  std::vector<uint16_t> keys = {1, 1, 0, static_cast<uint16_t>(std::size(entries))};
  for (const auto& e : entries) keys.insert(keys.end(), {e[0], 0, 1, e[1]});
  return keys;
}
}  // namespace veld
