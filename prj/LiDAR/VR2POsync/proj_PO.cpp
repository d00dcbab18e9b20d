// Projection of a trajectory.
#include <algorithm>
#include <cstdio>
#include <string>

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
// Why the first record from i0 on that cannot be projected can't, and where it lies.
std::string cause_at(const GeoRefParam& g, bool ecef, const Vector<PO>& po, int64_t i0) {
  for (int64_t i = i0; i < static_cast<int64_t>(po.size()); i++) {
    PO rec = po[i];
    if (project(g, ecef, rec)) continue;
    double lon = rec.x, lat = rec.y, h = rec.z, height = 0;
    if (ecef) ecef_to_geodetic({rec.x, rec.y, rec.z}, lon, lat, h);
    const bool outside = g.geoH && !geoid_height(*g.geoH, lon, lat, height);
    char at[100];
    std::snprintf(at, sizeof at, " at longitude %.6f latitude %.6f", lon, lat);
    return std::string(outside ? " - geoid out of bounds" : " - out of the projection's range") + at;
  }
  return {};
}
}  // namespace

bool proj_PO(Vector<PO>& po, int proj, const GeoRefParam& georef, const std::string& path, dxyz& min,
             dxyz& max) {
  LOG_ENTER("proj_PO n=" << po.size() << " proj=" << proj << " " << proj_word(georef.kind));
  if (proj != PO_PROJ) {
    const int64_t n = static_cast<int64_t>(po.size());
    const int64_t bad = run_units((n + CHUNK - 1) / CHUNK, NTHREADS, [&](int64_t unit, int) {
      for (int64_t i = unit * CHUNK; i < std::min(n, (unit + 1) * CHUNK); i++)
        if (!project(georef, proj == PO_ECEF, po[i])) return false;
      return true;
    });
    if (bad >= 0) {
      ERROR_MSG("failed to project PO file " << path << cause_at(georef, proj == PO_ECEF, po, bad * CHUNK));
      return false;
    }
  }
  min = {99999999, 99999999, 9999};
  max = {-99999999, -99999999, -9999};
  for (const PO& rec : po) grow_box(min, max, position(rec));
  return true;
}

void check_geoid_ends(const SyncJob& job) {
  const GeoRefParam& g = job.prj.georef;
  for (int f = 0; g.geoH && f < job.nfiles(); f++) {
    const POfileState& file = job.file(f);
    if (!file.ok || file.dup >= 0 || file.scan.coord != PO_GEO) continue;
    LOG_LINE("Read PO file " << job.file_path(f) << " t:[" << file.scan.t0 << ' ' << file.scan.t1 << "] ");
    for (const bool last : {false, true}) {
      POread par = file.read;
      Vector<PO> po;
      bool adj = false;
      double height = 0;
      par.tinf = par.tsup = last ? file.scan.t1 : file.scan.t0;
      if (!read_PO(job.file_path(f), par, po, adj)) return;  // the synchronisation meets the same
      const PO end = last ? po[po.size() - 1] : po[0];
      if (!geoid_height(*g.geoH, end.x, end.y, height))
        WARNING_MSG("geoid out of bounds at endpoints, longitude " << end.x << " latitude " << end.y
                                                                   << ", PO file " << job.file_path(f));
    }
  }
}
}  // namespace veld
