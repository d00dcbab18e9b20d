// Point files cut by the lines of a trajectory.
#include "prj/LiDAR/VR2proc/cut_swaths.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/VR2proc/cut_internal.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
struct CutJob {
  const TrajCut& lines;
  const CutParam& par;
  const std::vector<std::string>& sources;
  std::string path, out;  // source, and the file name that the numbers of lines are put into
};

// The segment that holds a time, the later of two; the number of segments for none. Starts rise with the number, ends too.
size_t segment_at(const std::vector<CutSegment>& segments, double t) {
  const auto next = std::upper_bound(segments.begin(), segments.end(), t,
                                     [](double at, const CutSegment& s) { return at < s.tmin; });
  if (next == segments.begin() || (next - 1)->tmax < t) return segments.size();
  return static_cast<size_t>(next - segments.begin()) - 1;
}

// The scale of a file's times by the flag and by its first time, and what brings them to that of the lines.
bool set_clock(const CutJob& job, const LASheader& header, double first, CutClock& clock) {
  const bool flag = header.adjusted_gps(), adj = is_adjusted(first);
  const bool lines_adj = job.lines.adj || is_adjusted(job.lines.segments.front().tmin);
  if (flag != adj && std::fabs(first) < 4 * ADJ_S)
    WARNING_MSG("LAS adjusted GPS time bit override, adj=" << flag << " autoadj=" << adj
                                                           << " from file timestamps, " << job.path);
  if (!std::isfinite(first) || first < (adj ? -ADJ_S : 0) || first > 4 * ADJ_S) {
    ERROR_MSG("GPS week out of bounds, wrong time format, first timestamp=" << first << ", file "
                                                                            << job.path);
    return false;
  }
  clock.first = first;
  clock.deltat = 0;
  if (!adj || !lines_adj) {  // whole weeks are unknown on one side, or on both
    const double middle = 0.5 * (job.lines.segments.front().tmin + job.lines.segments.back().tmax);
    const double own = first + (adj ? ADJ_S : 0), other = middle + (lines_adj ? ADJ_S : 0);
    clock.deltat = (adj ? ADJ_S : 0) + std::round((other - own) / WEEK_S) * WEEK_S - (lines_adj ? ADJ_S : 0);
    if (adj) {
      LOG_LINE("<!> LASADJ POWS ");
      LOG_MSG("GPS time converted to adjusted for PO time intervals to match LiDAR data");
    } else if (lines_adj) {
      LOG_LINE("<!> LASWS POADJ ");
      LOG_MSG("GPS time converted to adjusted for LiDAR time intervals to match PO data");
    }
  }
  LOG_LINE("deltat=" << clock.deltat << " t+deltat=" << first + clock.deltat);
  return true;
}

// One pass through a file.
bool distribute(const CutJob& job, LASreader& reader, CutClock& clock, std::map<int, CutPart>& parts,
                CutCount& count) {
  const std::vector<CutSegment>& segments = job.lines.segments;
  const std::string ext = get_extension(job.out), stem = job.out.substr(0, job.out.size() - ext.size());
  CutPart* current = nullptr;
  size_t at = segments.size();
  bool rolled = false;
  while (reader.read_point()) {
    const double raw = reader.point.gps_time();
    if (count.nread++ == 0 && !set_clock(job, reader.header, raw, clock)) return false;
    const double t = clock(raw);
    if (!rolled && clock.period > 0) {
      rolled = true;
      WARNING_MSG("time rollover detected, file " << job.path);
    }
    const size_t seg = segment_at(segments, t);
    if (seg == segments.size()) continue;
    if (seg != at || !current) {
      at = seg;
      current = &parts[segments[seg].number];
      if (!current->writer) {
        current->number = segments[seg].number;
        current->name = stem + "_c_" + std::to_string(current->number) + ext;
        if (!open_part(reader.header, job.par, job.sources, *current)) return false;
      }
    }
    if (!current->writer->write_point(reader.point)) {
      ERROR_MSG("could not write file " << current->name);
      return false;
    }
    current->npt++;
    current->tmin = std::min(current->tmin, t);
    current->tmax = std::max(current->tmax, t);
    current->times.add(t);
  }
  return true;
}

bool close_parts(std::map<int, CutPart>& parts, CutCount& count) {
  for (auto& [number, part] : parts) {
    if (!las_write_close(part.writer, &part.nbytes)) {
      ERROR_MSG("could not write file " << part.name);
      return false;
    }
    LOG_LINE("Cut las " << part.name << " npt=" << part.npt << " las t:[" << part.tmin << ' ' << part.tmax
                        << "] " << static_cast<double>(part.nbytes) * 1e-6 << " Mb");
    count.nfiles++;
    count.nwritten += part.npt;
    count.nbytes += static_cast<uint64_t>(part.nbytes);
  }
  return true;
}

bool cut_swath(const CutJob& job, CutCount& count) {
  LOG_ENTER("cut_swath_las '" << job.path << "' ni=" << job.lines.segments.size()
                              << " adjpo=" << job.lines.adj << " gap=" << job.par.gap);
  std::unique_ptr<LASreader> reader = las_read_open(job.path, INPARSE, true);
  if (!reader) return false;
  if (reader->header.layout().gps < 0) {
    ERROR_MSG("LAS cutting: missing timestamps (point format 0 or 2), file " << job.path);
    return false;
  }
  CutClock clock;
  std::map<int, CutPart> parts;
  if (!distribute(job, *reader, clock, parts, count)) {
    ERROR_MSG("cut swaths, file " << job.path);
    return false;
  }
  if (reader->failed() || count.nread < reader->header.npoints)
    WARNING_MSG("output may be truncated, error reading file " << job.path);
  las_read_close(reader);
  if (!close_parts(parts, count)) return false;
  // A gap of a second is one that the default names; without cutting it is only counted.
  for (auto& [number, part] : parts) {
    const std::vector<double> limits = part.times.gaps(job.par.gap > 0 ? job.par.gap : 1);
    if (limits.empty()) continue;
    if (job.par.gap <= 0)
      count.ngap++;
    else if (!cut_swath_las_1(part, clock, limits, job.par, count))
      count.nfailed++;
  }
  return true;
}

std::string count_text(const CutCount& c) {
  return LOG_STR("CUT " << static_cast<double>(c.nread) * 1e-6 << " Mp, "
                        << static_cast<double>(c.nbytes) * 1e-6 << " MB - ");
}

void add(CutCount& sum, const CutCount& c) {
  sum.nread += c.nread, sum.nwritten += c.nwritten, sum.nbytes += c.nbytes;
  sum.nfiles += c.nfiles, sum.ngap += c.ngap, sum.nrecut += c.nrecut;
  sum.nextra += c.nextra, sum.nfailed += c.nfailed;
}

void report(const CutCount& n, double read_MB, const Stopwatch& watch) {
  const double MB = static_cast<double>(n.nbytes) * 1e-6;
  if (n.ngap > 0) WARNING_MSG(n.ngap << " swaths have time gaps but extra cutting disabled");
  if (n.nfailed > 0) WARNING_MSG(n.nfailed << " swaths could not be split after time gap detection");
  if (n.nrecut > 0)
    LOG_MSG("Recut " << n.nrecut << " swaths due to time gaps, created " << n.nextra << " extra swaths");
  LOG_LINE("/// CUT_SWATH_TIME=" << watch.text());
  LOG_MSG("Cut input data into " << n.nfiles + n.nextra << " swaths, read "
                                 << static_cast<double>(n.nread) * 1e-6 << "Mp, " << read_MB << "Mb, written "
                                 << MB << "MB, total "
                                 << 100.0 * static_cast<double>(n.nwritten) /
                                        static_cast<double>(std::max<uint64_t>(n.nread, 1))
                                 << "% of the points | " << watch.text());
}
}  // namespace

bool open_part(const LASheader& source, const CutParam& par, const std::vector<std::string>& sources,
               CutPart& part) {
  LASheader header = source;
  if (!set_las_header_sid(header, par.sid, SOFTINFO, true)) {
    ERROR_MSG("header records too long, file " << part.name);
    return false;
  }
  part.writer = las_write_open(part.name, header, OUTPARSE, sources);
  return part.writer != nullptr;
}

bool cut_swaths_las(const Project& prj, const TrajCut& lines, const CutParam& par) {
  ASSERT(!lines.segments.empty());
  std::vector<SwathId> swaths;
  std::vector<std::string> sources;
  double read_MB = 0;
  for (const Swath& s : prj.swaths) {
    sources.push_back(s.path());
    if (!s.mobile()) continue;
    swaths.push_back(s.id);
    read_MB += static_cast<double>(file_size(s.path())) * 1e-6;
  }
  const int nsw = static_cast<int>(swaths.size());
  LOG_ENTER("cut_swaths_las ni=" << lines.segments.size() << " adjpo=" << lines.adj << " gap=" << par.gap
                                 << " nsw=" << nsw);
  const Stopwatch watch;
  LOG_MSG("CUTTING: max " << lines.segments.size() << " swaths from "
                          << (nsw == 1 ? "file " + sources[0] : std::to_string(nsw) + " files,")
                          << " time_gap=" << par.gap);
  int ndup = 0;
  const std::vector<std::string> names = comp_output_names(par.out, par.odir, prj, swaths, ndup);
  std::mutex mutex;
  CutCount sum;
  int done = 0, nbad = 0;
  progress_start(nsw);
  run_units(nsw, std::min(NTHREADS, std::max(nsw, 1)), [&](int64_t i, int) {
    const size_t k = static_cast<size_t>(i);
    CutCount count;
    const bool ok = cut_swath({lines, par, sources, prj.swaths[swaths[k]].path(), names[k]}, count);
    const std::lock_guard<std::mutex> lock(mutex);
    add(sum, count);
    nbad += !ok;
    progress_step(++done, count_text(sum));
    return true;  // a failed file does not stop the others
  });
  progress_end(count_text(sum));
  report(sum, read_MB, watch);
  if (sum.nwritten == 0) ERROR_MSG("cut failed, no point matches time intervals");
  return sum.nwritten > 0 && nbad == 0 && sum.nfailed == 0;
}
}  // namespace veld
