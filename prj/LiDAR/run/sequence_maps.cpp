// Maps and files straight from the grids.
#include "lib/general/log.h"
#include "prj/LiDAR/LmTQCsep/gtile_export.h"
#include "prj/LiDAR/run/sequence_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
bool fast_QC(const Project& prj, const ScanParam& par, const SwPairList& near, ScanResult& res) {
  FastQCparam fast;
  fast.map = par.map;
  fast.full = par.FULL;
  fast.DZ = par.FASTQC;  // else that of the pairs has the name
  fast.Zlow = static_cast<float>(res.stat.Zmin);
  fast.Zhigh = static_cast<float>(res.stat.Zmax);
  fast.nthreads = NTHREADS;
  fast.REFQC = par.qcpairs.ALLDZ || par.qcpairs.REF > 0;
  if (!par.qcpairs.ALLDZ) {
    const int nsw = prj.swaths.size();
    fast.pair_ok.resize(nsw, nsw, uint8_t{0});
    int n0 = 0, n1 = 0;
    for (const SwPair& p : comp_int_sw(prj.swaths, near, par.qcpairs, false, n0, n1))
      fast.pair_ok(p.sw1.number, p.sw2.number) = fast.pair_ok(p.sw2.number, p.sw1.number) = 1;
  }
  if (fast_QC_ZDS(prj, res.stat.frame, fast, res.fast)) return true;
  ERROR_MSG("fast QC image computation failed");
  return false;
}

bool export_tiles(const Project& prj, const ScanParam& par, const ScanResult& res) {
  if (export_tiles_corr(prj, res.stat.frame, par.gtile, par.map, NTHREADS, nullptr)) return true;
  ERROR_MSG("failed to export gridded tiles from original swaths");
  return false;
}

bool separate_swaths(const Project& prj, const ScanParam& par, ScanResult& res) {
  if (save_separation(prj, res.stat.frame, par.map, NTHREADS, nullptr, res.separation)) return true;
  ERROR_MSG("swath separation failed");
  return false;
}
}  // namespace veld
