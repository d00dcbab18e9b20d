// prj/LiDAR/POio/POtime.h
// Time formats of trajectory files.
// Here:     conversion between the formats and GPS time.
// Not here: weeks, leap seconds and dates (swath/gps_time.h), which shift a swath or a file gets (VR2POsync).
#pragma once
#include <cstdint>

#include "prj/LiDAR/swath/gps_time.h"

namespace veld {
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

// Shift to be added to the times of a file whose first is t0, and the scale that they then have: adj,
// adjusted standard GPS time, else seconds of the GPS week. Logs. False when t0 can't be in that format or
// the date is missing.
[[nodiscard]] bool deltat_time_format(double t0, int time, uint32_t gweek, uint32_t gday, double& deltat,
                                      bool& adj);
}  // namespace veld
