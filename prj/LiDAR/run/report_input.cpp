#include "prj/LiDAR/run/report_input.h"

#include <algorithm>

#include "lib/general/log.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTQCimg/swath_geojson.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Outlines of the present swaths, simplified to what the map of the page can show. Swaths whose caches are gone have none.
std::vector<MapSwath> outlines_of(const Project& prj, const TileInfo& frame) {
  constexpr double PIXELS = 1500;  // that the map may have along its longer side
  const double mTsize = static_cast<double>(prj.scale.mTsize),
               tolerance = std::max(0.75 * mTsize, std::max(frame.nx, frame.ny) * mTsize * mTsub / PIXELS);
  const std::vector<SwathId> ids = prj.swaths.ids();
  std::vector<MapSwath> list(ids.size());
  run_units(static_cast<int64_t>(ids.size()), NTHREADSIO, [&](int64_t i, int) {
    const Swath& s = prj.swaths[ids[static_cast<size_t>(i)]];
    MapSwath& m = list[static_cast<size_t>(i)];
    m.name = to_string(s.id);
    m.fixed = s.fixed;
    Tocc occ;
    if (!read_Tocc(s.cache, occ)) {
      LOG_LINE("<!> no outline sw=" << s.id);
      return true;
    }
    for (const auto& polygon : make_polygons(trace_outlines(border_edges(occ)), mTsize))
      for (const std::vector<dxyz>& ring : polygon) {
        MapRing corners;
        for (const dxyz& p : ring) corners.push_back({p.x, p.y});
        m.rings.push_back(simplify_ring(corners, tolerance));
      }
    return true;
  });
  return list;
}
}  // namespace

ReportInput make_ReportInput(const Project& prj, const ScanResult& scanned, const ControlParam& control,
                             const MapParam& map, bool complete) {
  ReportInput in;
  in.swaths = outlines_of(prj, scanned.stat.frame);
  in.density = scanned.stat.density;
  in.control = control;
  in.before = scanned.control;
  in.pairs = scanned.inter.pairs;
  in.hist = scanned.inter.hist;
  in.separation = scanned.separation;
  in.map = map;
  in.complete = complete;
  return in;
}
}  // namespace veld
