#include "prj/LiDAR/POio/POtime.h"

#include <cmath>

#include "lib/general/log.h"

namespace veld {
namespace {
constexpr double UNIX_TO_GPS = 315964800;  // s from 1 January 1970 to 6 January 1980
}  // namespace

const char* PO_time_word(int time) {
  static const char* const words[N_PO_TIME] = {"WKS_GPS_DEC", "ADJ_GPS_DEC", "STD_GPS_DEC", "UNX_UTC_DEC",
                                               "STD_UTC_DEC", "ADJ_UTC_DEC", "DAY_UTC_DEC", "DAY_UTC_HMS",
                                               "DAY_GPS_DEC", "DAY_GPS_HMS", "WKS_UTC_DEC"};
  return time >= 0 && time < N_PO_TIME ? words[time] : "???";
}

bool PO_time_needs_date(int time) { return PO_time_is_day(time) || time == WKS_UTC_DEC; }

bool deltat_time_format(double t0, int time, uint32_t gweek, uint32_t gday, double& deltat, bool& adj) {
  deltat = 0;
  adj = time >= ADJ_GPS_DEC && time <= ADJ_UTC_DEC;
  const double date = gweek * WEEK_S + gday * DAY_S;
  bool ok = std::isfinite(t0) && (gweek > 0 || !PO_time_needs_date(time));
  switch (time) {
    case WKS_GPS_DEC:
    case ADJ_GPS_DEC:
      break;
    case STD_GPS_DEC:
      deltat = -ADJ_S;
      break;
    case UNX_UTC_DEC:
      deltat = leaps_UTC(t0 - UNIX_TO_GPS) - UNIX_TO_GPS - ADJ_S;
      break;
    case STD_UTC_DEC:
      deltat = leaps_UTC(t0) - ADJ_S;
      break;
    case ADJ_UTC_DEC:
      deltat = leaps_UTC(t0 + ADJ_S);
      break;
    case DAY_UTC_DEC:
    case DAY_UTC_HMS:
      deltat = gday * DAY_S + leaps_UTC(date);
      break;
    case DAY_GPS_DEC:
    case DAY_GPS_HMS:
      deltat = gday * DAY_S;
      break;
    case WKS_UTC_DEC:
      deltat = leaps_UTC(date);
      break;
    default:
      ok = false;
  }
  LOG_LINE("deltat_time_format t0=" << t0 << " time=" << time << " deltat=" << deltat);
  const double gps = t0 + deltat + (adj ? ADJ_S : 0);
  return ok && gps > -WEEK_S && gps < 4e9;  // up to the year 2106
}
}  // namespace veld
