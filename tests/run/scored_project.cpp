#include "tests/run/scored_project.h"

#include <gtest/gtest.h>

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

ProjectScore score_files(const std::string& truth, const std::string& out,
                         const std::vector<std::string>& stems, const std::string& suffix, const dxyz& unit) {
  std::vector<SwathScore> swaths;
  for (const std::string& stem : stems) {
    SwathScore s;
    s.name = stem;
    const bool read = read_las_dxyz(truth + "/" + stem + ".las", s.truth, "xyz") &&
                      read_las_dxyz(out + "/" + stem + suffix + ".las", s.points, "xyz");
    EXPECT_TRUE(read && s.points.size() == s.truth.size()) << out << " " << stem;
    if (!read || s.points.size() != s.truth.size()) return {};
    for (Vector<dxyz>* const points : {&s.points, &s.truth})
      for (dxyz& p : *points) p = {p.x * unit.x, p.y * unit.y, p.z * unit.z};
    swaths.push_back(std::move(s));
  }
  return score_project(swaths, 10);
}

double number_after(const std::string& text, const std::string& label) {
  const size_t at = text.find(label);
  return at == std::string::npos ? std::nan("") : std::atof(text.c_str() + at + label.size());
}

ScoredProject::ScoredProject(const Args& simulator) {
  std::string options = "-preset tiny";
  for (const std::string& option : simulator) options += " " + option;
  if (!(simulator.empty() ? simulate(dir) : simulate(dir, options)))
    std::filesystem::remove_all(dir + "/truth");
  for (const char* const name : {"/out", "/tmp"}) std::filesystem::create_directory(dir + name);
}

void ScoredProject::add_trajectory(const std::string& simulator) const {
  const TempDir other;  // with few points, which are not wanted
  EXPECT_TRUE(simulate(other.path, "-preset tiny -pulse_rate 100 " + simulator));
  for (const auto& entry : std::filesystem::directory_iterator(other.path))
    if (const std::string name = entry.path().filename(); name.starts_with("traj."))
      std::filesystem::copy(entry.path(), dir + "/" + name,
                            std::filesystem::copy_options::overwrite_existing);
}

ScoredRun ScoredProject::align(const Args& options) const {
  ScoredRun result;
  for (const std::string& name : las_files(dir + "/out")) std::filesystem::remove(dir + "/out/" + name);
  result.run = program.run(Args("-align -out *.las -odir out -tmpdir tmp") + options);
  std::vector<std::string> stems;
  if (std::filesystem::exists(dir + "/truth")) stems = las_files(dir + "/truth");
  result.scored = !stems.empty();
  for (std::string& stem : stems) {
    result.scored = result.scored && exists(dir + "/out/" + stem);
    stem.resize(stem.size() - 4);  // without ".las"
  }
  if (!result.scored) return result;
  const ErrorStat error = score_files(dir + "/truth", dir + "/out", stems, "", unit).all;
  result.rms = error.rms3d;
  result.largest = std::max({error.largest.x, error.largest.y, error.largest.z});
  return result;
}

void ScoredProject::change_swaths(const std::function<void(std::string& bytes)>& change) const {
  for (const std::string& folder : {dir, dir + "/truth"})
    for (const std::string& name : las_files(folder)) change_file(folder + "/" + name, change);
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
