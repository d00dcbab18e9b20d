// Formats, the choice of the reader, and the steps that all readers share.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
const char* format_name(int fmt) {
  switch (fmt) {
    case PO_POF:
      return "POF";
    case PO_SOL:
      return "SOL";
    case PO_TRJ:
      return "TRJ";
    case PO_BIN:
      return "BIN";
    case PO_LAS:
      return "LAS";
    default:
      return "";
  }
}

// One message for the formats without a reader.
bool no_reader(int fmt, const std::string& path) {
  if (fmt >= PO_POF && fmt <= PO_LAS)
    ERROR_MSG(format_name(fmt) << " trajectory files are not available yet, file " << path);
  else
    ERROR_MSG("unknown PO format " << fmt << ", file " << path);
  return false;
}
}  // namespace

int PO_format(const std::string& path) {
  std::string ext = get_extension(path);
  for (char& c : ext)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  if (ext == ".pof") return PO_POF;
  if (ext == ".out" || ext == ".sbet") return PO_SBET;
  if (ext == ".sol") return PO_SOL;
  if (ext == ".trj") return PO_TRJ;
  if (ext == ".bin") return PO_BIN;
  if (ext == ".las" || ext == ".laz") return PO_LAS;
  return PO_TXT;
}

const char* PO_format_word(int fmt) {
  static const char* const words[] = {"TXT ", "POF ", "SBET", "SOL ", "TRJ ", "BIN "};
  return fmt >= PO_TXT && fmt <= PO_BIN ? words[fmt - PO_TXT] : "??? ";
}

const char* PO_coord_word(int proj) { return proj == PO_PROJ ? "PROJ" : proj == PO_GEO ? "GEO " : "ECEF"; }

int PO_file_coord(int fmt, int geo) {
  if (fmt == PO_SBET || fmt == PO_SOL || fmt == PO_BIN || fmt == PO_POF) return PO_GEO;
  return fmt == PO_TRJ ? static_cast<int>(PO_PROJ) : geo;
}

bool file_time_scale(const std::string& path, double first, const POread& par, double& deltat, bool& adj) {
  if (PO_time_needs_date(par.time) && par.gweek == 0) {
    ERROR_MSG("day seconds timestamps require GPS date, PO file " << path
                                                                  << " (check options -A and -gps_date)");
    return false;
  }
  if (!deltat_time_format(first, par.time, par.gweek, par.gday, deltat, adj)) {
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
  if (AUTO_ADJ && par.time <= ADJ_GPS_DEC) return;  // the flag follows the times
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
  bool ok = false;
  switch (scan.fmt) {
    case PO_SBET:
      ok = scan_SBET(path, par, scan);
      break;
    case PO_TXT:
      ok = scan_txt_PO(path, par, scan);
      break;
    default:
      ok = no_reader(scan.fmt, path);
  }
  LOG_LINE("-> tadj=" << scan.tadj << " t0=" << scan.t0 << " t1=" << scan.t1);
  return ok;
}

bool read_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  const int fmt = PO_format(path);
  LOG_ENTER("read_PO fmt=" << fmt << " proj=" << PO_file_coord(fmt, par.proj) << " time=" << par.time
                           << " gweek=" << par.gweek << " gday=" << par.gday << " rad=" << par.rad
                           << " sbetw0=" << par.sbetw0 << " unroll=" << par.unroll << " " << path);
  po.clear();
  bool ok = false;
  switch (fmt) {
    case PO_SBET:
      ok = read_SBET(path, par, po, tadj);
      break;
    case PO_TXT:
      ok = read_txt_PO(path, par, po, tadj);
      break;
    default:
      ok = no_reader(fmt, path);
  }
  if (!ok) {
    ERROR_MSG("failed to read PO file " << path);
    return false;
  }
  if (par.unroll) unroll_PO(po);
  LOG_LINE("n=" << po.size() << " t:" << po.val[0].t << " " << po.val[po.size() - 1].t << " tadj=" << tadj);
  return true;
}
}  // namespace veld
