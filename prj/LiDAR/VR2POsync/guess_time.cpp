// The time scale of a trajectory file, from the times of the swaths that it flew.
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"

namespace veld {
namespace {
struct TimeScale {  // one that a file may have
  int time;         // POtimeFormat
  const char* meaning;
};
// In the order in which they are believed when several fit: UTC is taken only where GPS time does not fit, as the leap
// seconds are less than what most files reach beyond their swaths.
constexpr TimeScale SCALES[] = {{WKS_GPS_DEC, "seconds of the GPS week"},
                                {ADJ_GPS_DEC, "adjusted standard GPS time"},
                                {STD_GPS_DEC, "GPS seconds"},
                                {UNX_UTC_DEC, "Unix seconds, UTC"},
                                {DAY_GPS_DEC, "seconds of the day, GPS"},
                                {WKS_UTC_DEC, "seconds of the week, UTC"},
                                {STD_UTC_DEC, "seconds since 1980, UTC"},
                                {ADJ_UTC_DEC, "adjusted standard time, UTC"},
                                {DAY_UTC_DEC, "seconds of the day, UTC"}};
constexpr TimeScale HMS_SCALES[] = {{DAY_GPS_HMS, "hours, minutes and seconds of the day, GPS"},
                                    {DAY_UTC_HMS, "hours, minutes and seconds of the day, UTC"}};

bool is_possible(int time, double t0) {
  if (time == WKS_GPS_DEC || time == WKS_UTC_DEC) return t0 >= 0 && t0 <= 2 * WEEK_S;
  if (PO_time_is_day(time)) return t0 >= 0 && t0 <= 2 * DAY_S;
  return t0 > 2 * WEEK_S;
}

// Interval of a swath in GPS seconds, or in seconds of the week when nothing says which.
struct GPSinterval {
  double begin, end;
  bool absolute;
};
GPSinterval gps_interval(const Swath& s) {
  const double epoch = s.clock.adj ? ADJ_S : 0;
  return {s.clock.begin + epoch, s.clock.end + epoch, s.clock.adj || is_adjusted(s.clock.begin)};
}

// Swaths that lie in the file if its raw times t0 to t1 are of a scale. The date of the swaths is that of the file.
int count_inside(const SyncJob& job, int g, const POscan& raw, int time, TimeGuess& guess) {
  int n = 0;
  for (const Swath& s : job.swaths()) {
    if (!s.mobile() || job.po_group(s) != g) continue;
    const GPSinterval swath = gps_interval(s);
    const uint32_t week = swath.absolute ? gps_week(swath.begin) : 0;
    const uint32_t day = static_cast<uint32_t>(std::floor(std::fmod(swath.begin, WEEK_S) / DAY_S));
    double deltat = 0;
    bool adj = false;
    // Leap seconds of a swath without a week are not known.
    if (week == 0 && (time == WKS_UTC_DEC || time == DAY_UTC_DEC || time == DAY_UTC_HMS)) continue;
    if (!deltat_time_format(raw.t0, time, std::max(week, 1u), day, deltat, adj)) continue;
    double begin = raw.t0 + deltat + (adj ? ADJ_S : 0), end = raw.t1 + deltat + (adj ? ADJ_S : 0);
    const double period = adj && swath.absolute ? 0 : WEEK_S;
    if (period > 0) {
      const double shift =
          std::round((0.5 * (swath.begin + swath.end) - 0.5 * (begin + end)) / period) * period;
      begin += shift, end += shift;
    }
    if (begin - job.par.tol >= swath.begin || end + job.par.tol <= swath.end) continue;
    if (n++ == 0) guess = {time, week, day};
  }
  return n;
}
}  // namespace

bool guess_time(const SyncJob& job, int f, const POscan& raw, TimeGuess& guess) {
  const bool hms = raw.hms;
  const TimeScale* const scales = hms ? HMS_SCALES : SCALES;
  const size_t nscales = hms ? std::size(HMS_SCALES) : std::size(SCALES);
  const char* meaning = nullptr;
  int best = 0;
  for (size_t i = 0; i < nscales; i++) {
    TimeGuess found;
    if (!is_possible(scales[i].time, raw.t0)) continue;
    const int n = count_inside(job, job.file_group(f), raw, scales[i].time, found);
    LOG_LINE("guess_time f=" << f << " " << PO_time_word(scales[i].time) << " swaths=" << n);
    if (n <= best) continue;
    best = n;
    guess = found;
    meaning = scales[i].meaning;
  }
  if (best == 0) return false;
  if (guess.time != WKS_GPS_DEC)
    LOG_MSG("times of PO file " << job.file_path(f) << " are taken as " << meaning << ", in which " << best
                                << " swaths lie in it (option -po_time)");
  return true;
}
}  // namespace veld
