#include "prj/LiDAR/run/check_first.h"

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/check/check_table.h"
#include "prj/LiDAR/check/geometry_check.h"
#include "prj/LiDAR/check/project_check.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
bool check_first(const Project& prj, const Options& o, const std::vector<uint8_t>& xcls, bool writes) {
  LOG_ENTER("check_first nsw=" << prj.swaths.size() << " npo=" << prj.pofiles.size() << " check=" << o.check);
  const Stopwatch watch;
  TilingParam filters = o.scanning.tiling;
  filters.xcls = xcls;
  const SwathVector<SwathProbe> probes = probe_swaths(prj, filters, NTHREADSIO);
  std::vector<Problem> problems = find_problems(prj, probes, o.utm);
  for (const Problem& p :
       check_room(estimate_needs(probes), TMPDIR, o.odir.empty() ? OUTDIR : o.odir, writes))
    problems.push_back(p);
  bool ok = true;
  for (const Problem& p : problems) {
    if (p.error)
      ERROR_MSG(p.text);
    else
      WARNING_MSG(p.text);
    ok = ok && !p.error;
  }
  POsyncParam sync = o.correction.sync;
  sync.reports = o.check;  // else the run writes its own
  const GeometryCheck geometry = check_geometry(prj, probes, {sync, o.correction.geometry.ICS});
  if (o.check) show_check_table(prj, probes, geometry);
  LOG_LINE("/// CHECK_TIME=" << watch.text());
  return ok && geometry.ok;
}
}  // namespace veld
