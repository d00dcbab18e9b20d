// Trajectories as points of a LAS or LAZ file: place and GPS time, angles in attributes of these names.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <memory>
#include <vector>

#include "las/las_access.h"
#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "prj/LiDAR/POio/POcheck.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
struct AngleField {  // an attribute that holds an angle
  const LASattribute* attribute = nullptr;
  double unit = 1;  // degrees
};

std::string small_letters(std::string_view text) {
  std::string small;
  for (const char c : text)
    if (std::isalnum(static_cast<unsigned char>(c)))
      small += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return small;
}

// The attribute of one of some names, in degrees unless name or description says radians.
AngleField find_angle(const LASheader& header, std::initializer_list<const char*> names) {
  for (const LASattribute& a : header.attributes)
    for (const char* const name : names) {
      const std::string text = small_letters(las_text(a.name));
      if (a.data_type == 0 || a.data_type > 10 || !text.starts_with(name)) continue;
      const bool rad = (text + small_letters(las_text(a.description))).find("rad") != std::string::npos;
      return {&a, rad ? DEG_PER_RAD : 1.0};
    }
  return {};
}

template <typename T>
double number_at(const uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return static_cast<double>(value);
}

double attribute_value(const LASpoint& point, const LASattribute& a) {
  using Load = double (*)(const uint8_t*);
  static constexpr Load load[] = {
      number_at<uint8_t>, number_at<int8_t>,   number_at<uint16_t>, number_at<int16_t>, number_at<uint32_t>,
      number_at<int32_t>, number_at<uint64_t>, number_at<int64_t>,  number_at<float>,   number_at<double>};
  const double raw = load[a.data_type - 1](point.extra() + a.start);
  return raw * (a.options & 8 ? a.scale : 1.0) + (a.options & 16 ? a.offset : 0.0);
}

float angle_of(const LASpoint& point, const AngleField& field) {
  return field.attribute ? static_cast<float>(attribute_value(point, *field.attribute) * field.unit) : 0.0f;
}

struct LasTrack {
  std::vector<PO> rec;  // times rising, unrolled, as the file's scale has them
  bool roll = false, pitch = false, yaw = false;
  int time = WKS_GPS_DEC;
};

// Points may be sorted by place or lie in tiles: those of a flight behind the end of a week or day come after it.
void sort_by_time(std::vector<PO>& rec) {
  const auto earlier = [](const PO& a, const PO& b) { return a.t < b.t; };
  const auto [first, last] = std::minmax_element(rec.begin(), rec.end(), earlier);
  const Unroll unroll(find_rollover(first->t, last->t), last->t);
  for (PO& r : rec) r.t = unroll(r.t);
  if (!std::is_sorted(rec.begin(), rec.end(), earlier)) std::stable_sort(rec.begin(), rec.end(), earlier);
}

bool load_track(const std::string& path, const POread& par, LasTrack& track) {
  std::unique_ptr<LASreader> reader = las_read_open(path, INPARSE, false);
  if (!reader) return false;
  const LASheader& header = reader->header;
  if (reader->point.lay.gps < 0) {
    ERROR_MSG("missing timestamps (point format 0 or 2), PO file " << path);
    return false;
  }
  const double need_MB = static_cast<double>(header.npoints) * (3 * sizeof(PO)) * 1e-6;
  if (need_MB > MEM_MB) {
    ERROR_MSG("trajectory needs " << need_MB << " MB of " << MEM_MB << " MB (-mem), PO file " << path);
    return false;
  }
  const AngleField roll = find_angle(header, {"roll"}), pitch = find_angle(header, {"pitch"}),
                   yaw = find_angle(header, {"yaw", "heading", "azimuth"});
  track.roll = roll.attribute, track.pitch = pitch.attribute, track.yaw = yaw.attribute;
  track.time = par.time != WKS_GPS_DEC || !header.adjusted_gps() ? par.time : ADJ_GPS_DEC;
  const double xy = par.proj == PO_PROJ ? DATAUNIT : 1.0, z = par.proj == PO_PROJ ? DATAUNIT_Z : 1.0;
  while (reader->read_point()) {
    const LASpoint& p = reader->point;
    PO rec;
    rec.t = p.gps_time();
    rec.x = p.x() * xy, rec.y = p.y() * xy, rec.z = p.z() * z;
    rec.roll = angle_of(p, roll), rec.pitch = angle_of(p, pitch);
    rec.yaw = file_yaw(double{angle_of(p, yaw)}, par);
    if (std::isfinite(rec.t)) track.rec.push_back(rec);
  }
  const bool failed = reader->failed();
  las_read_close(reader);
  if (failed) return false;
  if (track.rec.size() < 2) {
    ERROR_MSG("not enough data points, PO file " << path);
    return false;
  }
  sort_by_time(track.rec);
  return true;
}

// The track with the shift to be added to its times. False after an ERROR line.
bool start_las(const std::string& path, const POread& par, LasTrack& track, double& deltat, bool& adj) {
  if (!load_track(path, par, track)) return false;
  POread own = par;
  own.time = track.time;
  check_time_format(path, "LAS", track.rec[0].t, own);
  if (!file_time_scale(path, track.rec[0].t, own, deltat, adj)) return false;
  deltat += par.deltat;
  return true;
}
}  // namespace

bool scan_las_PO(const std::string& path, const POread& par, POscan& scan) {
  LasTrack track;
  double deltat = 0;
  if (!start_las(path, par, track, deltat, scan.tadj)) return false;
  scan.coord = par.proj;
  scan.own_time = track.time == ADJ_GPS_DEC;
  scan.nrec = track.rec.size();
  scan.t0 = track.rec.front().t + deltat;
  scan.t1 = track.rec.back().t + deltat;
  scan.roll = track.roll, scan.pitch = track.pitch, scan.yaw = track.yaw;
  return true;
}

bool read_las_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  LasTrack track;
  double deltat = 0;
  if (!start_las(path, par, track, deltat, tadj)) return false;
  LOG_ENTER("read_las_PO deltat=" << deltat << " MAX_TRAJ_DT=" << MAX_TRAJ_DT << " time=" << track.time
                                  << " proj=" << par.proj);
  POcheck list;
  list.path = path;
  list.what = "LAS";
  list.coord = par.proj;
  const auto earlier = [](const PO& rec, double t) { return rec.t < t; };
  const auto begin = track.rec.begin(), end = track.rec.end();
  const int64_t nrec = end - begin, margin = static_cast<int64_t>(PO_MARGIN);
  const int64_t below = std::lower_bound(begin, end, par.tinf - deltat, earlier) - begin;
  const int64_t upto = std::lower_bound(begin, end, par.tsup - deltat, earlier) - begin;
  const int64_t n0 = std::max<int64_t>(below - margin, 0), n1 = std::min(upto + margin, nrec);
  LOG_LINE("select t:[" << par.tinf << " " << par.tsup << "] nrec=" << nrec << " n0=" << n0 << " n1=" << n1);
  for (int64_t i = n0; i < n1; i++) {
    PO rec = track.rec[static_cast<size_t>(i)];
    rec.t += deltat;
    add_PO(list, rec);
  }
  return finish_PO(list, po);
}
}  // namespace veld
