#include "tests/run/scored_project.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "las/las_access.h"

namespace veld {
namespace {
std::vector<std::string> las_files(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir))
    if (entry.path().extension() == ".las") names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}
}  // namespace

ScoredProject::ScoredProject(const std::vector<std::string>& simulator) {
  std::string command = std::string(VELDSIM_PATH) + " -preset tiny -odir " + dir;
  for (const std::string& option : simulator) command += " " + option;
  if (std::system((command + " > /dev/null 2>&1").c_str()) != 0) std::filesystem::remove_all(dir + "/truth");
  for (const char* const name : {"/out", "/tmp"}) std::filesystem::create_directory(dir + name);
}

ScoredRun ScoredProject::align(const std::vector<std::string>& options) const {
  ScoredRun result;
  std::vector<std::string> args = {"-align", "-out", "*.las", "-odir", "out", "-tmpdir", "tmp"};
  args.insert(args.end(), options.begin(), options.end());
  for (const std::string& name : las_files(dir + "/out")) std::filesystem::remove(dir + "/out/" + name);
  result.run = program.run(args);
  const std::vector<std::string> names =
      std::filesystem::exists(dir + "/truth") ? las_files(dir + "/truth") : std::vector<std::string>();
  uint64_t n = 0;
  double sum = 0;
  result.scored = !names.empty();
  for (const std::string& name : names) {
    Vector<dxyz> points, truth;
    result.scored = result.scored && exists(dir + "/out/" + name) &&
                    read_las_dxyz(dir + "/out/" + name, points, "xyz") &&
                    read_las_dxyz(dir + "/truth/" + name, truth, "xyz") && points.size() == truth.size();
    if (!result.scored) break;
    for (uint64_t i = 0; i < points.size(); i++) {
      const dxyz d = points.val[i] - truth.val[i];
      const dxyz e = {d.x * unit.x, d.y * unit.y, d.z * unit.z};
      sum += dot(e, e);
      result.largest = std::max({result.largest, std::fabs(e.x), std::fabs(e.y), std::fabs(e.z)});
    }
    n += points.size();
  }
  result.rms = n > 0 ? std::sqrt(sum / static_cast<double>(n)) : 0;
  return result;
}

void ScoredProject::change_swaths(const std::function<void(std::string& bytes)>& change) const {
  for (const std::string& folder : {dir, dir + "/truth"})
    for (const std::string& name : las_files(folder)) {
      std::string bytes = read_text(folder + "/" + name);
      change(bytes);
      write_text(folder + "/" + name, bytes);
    }
}

void ScoredProject::change_units(double plane, double height) {
  unit = {plane, plane, height};
  change_swaths([&](std::string& bytes) {  // header: three scales, three offsets, max and min of each axis
    for (size_t k = 0; k < 12; k++) {
      const size_t axis = k < 6 ? k % 3 : (k - 6) / 2;
      poke(bytes, 131 + 8 * k, peek<double>(bytes, 131 + 8 * k) / (axis < 2 ? plane : height));
    }
  });
}
}  // namespace veld
