#include "prj/LiDAR/VR2proc/drift_accuracy.h"

#include <algorithm>
#include <cmath>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "prj/LiDAR/POio/PO_accuracy.h"

namespace veld {
namespace {
constexpr double NODE_MARGIN = 60;  // s, that nodes of the drift may lie beside their swath

// North and east count alike, as the grid may be turned against them.
DriftAccuracy to_drift(const POaccuracy& a) {
  const float plane = std::sqrt(0.5f * (a.pos.x * a.pos.x + a.pos.y * a.pos.y));
  return {a.t, {plane, plane, a.pos.z}, a.att * static_cast<float>(1 / DEG_PER_RAD)};
}

// Those of a swath's time and one on each side, which is all that its drift is asked for.
void take_records(const std::vector<POaccuracy>& records, const SwathClock& clock,
                  std::vector<DriftAccuracy>& of_swath) {
  auto from = std::ranges::lower_bound(records, clock.begin - NODE_MARGIN, {}, &POaccuracy::t);
  auto to = std::ranges::upper_bound(records, clock.end + NODE_MARGIN, {}, &POaccuracy::t);
  if (from != records.begin()) --from;
  if (to != records.end()) ++to;
  std::transform(from, to, std::back_inserter(of_swath), to_drift);
}
}  // namespace

SwathVector<std::vector<DriftAccuracy>> read_drift_accuracy(const Project& prj, const POsync& sync) {
  SwathVector<std::vector<DriftAccuracy>> of_swath(prj.swaths);
  LOG_ENTER("read_drift_accuracy npo=" << sync.files.size());
  for (size_t f = 0; f < sync.files.size(); f++) {
    const POfileState& file = sync.files[f];
    std::vector<SwathId> swaths;
    POread par = file.read;
    par.deltat = file.TimeCorr;
    par.tinf = 2e307, par.tsup = -2e307;
    for (const Swath& s : prj.swaths.present()) {
      if (s.track.file != static_cast<int>(f) || !s.has_track()) continue;
      swaths.push_back(s.id);
      par.tinf = std::min(par.tinf, s.clock.begin);
      par.tsup = std::max(par.tsup, s.clock.end);
    }
    if (swaths.empty() || file.scan.fmt != PO_SBET) continue;
    const std::string path = accuracy_file_of(prj.pofiles[f].path);
    std::vector<POaccuracy> records;
    if (path.empty() || !read_accuracy(path, par, records)) continue;
    if (records.front().t > par.tsup || records.back().t < par.tinf) {
      WARNING_MSG("no record in the time of the swaths, accuracy file " << path << " is not used");
      continue;
    }
    xyz least = records[0].pos, most = least;
    for (const POaccuracy& a : records) {
      least = {std::min(least.x, a.pos.x), std::min(least.y, a.pos.y), std::min(least.z, a.pos.z)};
      most = {std::max(most.x, a.pos.x), std::max(most.y, a.pos.y), std::max(most.z, a.pos.z)};
    }
    LOG_MSG("expected drift from accuracy file " << path << ": east " << least.x << " to " << most.x
                                                 << ", north " << least.y << " to " << most.y << ", height "
                                                 << least.z << " to " << most.z << " m (option -po_acc)");
    for (const SwathId s : swaths) take_records(records, prj.swaths[s].clock, of_swath[s]);
  }
  return of_swath;
}
}  // namespace veld
