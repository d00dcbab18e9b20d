// Projection of a trajectory.
#include <algorithm>

#include "lib/general/log.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr int64_t CHUNK = 8192;  // records a unit

// A geographic or earth-centred record to metres in the projection. The heading counts from true north in the
// file and from grid north afterwards.
bool project(const GeoRefParam& g, bool ecef, PO& rec) {
  double lon = rec.x, lat = rec.y, h = rec.z;
  if (ecef) ecef_to_geodetic({rec.x, rec.y, rec.z}, lon, lat, h);
  dxyz p;
  double north_deg = 0;
  if (!geo_forward_north(g, lon, lat, h, p, north_deg)) return false;
  rec.x = p.x * g.unit;
  rec.y = p.y * g.unit;
  rec.z = p.z * g.unit_z;
  rec.yaw = static_cast<float>(rec.yaw + north_deg);
  return true;
}
}  // namespace

bool proj_PO(Vector<PO>& po, int proj, const GeoRefParam& georef, const std::string& path, dxyz& min,
             dxyz& max) {
  LOG_ENTER("proj_PO n=" << po.size() << " proj=" << proj << " " << proj_word(georef.kind));
  if (proj != PO_PROJ) {
    const int64_t n = static_cast<int64_t>(po.size());
    const int64_t bad = run_units((n + CHUNK - 1) / CHUNK, NTHREADS, [&](int64_t unit, int) {
      for (int64_t i = unit * CHUNK; i < std::min(n, (unit + 1) * CHUNK); i++)
        if (!project(georef, proj == PO_ECEF, po.val[i])) return false;
      return true;
    });
    if (bad >= 0) {
      ERROR_MSG("failed to project PO file " << path
                                             << (georef.geoid.empty() ? "" : " - geoid out of bounds"));
      return false;
    }
  }
  min = {99999999, 99999999, 9999};
  max = {-99999999, -99999999, -9999};
  for (const PO& rec : po) grow_box(min, max, position(rec));
  return true;
}
}  // namespace veld
