#include "prj/LiDAR/VR2proc/swath_geometry.h"

#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/VR2proc/corr_swaths.h"

namespace veld {
namespace {
// One line a sample: ground position, the vector from the scanner to it in body and internal axes (m), its
// angles (degrees). Samples without a trajectory are left out.
bool save_ICS_table(const Project& prj, const SwathGeometry& g) {
  const std::string name = prj.name + "_ICS.txt";
  LOG_MSG("Writing internal coordinate direction vectors " << name);
  ResultFile file;
  if (!file.open(name)) return false;
  file.fs << "X Y BF{X Y Z} ICS{X Y Z} theta phi Swath# Group# Ch#\n";
  TrajFrame frame;
  for (const SwathId sw : g.swc) {
    const InvSamples& s = g.samples[sw];
    for (uint64_t k = 0; k < s.t.size(); k++) {
      if (s.O[k].z == NO_PO.z) continue;
      comp_TrajFrame(s.O[k], s.Att[k], g.rot[sw], frame);
      const BodyICS b = comp_BodyICS(frame, s.P[k]);
      if (b.theta == NO_ANGLE || b.phi == NO_ANGLE) continue;
      const auto wide = [](float v) { return static_cast<double>(v); };
      char line[240];
      std::snprintf(line, sizeof line, "%.2f %.2f  %.3f %.3f %.3f  %.3f %.3f %.3f  %.4f %.4f  %d %d %d\n",
                    s.P[k].x, s.P[k].y, wide(b.BF.x), wide(b.BF.y), wide(b.BF.z), wide(b.ICS.x),
                    wide(b.ICS.y), wide(b.ICS.z), wide(b.theta), wide(b.phi), sw.number, prj.swaths[sw].group,
                    prj.swaths[sw].channel);
      file.fs << line;
    }
  }
  return file.commit();
}
}  // namespace

bool comp_swath_geometry(const Project& prj, const GeometryParam& par, SwathGeometry& g) {
  g.rot = SwathVector<SwRot>(prj.swaths);
  for (const Swath& s : prj.swaths) {
    if (!s.mobile()) continue;
    g.rot[s.id] = chMount2R(s.group, prj.mounts, par.AROT);
    if (s.has_track()) g.rot[s.id].grid = comp_GridShape(prj.georef, 0.5 * (s.track.min + s.track.max));
  }
  g.swc = POsort_swc(prj);
  if (g.swc.empty()) {
    ERROR_MSG("no mobile swath found");
    return false;
  }
  if (!OAttP_tbl_swaths(prj, g.swc, g.samples, g.index)) {
    ERROR_MSG("failed to compute PO and time tables");
    return false;
  }
  if (!ICS_stat_swaths(prj, g.rot, g.swc, g.samples, g.ics) || (par.ICS_r && !save_ICS_table(prj, g))) {
    ERROR_MSG("failed to compute BF/ICS tables");
    return false;
  }
  return true;
}
}  // namespace veld
