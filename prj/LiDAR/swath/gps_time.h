// prj/LiDAR/swath/gps_time.h
// GPS time: week, day, leap seconds, calendar, and the text of a time in logs.
// Here:     the only definitions of these.
// Not here: time formats of trajectory files (POio/POtime.h), the times of a swath (swath_clock.h).
#pragma once
#include <cstdint>
#include <string>

namespace veld {
constexpr double WEEK_S = 604800.0;
constexpr double DAY_S = 86400.0;
constexpr double ADJ_S = 1e9;  // adjusted standard GPS time = GPS seconds - ADJ_S

// Whether a time can only be adjusted standard GPS time: no second of a week, rolled over or not, is so large.
constexpr bool is_adjusted(double t) { return t > 2 * WEEK_S; }

// Number of the GPS week of a time in GPS seconds; 0 for the first week, and for earlier times.
uint32_t gps_week(double gps);

// Days from the GPS epoch, 6 January 1980, to a date of the civil calendar. Days beyond the end of the month
// count on into the next.
int64_t gps_day_number(int year, int month, int day);

// Leap seconds (GPS - UTC) passed at a GPS time in seconds. The leap second itself counts as 0.5 s.
double leaps_GPS(double gps);
// The same at a UTC time, counted in seconds since 6 January 1980 without leap seconds.
double leaps_UTC(double utc);

// "YYYY-MM-DD hh:mm:ss" (UTC) of an adjusted time; "GPS D <day> WS hh:mm:ss" of seconds of the week.
std::string date_text(double t, bool adj);
// The same as one word, for tables: "YYYY-MM-DDThh:mm:ss", "GPS_D_<day>_WS_hh:mm:ss".
std::string date_word(double t, bool adj);
}  // namespace veld
