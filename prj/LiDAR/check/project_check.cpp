#include "prj/LiDAR/check/project_check.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <tuple>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/check/geometry_check.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double FAR_MIN = 20000;    // m between swaths that belong to one project
constexpr double FAR_LENGTHS = 5;    // and in lengths of the usual swath
constexpr double FOOT = 0.3048;      // m; the two feet differ too little to matter here
constexpr double DEGREES_MAX = 360;  // coordinates below it look geographic
// Measured on airborne blocks and UAV flights: bytes of caches a point, processor time a million points.
constexpr double CACHE_BYTES = 25, SECONDS_PER_MP = 3.5;

// Number of the connected part of each box, where boxes within reach of each other are connected.
std::vector<int> find_parts(const std::vector<GroundBox>& boxes, double reach) {
  std::vector<int> part(boxes.size(), -1);
  int nparts = 0;
  for (size_t i = 0; i < boxes.size(); i++) {
    if (boxes[i].empty() || part[i] >= 0) continue;
    std::vector<size_t> todo = {i};
    part[i] = nparts;
    while (!todo.empty()) {
      const size_t from = todo.back();
      todo.pop_back();
      for (size_t k = 0; k < boxes.size(); k++)
        if (part[k] < 0 && !boxes[k].empty() && box_distance(boxes[from], boxes[k]) < reach) {
          part[k] = nparts;
          todo.push_back(k);
        }
    }
    nparts++;
  }
  return part;
}

GroundBox scaled(const GroundBox& b, double k) { return {b.x0 * k, b.y0 * k, b.x1 * k, b.y1 * k}; }

// Why a swath lies far from the others, and what to do.
std::string far_reason(const GroundBox& box, const GroundBox& project, double reach) {
  if (box_distance(scaled(box, FOOT), project) < reach)
    return "its coordinates are feet among metres? Convert the file, a run takes one unit (-metre, -feet_us, "
           "-feet)";
  if (box_distance(scaled(box, 1 / FOOT), project) < reach)
    return "its coordinates are metres among feet? Convert the file, a run takes one unit (-metre, -feet_us, "
           "-feet)";
  const double most = std::max({std::fabs(box.x0), std::fabs(box.x1), std::fabs(box.y0), std::fabs(box.y1)});
  if (most <= DEGREES_MAX) return "its coordinates are degrees? Points must be projected";
  return "another zone or projection? Project it into the system of the others, or leave it out (-exclude)";
}

// Boxes of swaths far from the others become empty: nothing more is to be said about their places.
void find_far(const Project& prj, std::vector<GroundBox>& boxes, std::vector<Problem>& problems) {
  std::vector<double> lengths;
  for (const GroundBox& b : boxes)
    if (!b.empty()) lengths.push_back(b.diagonal());
  if (lengths.size() < 2) return;
  std::nth_element(lengths.begin(), lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2),
                   lengths.end());
  const double reach = std::max(FAR_MIN, FAR_LENGTHS * lengths[lengths.size() / 2]);
  const std::vector<int> part = find_parts(boxes, reach);
  std::map<int, int> size;
  for (const int p : part)
    if (p >= 0) size[p]++;
  if (size.size() < 2) return;
  int main = 0;
  for (const auto& [p, n] : size)
    if (n > size[main]) main = p;
  GroundBox project;
  for (size_t i = 0; i < boxes.size(); i++)
    if (part[i] == main)
      project = {std::min(project.x0, boxes[i].x0), std::min(project.y0, boxes[i].y0),
                 std::max(project.x1, boxes[i].x1), std::max(project.y1, boxes[i].y1)};
  for (size_t i = 0; i < boxes.size(); i++) {
    if (part[i] < 0 || part[i] == main) continue;
    problems.push_back(
        {true, LOG_STR(prj.swaths[i].path()
                       << " lies " << std::lround(box_distance(boxes[i], project) / 1000)
                       << " km from the other swaths: " << far_reason(boxes[i], project, reach))});
    boxes[i] = GroundBox();
  }
}

// Files with the same points under two names.
void find_copies(const Project& prj, const std::vector<SwathProbe>& probes, std::vector<Problem>& problems) {
  using Key = std::tuple<uint64_t, double, double, double, double, double>;
  std::map<Key, size_t> first;
  for (size_t i = 0; i < probes.size(); i++) {
    const SwathProbe& p = probes[i];
    if (p.beams.size() < 2) continue;
    const Beam &a = p.beams.front(), &b = p.beams.back();
    const auto [at, fresh] = first.insert({{p.header.npoints, a.t, a.P.x, a.P.z, b.P.x, b.P.z}, i});
    if (!fresh)
      problems.push_back(
          {true, LOG_STR(prj.swaths[i].path() << " holds the same points as " << prj.swaths[at->second].path()
                                              << ": a copy? Give one of them only (-exclude)")});
  }
}

void find_lonely(const Project& prj, const std::vector<GroundBox>& boxes, std::vector<Problem>& problems) {
  const std::vector<int> overlaps = count_overlaps(boxes);
  const bool any = std::any_of(overlaps.begin(), overlaps.end(), [](int n) { return n > 0; });
  const bool references =
      std::any_of(prj.swaths.begin(), prj.swaths.end(), [](const Swath& s) { return s.fixed; });
  if (!any || references) return;  // without any overlap the run has its own message
  std::vector<std::string> names;
  for (size_t i = 0; i < boxes.size(); i++)
    if (!boxes[i].empty() && overlaps[i] == 0) names.push_back(prj.swaths[i].path());
  if (!names.empty())
    problems.push_back(
        {false, list_text(names) + " overlap" + (names.size() == 1 ? "s" : "") +
                    " no other swath: nothing can be measured there, corrections come from the others"});
}

// Keeps from the text behind a quote up to the next one.
std::string quoted_name(const std::string& wkt) {
  const size_t from = wkt.find('"');
  const size_t to = from == std::string::npos ? from : wkt.find('"', from + 1);
  return to == std::string::npos ? wkt.substr(0, 20) : wkt.substr(from + 1, to - from - 1);
}

// EPSG code of the projected system among GeoTIFF keys, 0 without.
int geotiff_code(const LASheader& header) {
  constexpr uint16_t PROJECTED = 3072;
  const LASvlr* const vlr = header.find_vlr("LASF_Projection", 34735);
  if (!vlr) return 0;
  for (size_t at = 8; at + 8 <= vlr->data.size(); at += 8) {
    uint16_t key[4];
    std::memcpy(key, vlr->data.data() + at, 8);
    if (key[0] == PROJECTED && key[1] == 0) return key[3];
  }
  return 0;
}

// Zone that a header's EPSG code stands for on WGS84, negative south; 0: none.
int utm_zone(int code) {
  return code > 32600 && code <= 32660 ? code - 32600 : code > 32700 && code <= 32760 ? 32700 - code : 0;
}

void find_systems(const Project& prj, const std::vector<SwathProbe>& probes, int utm,
                  std::vector<Problem>& problems) {
  std::map<std::string, std::vector<std::string>> by_system;
  std::vector<std::string> other_zone;
  int zone = 0;
  for (size_t i = 0; i < probes.size(); i++) {
    if (probes[i].beams.empty()) continue;
    const std::string crs = header_crs(probes[i].header);
    if (crs != "-") by_system[crs].push_back(prj.swaths[i].path());
    const int of_header = utm_zone(geotiff_code(probes[i].header));
    if (utm != 0 && of_header != 0 && std::abs(of_header) != std::abs(utm)) {
      other_zone.push_back(prj.swaths[i].path());
      zone = of_header;
    }
  }
  if (!other_zone.empty())
    problems.push_back({false, LOG_STR(list_text(other_zone) << ": header says zone " << std::abs(zone)
                                                             << ", the run -utm " << utm)});
  if (by_system.size() < 2) return;
  std::string text = "coordinate systems of the headers differ: ";
  for (const auto& [crs, names] : by_system) text += crs + " in " + list_text(names) + "; ";
  text.resize(text.size() - 2);
  problems.push_back({false, text});
}
}  // namespace

double GroundBox::diagonal() const { return std::hypot(x1 - x0, y1 - y0); }

GroundBox ground_box(const SwathProbe& probe) {
  GroundBox b;
  for (const Beam& beam : probe.beams)
    b = {std::min(b.x0, beam.P.x), std::min(b.y0, beam.P.y), std::max(b.x1, beam.P.x),
         std::max(b.y1, beam.P.y)};
  return b;
}

double box_distance(const GroundBox& a, const GroundBox& b) {
  const double dx = std::max({a.x0 - b.x1, b.x0 - a.x1, 0.0}), dy = std::max({a.y0 - b.y1, b.y0 - a.y1, 0.0});
  return std::hypot(dx, dy);
}

std::vector<GroundBox> ground_boxes(const std::vector<SwathProbe>& probes) {
  std::vector<GroundBox> boxes;
  for (const SwathProbe& p : probes) boxes.push_back(ground_box(p));
  return boxes;
}

std::vector<int> count_overlaps(const std::vector<GroundBox>& boxes) {
  std::vector<int> n(boxes.size(), 0);
  for (size_t i = 0; i < boxes.size(); i++)
    for (size_t k = 0; k < boxes.size(); k++)
      n[i] += i != k && !boxes[i].empty() && !boxes[k].empty() && box_distance(boxes[i], boxes[k]) == 0;
  return n;
}

std::string header_crs(const LASheader& header) {
  const std::string wkt = header.wkt();
  if (!wkt.empty()) return quoted_name(wkt);
  const int code = geotiff_code(header);
  return code > 0 ? "EPSG:" + std::to_string(code) : "-";
}

std::vector<Problem> find_problems(const Project& prj, const std::vector<SwathProbe>& probes, int utm) {
  std::vector<Problem> problems;
  for (size_t i = 0; i < probes.size(); i++) {
    const SwathProbe& p = probes[i];
    if (prj.swaths[i].fixed) continue;
    if (!p.fault.empty()) {
      problems.push_back({false, prj.swaths[i].path() + " " + p.fault + ": it will be left out"});
      continue;
    }
    if (p.nkept == 0)
      problems.push_back({false, LOG_STR("filters keep 0 of " << p.beams.size() << " points looked at in "
                                                              << prj.swaths[i].path() << ": " << p.dropped
                                                              << ": it will be left out")});
    if (!p.timed)
      problems.push_back(
          {false, prj.swaths[i].path() +
                      " has no time stamps: no trajectory can be found for it, it cannot be corrected"});
  }
  std::vector<GroundBox> boxes = ground_boxes(probes);
  find_far(prj, boxes, problems);
  find_copies(prj, probes, problems);
  find_lonely(prj, boxes, problems);
  find_systems(prj, probes, utm, problems);
  return problems;
}

Needs estimate_needs(const std::vector<SwathProbe>& probes) {
  Needs n;
  for (const SwathProbe& p : probes) {
    n.points += static_cast<double>(p.header.npoints) * (p.beams.empty() ? 0 : 1);
    n.results += static_cast<double>(p.nbytes);
  }
  n.caches = n.points * CACHE_BYTES;
  n.seconds = n.points * 1e-6 * SECONDS_PER_MP;
  return n;
}

std::vector<Problem> check_room(const Needs& needs, const std::string& tmpdir, const std::string& odir,
                                bool writes) {
  std::vector<Problem> problems;
  struct statvfs tmp = {}, out = {};
  if (statvfs(tmpdir.c_str(), &tmp) != 0 || statvfs(odir.c_str(), &out) != 0) return problems;
  const auto room = [](const struct statvfs& s) {
    return static_cast<double>(s.f_bavail) * static_cast<double>(s.f_frsize);
  };
  const bool same = tmp.f_fsid == out.f_fsid;
  const double results = writes ? needs.results : 0;
  const auto check = [&](const std::string& dir, double need, double have, const char* option) {
    if (need > have)
      problems.push_back(
          {false, LOG_STR("directory " << dir << " has " << have * 1e-9 << " GB left, the run needs about "
                                       << need * 1e-9 << " GB: make room or give another " << option)});
  };
  check(tmpdir, needs.caches + (same ? results : 0), room(tmp), "-tmpdir");
  if (!same) check(odir, results, room(out), "-odir");
  return problems;
}
}  // namespace veld
