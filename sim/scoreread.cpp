#include "sim/scoreread.h"

#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "las/las_access.h"
#include "lib/general/log.h"

namespace veld {
namespace {
// A project may have been packed after its truth.json was written.
std::string find_swath(const std::string& dir, const std::string& stem) {
  struct stat st;
  const std::string las = dir + "/" + stem + ".las", laz = dir + "/" + stem + ".laz";
  return ::stat(las.c_str(), &st) != 0 && ::stat(laz.c_str(), &st) == 0 ? laz : las;
}

bool read_classes(const std::string& path, std::vector<uint8_t>& cls) {
  std::unique_ptr<LASreader> reader = las_read_open(path, "xyz", false);
  if (!reader) return false;
  while (reader->read_point()) cls.push_back(static_cast<uint8_t>(reader->point.classification()));
  return true;
}

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
}  // namespace

bool read_truth(const std::string& project, nlohmann::json& truth) {
  std::ifstream file(project + "/truth.json");
  truth = nlohmann::json::parse(file, nullptr, false);
  if (!truth.is_discarded() && truth.contains("swaths")) return true;
  ERROR_MSG("cannot read '" << project << "/truth.json'");
  return false;
}

std::string swath_stem(const nlohmann::json& swath) {
  const std::string name = swath["file"].get<std::string>();
  return name.substr(0, name.rfind('.'));
}

bool read_observed(const std::string& project, const std::string& stem, SwathScore& swath) {
  const std::string observed = find_swath(project, stem), truth = find_swath(project + "/truth", stem);
  swath.name = stem;
  if (!read_las_dxyz(observed, swath.points, "xyz") || !read_las_dxyz(truth, swath.truth, "xyz") ||
      !read_classes(observed, swath.cls))
    return false;
  if (swath.points.size() == swath.truth.size() && swath.points.size() == swath.cls.size()) return true;
  ERROR_MSG(observed << " has " << swath.points.size() << " points, the truth " << swath.truth.size());
  return false;
}

bool read_corrected(const std::string& project, const std::string& file, const SwathScore& observed,
                    SwathScore& swath) {
  swath.name = observed.name;
  swath.truth = observed.truth;
  if (!read_las_dxyz(file, swath.points, "xyz")) return false;
  if (swath.points.size() != swath.truth.size()) {
    ERROR_MSG(file << " has " << swath.points.size() << " points, the truth " << swath.truth.size());
    return false;
  }
  if (same_attributes(find_swath(project, observed.name), file)) return true;
  ERROR_MSG(file << ": attributes have changed");
  return false;
}

bool score_dut_file(const std::string& project, const nlohmann::json& truth, const DutFile& dut,
                    double radius, double gross, DutScore& score) {
  std::vector<std::unique_ptr<ErrorField>> fields;
  std::vector<const ErrorField*> of_swath;
  for (const std::string& stem : dut.swaths) {
    bool known = false;  // among the swaths with errors; a reference is true
    for (const auto& s : truth["swaths"]) known = known || swath_stem(s) == stem;
    SwathScore swath;
    if (known) {
      if (!read_observed(project, stem, swath)) return false;
    } else {
      const std::string path = find_swath(project, stem);
      if (!read_las_dxyz(path, swath.points, "xyz") || !read_classes(path, swath.cls)) return false;
      swath.truth = swath.points;
    }
    fields.push_back(std::make_unique<ErrorField>(swath.points, swath.truth, swath.cls));
    of_swath.push_back(fields.back().get());
  }
  score = score_dut(dut, of_swath, radius, gross);
  return true;
}
}  // namespace veld
