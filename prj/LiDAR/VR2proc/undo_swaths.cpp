#include "prj/LiDAR/VR2proc/undo_swaths.h"

#include <algorithm>
#include <mutex>

#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/VR2proc/undo_file.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
bool undo_corr_swaths(const Project& prj, const UndoParam& par) {
  std::vector<SwathId> swaths;
  for (const Swath& s : prj.swaths)
    if (s.mobile()) swaths.push_back(s.id);
  const int nsw = static_cast<int>(swaths.size()), nthreads = std::min(NTHREADS, std::max(nsw, 1));
  LOG_ENTER("undo_corr_swaths nsw=" << nsw << " nthreads=" << nthreads);
  const Stopwatch watch;
  LOG_MSG("LiDAR FILE CORRECTION UNDO: " << nsw << " swaths [" << nthreads << " TH]");
  int ndup = 0;
  const std::vector<std::string> names = comp_output_names(par.out, par.odir, prj, swaths, ndup);
  std::vector<std::string> sources;
  for (const Swath& s : prj.swaths) sources.push_back(s.path());

  std::mutex mutex;
  int done = 0, ngood = 0;
  double Mp = 0, MB = 0;
  const auto totals = [&] { return LOG_STR("CORR-UNDO " << Mp << " Mp, " << MB << " MB - #" << done); };
  progress_start(nsw);
  run_units(nsw, nthreads, [&](int64_t i, int) {
    LOG_ENTER("th_undo_corr_swath id=" << i);
    const size_t k = static_cast<size_t>(i);
    const UndoJob job{swaths[k], prj.swaths[swaths[k]].path(), names[k], par.lax, par.lax_append, &sources};
    CorrCount count;
    const bool ok = undo_corr_swath_las(job, count);
    const std::lock_guard<std::mutex> lock(mutex);
    done++;
    ngood += ok;
    Mp += static_cast<double>(count.nwritten) * 1e-6;
    MB += static_cast<double>(count.nbytes) * 1e-6;
    progress_step(done, totals());
    return true;  // a failed swath does not stop the others
  });
  progress_end(totals());
  if (ndup > 0) LOG_MSG("_s_Swath# appended to file names to avoid duplicates for " << ndup << " swaths");
  LOG_LINE("/// UNDO_CORR_SWATHS_TIME=" << watch.text());
  LOG_MSG("Corrected " << ngood << " swaths, total " << Mp << " Mp, written " << MB << " MB | "
                       << watch.text());
  if (ngood == nsw) return true;
  ERROR_MSG("correction undo failed for " << nsw - ngood
                                          << " swaths (missing/bad point correction files or I/O errors)");
  return false;
}
}  // namespace veld
