#include "prj/LiDAR/swath/gps_time.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace veld {
namespace {
// GPS seconds of each leap second so far (23:59:60 UTC): since 1980 they fell at the ends of June or
// December.
constexpr double LEAP_GPS[] = {46828800,  78364801,  109900802, 173059203,  252028804,  315187205,
                               346723206, 393984007, 425520008, 457056009,  504489610,  551750411,
                               599184012, 820108813, 914803214, 1025136015, 1119744016, 1167264017};

constexpr std::chrono::sys_days GPS_EPOCH{std::chrono::year{1980} / 1 / 6};
}  // namespace

uint32_t gps_week(double gps) {
  return static_cast<uint32_t>(std::clamp(std::floor(gps / WEEK_S), 0.0, 1e9));
}

int64_t gps_day_number(int year, int month, int day) {
  const std::chrono::sys_days first{std::chrono::year{year} / month / 1};
  return (first - GPS_EPOCH).count() + day - 1;
}

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

std::string date_text(double t, bool adj) {
  if (!std::isfinite(t) || std::fabs(t) > 1e10) return "-";
  const double gps = std::round(adj ? t + ADJ_S : t);
  const double s = adj ? std::floor(gps - leaps_GPS(gps)) : gps;
  const int day = static_cast<int>(std::floor(s / DAY_S)), rest = static_cast<int>(s - day * DAY_S);
  char text[96];
  if (adj) {
    const std::chrono::year_month_day date{GPS_EPOCH + std::chrono::days{day}};
    std::snprintf(text, sizeof(text), "%04d-%02u-%02u ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  } else {
    std::snprintf(text, sizeof(text), "GPS D %d WS ", day);
  }
  char clock[32];
  std::snprintf(clock, sizeof(clock), "%02d:%02d:%02d", rest / 3600, rest / 60 % 60, rest % 60);
  return std::string(text) + clock;
}

std::string date_word(double t, bool adj) {
  std::string text = date_text(t, adj);
  std::replace(text.begin(), text.end(), ' ', adj ? 'T' : '_');
  return text;
}
}  // namespace veld
