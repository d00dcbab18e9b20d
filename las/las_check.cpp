// The start-up check of the point library and the read speed test.
#include <cstdio>
#include <iostream>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "lib/general/path.h"
#include "lib/general/timing.h"
#include "lib/general/txtfile.h"

namespace veld {
bool las_check_version(const std::string& tmpdir) {
  const std::string name = with_slash(tmpdir) + "dum_chk_las_v.txt";
  const auto skip = [&name] {
    WARNING_MSG("could not check LASlib dynamic library version");
    remove_file(name);
    return true;
  };
  TxtFileOut file(false);
  if (!file.open(name, 0)) return skip();
  file.fs << "1 2 3 4";
  if (!file.close()) return skip();
  auto reader = las_read_open(name, "xyzt", false);
  if (!reader) return skip();
  char expected[64];
  std::snprintf(expected, sizeof expected, "via LASreaderTXT (%d)", LAS_BUILD);
  const bool same = reader->description() == expected;
  las_read_close(reader);
  remove_file(name);
  if (!same) ERROR_MSG("incompatible LASlib dynamic library version");
  return same;
}

bool las_read_check(const std::string& name, const std::string& parse) {
  LOG_ENTER("las_read_check '" << name << "'");
  auto reader = las_read_open(name, parse, true);
  if (!reader) return false;
  const LASlayout lay = reader->point.lay;
  const int num_items = 1 + (lay.gps >= 0 && !lay.extended) + (lay.rgb >= 0) + (lay.nir >= 0) +
                        (lay.wave >= 0) + (lay.reclen > lay.base);
  LOG_MSG("before reading: total_pt_size=" << lay.reclen << " extra_bytes_size=" << lay.reclen - lay.base
                                           << " num_items=" << num_items);
  LOG_MSG("reading from file " << name);
  const Stopwatch watch;
  while (reader->read_point()) continue;
  const double seconds = watch.seconds();
  const uint64_t n = reader->p_count, npoints = reader->header.npoints;
  const double mega_points = static_cast<double>(n) * 1e-6;
  const double mega_bytes = static_cast<double>(reader->file_bytes()) * 1e-6;
  if (n < npoints) WARNING_MSG("could only read " << n << " out of " << npoints << " pts");
  LOG_MSG("read " << mega_points << " Mp, " << mega_bytes << " MB from " << name << " file | time=" << seconds
                  << "s");
  const double span = std::max(seconds, 1e-9);
  if (console_on())
    std::cout << LOG_STR(" read speed: " << mega_points / span << " Mp/s, " << mega_bytes / span << " MB/s")
              << std::endl;
  las_read_close(reader);
  return true;
}
}  // namespace veld
