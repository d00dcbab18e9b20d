#include "prj/LiDAR/LmTQCimg/transect.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double HALF_UNIT =
    1.0 / 1024;  // m, half of a unit of stored coordinates: no point lies on such a limit
constexpr int VIEW_PIXELS = 1000;
constexpr double FINEST = 0.05;  // m
constexpr int MOST_PIXELS = 30000;

struct Limits {
  double lo, hi;  // m
};
constexpr Limits NOTHING = {1e300, -1e300};

Limits limits_of(const std::vector<double>& ends, double unit) {
  if (ends.size() < 2) return {-2e7, 2e7};
  return {std::min(ends[0], ends[1]) * unit, std::max(ends[0], ends[1]) * unit};
}

struct Box {
  Limits x, y, z;
};

// Calls visit(swath, X, Y, Z) for each point in the box, swath by swath, tile by tile. False after an ERROR line.
template <typename Visit>
bool for_each_point(const Project& prj, const Box& box, Visit&& visit) {
  for (const Swath& s : prj.swaths.present()) {
    SwTiles tiles;
    if (!read_SwTiles(s.cache, tiles) || !open_points(tiles)) {
      ERROR_MSG("missing/incompatible temp. tile files, swath " << s.path());
      return false;
    }
    const double Tsize = tiles.geom.Tsize;
    Vector<xyz> P;
    for (const TIsxy& t : tiles.TI) {
      const double X0 = t.x * Tsize + GROUND_ORIGIN, Y0 = t.y * Tsize + GROUND_ORIGIN;
      const double x0 = std::max(box.x.lo - X0, 0.0), x1 = std::min(box.x.hi - X0, Tsize);
      const double y0 = std::max(box.y.lo - Y0, 0.0), y1 = std::min(box.y.hi - Y0, Tsize);
      if (x0 >= x1 || y0 >= y1) continue;
      uint64_t np = 0, nread = 0, nrefused = 0;
      if (!read_LmT_tile_bbox(tiles, t.x, t.y, x0 - HALF_UNIT, x1 - HALF_UNIT, y0 - HALF_UNIT, y1 - HALF_UNIT,
                              P, np, nread, nrefused)) {
        ERROR_MSG("missing/incompatible temp. tile files, swath " << s.path());
        return false;
      }
      for (uint64_t i = 0; i < np; i++) {
        const xyz& p = P[i];
        const double Z = static_cast<double>(p.z);
        if (Z < box.z.lo || Z > box.z.hi) continue;
        visit(s, X0 + static_cast<double>(p.x), Y0 + static_cast<double>(p.y), Z);
      }
    }
  }
  return true;
}

struct View {  // from the side: along is x or y
  const char* suffix;
  Limits along;
  Image<float> count;
  bool wanted = false;
};

void extend(Limits& l, double v) {
  l.lo = std::min(l.lo, v);
  l.hi = std::max(l.hi, v);
}

// False after a WARNING: nothing to see.
bool prepare_view(View& v, const Limits& z, double GSD) {
  const double w = std::ceil((v.along.hi - v.along.lo) / GSD) + 1, h = std::ceil((z.hi - z.lo) / GSD) + 1;
  if (w > MOST_PIXELS || h > MOST_PIXELS) {
    WARNING_MSG("view of " << w << " x " << h << " pixels left out, use a larger -vgsd");
    return false;
  }
  v.count.resize(static_cast<int>(w), static_cast<int>(h), 0.0f);
  return true;
}

bool save_view(const Project& prj, const MapParam& map, View& v, double z0, double GSD) {
  float most = 1;
  for (uint64_t i = 0; i < v.count.size(); i++) {
    most = std::max(most, v.count[i]);
    if (v.count[i] == 0) v.count[i] = IMG_NODATA;
  }
  ImgParam img = map.img;
  img.crs = ImgCRS();  // seen from the side: no place on the ground
  ImgScale scale;
  scale.range = scale.range16 = most;
  scale.color = COLOR_SEQUENTIAL;
  scale.unit = "points";
  return save_XXimg(prj.name + v.suffix, "density view", img, scale,
                    {v.along.lo, z0 + v.count.ysize() * GSD, GSD}, v.count);
}
}  // namespace

bool export_points_bbox(const Project& prj, const TransectParam& par, const MapParam& map) {
  const Box box{limits_of(par.x, DATAUNIT), limits_of(par.y, DATAUNIT), limits_of(par.z, DATAUNIT_Z)};
  LOG_ENTER("export_points_bbox TR X:[" << box.x.lo << " " << box.x.hi << "] Y:[" << box.y.lo << " "
                                        << box.y.hi << "] Z:[" << box.z.lo << " " << box.z.hi << "]");
  ResultFile out;
  if (!out.open(prj.name + "_trans.txt")) return false;
  out.fs << "X Y Z Swath# Group#\n";
  View views[] = {{"_xzview", NOTHING, {}, par.xzview}, {"_yzview", NOTHING, {}, par.yzview}};
  Limits z = NOTHING;
  uint64_t n = 0;
  if (!for_each_point(prj, box, [&](const Swath& s, double X, double Y, double Z) {
        out.fs << X / OUTDATAUNIT << ' ' << Y / OUTDATAUNIT << ' ' << Z / OUTDATAUNIT_Z << ' ' << s.id << ' '
               << s.group << '\n';
        extend(views[0].along, X), extend(views[1].along, Y), extend(z, Z);
        n++;
      }))
    return false;
  if (n == 0) WARNING_MSG("empty transect point cloud, data outside bounding box");
  LOG_MSG("Writing transect point cloud " << prj.name << "_trans.txt, " << n << " points");
  if (!out.commit()) {
    ERROR_MSG("failed to write transect point cloud");
    return false;
  }
  if (!par.xzview && !par.yzview) return true;
  if (n == 0) {
    WARNING_MSG("density view could not be generated, data outside bounding box");
    return true;
  }
  double longest = z.hi - z.lo;
  for (const View& v : views)
    if (v.wanted) longest = std::max(longest, v.along.hi - v.along.lo);
  const double GSD = par.vgsd > 0 ? static_cast<double>(par.vgsd) : std::max(FINEST, longest / VIEW_PIXELS);
  for (View& v : views) v.wanted = v.wanted && map.img.any() && prepare_view(v, z, GSD);
  if (!views[0].wanted && !views[1].wanted) return true;
  if (!for_each_point(prj, box, [&](const Swath&, double X, double Y, double Z) {
        const int row = static_cast<int>((Z - z.lo) / GSD);
        if (views[0].wanted) views[0].count(static_cast<int>((X - views[0].along.lo) / GSD), row)++;
        if (views[1].wanted) views[1].count(static_cast<int>((Y - views[1].along.lo) / GSD), row)++;
      }))
    return false;
  for (View& v : views)
    if (v.wanted && !save_view(prj, map, v, z.lo, GSD)) {
      ERROR_MSG("failed to write density view image");
      return false;
    }
  return true;
}
}  // namespace veld
