#include "prj/LiDAR/VR2proc/copy_swaths.h"

#include <algorithm>
#include <mutex>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/VR2proc/corr_count.h"
#include "prj/LiDAR/VR2proc/corr_swaths.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// One file. False after an ERROR line; no output then.
bool copy_swath_las(const Swath& swath, const std::string& out, const CorrParam& par,
                    const std::vector<std::string>& sources, CorrCount& count) {
  LOG_ENTER("copy_swath_las sw=" << swath.id << " '" << swath.path() << "' -> '" << out << "'");
  std::unique_ptr<LASreader> reader = las_read_open(swath.path(), INPARSE, true);
  if (!reader) return false;
  LASheader header = reader->header;
  if (!set_las_header_sid(header, "", SOFTINFO, true)) {
    ERROR_MSG("header records too long, file " << swath.path());
    return false;
  }
  std::unique_ptr<LASwriter> writer = las_write_open(out, header, OUTPARSE, sources);
  if (!writer) return false;
  LASindex index;
  bool index_ok = par.lax && index.prepare(header), ok = true;
  uint64_t n;
  while (uint8_t* const records = ok ? reader->read_block(n) : nullptr) {
    index_ok = index_ok && index.add_records(header.point(), records, n, writer->p_count);
    ok = writer->write_raw_records(records, n);
    count.nread += n;
  }
  const bool short_read = reader->failed() || count.nread < reader->header.npoints;
  las_read_close(reader);
  if (ok && count.nread == 0) {
    ERROR_MSG("no point written to file " << out);
    return false;
  }
  ok = ok && (index_ok ? las_write_close(writer, index, par.lax_append, index_ok, &count.nbytes)
                       : las_write_close(writer, &count.nbytes));
  if (!ok) {
    ERROR_MSG("could not write file " << out);
    return false;
  }
  count.nwritten = count.nread;
  if (par.lax && !index_ok) WARNING_MSG("failed to write LAS index, swath " << swath.id);
  if (short_read) WARNING_MSG("output may be truncated, error reading file " << swath.path());
  LOG_LINE("Copied las " << out << ' ' << static_cast<double>(count.nwritten) * 1e-6 << "Mp "
                         << static_cast<double>(count.nbytes) * 1e-6 << "Mb");
  return true;
}
}  // namespace

bool copy_swaths(const Project& prj, const CorrParam& par, const std::vector<SwathId>& swaths,
                 std::vector<SwathId>& copied) {
  const int nsw = static_cast<int>(swaths.size()), nthreads = std::min(NTHREADS, nsw);
  LOG_ENTER("copy_swaths nthreads=" << nthreads << " name='" << prj.name << "' nsw=" << prj.swaths.size()
                                    << " nswc=" << nsw);
  const Stopwatch watch;
  LOG_MSG("LiDAR FILE COPY: " << nsw << " swaths [" << nthreads << " TH] ");
  int ndup = 0;
  const std::vector<std::string> names = comp_output_names(par.out, par.odir, prj, swaths, ndup);
  const std::vector<std::string> sources = source_files(prj);
  std::mutex mutex;
  std::vector<uint8_t> oks(swaths.size(), 0);
  int done = 0;
  double Mp = 0, MB = 0;
  const auto totals = [&] { return LOG_STR("COPIED " << Mp << " Mp, " << MB << " MB - #" << done); };
  progress_start(nsw);
  run_units(nsw, nthreads, [&](int64_t i, int) {
    const size_t k = static_cast<size_t>(i);
    CorrCount count;
    oks[k] = copy_swath_las(prj.swaths[swaths[k]], names[k], par, sources, count);
    const std::lock_guard<std::mutex> lock(mutex);
    done++;
    Mp += static_cast<double>(count.nwritten) * 1e-6;
    MB += static_cast<double>(count.nbytes) * 1e-6;
    progress_step(done, totals());
    return true;  // a failed swath does not stop the others
  });
  progress_end(totals());
  LOG_LINE("/// COPY_SWATHS_TIME=" << watch.text());
  for (size_t k = 0; k < swaths.size(); k++)
    if (oks[k]) copied.push_back(swaths[k]);
  return copied.size() == swaths.size();
}
}  // namespace veld
