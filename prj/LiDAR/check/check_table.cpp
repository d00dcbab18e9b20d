#include "prj/LiDAR/check/check_table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr size_t NAME_WIDTH = 22;  // the table fits 80 columns

std::string cut(const std::string& name, size_t width) {
  return name.size() <= width ? name : "..." + name.substr(name.size() - (width - 3));
}

const char* unit_word() {
  return DATAUNIT == 1.0                        ? "m"
         : DATAUNIT == FEET_INT                 ? "ft"
         : std::fabs(DATAUNIT - FEET_US) < 1e-9 ? "ft_us"
                                                : "other";
}

// Points of the file by the box of the sample: an upper bound of the swath's area.
double density(const SwathProbe& p) {
  const GroundBox b = ground_box(p);
  const double area = (b.x1 - b.x0) * (b.y1 - b.y0);
  return area > 0 ? static_cast<double>(p.header.npoints) / area : 0;
}

void swath_line(const Swath& swath, const SwathProbe& p, const SwathGeometryCheck& geometry, int overlaps) {
  const std::string name = cut(base_name(swath.path()), NAME_WIDTH);
  char line[200];
  if (!p.fault.empty() || p.beams.empty()) {
    std::snprintf(line, sizeof line, "%3d %-22s %s", swath.id.number, name.c_str(),
                  p.fault.empty() ? "reference" : p.fault.c_str());
    LOG_MSG(line);
    return;
  }
  char geo[40] = "     -      -";
  if (geometry.checked) {
    const ScanPattern& now = geometry.fault.now;
    std::snprintf(geo, sizeof geo, "%6.0f %6.2f", now.AGL, now.spread);
  }
  std::snprintf(line, sizeof line, "%3d %-22s %9.3f %6.2f %4.0f %7.1f %s %3d %s", swath.id.number,
                name.c_str(), static_cast<double>(p.header.npoints) * 1e-6, density(p),
                100.0 * static_cast<double>(p.nkept) / static_cast<double>(p.beams.size()), p.tmax - p.tmin,
                geo, overlaps,
                !geometry.checked                            ? "-"
                : geometry.fault.kind == TrajFaultKind::none ? "ok"
                                                             : "FAULT");
  LOG_MSG(line);
}
}  // namespace

void show_check_table(const Project& prj, const SwathVector<SwathProbe>& probes,
                      const GeometryCheck& geometry) {
  const SwathVector<int> overlaps = count_overlaps(prj.swaths, ground_boxes(prj.swaths, probes));
  LOG_MSG("CHECK");
  LOG_MSG("  # File                      Points p/m2 Kept    Time    AGL Spread Ovr Geometry");
  LOG_MSG("                              million       %       s      m    deg");
  for (const Swath& s : prj.swaths.present())
    swath_line(s, probes[s.id], geometry.swaths[s.id], overlaps[s.id]);
  std::vector<std::string> systems;
  for (const SwathProbe& p : probes) {
    if (p.beams.empty()) continue;
    const std::string crs = header_crs(p.header);
    if (std::find(systems.begin(), systems.end(), crs) == systems.end()) systems.push_back(crs);
  }
  const std::string headers = systems == std::vector<std::string>{"-"} ? "none" : list_text(systems);
  LOG_MSG("Coordinate systems of the headers: " << headers << "; unit of the points: " << unit_word());
  const Needs needs = estimate_needs(probes);
  LOG_MSG("An alignment needs about "
          << needs.caches * 1e-9 << " GB in " << TMPDIR << ", " << needs.results * 1e-9 << " GB in " << OUTDIR
          << ", "
             "at most "
          << MEM_MB << " MB of memory (-mem) and " << hms_text(needs.seconds / std::max(1, NTHREADS))
          << " on " << NTHREADS << " threads");
}
}  // namespace veld
