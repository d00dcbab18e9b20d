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
  } else {
    s.out = "*";
  }
  return s;
}

bool align2_proc_fxnames(int step, const std::vector<std::string>& files, Project& prj) {
  LOG_ENTER("align2_proc_fxnames step=" << step);
  const size_t nswi = prj.swaths.size();
  if (step > 0) {
    std::vector<Swath> next;
    for (size_t i = 0; i < nswi; i++) {
      Swath s = prj.swaths[i];
      if (!s.fixed && files[i].empty()) {
        LOG_LINE("<!> not corrected in the first step " << s.path());
        continue;
      }
      if (!s.fixed) s.cache = CacheName(files[i]);
      s.mainch = static_cast<int>(next.size());
      next.push_back(s);
    }
    prj.swaths.swap(next);
  }
  const auto nfx =
      std::count_if(prj.swaths.begin(), prj.swaths.end(), [](const Swath& s) { return s.fixed; });
  LOG_LINE("nsw=" << prj.swaths.size() << " nswi=" << nswi << " grpS.size()=" << prj.swaths.size()
                  << " fx.size()=" << prj.swaths.size() << " nfx=" << nfx);
  for (size_t i = 0; i < prj.swaths.size(); i++) LOG_LINE(">> S " << i << ' ' << prj.swaths[i].path());
  if (static_cast<size_t>(nfx) < prj.swaths.size()) return true;
  ERROR_MSG("no corrected swath to work with in alignment step " << step + 1);
  return false;
}
}  // namespace veld
