// veldscore: compares the corrected swaths of a simulated project with the truth and prints a table.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "las/las_access.h"
#include "sim/score.h"

namespace {
bool read_swath(const std::string& path, Vector<dxyz>& points) { return read_las_dxyz(path, points, "xyz"); }

// Everything but the coordinates must have passed through unchanged.
bool same_attributes(const std::string& a, const std::string& b) {
  std::unique_ptr<LASreader> ra = las_read_open(a, "xyz", false), rb = las_read_open(b, "xyz", false);
  if (!ra || !rb || ra->header.point_reclen != rb->header.point_reclen) return false;
  for (;;) {
    const bool more_a = ra->read_point(), more_b = rb->read_point();
    if (more_a != more_b) return false;
    if (!more_a) return true;
    if (std::memcmp(ra->point.rec + 12, rb->point.rec + 12,
                    static_cast<size_t>(ra->header.point_reclen) - 12) != 0)
      return false;
  }
}

void print_stat(const std::string& name, const ErrorStat& s) {
  std::printf("  %-12s RMS %7.4f %7.4f %7.4f  3D %7.4f  mean %8.4f %8.4f %8.4f  max %7.3f %7.3f %7.3f\n",
              name.c_str(), s.rms.x, s.rms.y, s.rms.z, s.rms3d, s.mean.x, s.mean.y, s.mean.z, s.largest.x,
              s.largest.y, s.largest.z);
}

void print_score(const char* title, const std::vector<SwathScore>& swaths, const ProjectScore& score) {
  std::printf("%s (metres; x y z)\n", title);
  for (size_t i = 0; i < swaths.size(); i++) print_stat(swaths[i].name, score.swaths[i]);
  print_stat("all", score.all);
  print_stat("less shift", score.all_rel);
  std::printf("  %-12s RMS %7.4f %7.4f %7.4f  3D %7.4f  over %lld cells\n", "relative", score.relative.x,
              score.relative.y, score.relative.z, score.relative3d, static_cast<long long>(score.ncells));
}

// Lever and boresight of the first set in a "_cal.txt" file against the truth.
void print_calibration(const std::string& path, const nlohmann::json& truth) {
  std::ifstream file(path);
  double v[6];
  for (double& x : v)
    if (!(file >> x)) return;
  const char* names[6] = {"lever X m", "lever Y m", "lever Z m", "roll deg", "pitch deg", "yaw deg"};
  std::printf("calibration          found      true     error\n");
  for (int i = 0; i < 6; i++) {
    const double t = i < 3 ? truth["lever_m"][i].get<double>() : truth["boresight_deg"][i - 3].get<double>();
    std::printf("  %-12s %10.4f %9.4f %9.4f\n", names[i], v[i], t, v[i] - t);
  }
}
}  // namespace

int main(int argc, char** argv) {
  std::string dirs[2], suffix = "_c", ext = ".las", cal;
  int ndir = 0;
  double limit = 0, cell = 10;
  for (int i = 1; i < argc; i++) {
    const std::string a = argv[i];
    if (a == "-suffix" && i + 1 < argc)
      suffix = argv[++i];
    else if (a == "-ext" && i + 1 < argc)
      ext = argv[++i];
    else if (a == "-cal" && i + 1 < argc)
      cal = argv[++i];
    else if (a == "-cell" && i + 1 < argc)
      cell = std::atof(argv[++i]);
    else if (a == "-limit" && i + 1 < argc)
      limit = std::atof(argv[++i]);
    else if (ndir < 2)
      dirs[ndir++] = a;
  }
  if (ndir < 2 || !(cell > 0)) {
    std::printf(
        "usage: veldscore PROJECT_DIR CORRECTED_DIR [-suffix _c] [-ext .las] [-cal FILE_cal.txt] [-cell 10]\n"
        "                 [-limit M: fail when the 3-D RMS less the mean shift is larger]\n");
    return 1;
  }
  std::ifstream file(dirs[0] + "/truth.json");
  const nlohmann::json truth = nlohmann::json::parse(file, nullptr, false);
  if (truth.is_discarded() || !truth.contains("swaths")) {
    std::fprintf(stderr, "ERROR: cannot read '%s/truth.json'\n", dirs[0].c_str());
    return 1;
  }
  std::vector<SwathScore> observed, corrected;
  bool same = true;
  for (const auto& s : truth["swaths"]) {
    const std::string name = s["file"].get<std::string>(), stem = name.substr(0, name.rfind('.'));
    const std::string out = dirs[1] + "/" + stem + suffix + ext;
    SwathScore o, c;
    o.name = c.name = name;
    if (!read_swath(dirs[0] + "/" + name, o.points) || !read_swath(dirs[0] + "/truth/" + name, o.truth) ||
        !read_swath(out, c.points))
      return 1;
    c.truth = o.truth;
    if (o.points.size() != o.truth.size() || c.points.size() != c.truth.size()) {
      std::fprintf(stderr, "ERROR: %s has %llu points, the truth %llu\n", out.c_str(),
                   static_cast<unsigned long long>(c.points.size()),
                   static_cast<unsigned long long>(c.truth.size()));
      return 1;
    }
    if (!same_attributes(dirs[0] + "/" + name, out)) {
      std::fprintf(stderr, "ERROR: %s: attributes have changed\n", out.c_str());
      same = false;
    }
    observed.push_back(std::move(o));
    corrected.push_back(std::move(c));
  }
  print_score("before", observed, score_project(observed, cell));
  const ProjectScore after = score_project(corrected, cell);
  print_score("after", corrected, after);
  if (!cal.empty()) print_calibration(cal, truth);
  if (limit > 0 && after.all_rel.rms3d > limit) {
    std::fprintf(stderr, "ERROR: 3-D RMS less the mean shift %.4f m is above %.4f m\n", after.all_rel.rms3d,
                 limit);
    return 1;
  }
  return same ? 0 : 1;
}
