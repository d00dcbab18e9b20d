// Formats, the choice of the reader, and the steps that all readers share.
#include <algorithm>
#include <cctype>
#include <cmath>

#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/PO_formats.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
const POformatRow* format_row(int fmt) {
  for (const POformatRow& row : PO_formats())
    if (row.fmt == fmt) return &row;
  return nullptr;
}

constexpr size_t SNIFFED = 136;  // bytes of an SBET record

// A file of an unknown suffix that is an SBET: whole records, the first of which has a place and angles in radians.
bool looks_like_SBET(const std::string& path) {
  const int64_t size = file_size(path);
  double r[SNIFFED / sizeof(double)];
  BufBinFileIn in(0, false);
  if (size < static_cast<int64_t>(2 * SNIFFED) || size % static_cast<int64_t>(SNIFFED) != 0 ||
      !is_regular_file(path) || !in.open(path) || !in.read(r, sizeof r))
    return false;
  // Digits, read as a double, are tiny numbers that pass for angles.
  const auto* const bytes = reinterpret_cast<const unsigned char*>(r);
  if (std::all_of(bytes, bytes + sizeof r,
                  [](unsigned char c) { return std::isprint(c) || std::isspace(c); }))
    return false;
  const auto within = [](double v, double most) {
    return std::fabs(v) <= most && (v == 0 || std::fabs(v) > 1e-100);
  };
  return within(r[0], 4e9) && r[0] >= 0 && within(r[1], 1.5708) && within(r[2], 6.2832) &&
         within(r[3], 20000) && within(r[7], 6.2832) && within(r[8], 6.2832) && within(r[9], 6.2832) &&
         within(r[10], 6.2832) && r[1] != 0;
}

bool unknown_format(int fmt, const std::string& path) {
  ERROR_MSG("unknown PO format " << fmt << ", file " << path);
  return false;
}
}  // namespace

const std::vector<POformatRow>& PO_formats() {
  static const std::vector<POformatRow> rows = {
      {PO_POF, "POF ", {".pof"}, PO_GEO, scan_POF, read_POF},
      {PO_SBET, "SBET", {".out", ".sbet"}, PO_GEO, scan_SBET, read_SBET},
      {PO_SOL, "SOL ", {".sol"}, PO_GEO, scan_SOL, read_SOL},
      {PO_TRJ, "TRJ ", {".trj"}, PO_PROJ, scan_TRJ, read_TRJ},
      {PO_BIN, "BIN ", {".bin"}, PO_GEO, scan_BIN, read_BIN},
      {PO_LAS, "??? ", {".las", ".laz"}, -1, scan_las_PO, read_las_PO},
      {PO_TXT, "TXT ", {}, -1, scan_txt_PO, read_txt_PO}};
  return rows;
}

int PO_format(const std::string& path) {
  std::string ext = get_extension(path);
  for (char& c : ext)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  for (const POformatRow& row : PO_formats())
    for (const char* const suffix : row.suffixes)
      if (ext == suffix) return row.fmt;
  return looks_like_SBET(path) ? PO_SBET : PO_TXT;
}

const char* PO_format_word(int fmt) {
  const POformatRow* row = format_row(fmt);
  return row ? row->word : "??? ";
}

const char* PO_coord_word(int proj) { return proj == PO_PROJ ? "PROJ" : proj == PO_GEO ? "GEO " : "ECEF"; }

int PO_file_coord(int fmt, int geo) {
  const POformatRow* row = format_row(fmt);
  return row && row->coord >= 0 ? row->coord : geo;
}

bool file_time_scale(const std::string& path, double first, const POread& par, double& deltat, bool& adj) {
  deltat = 0;
  adj = false;
  if (par.raw_time && par.time == WKS_GPS_DEC) return true;
  if (PO_time_needs_date(par.time) && par.gweek == 0 && !par.has_day) {
    ERROR_MSG("day seconds timestamps require GPS date, PO file " << path
                                                                  << " (check options -A and -gps_date)");
    return false;
  }
  if (!deltat_time_format(first, par.time, par.has_day ? std::max(par.gweek, 1u) : par.gweek, par.gday,
                          deltat, adj)) {
    ERROR_MSG("time conversion error, PO file " << path << " (check option -A)");
    return false;
  }
  if (AUTO_ADJ && par.time <= ADJ_GPS_DEC) {
    // Seconds of the week stay below two weeks; GPS seconds are beyond ADJ_S for all flights since 2011.
    const bool week_seconds = first >= 0 && first <= 2 * WEEK_S;
    if (adj == week_seconds && first < ADJ_S) {
      WARNING_MSG("PO adjusted GPS time flag updated from " << adj << " to " << !adj
                                                            << " based on timestamps in file " << path);
      adj = !adj;
    }
  }
  return true;
}

void log_rollover(double period, uint64_t rec, double t, const char* what, const std::string& path) {
  LOG_LINE("corrected " << (period == WEEK_S ? "week" : "day") << " rollover at rec " << rec << ", time " << t
                        << ", " << what << " file " << path);
}

void check_time_format(const std::string& path, const char* what, double first, const POread& par) {
  if (par.raw_time || (AUTO_ADJ && par.time <= ADJ_GPS_DEC)) return;  // the flag follows the times
  const bool weekly = par.time == WKS_GPS_DEC || par.time == WKS_UTC_DEC;
  if ((weekly && (first < 0 || first > 2 * WEEK_S)) || (PO_time_is_day(par.time) && first > 2 * DAY_S))
    WARNING_MSG("timestamps are not week seconds, " << what << " file " << path << " (check option -A)");
  if (!weekly && !PO_time_is_day(par.time) && first >= 0 && first <= WEEK_S)
    WARNING_MSG("timestamps are likely week or day seconds, PO file " << path << " (check option -A)");
}

bool scan_PO(const std::string& path, const POread& par, POscan& scan) {
  scan = POscan();
  scan.fmt = PO_format(path);
  LOG_ENTER("scan_PO fmt=" << scan.fmt << " time=" << par.time << " " << path);
  if (!is_regular_file(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  const POformatRow* row = format_row(scan.fmt);
  const bool ok = row ? row->scan(path, par, scan) : unknown_format(scan.fmt, path);
  LOG_LINE("-> tadj=" << scan.tadj << " t0=" << scan.t0 << " t1=" << scan.t1);
  return ok;
}

bool read_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  const int fmt = PO_format(path);
  LOG_ENTER("read_PO fmt=" << fmt << " proj=" << PO_file_coord(fmt, par.proj) << " time=" << par.time
                           << " gweek=" << par.gweek << " gday=" << par.gday << " rad=" << par.rad
                           << " sbetw0=" << par.sbetw0 << " unroll=" << par.unroll << " " << path);
  po.clear();
  const POformatRow* row = format_row(fmt);
  const bool ok = row ? row->read(path, par, po, tadj) : unknown_format(fmt, path);
  if (!ok) {
    ERROR_MSG("failed to read PO file " << path);
    return false;
  }
  if (par.unroll) unroll_PO(po);
  LOG_LINE("n=" << po.size() << " t:" << po[0].t << " " << po[po.size() - 1].t << " tadj=" << tadj);
  return true;
}
}  // namespace veld
