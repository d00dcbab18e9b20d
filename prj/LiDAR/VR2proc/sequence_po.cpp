#include "prj/LiDAR/VR2proc/sequence_po.h"

#include "lib/general/log.h"
#include "lib/general/timing.h"

namespace veld {
bool DUT_PO_QC_CORR(Project& prj, const DUTidx& idx, const POscanParam& par) {
  LOG_ENTER("DUT_PO_QC_CORR name='" << prj.name << "' AROT=" << par.sync.AROT
                                    << " SCAN=1 ICS=" << par.geometry.ICS << " ICS_r=" << par.geometry.ICS_r);
  const Stopwatch watch;
  LOG_LINE("PO scan");
  POsync sync;
  if (IDX_PO_sync(idx, prj, par.sync, sync) == 0) return false;
  SwathGeometry geometry;
  if (!comp_swath_geometry(prj, par.geometry, geometry)) return false;
  LOG_LINE("/// PO_SCAN_TIME=" << watch.text());
  return true;
}
}  // namespace veld
