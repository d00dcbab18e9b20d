// prj/LiDAR/POio/POtime.h
// Time scales: formats of trajectory files, leap seconds, dates.
// Here:     conversion between the formats and GPS time, texts of dates and intervals in logs.
// Not here: which shift a swath or a file gets (VR2POsync).
#pragma once
#include <cstdint>
#include <string>

namespace veld {
constexpr double WEEK_S = 604800.0;
constexpr double DAY_S = 86400.0;
constexpr double ADJ_S = 1e9;  // adjusted standard GPS time = GPS seconds - ADJ_S

enum POtimeFormat {
  WKS_GPS_DEC = 0,  // seconds of the GPS week
  ADJ_GPS_DEC,      // adjusted standard GPS time
  STD_GPS_DEC,      // GPS seconds
  UNX_UTC_DEC,      // seconds since 1970
  STD_UTC_DEC,      // GPS seconds without leap seconds
  ADJ_UTC_DEC,      // the same less ADJ_S
  DAY_UTC_DEC,      // seconds of the day
  DAY_UTC_HMS,      // the same as hours:minutes:seconds
  DAY_GPS_DEC,
  DAY_GPS_HMS,
  WKS_UTC_DEC,  // seconds of the week, UTC
  N_PO_TIME
};
const char* PO_time_word(int time);  // "WKS_GPS_DEC" ...; "???" for an unknown code
bool PO_time_needs_date(int time);   // the format can't be converted without -gps_date
inline bool PO_time_is_hms(int time) { return time == DAY_UTC_HMS || time == DAY_GPS_HMS; }
inline bool PO_time_is_day(int time) { return time >= DAY_UTC_DEC && time <= DAY_GPS_HMS; }

// Leap seconds (GPS - UTC) passed at a GPS time in seconds. The leap second itself counts as 0.5 s.
double leaps_GPS(double gps);
// The same at a UTC time, counted in seconds since 6 January 1980 without leap seconds.
double leaps_UTC(double utc);

// Shift to be added to the times of a file whose first is t0, and the scale that they then have: adj,
// adjusted standard GPS time, else seconds of the GPS week. Logs. False when t0 can't be in that format or
// the date is missing.
[[nodiscard]] bool deltat_time_format(double t0, int time, uint32_t gweek, uint32_t gday, double& deltat,
                                      bool& adj);

// "YYYY-MM-DD hh:mm:ss" (UTC) of an adjusted time; "GPS D <day> WS hh:mm:ss" of seconds of the week.
std::string date_text(double t, bool adj);
}  // namespace veld
