// The box of the project (-bbox_x, -bbox_y): swaths beside it leave before anything is read of them.
#include <algorithm>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "prj/LiDAR/run/sequence_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
struct Limits {
  double lo, hi;
};

// The two ends of an option in either order; everything without it.
Limits limits_of(const std::vector<double>& ends) {
  if (ends.size() < 2) return {-2e307, 2e307};
  return {std::min(ends[0], ends[1]), std::max(ends[0], ends[1])};
}
}  // namespace

bool bbox_rej_lim(Project& prj, const ScanParam& par) {
  if (par.bbox_x.empty() && par.bbox_y.empty()) return true;
  const Limits x = limits_of(par.bbox_x), y = limits_of(par.bbox_y);
  LOG_ENTER("bbox_rej_lim nsw=" << prj.swaths.size() << " BB X:[" << x.lo << " " << x.hi << "] Y:[" << y.lo
                                << " " << y.hi << "]");
  int nmob = 0, nref = 0;
  for (const SwathId id : prj.swaths.ids()) {
    const Swath& s = prj.swaths[id];
    const std::unique_ptr<LASreader> reader = las_read_open(s.path(), INPARSE, false, 0);
    if (!reader) continue;  // the tiling tells why, and rejects it
    const LASheader& h = reader->header;
    if (!(h.max_x < x.lo || h.min_x > x.hi || h.max_y < y.lo || h.min_y > y.hi)) continue;
    LOG_LINE("<!> drop " << s.path());
    (s.fixed ? nref : nmob)++;
    prj.swaths.reject(id, SwathState::beside, "beside the box of -bbox_x and -bbox_y");
  }
  if (nref > 0) WARNING_MSG(nref << " reference files dropped based on bounding box check");
  if (nmob > 0) WARNING_MSG(nmob << " mobile swaths dropped based on bounding box check");
  if (std::ranges::any_of(prj.swaths, &Swath::mobile)) return true;
  ERROR_MSG("failed to select swaths based on bounding boxes");
  return false;
}
}  // namespace veld
