#include "prj/LiDAR/LmTQCGCP/gcp_text.h"

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>

namespace veld {
std::string unit_name(double unit) {
  if (unit == 1) return "metre";
  return unit == 0.3048            ? "foot"
         : unit == 1200.0 / 3937.0 ? "US survey foot"
                                   : std::to_string(unit) + " metre";
}

std::string one_word(const std::string& name) {
  std::string s = name;
  for (char& c : s)
    if (c == ' ' || c == '\t') c = '_';
  return s;
}

std::string json_text(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string utc_now() {
  const std::time_t now = std::time(nullptr);
  std::tm tm{};
  gmtime_r(&now, &tm);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &tm);
  return text;
}

bool mobile_only(const Project& prj) {
  return std::ranges::any_of(prj.swaths,
                             [](const Swath& s) { return s.mobile() && s.state != SwathState::no_grid; });
}
}  // namespace veld
