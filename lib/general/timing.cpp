#include "lib/general/timing.h"

#include <cmath>
#include <cstdio>

namespace veld {
std::string hms_text(double seconds) {
  const long long s = std::llround(seconds > 0 ? seconds : 0);
  char text[64];
  std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld", s / 3600, s / 60 % 60, s % 60);
  return text;
}

std::string Stopwatch::text() const {
  const double s = seconds();
  return hms_text(s) + " (" + std::to_string(std::llround(s)) + " s)";
}
}  // namespace veld
