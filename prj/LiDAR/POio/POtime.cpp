#include "prj/LiDAR/POio/POtime.h"

#include <cmath>
#include <cstdio>

#include "lib/general/log.h"

namespace veld {
namespace {
// GPS seconds of each leap second so far (23:59:60 UTC): since 1980 they fell at the ends of June or
// December.
constexpr double LEAP_GPS[] = {46828800,  78364801,  109900802, 173059203,  252028804,  315187205,
                               346723206, 393984007, 425520008, 457056009,  504489610,  551750411,
                               599184012, 820108813, 914803214, 1025136015, 1119744016, 1167264017};
constexpr double UNIX_TO_GPS = 315964800;  // s from 1 January 1970 to 6 January 1980

// Year, month, day of a day number counted from 6 January 1980 (Fliegel and van Flandern 1968).
void civil_date(int64_t day, int& year, int& month, int& mday) {
  int64_t l = day + 2444245 + 68569;  // 2444245: the Julian day number of the epoch
  const int64_t n = 4 * l / 146097;
  l -= (146097 * n + 3) / 4;
  const int64_t i = 4000 * (l + 1) / 1461001;
  l += 31 - 1461 * i / 4;
  const int64_t j = 80 * l / 2447;
  mday = static_cast<int>(l - 2447 * j / 80);
  l = j / 11;
  month = static_cast<int>(j + 2 - 12 * l);
  year = static_cast<int>(100 * (n - 49) + i + l);
}
}  // namespace

const char* PO_time_word(int time) {
  static const char* const words[N_PO_TIME] = {"WKS_GPS_DEC", "ADJ_GPS_DEC", "STD_GPS_DEC", "UNX_UTC_DEC",
                                               "STD_UTC_DEC", "ADJ_UTC_DEC", "DAY_UTC_DEC", "DAY_UTC_HMS",
                                               "DAY_GPS_DEC", "DAY_GPS_HMS", "WKS_UTC_DEC"};
  return time >= 0 && time < N_PO_TIME ? words[time] : "???";
}

bool PO_time_needs_date(int time) { return PO_time_is_day(time) || time == WKS_UTC_DEC; }

double leaps_GPS(double gps) {
  double n = 0;
  for (const double leap : LEAP_GPS) n += gps > leap ? 1.0 : gps == leap ? 0.5 : 0.0;
  return n;
}

double leaps_UTC(double utc) {
  double n = 0;  // also the leap seconds that the scale of utc lacks before each entry
  for (const double leap : LEAP_GPS) {
    if (utc < leap - n) break;
    n += 1;
  }
  return n;
}

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

std::string date_text(double t, bool adj) {
  char text[96];
  if (!std::isfinite(t) || std::fabs(t) > 1e10) return "-";
  if (!adj) {
    const double s = std::round(t);
    const double day = std::floor(s / DAY_S);
    const int rest = static_cast<int>(s - day * DAY_S);
    std::snprintf(text, sizeof(text), "GPS D %d WS %02d:%02d:%02d", static_cast<int>(day), rest / 3600,
                  rest / 60 % 60, rest % 60);
    return text;
  }
  const double gps = std::round(t + ADJ_S);
  const double utc = std::floor(gps - leaps_GPS(gps));
  const double day = std::floor(utc / DAY_S);
  const int rest = static_cast<int>(utc - day * DAY_S);
  int year = 0, month = 0, mday = 0;
  civil_date(static_cast<int64_t>(day), year, month, mday);
  std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", year, month, mday, rest / 3600,
                rest / 60 % 60, rest % 60);
  return text;
}
}  // namespace veld
