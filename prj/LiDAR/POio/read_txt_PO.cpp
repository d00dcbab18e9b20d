// Trajectories in text columns.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/POio/txt_rows.h"
#include "prj/LiDAR/tuning.h"

namespace {
constexpr double DEG = 57.29577951308233;
constexpr uint64_t TAIL = 65536;  // bytes in which the last row is looked for
constexpr int MARGIN = 2;         // rows kept beyond each end of the window

// First row of a file that has all its columns.
bool first_row(LineReader& lines, const POcolumns& col, bool hms, POrow& row) {
  std::string_view line;
  while (lines.next(line))
    if (parse_PO_row(line, col, hms, row)) return true;
  return false;
}

// Last row, from the tail of the file if there is one in it, else from the whole.
bool last_row(const std::string& path, const POcolumns& col, bool hms, POrow& row) {
  LineReader lines;
  if (!lines.open(path)) return false;
  uint64_t from = lines.size() > TAIL ? lines.size() - TAIL : 0;
  for (;;) {
    if (!lines.open(path, from)) return false;
    std::string_view line;
    bool found = false;
    if (from > 0) lines.next(line);  // the rest of a row
    while (lines.next(line)) found = parse_PO_row(line, col, hms, row) || found;
    if (found || from == 0) return found;
    from = 0;
  }
}

// Words about times and angles that contradict the options; the reading goes on.
void check_rows(const std::string& path, const POread& par, const POrow& row, bool geographic) {
  const bool weekly = par.time == WKS_GPS_DEC || par.time == WKS_UTC_DEC;
  if ((weekly && (row.t < 0 || row.t > 2 * WEEK_S)) || (PO_time_is_day(par.time) && row.t > 2 * DAY_S))
    WARNING_MSG("timestamps are not week seconds, ASCII PO file " << path << " (check option -A)");
  if (!weekly && !PO_time_is_day(par.time) && row.t >= 0 && row.t <= WEEK_S)
    WARNING_MSG("timestamps are likely week or day seconds, PO file " << path << " (check option -A)");
  if (!par.rad) return;
  if (std::fabs(row.w) > 6.3 || std::fabs(row.p) > 6.3 || std::fabs(row.k) > 6.3)
    WARNING_MSG("attitude angles likely degrees, PO file " << path << " (check option -R)");
  if (geographic && (std::fabs(row.x) > 6.3 || std::fabs(row.y) > 1.6))
    WARNING_MSG("lon/lat angles likely degrees, PO file " << path << " (check option -R)");
}

PO to_PO(const POrow& row, double shift, const POread& par) {
  const double angle = par.rad ? DEG : 1.0;
  const double place = par.proj == PO_GEO ? angle : par.proj == PO_PROJ ? DATAUNIT : 1.0;
  PO rec;
  rec.t = row.t + shift;
  rec.x = row.x * place;
  rec.y = row.y * place;
  rec.z = par.proj == PO_PROJ ? row.z * DATAUNIT : row.z;
  rec.roll = static_cast<float>(row.w * angle);
  rec.pitch = static_cast<float>(row.p * angle);
  rec.yaw = static_cast<float>(row.k * angle);
  return rec;
}

// Opens the file and finds its first row and its time scale.
bool start_txt(const std::string& path, const POread& par, LineReader& lines, POcolumns& col, POrow& row,
               double& deltat, bool& adj) {
  if (!parse_PO_columns(par.col, col)) return false;
  if (!lines.open(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  if (!first_row(lines, col, PO_time_is_hms(par.time), row)) {
    ERROR_MSG("not enough data points, PO file " << path << " (check option -po_parse)");
    return false;
  }
  return file_time_scale(path, row.t, par, deltat, adj);
}
}  // namespace

bool scan_txt_PO(const std::string& path, const POread& par, POscan& scan) {
  LineReader lines;
  POcolumns col;
  POrow first, last;
  double deltat = 0;
  if (!start_txt(path, par, lines, col, first, deltat, scan.tadj)) return false;
  check_rows(path, par, first, par.proj == PO_GEO);
  if (!last_row(path, col, PO_time_is_hms(par.time), last)) last = first;
  double t1 = last.t;
  if (t1 < first.t) t1 += first.t - t1 > 300000 ? WEEK_S : DAY_S;
  if (t1 < first.t) {
    ERROR_MSG("incompatible GPS timestamps, PO file " << path);
    return false;
  }
  scan.t0 = first.t + deltat + par.deltat;
  scan.t1 = t1 + deltat + par.deltat;
  return true;
}

bool read_txt_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  LineReader lines;
  POcolumns col;
  POrow row;
  double deltat = 0;
  if (!start_txt(path, par, lines, col, row, deltat, tadj)) return false;
  deltat += par.deltat;
  const bool hms = PO_time_is_hms(par.time);
  const bool geographic = par.proj == PO_GEO;
  LOG_ENTER("read_txt_PO deltat=" << deltat << " MAX_TRAJ_DT=" << MAX_TRAJ_DT << " time=" << par.time
                                  << " hms=" << hms << " gweek=" << par.gweek << " gday=" << par.gday
                                  << " rad=" << par.rad);

  const uint64_t max_rec = static_cast<uint64_t>(MEM_MB) * 1000000 / (2 * sizeof(PO));
  POlist list;
  std::string_view line;
  uint64_t nrow = 0, nskip = 0;
  double period = 0, before = row.t;
  int behind = 0;  // rows beyond the end of the window
  if (!lines.open(path)) return false;
  while (behind < MARGIN && lines.next(line)) {
    nrow++;
    if (!parse_PO_row(line, col, hms, row)) {
      nskip++;
      continue;
    }
    const double more = rollover_period(before - row.t);
    if (more > 0) {
      period += more;
      log_rollover(more, nrow, row.t, "PO", path);
    }
    before = row.t;
    const PO rec = to_PO(row, deltat + period, par);
    if (rec.t > par.tsup) behind++;
    add_PO(list, rec, geographic);
    const size_t n = list.rec.size();
    if (n > MARGIN && list.rec[n - 1].t < par.tinf) list.rec.erase(list.rec.begin());
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
  return finish_PO(list, "PO", path, geographic, po);
}
