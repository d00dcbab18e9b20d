#include "prj/LiDAR/VR2POsync/traj_commands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/progress.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"
#include "prj/LiDAR/VR2geom/VR2geom.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double PART_RECORDS = 500000;  // of a file of records that are in memory together

struct Track {  // a trajectory file and what it takes to place its records
  std::string path;
  POread read;
  POscan scan;
  GeoRefParam georef;
  bool attrec = false;   // attitudes come from the track
  xyz imu_deg{0, 0, 0};  // applied to attitudes, 0: none
};

// Roll and pitch 0, yaw along the way from a second before each record to a second behind it.
void attitude_from_track(Vector<PO>& po) {
  constexpr double REACH = 1;  // s
  const int64_t n = static_cast<int64_t>(po.size());
  std::vector<float> yaw(po.size());
  for (int64_t i = 0, a = 0, b = 0; i < n; i++) {
    while (po(i).t - po(a).t > REACH) a++;
    while (b + 1 < n && po(b).t - po(i).t < REACH) b++;
    const double dx = po(b).x - po(a).x, dy = po(b).y - po(a).y;
    yaw[static_cast<size_t>(i)] =
        dx == 0 && dy == 0 ? 0.0f : static_cast<float>(std::atan2(dx, dy) * DEG_PER_RAD);
  }
  for (int64_t i = 0; i < n; i++) {
    po(i).roll = po(i).pitch = 0;
    po(i).yaw = yaw[static_cast<size_t>(i)];
  }
}

bool open_track(const Project& prj, const POsyncParam& par, Track& track) {
  const POgroup& group = prj.pogroups[static_cast<size_t>(prj.pofiles[0].group) - 1];
  track.path = prj.pofiles[0].path;
  track.read = PO_read_param(group);
  if (!scan_PO(track.path, track.read, track.scan)) return false;
  track.attrec = group.att == 1 || !track.scan.yaw;
  if (par.AROT && !prj.mounts.empty()) track.imu_deg = prj.mounts[0].IMU;
  track.georef = prj.georef;
  if (track.scan.coord == PO_PROJ || prj.georef.kind != ProjKind::GEO) return true;
  POread first = track.read;
  first.tinf = first.tsup = track.scan.t0;
  Vector<PO> po;
  bool adj = false;
  if (!read_PO(track.path, first, po, adj)) return false;
  double lon = po(0).x, lat = po(0).y, h = po(0).z;
  if (track.scan.coord == PO_ECEF) ecef_to_geodetic({po(0).x, po(0).y, po(0).z}, lon, lat, h);
  const int number = static_cast<int>(std::floor((std::remainder(lon, 360) + 180) / 6)) % 60 + 1;
  LOG_MSG("no coordinate system given, using UTM zone " << number << (lat < 0 ? " south" : " north")
                                                        << " of PO file " << track.path);
  return track.georef.init(lat < 0 ? -number : number, "", prj.georef.geoid_h, prj.georef.geoid, true,
                           GEODIR);
}

// Records of a window, projected and with the attitudes that a swath would get; raw: as they are in the file, if wanted.
bool read_track(const Track& track, double tinf, double tsup, Vector<PO>& po, bool& adj, Vector<PO>* raw) {
  POread read = track.read;
  read.tinf = tinf;
  read.tsup = tsup;
  dxyz min, max;
  if (!read_PO(track.path, read, po, adj)) return false;
  if (raw) *raw = po;
  if (!proj_PO(po, track.scan.coord, track.georef, track.path, min, max)) return false;
  if (track.attrec) attitude_from_track(po);
  if (!(track.imu_deg == xyz{0, 0, 0})) rotate_IMU(po, track.imu_deg);
  unroll_PO(po);
  return true;
}

struct PlotRange {  // of what was written
  dxyz min = {2e307, 2e307, 2e307}, max = {-2e307, -2e307, -2e307};
  double t0 = 0, t1 = -2e307;
  uint64_t nin = 0, nout = 0;
};

// Every sub-th record from `next` on, counted over all parts; records up to the last time written are those of the part
// before.
void write_part(const Track& track, const Vector<PO>& raw, const Vector<PO>& po, double tend, int sub,
                std::ofstream& fs, PlotRange& range) {
  char line[256];
  for (int64_t i = 0; i < static_cast<int64_t>(po.size()); i++) {
    const PO& p = po(i);
    const PO& r = raw(i);
    if ((range.nin > 0 && p.t <= range.t1) || p.t > tend) continue;
    if (range.nin == 0) range.t0 = p.t;
    range.t1 = p.t;
    if (range.nin++ % static_cast<uint64_t>(sub) != 0) continue;
    range.nout++;
    const dxyz at = {p.x / OUTDATAUNIT, p.y / OUTDATAUNIT, p.z / OUTDATAUNIT_Z};
    range.min = {std::min(range.min.x, at.x), std::min(range.min.y, at.y), std::min(range.min.z, at.z)};
    range.max = {std::max(range.max.x, at.x), std::max(range.max.y, at.y), std::max(range.max.z, at.z)};
    fs << p.t << ' ';
    if (track.scan.coord != PO_PROJ) {
      const bool geo = track.scan.coord == PO_GEO;
      std::snprintf(line, sizeof line, geo ? "%.9f %.9f %.3f " : "%.3f %.3f %.3f ", r.x, r.y, r.z);
      fs << line;
    }
    std::snprintf(line, sizeof line, "%.3f %.3f %.3f %.4f %.4f %.4f\n", at.x, at.y, at.z, double{p.roll},
                  double{p.pitch}, std::remainder(double{p.yaw}, 360.0));
    fs << line;
  }
}
}  // namespace

bool plot_PO(const Project& prj, const POsyncParam& par, int sub, const std::string& name) {
  Track track;
  if (!open_track(prj, par, track)) return false;
  const xyz& imu = track.imu_deg;
  LOG_ENTER("plot_PO fmt=" << track.scan.fmt << " adj=" << track.scan.tadj << " sub=" << sub
                           << " attrec=" << track.attrec << " OUTDATAUNIT=" << OUTDATAUNIT << " IMU=" << imu.x
                           << ' ' << imu.y << ' ' << imu.z << " AROT=" << par.AROT);
  const std::string path = name + ".txt";
  ResultFile out;
  if (same_file(path, track.path)) {
    ERROR_MSG("output file " << path << " would overwrite an input file, use -name or -odir");
    return false;
  }
  if (!out.open(path)) return false;
  out.fs << (track.scan.coord == PO_GEO    ? "Time Lon Lat h X Y Z Roll Pitch Yaw\n"
             : track.scan.coord == PO_ECEF ? "Time X0 Y0 Z0 X Y Z Roll Pitch Yaw\n"
                                           : "Time X Y Z Roll Pitch Yaw\n");
  // Text and points are read from their start each time, so in one part.
  const bool records = track.scan.nrec > 0 && track.scan.fmt != PO_LAS;
  const int64_t nparts =
      records ? static_cast<int64_t>(static_cast<double>(track.scan.nrec) / PART_RECORDS) + 1 : 1;
  const double t0 = track.scan.t0, span = (track.scan.t1 - t0) / static_cast<double>(nparts);
  PlotRange range;
  progress_start(nparts);
  for (int64_t part = 0; part < nparts; part++) {
    Vector<PO> raw, po;
    bool adj = false;
    const double tinf = part == 0 ? -2e307 : t0 + span * static_cast<double>(part);
    const double tend = part + 1 == nparts ? 2e307 : t0 + span * static_cast<double>(part + 1);
    if (!read_track(track, tinf, tend, po, adj, &raw)) return false;
    write_part(track, raw, po, tend, sub, out.fs, range);
    progress_step(part + 1, "EXPORTING TRAJECTORY");
  }
  progress_end("EXPORTING TRAJECTORY");
  if (!out.commit()) return false;
  LOG_MSG("Written " << path << " x:[" << range.min.x << ' ' << range.max.x << "] y:[" << range.min.y << ' '
                     << range.max.y << "] z:[" << range.min.z << ' ' << range.max.z << "] t:[" << range.t0
                     << ' ' << range.t1 << "] n_in=" << range.nin << " n_out=" << range.nout);
  return true;
}

bool cut_PO_smooth(const Project& prj, const POsyncParam& par, const TrajCutParam& cut,
                   const std::string& dir, TrajCut& lines) {
  Track track;
  if (!open_track(prj, par, track)) return false;
  const xyz& imu = track.imu_deg;
  LOG_ENTER("cut_PO_smooth keep=" << cut.keep << " buf=" << cut.buf << " AROT=" << par.AROT
                                  << " IMU=" << imu.x << ' ' << imu.y << ' ' << imu.z);
  Vector<PO> po;
  bool adj = false;
  if (!read_track(track, -2e307, 2e307, po, adj, nullptr)) return false;
  lines = cut_traj_yawdist(po, comp_PO_dt_stat(po, PO_PROJ, adj).dt, cut);
  lines.adj = adj;
  if (lines.segments.empty()) {
    ERROR_MSG("no smooth segment found, PO file " << track.path);
    return false;
  }
  if (!save_pos_cut(lines, cut, dir)) return false;
  for (const CutSegment& s : lines.segments)
    LOG_LINE("cut " << s.number << " t:[" << s.tmin << ' ' << s.tmax << "] length=" << s.length
                    << (s.turn ? " turn" : ""));
  return true;
}
}  // namespace veld
