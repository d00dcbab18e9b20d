#include "geo/geoid.h"

#include <cmath>
#include <cstring>

#include "geo/proj_internal.h"
#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"

namespace veld {
namespace {
constexpr uint64_t HEADER = 44;       // bytes
constexpr int MAX_SIDE = 100000;      // nodes; a world in steps of 0.2 minutes
constexpr float NO_HEIGHT = 1000.0f;  // m, no geoid is that far from the ellipsoid
constexpr double RAD = 0.01745329251994;

template <typename T>
T field(const char* bytes, size_t at) {
  T value;
  std::memcpy(&value, bytes + at, sizeof value);
  return value;
}

// Weights of the four nodes around a fraction f of a step: cubic convolution.
void cubic_weights(float f, float w[4]) {
  const auto near = [](float u) { return (1.5f * u - 2.5f) * u * u + 1; };
  const auto far = [](float u) { return ((-0.5f * u + 2.5f) * u - 4) * u + 2; };
  w[0] = far(1 + f), w[1] = near(f), w[2] = near(1 - f), w[3] = far(2 - f);
}

int clamped(int i, int n) { return i < 0 ? 0 : i >= n ? n - 1 : i; }

bool height_of_nodes(const GeoidGrid& g, double lon, double lat, double& height) {
  const double turn = g.sx > 0 ? std::floor((lon - g.x0) / 360) : -std::floor((g.x0 - lon) / 360);
  const double u = (lon - 360 * turn - g.x0) / g.sx, v = (lat - g.y0) / g.sy;
  const bool world =
      std::fabs(std::fabs(g.sx) * g.nx - 360) < 0.5 * std::fabs(g.sx);  // the last node meets the first
  if (!(u >= 0) || !(v >= 0) || v > g.ny - 1 || u > (world ? g.nx : g.nx - 1)) return false;
  const int i = static_cast<int>(u), j = static_cast<int>(v);
  float wx[4], wy[4];
  cubic_weights(static_cast<float>(u - i), wx);
  cubic_weights(static_cast<float>(v - j), wy);
  float sum = 0;
  for (int l = 0; l < 4; l++) {
    const float* row =
        g.geoH.data() + static_cast<size_t>(clamped(j + l - 1, g.ny)) * static_cast<size_t>(g.nx);
    for (int k = 0; k < 4; k++) {
      const int col = i + k - 1;
      const float node = row[world ? (col + g.nx) % g.nx : clamped(col, g.nx)];
      if (wx[k] != 0 && wy[l] != 0 && !(std::fabs(node) < NO_HEIGHT)) return false;
      if (wx[k] != 0 && wy[l] != 0) sum += wx[k] * wy[l] * node;
    }
  }
  height = static_cast<double>(sum);
  return true;
}

bool height_of_proj(const GeoidGrid& g, double lon, double lat, double& height) {
  static thread_local ThreadOperation mine;
  PJ* operation = mine.get(g.def);
  if (!operation) return false;
  const PJ_COORD out = proj_trans(operation, PJ_FWD, proj_coord(lon * RAD, lat * RAD, 0, 0));
  if (!std::isfinite(out.xyz.z) || std::fabs(out.xyz.z) > static_cast<double>(NO_HEIGHT)) {
    proj_errno_reset(operation);
    return false;
  }
  height = out.xyz.z;
  return true;
}

// Whether PROJ can open the grid.
bool open_with_proj(const std::string& file, GeoidGrid& grid) {
  if (file.find_first_of(",\"@") != std::string::npos) {  // these part the grids of PROJ's text
    ERROR_MSG("file name of a geoid grid with one of , \" @: " << file);
    return false;
  }
  grid.path = file;
  grid.def = "+proj=vgridshift +grids=\"" + file + "\" +multiplier=1";
  ThreadOperation tried;
  return tried.get(grid.def) != nullptr;
}
}  // namespace

bool read_geoid_bin(const std::string& name, const std::string& geodir, GeoidGrid& grid) {
  LOG_ENTER("read_geoid_bin GEOID=" << name << " GEODIR=" << geodir);
  grid = GeoidGrid();
  grid.path = geodir + name + ".bin";
  char header[HEADER];
  BufBinFileIn file(BULK_BUFFER);
  const int64_t size = file_size(grid.path);
  bool ok = size >= static_cast<int64_t>(HEADER) && file.open(grid.path) && file.read(header, HEADER);
  if (ok) {
    grid.y0 = field<double>(header, 0), grid.x0 = field<double>(header, 8);
    grid.sy = field<double>(header, 16), grid.sx = field<double>(header, 24);
    grid.ny = field<int32_t>(header, 32), grid.nx = field<int32_t>(header, 36),
    grid.kind = field<int32_t>(header, 40);
    if (grid.x0 >= 180) grid.x0 -= 360;
    LOG_LINE("Hdr.x0=" << grid.x0 << " Hdr.y0=" << grid.y0 << " Hdr.sx=" << grid.sx << " Hdr.sy=" << grid.sy
                       << " Hdr.nx=" << grid.nx << " Hdr.ny=" << grid.ny << " Hdr.kind=" << grid.kind);
    const auto step = [](double s) { return std::fabs(s) > 1e-6 && std::fabs(s) <= 90; };
    ok = grid.nx >= 2 && grid.ny >= 2 && grid.nx <= MAX_SIDE && grid.ny <= MAX_SIDE && step(grid.sx) &&
         step(grid.sy) && std::fabs(grid.x0) <= 360 && std::fabs(grid.y0) <= 90 &&
         size == static_cast<int64_t>(HEADER) + int64_t{4} * grid.nx * grid.ny;
  }
  if (ok) {
    grid.geoH.resize(static_cast<size_t>(grid.nx) * static_cast<size_t>(grid.ny));
    ok = file.read(grid.geoH.data(), grid.geoH.size() * sizeof(float));
  }
  if (!ok)
    ERROR_MSG("missing bin file for geoid "
              << name << (size >= 0 ? " (wrong header or size, file " + grid.path + ")" : ""));
  return ok;
}

bool read_geoid(const std::string& name, const std::string& geodir, GeoidGrid& grid) {
  if (is_regular_file(geodir + name + ".bin")) return read_geoid_bin(name, geodir, grid);
  const std::string ends[] = {"", ".gtx", ".tif", ".tiff"};
  for (const std::string& dir : {geodir, std::string()})
    for (const std::string& end : ends) {
      const std::string file = dir + name + end;
      if (!is_regular_file(file)) continue;
      const std::string absolute = real_path(file);
      if (open_with_proj(absolute, grid)) {
        LOG_MSG("Geoid grid " << absolute);
        return true;
      }
      ERROR_MSG("not a geoid grid (GTX or GeoTIFF), file " << file);
      return false;
    }
  const std::string ext = get_extension(name);
  if ((ext == ".gtx" || ext == ".tif") && name.find('/') == std::string::npos && open_with_proj(name, grid)) {
    LOG_MSG("Geoid grid " << name << " (of PROJ)");
    return true;
  }
  return read_geoid_bin(name, geodir, grid);  // missing: says so
}

bool geoid_height(const GeoidGrid& grid, double lon, double lat, double& height) {
  if (!std::isfinite(lon) || !(std::fabs(lat) <= 90)) return false;
  return grid.def.empty() ? height_of_nodes(grid, lon, lat, height) : height_of_proj(grid, lon, lat, height);
}
}  // namespace veld
