// Trajectories in text columns.
#include <algorithm>
#include <cmath>
#include <vector>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "prj/LiDAR/POio/POcheck.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/POio/txt_rows.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t TAIL = 65536;  // bytes in which the last row is looked for

// Times of the first rows of a file that have all columns, in reverse order.
std::vector<double> head_times(LineReader& lines, const POcolumns& col, bool hms, POrow& first) {
  std::vector<double> times;
  std::string_view line;
  POrow row;
  while (times.size() < END_RECORDS && lines.next(line)) {
    if (!parse_PO_row(line, col, hms, row)) continue;
    if (times.empty()) first = row;
    times.push_back(row.t);
  }
  std::reverse(times.begin(), times.end());
  return times;
}

// Times of the last rows, from the tail of the file if there are some in it, else from the whole.
std::vector<double> tail_times(const std::string& path, const POcolumns& col, bool hms) {
  LineReader lines;
  std::vector<double> times;
  if (!lines.open(path)) return times;
  for (uint64_t from = lines.size() > TAIL ? lines.size() - TAIL : 0;; from = 0) {
    if (!lines.open(path, from)) return times;
    std::string_view line;
    POrow row;
    if (from > 0) lines.next(line);  // the rest of a row
    while (lines.next(line))
      if (parse_PO_row(line, col, hms, row)) times.push_back(row.t);
    if (!times.empty() || from == 0) break;
  }
  if (times.size() > END_RECORDS) times.erase(times.begin(), times.end() - END_RECORDS);
  return times;
}

// Warnings about times and angles that contradict the options; the reading goes on.
void check_rows(const std::string& path, const POread& par, double first_time, const POrow& row) {
  check_time_format(path, "ASCII PO", first_time, par);
  if (!par.rad) return;
  if (std::fabs(row.w) > 6.3 || std::fabs(row.p) > 6.3 || std::fabs(row.k) > 6.3)
    WARNING_MSG("attitude angles likely degrees, PO file " << path << " (check option -R)");
  if (par.proj == PO_GEO && (std::fabs(row.x) > 6.3 || std::fabs(row.y) > 1.6))
    WARNING_MSG("lon/lat angles likely degrees, PO file " << path << " (check option -R)");
}

PO to_PO(const POrow& row, double shift, const POread& par) {
  const double angle = par.rad ? DEG_PER_RAD : 1.0;
  const double place = par.proj == PO_GEO ? angle : par.proj == PO_PROJ ? DATAUNIT : 1.0;
  PO rec;
  rec.t = row.t + shift;
  rec.x = row.x * place;
  rec.y = row.y * place;
  rec.z = par.proj == PO_PROJ ? row.z * DATAUNIT_Z : row.z;
  rec.roll = static_cast<float>(row.w * angle);
  rec.pitch = static_cast<float>(row.p * angle);
  rec.yaw = file_yaw(row.k * angle, par);
  return rec;
}

struct TxtStart {  // what the start of a file says
  POcolumns col;
  POrow row;          // the first one
  double first = 0;   // s, time at the start, as in the file
  double deltat = 0;  // s, to be added to times
};

bool start_txt(const std::string& path, const POread& par, TxtStart& start, bool& adj) {
  LineReader lines;
  if (!parse_PO_columns(par.col, start.col)) return false;
  if (!lines.open(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  const std::vector<double> head = head_times(lines, start.col, PO_time_is_hms(par.time), start.row);
  if (head.empty()) {
    ERROR_MSG("not enough data points, PO file " << path << " (check option -po_parse)");
    return false;
  }
  start.first = end_time(head);
  return file_time_scale(path, start.first, par, start.deltat, adj);
}

// Last time of the file, rollover corrected. False: unknown.
bool last_time(const std::string& path, const POread& par, const TxtStart& start, double& last) {
  const std::vector<double> tail = tail_times(path, start.col, PO_time_is_hms(par.time));
  last = tail.empty() ? start.first : end_time(tail);
  if (last < start.first) last += rollover_period(rollover_of_span(start.first - last));
  return last >= start.first;
}
}  // namespace

bool scan_txt_PO(const std::string& path, const POread& par, POscan& scan) {
  TxtStart start;
  double last = 0;
  if (!start_txt(path, par, start, scan.tadj)) return false;
  check_rows(path, par, start.first, start.row);
  if (!last_time(path, par, start, last)) {
    ERROR_MSG("incompatible GPS timestamps, PO file " << path);
    return false;
  }
  scan.t0 = start.first + start.deltat + par.deltat;
  scan.t1 = last + start.deltat + par.deltat;
  scan.roll = start.col.w >= 0;
  scan.pitch = start.col.p >= 0;
  scan.yaw = start.col.k >= 0;
  return true;
}

bool read_txt_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  TxtStart start;
  double last = 0;
  if (!start_txt(path, par, start, tadj)) return false;
  const double deltat = start.deltat + par.deltat;
  const bool hms = PO_time_is_hms(par.time);
  LOG_ENTER("read_txt_PO deltat=" << deltat << " MAX_TRAJ_DT=" << MAX_TRAJ_DT << " time=" << par.time
                                  << " hms=" << hms << " gweek=" << par.gweek << " gday=" << par.gday
                                  << " rad=" << par.rad);
  const uint64_t max_rec = static_cast<uint64_t>(MEM_MB) * 1000000 / (2 * sizeof(PO));
  POcheck list;
  list.path = path;
  list.what = "PO";
  list.coord = par.proj;
  if (last_time(path, par, start, last)) list.tend = last + deltat;
  LineReader lines;
  std::string_view line;
  POrow row;
  uint64_t nrow = 0, nskip = 0, behind = 0;  // behind: rows beyond the end of the window
  if (!lines.open(path)) return false;
  while (behind < PO_MARGIN && lines.next(line)) {
    nrow++;
    if (!parse_PO_row(line, start.col, hms, row)) {
      nskip++;
      continue;
    }
    add_PO(list, to_PO(row, deltat, par));
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
  return finish_PO(list, po);
}
}  // namespace veld
