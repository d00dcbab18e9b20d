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
// Bytes of caches a point, processor time a million points. Measured: airborne blocks 10.4 and 2.1 to 3.0, a UAV flight
// 9.4 and 4.4, forest 7.3 and 0.9.
constexpr double CACHE_BYTES = 11, SECONDS_PER_MP = 3.5;

// Number of the connected part of each box, where boxes within reach of each other are connected; -1 for empty ones.
SwathVector<int> find_parts(const SwathTable& swaths, const SwathVector<GroundBox>& boxes, double reach) {
  SwathVector<int> part(swaths, -1);
  int nparts = 0;
  for (const Swath& s : swaths) {
    if (boxes[s.id].empty() || part[s.id] >= 0) continue;
    std::vector<SwathId> todo = {s.id};
    part[s.id] = nparts;
    while (!todo.empty()) {
      const SwathId from = todo.back();
      todo.pop_back();
      for (const Swath& other : swaths)
        if (part[other.id] < 0 && !boxes[other.id].empty() &&
            box_distance(boxes[from], boxes[other.id]) < reach) {
          part[other.id] = nparts;
          todo.push_back(other.id);
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
void find_far(const SwathTable& swaths, SwathVector<GroundBox>& boxes, std::vector<Problem>& problems) {
  std::vector<double> lengths;
  for (const GroundBox& b : boxes)
    if (!b.empty()) lengths.push_back(b.diagonal());
  if (lengths.size() < 2) return;
  std::nth_element(lengths.begin(), lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2),
                   lengths.end());
  const double reach = std::max(FAR_MIN, FAR_LENGTHS * lengths[lengths.size() / 2]);
  const SwathVector<int> part = find_parts(swaths, boxes, reach);
  std::map<int, int> size;
  for (const int p : part)
    if (p >= 0) size[p]++;
  if (size.size() < 2) return;
  int main = 0;
  for (const auto& [p, n] : size)
    if (n > size[main]) main = p;
  GroundBox project;
  for (const Swath& s : swaths)
    if (const GroundBox& b = boxes[s.id]; part[s.id] == main)
      project = {std::min(project.x0, b.x0), std::min(project.y0, b.y0), std::max(project.x1, b.x1),
                 std::max(project.y1, b.y1)};
  for (const Swath& s : swaths) {
    if (part[s.id] < 0 || part[s.id] == main) continue;
    GroundBox& box = boxes[s.id];
    problems.push_back(
        {true, LOG_STR(s.path() << " lies " << std::lround(box_distance(box, project) / 1000)
                                << " km from the other swaths: " << far_reason(box, project, reach))});
    box = GroundBox();
  }
}

// Files with the same points under two names.
void find_copies(const SwathTable& swaths, const SwathVector<SwathProbe>& probes,
                 std::vector<Problem>& problems) {
  using Key = std::tuple<uint64_t, double, double, double, double, double>;
  std::map<Key, SwathId> first;
  for (const Swath& s : swaths) {
    const SwathProbe& p = probes[s.id];
    if (p.beams.size() < 2) continue;
    const Beam &a = p.beams.front(), &b = p.beams.back();
    const auto [at, fresh] = first.insert({{p.header.npoints, a.t, a.P.x, a.P.z, b.P.x, b.P.z}, s.id});
    if (!fresh)
      problems.push_back({true, LOG_STR(s.path() << " holds the same points as " << swaths[at->second].path()
                                                 << ": a copy? Give one of them only (-exclude)")});
  }
}

void find_lonely(const SwathTable& swaths, const SwathVector<GroundBox>& boxes,
                 std::vector<Problem>& problems) {
  const SwathVector<int> overlaps = count_overlaps(swaths, boxes);
  const bool any = std::any_of(overlaps.begin(), overlaps.end(), [](int n) { return n > 0; });
  const bool references = std::ranges::any_of(swaths.present(), &Swath::fixed);
  if (!any || references) return;  // without any overlap the run has its own message
  std::vector<std::string> names;
  for (const Swath& s : swaths)
    if (!boxes[s.id].empty() && overlaps[s.id] == 0) names.push_back(s.path());
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

void find_systems(const SwathTable& swaths, const SwathVector<SwathProbe>& probes, int utm,
                  std::vector<Problem>& problems) {
  std::map<std::string, std::vector<std::string>> by_system;
  std::vector<std::string> other_zone;
  int zone = 0;
  for (const Swath& s : swaths) {
    const SwathProbe& p = probes[s.id];
    if (p.beams.empty()) continue;
    const std::string crs = header_crs(p.header);
    if (crs != "-") by_system[crs].push_back(s.path());
    const int of_header = utm_zone(geotiff_code(p.header));
    if (utm != 0 && of_header != 0 && std::abs(of_header) != std::abs(utm)) {
      other_zone.push_back(s.path());
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
// Points for which a LAS file has the bytes; those of its header where that cannot be said.
uint64_t points_there(const std::string& path, const SwathProbe& p) {
  const LASheader& h = p.header;
  if (h.compressed || p.nbytes == 0 || get_extension(path) == ".txt") return h.npoints;
  const uint64_t bytes = static_cast<uint64_t>(p.nbytes);
  return bytes <= h.offset_to_point_data
             ? 0
             : std::min<uint64_t>(h.npoints, (bytes - h.offset_to_point_data) / h.point_reclen);
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

SwathVector<GroundBox> ground_boxes(const SwathTable& swaths, const SwathVector<SwathProbe>& probes) {
  SwathVector<GroundBox> boxes(swaths);
  for (const Swath& s : swaths) boxes[s.id] = ground_box(probes[s.id]);
  return boxes;
}

SwathVector<int> count_overlaps(const SwathTable& swaths, const SwathVector<GroundBox>& boxes) {
  SwathVector<int> n(swaths);
  for (const Swath& s : swaths)
    for (const Swath& other : swaths) {
      const GroundBox &a = boxes[s.id], &b = boxes[other.id];
      n[s.id] += s.id != other.id && !a.empty() && !b.empty() && box_distance(a, b) == 0;
    }
  return n;
}

std::string header_crs(const LASheader& header) {
  const std::string wkt = header.wkt();
  if (!wkt.empty()) return quoted_name(wkt);
  const int code = geotiff_code(header);
  return code > 0 ? "EPSG:" + std::to_string(code) : "-";
}

std::vector<Problem> find_problems(const Project& prj, const SwathVector<SwathProbe>& probes, int utm) {
  std::vector<Problem> problems;
  for (const Swath& s : prj.swaths) {
    const SwathProbe& p = probes[s.id];
    if (!s.mobile()) continue;
    if (!p.fault.empty()) {
      problems.push_back({false, s.path() + " " + p.fault +
                                     ": it will be left out, copy it again or exclude it (-exclude)"});
      continue;
    }
    if (const uint64_t n = points_there(s.path(), p); n < p.header.npoints)
      problems.push_back({false, LOG_STR(s.path() << " is cut short, " << n << " of " << p.header.npoints
                                                  << " points are there: copy it again")});
    if (p.nkept == 0)
      problems.push_back(
          {false, LOG_STR("filters keep 0 of " << p.beams.size() << " points looked at in " << s.path()
                                               << ": " << p.dropped << ": it will be left out")});
    if (!p.timed)
      problems.push_back(
          {false, s.path() +
                      " has no time stamps: no trajectory can be found for it, it cannot be corrected; "
                      "export it with GPS times, or exclude it (-exclude)"});
  }
  SwathVector<GroundBox> boxes = ground_boxes(prj.swaths, probes);
  find_far(prj.swaths, boxes, problems);
  find_copies(prj.swaths, probes, problems);
  find_lonely(prj.swaths, boxes, problems);
  find_systems(prj.swaths, probes, utm, problems);
  return problems;
}

Needs estimate_needs(const SwathVector<SwathProbe>& probes) {
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
