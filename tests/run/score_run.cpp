#include "tests/run/score_run.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "las/las_access.h"

namespace veld {
bool simulate(const std::string& dir, const std::string& options) {
  std::filesystem::create_directories(dir);
  const std::string command =
      std::string(VELDSIM_PATH) + " -odir " + dir + " " + options + " > /dev/null 2>&1";
  return std::system(command.c_str()) == 0;
}

ProjectScore score_files(const std::string& truth, const std::string& out,
                         const std::vector<std::string>& stems) {
  std::vector<SwathScore> swaths;
  for (const std::string& stem : stems) {
    SwathScore s;
    s.name = stem;
    const bool read = read_las_dxyz(truth + "/" + stem + ".las", s.truth, "xyz") &&
                      read_las_dxyz(out + "/" + stem + "_c.las", s.points, "xyz");
    EXPECT_TRUE(read && s.points.size() == s.truth.size()) << out << " " << stem;
    if (!read || s.points.size() != s.truth.size()) return {};
    swaths.push_back(std::move(s));
  }
  return score_project(swaths, 10);
}

double number_after(const std::string& text, const std::string& label) {
  const size_t at = text.find(label);
  return at == std::string::npos ? std::nan("") : std::atof(text.c_str() + at + label.size());
}
}  // namespace veld
