// Trajectories in text columns.
#include <algorithm>
#include <cmath>
#include <vector>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "prj/LiDAR/POio/POcheck.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/POio/txt_layout.h"
#include "prj/LiDAR/POio/txt_rows.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t TAIL = 65536;  // bytes in which the last row is looked for

// A time as the file's scale has it: with a column of weeks, adjusted.
double row_time(const POrow& row, const TxtLayout& layout) {
  const double t = row.t * layout.time_unit;
  return layout.row.col.week < 0 ? t : t + (row.week * WEEK_S - ADJ_S);
}

// Times of the first rows of a file that have all columns, in reverse order.
std::vector<double> head_times(LineReader& lines, const TxtLayout& layout, POrow& first) {
  std::vector<double> times;
  std::string_view line;
  POrow row;
  while (times.size() < END_RECORDS && lines.next(line)) {
    if (!parse_PO_row(line, layout.row, row)) continue;
    if (times.empty()) first = row;
    times.push_back(row_time(row, layout));
  }
  std::reverse(times.begin(), times.end());
  return times;
}

// Times of the last rows, from the tail of the file if there are some in it, else from the whole.
std::vector<double> tail_times(const std::string& path, const TxtLayout& layout) {
  LineReader lines;
  std::vector<double> times;
  if (!lines.open(path)) return times;
  for (uint64_t from = lines.size() > TAIL ? lines.size() - TAIL : 0;; from = 0) {
    if (!lines.open(path, from)) return times;
    std::string_view line;
    POrow row;
    if (from > 0) lines.next(line);  // the rest of a row
    while (lines.next(line))
      if (parse_PO_row(line, layout.row, row)) times.push_back(row_time(row, layout));
    if (!times.empty() || from == 0) break;
  }
  if (times.size() > END_RECORDS) times.erase(times.begin(), times.end() - END_RECORDS);
  return times;
}

struct TxtStart {  // what the start of a file says
  TxtLayout layout;
  POrow row;          // the first one
  double first = 0;   // s, time at the start, as in the file
  double deltat = 0;  // s, to be added to times
};

// Warnings about times and angles that contradict the options; the reading goes on.
void check_rows(const std::string& path, const POread& par, const TxtStart& start) {
  const POrow& row = start.row;
  check_time_format(path, "ASCII PO", start.first, par);
  if (start.layout.rad_angle && (std::fabs(row.w) > 6.3 || std::fabs(row.p) > 6.3 || std::fabs(row.k) > 6.3))
    WARNING_MSG("attitude angles likely degrees, PO file " << path << " (check option -R)");
  if (start.layout.rad_place && start.layout.coord == PO_GEO &&
      (std::fabs(row.x) > 6.3 || std::fabs(row.y) > 1.6))
    WARNING_MSG("lon/lat angles likely degrees, PO file " << path << " (check option -R)");
}

PO to_PO(const POrow& row, const TxtStart& start, double deltat, const POread& par) {
  const TxtLayout& layout = start.layout;
  const double angle = layout.rad_angle ? DEG_PER_RAD : 1.0;
  const double place = layout.coord == PO_GEO    ? (layout.rad_place ? DEG_PER_RAD : 1.0)
                       : layout.coord == PO_PROJ ? DATAUNIT
                                                 : 1.0;
  const double height = (layout.coord == PO_PROJ ? DATAUNIT_Z : 1.0) * (layout.NED2ENU ? -1.0 : 1.0);
  PO rec;
  rec.t = row_time(row, layout) + deltat;
  rec.x = row.x * place;
  rec.y = row.y * place;
  rec.z = row.z * height;
  rec.roll = static_cast<float>(row.w * angle);
  rec.pitch = static_cast<float>(row.p * angle);
  rec.yaw = file_yaw(row.k * angle, par);
  return rec;
}

// Options of the file, with the time format that it has of its own.
POread own_param(const TxtLayout& layout, const POread& par) {
  POread own = par;
  if (layout.row.col.week >= 0) own.time = ADJ_GPS_DEC;
  return own;
}

bool start_txt(const std::string& path, const POread& par, bool report, TxtStart& start, bool& adj) {
  LineReader lines;
  if (!find_layout(path, par, report, start.layout)) return false;
  if (!lines.open(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  const std::vector<double> head = head_times(lines, start.layout, start.row);
  if (head.empty()) {
    ERROR_MSG("not enough data points, PO file " << path << " (check option -po_parse)");
    return false;
  }
  start.first = end_time(head);
  return file_time_scale(path, start.first, own_param(start.layout, par), start.deltat, adj);
}

// Last time of the file, rollover corrected. False: unknown.
bool last_time(const std::string& path, const TxtStart& start, double& last) {
  const std::vector<double> tail = tail_times(path, start.layout);
  last = tail.empty() ? start.first : end_time(tail);
  if (last < start.first) last += rollover_period(rollover_of_span(start.first - last));
  return last >= start.first;
}
}  // namespace

bool scan_txt_PO(const std::string& path, const POread& par, POscan& scan) {
  TxtStart start;
  double last = 0;
  if (!start_txt(path, par, true, start, scan.tadj)) return false;
  check_rows(path, own_param(start.layout, par), start);
  if (!last_time(path, start, last)) {
    ERROR_MSG("incompatible GPS timestamps, PO file " << path);
    return false;
  }
  const POcolumns& col = start.layout.row.col;
  scan.coord = start.layout.coord;
  scan.own_time = col.week >= 0;
  scan.hms = start.layout.row.hms;
  scan.t0 = start.first + start.deltat + par.deltat;
  scan.t1 = last + start.deltat + par.deltat;
  scan.roll = col.w >= 0;
  scan.pitch = col.p >= 0;
  scan.yaw = col.k >= 0;
  return true;
}

bool read_txt_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  TxtStart start;
  double last = 0;
  if (!start_txt(path, par, false, start, tadj)) return false;
  const double deltat = start.deltat + par.deltat;
  const TxtLayout& layout = start.layout;
  LOG_ENTER("read_txt_PO deltat=" << deltat << " MAX_TRAJ_DT=" << MAX_TRAJ_DT << " time=" << par.time
                                  << " hms=" << layout.row.hms << " gweek=" << par.gweek
                                  << " gday=" << par.gday << " rad=" << layout.rad_angle
                                  << " su=" << (layout.letters.find('u') < 100) << " sn="
                                  << (layout.letters.find('n') < 100) << " NED2ENU=" << layout.NED2ENU
                                  << " ws week=" << (layout.row.col.week >= 0)
                                  << " ws us=" << (layout.time_unit == 1e-6));
  const uint64_t max_rec = static_cast<uint64_t>(MEM_MB) * 1000000 / (2 * sizeof(PO));
  POcheck list;
  list.path = path;
  list.what = "PO";
  list.coord = layout.coord;
  if (last_time(path, start, last)) list.tend = last + deltat;
  LineReader lines;
  std::string_view line;
  POrow row;
  uint64_t nrow = 0, nskip = 0, behind = 0;  // behind: rows beyond the end of the window
  uint64_t nbroken = 0;                      // skipped behind the first row
  if (!lines.open(path)) return false;
  while (behind < PO_MARGIN && lines.next(line)) {
    nrow++;
    if (!parse_PO_row(line, layout.row, row)) {
      nskip++;
      nbroken += nrow > nskip && !line.empty();
      continue;
    }
    add_PO(list, to_PO(row, start, deltat, par));
    const size_t n = list.rec.size();
    behind += n > 0 && list.rec[n - 1].t > par.tsup;
    if (n > PO_MARGIN && list.rec[n - 1].t < par.tinf) list.rec.erase(list.rec.begin());
    if (n > max_rec) {
      ERROR_MSG("trajectory needs more than " << MEM_MB << " MB (-mem), PO file " << path);
      return false;
    }
  }
  if (lines.failed()) {
    ERROR_MSG("read error, PO file " << path);
    return false;
  }
  LOG_LINE("select t:[" << par.tinf << " " << par.tsup << "] length=" << lines.size() << " total rows: "
                        << nrow << ", selected: " << list.rec.size() << ", skipped: " << nskip);
  if (nbroken > 0)
    WARNING_MSG(nbroken << " rows with missing or unreadable values skipped, PO file " << path);
  return finish_PO(list, po);
}
}  // namespace veld
