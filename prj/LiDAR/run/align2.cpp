#include "prj/LiDAR/run/align2.h"

#include <algorithm>

#include "lib/general/log.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
Options align2_options(const Options& o, int step) {
  Options s = o;
  s.odir = OUTDIR;
  if (!o.align2) return s;
  if (step == 0) {
    s.odir = o.odir_1;
    for (MapParam* map : {&s.scanning.map, &s.correction.map}) {
      map->dz_range = o.dz_range_1;
      map->dz16_range = o.dz16_range_1;
      map->vectors.range = o.v_range_1;
    }
    s.correction.nil = false;
    s.correction.tile.size = 0;
  } else {
    s.out = "*";
  }
  return s;
}

bool align2_proc_fxnames(int step, SwathTable& swaths) {
  LOG_ENTER("align2_proc_fxnames step=" << step);
  int nmobile = 0;
  for (Swath& s : swaths) {
    if (step > 0 && s.state == SwathState::untiled)
      s.state = SwathState::uncorrected;  // listed by the first step
    if (step > 0 && s.mobile()) {
      if (s.corrected.empty()) {
        LOG_LINE("<!> not corrected in the first step " << s.path());
        swaths.reject(s.id, SwathState::uncorrected, "not corrected in the first step");
        continue;
      }
      s.cache = CacheName(s.corrected);
      s.corrected.clear();
      s.state = SwathState::used;
    }
    nmobile += s.mobile();
    if (s.present()) LOG_LINE(">> S " << s.id << ' ' << s.path());
  }
  LOG_LINE("nsw=" << swaths.size() << " nmobile=" << nmobile);
  if (nmobile > 0) return true;
  ERROR_MSG("no corrected swath to work with in alignment step " << step + 1);
  return false;
}
}  // namespace veld
