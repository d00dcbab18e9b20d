// prj/LiDAR/swath/swath_clock.h
// The clock of a swath: from the times in its file to the time base of its trajectory.
//
//   raw time of the file --rollover--> unrolled time --shift--> synchronised time
//
// The tiling finds the rollover, the flag and the range; its cache holds them, and the stored times of microtiles
// are unrolled. The synchronisation adds the shift to the trajectory's time base. All stages ask this record.
// Here:     the record, the rule of the rollover.
// Not here: weeks, leap seconds and dates (gps_time.h), how the shift is found (VR2POsync).
#pragma once
#include <cstdint>

#include "prj/LiDAR/swath/gps_time.h"

namespace veld {
constexpr double FLIGHT_SPAN = 40000;  // s: times of one flight lie closer together

// --- rollover: a clock of seconds of the day or the week starts again ---

enum class Rollover : uint8_t { none, day, week };
double rollover_period(Rollover rover);  // s; 0 without one
// What starts again when times span that much, or fall that far.
Rollover rollover_of_span(double span);
// The rollover between the smallest and the largest raw time of one flight, if there is one.
Rollover find_rollover(double tmin, double tmax);
// Period of the rollover that a fall between two records in a row stands for; 0 if it is none.
double rollover_period(double fall);

// Adds the period to the times behind a rollover. before: any time of the flight before it. Times of the flight
// behind it lie in the first FLIGHT_SPAN seconds from before - period, those before it far beyond these.
struct Unroll {
  double split = -2e307;  // s, smaller raw times stand behind the rollover
  double period = 0;      // s, 0 without a rollover
  Unroll() = default;
  Unroll(Rollover rover, double before);
  double operator()(double raw) const { return raw < split ? raw + period : raw; }
};

// --- the clock ---

struct SwathClock {
  // Of the tiling.
  Rollover rover = Rollover::none;
  bool raw_adj = false;       // the file's times are adjusted standard GPS time
  double t0 = 0;              // s, unrolled, of the first kept point: origin of the stored ticks
  double tmin = 0, tmax = 0;  // s, unrolled, of all points
  // Of the synchronisation.
  double shift = 0;           // s, synchronised less unrolled time
  bool adj = false;           // synchronised times are adjusted standard GPS time
  double begin = 0, end = 0;  // s, synchronised: the interval of the line, or with -ich of the swath alone

  Unroll unroll() const { return Unroll(rover, tmin); }  // from raw to unrolled time
  double sync(double unrolled) const { return unrolled + shift; }
};
}  // namespace veld
