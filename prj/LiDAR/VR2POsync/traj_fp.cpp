// Trajectories of the swaths as text: over the ground, beside the footprints, and record by record.
#include <cmath>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double STEP = 1;  // s, between the places of a track: some 20 to 80 m
}  // namespace

bool traj_swaths_fp(const SyncJob& job) {
  if (!job.par.FP || !job.par.reports) return true;
  const std::string name = job.prj.name + "_sw_traj";
  LOG_ENTER("traj_swaths_fp '" << name << "' obj=" << job.par.OUTOBJ);
  ResultFile txt, obj;
  if (!txt.open(name + ".txt") || (job.par.OUTOBJ && !obj.open(name + ".obj"))) return false;
  txt.fs << "X Y Z Time Swath# Group#\n";
  for (const Swath& s : job.swaths()) {
    Vector<PO> po;
    double dt = 0, last = -2e307;
    if (s.track.file < 0 || !load_POC_TMP(s.cache, s.id, po, dt)) continue;
    int n = 0;
    for (uint64_t i = 0; i < po.size(); i++) {
      const PO& rec = po[i];
      const bool inside = rec.t >= s.clock.begin && rec.t <= s.clock.end;
      const bool end = i + 1 == po.size() || po[i + 1].t > s.clock.end;
      if (!inside || (!end && rec.t < last + STEP)) continue;
      last = rec.t;
      char line[160];
      const dxyz at = {rec.x / OUTDATAUNIT, rec.y / OUTDATAUNIT, rec.z / OUTDATAUNIT_Z};
      std::snprintf(line, sizeof line, "%.2f %.2f %.2f %.3f ", at.x, at.y, at.z, rec.t);
      txt.fs << line << s.id << ' ' << s.group << '\n';
      std::snprintf(line, sizeof line, "v %.2f %.2f %.2f\n", at.x, at.y, at.z);
      if (job.par.OUTOBJ) obj.fs << line;
      n++;
    }
    for (int k = n; job.par.OUTOBJ && n > 1 && k > 0; k--)
      obj.fs << (k == n ? "l" : "") << " -" << k << (k == 1 ? "\n" : "");
  }
  return txt.commit() && (!job.par.OUTOBJ || obj.commit());
}

bool save_PO_records(const SyncJob& job) {
  if (job.par.records <= 0 || !job.par.reports) return true;
  LOG_ENTER("save_PO_records sub=" << job.par.records);
  int n = 0;
  for (const Swath& s : job.swaths()) {
    Vector<PO> po;
    double dt = 0;
    if (s.track.file < 0 || !load_POC_TMP(s.cache, s.id, po, dt)) continue;
    ResultFile out;
    if (!out.open(job.prj.name + "_PO_rec_sw_" + to_string(s.id) + ".txt")) return false;
    out.fs << "Time X Y Z Roll Pitch Yaw\n";
    for (uint64_t i = 0; i < po.size(); i += static_cast<uint64_t>(job.par.records)) {
      const PO& rec = po[i];
      char line[200];
      std::snprintf(line, sizeof line, "%.6f  %.4f %.4f %.4f  %.6f %.6f %.6f\n", rec.t, rec.x, rec.y, rec.z,
                    double{rec.roll}, double{rec.pitch}, std::remainder(double{rec.yaw}, 360.0));
      out.fs << line;
    }
    if (!out.commit()) return false;
    n++;
  }
  LOG_MSG("Written " << n << " position/orientation files as they were read '*_PO_rec_sw_n.txt', subsampling="
                     << job.par.records);
  return true;
}
}  // namespace veld
