#include "prj/LiDAR/run/report_input.h"

namespace veld {
ReportInput make_ReportInput(const Project& prj, const ScanResult& scanned, const ControlParam& control,
                             bool complete) {
  ReportInput in;
  for (const Swath& s : prj.swaths.present()) {
    MapSwath m;
    m.name = to_string(s.id);
    m.fixed = s.fixed;
    const LTidxInfo& info = scanned.stat.swaths[s.id].info;
    for (size_t k = 0; k < 4; k++) m.corner[k] = {info.mbr[k][0], info.mbr[k][1]};
    in.swaths.push_back(m);
  }
  in.density = scanned.stat.density;
  in.control = control;
  in.before = scanned.control;
  in.complete = complete;
  return in;
}
}  // namespace veld
