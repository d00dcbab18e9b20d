#include "prj/LiDAR/LmTQCGCP/gcp_text.h"

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>

#include "prj/LiDAR/tuning.h"

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

void put_head(std::ostream& os, const Project& prj, const ReportHead& head) {
  os << SOFTINFO << ' ' << head.title << " quality control report\n\n"
     << "Version, build     " << SOFTINFO << '\n'
     << "Run date, time     " << utc_now() << '\n'
     << head.input << head.file << '\n'
     << "Output directory   " << OUTDIR << '\n'
     << "LiDAR output       " << prj.name << '\n'
     << "Processing         " << (head.post ? "post-correction" : "initial") << '\n'
     << "Unit               " << unit_name(head.unit) << '\n'
     << "Weights            " << head.weights << '\n';
}

void put_json_head(std::ostream& os, const Project& prj, const ReportHead& head) {
  os << "{\n\t\"software\": " << json_text(SOFTINFO) << ",\n\t\"version, build\": " << json_text(SOFTINFO)
     << ",\n\t\"processing\": \"" << (head.post ? "post-correction" : "initial") << "\",\n\t\"unit\": \""
     << unit_name(head.unit) << "\",\n\t\"swaths\": \"" << (mobile_only(prj) ? "mobile only" : "all")
     << "\",\n\t" << head.differences << ",\n\t\"weights\": \"" << head.weights << "\",\n";
}

std::string json_flag(bool b) { return b ? "true" : "false"; }

void put_xyz_unit(std::ostream& os, const dxyz& p) {
  os << p.x / DATAUNIT << ' ' << p.y / DATAUNIT << ' ' << p.z / DATAUNIT_Z;
}

void put_json_xyz(std::ostream& os, const char* key, const dxyz& p) {
  os << "\"" << key << "\": [" << p.x / DATAUNIT << ", " << p.y / DATAUNIT << ", " << p.z / DATAUNIT_Z << "]";
}

std::string occurrence_label(const std::string& point, SwathId swath, int group, const char* sw,
                             const char* grp) {
  return one_word(point) + sw + to_string(swath) + grp + std::to_string(group);
}
}  // namespace veld
