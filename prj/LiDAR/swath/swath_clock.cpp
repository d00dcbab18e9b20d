#include "prj/LiDAR/swath/swath_clock.h"

#include <cmath>

namespace veld {
double rollover_period(Rollover rover) {
  return rover == Rollover::none ? 0 : rover == Rollover::week ? WEEK_S : DAY_S;
}

Rollover rollover_of_span(double span) { return span > 300000 ? Rollover::week : Rollover::day; }

Rollover find_rollover(double tmin, double tmax) {
  return tmax - tmin > FLIGHT_SPAN ? rollover_of_span(tmax - tmin) : Rollover::none;
}

double rollover_period(double fall) {
  for (const double period : {WEEK_S, DAY_S})
    if (std::fabs(fall - period) < FLIGHT_SPAN) return period;
  return 0;
}

Unroll::Unroll(Rollover rover, double before) : period(rollover_period(rover)) {
  if (period > 0) split = before - period + FLIGHT_SPAN;
}
}  // namespace veld
