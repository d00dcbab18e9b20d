#include "prj/LiDAR/VR2proc/corr_PO.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/POio/SBET.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr size_t CHUNK = 4096;  // records a unit of work

// An angle in radians within the turn that the file counts in: half turns, or whole ones.
double same_turn(double angle, double before) {
  const double half = std::remainder(angle, 2 * M_PI);
  return before > M_PI && half < 0 ? half + 2 * M_PI : half;
}

// False where the projection isn't defined.
bool correct_SBETrec(const PoCorrJob& job, const TrackPart& part, double t, SBETrec& r) {
  double lon = r.lon * DEG_PER_RAD, lat = r.lat * DEG_PER_RAD, north = 0;
  dxyz p;
  if (!geo_forward_north(*job.georef, lon, lat, r.height, p, north)) return false;
  const double heading = job.read.sbetw0 ? r.heading : r.heading - r.wander;
  const dxyz Att = {r.roll * DEG_PER_RAD, r.pitch * DEG_PER_RAD, heading * DEG_PER_RAD + north};
  const TrackShift shift = comp_TrackShift(*job.corr, part, t, to_xyz(Att));
  if (!shift_geographic(*job.georef, shift.T, lon, lat, r.height)) return false;
  if (shift.T.x != 0 || shift.T.y != 0) {
    r.lon = lon * RAD_PER_DEG;
    r.lat = lat * RAD_PER_DEG;
  }
  r.roll += double{shift.A.x} * RAD_PER_DEG;
  r.pitch += double{shift.A.y} * RAD_PER_DEG;
  if (shift.A.z != 0) r.heading = same_turn(r.heading + double{shift.A.z} * RAD_PER_DEG, r.heading);
  return true;
}

// Counts a sample; before: time of the one in front of it.
void count_sample(bool corrected, double t, double before, PoCorrResult& result) {
  const double dt = t - before;
  const bool step = dt > 0 && dt < MAX_TRAJ_DT;
  if (step) result.seconds += dt;
  if (!corrected) return;
  result.ncorrected++;
  if (step) result.corrected += dt;
}

bool corr_SBET(const PoCorrJob& job, PoCorrResult& result) {
  LOG_LINE("corr_SBET (Applanix) '" << job.path << "' -> '" << result.out << "'");
  double before = NODATA;
  const auto patch = [&](std::vector<SBETrec>& records, const std::vector<double>& t) {
    const int64_t n = static_cast<int64_t>((records.size() + CHUNK - 1) / CHUNK);
    const int64_t bad = run_units(n, NTHREADS, [&](int64_t unit, int) {
      const size_t begin = static_cast<size_t>(unit) * CHUNK, end = std::min(begin + CHUNK, records.size());
      for (size_t i = begin; i < end; i++) {
        const TrackPart* const part = part_at(*job.corr, t[i]);
        if (part && !correct_SBETrec(job, *part, t[i], records[i])) return false;
        records[i].time -= job.corr->tcorr;
      }
      return true;
    });
    if (bad >= 0) ERROR_MSG("position out of the projection's range, PO file " << job.path);
    for (const double time : t) {
      count_sample(part_at(*job.corr, time) != nullptr, time, before, result);
      before = time;
    }
    return bad < 0;
  };
  return copy_SBET(job.path, job.read, result.out, patch);
}

struct TextRow {  // a sample as the text has it
  double t, x, y, z;
  xyz Att;
};

// A sample with its place geographic (degrees) or in the units of the projection.
bool corrected_row(const PoCorrJob& job, const PO& rec, const TrackPart* part, TextRow& row) {
  row = {rec.t - job.corr->tcorr, rec.x, rec.y, rec.z, {rec.roll, rec.pitch, rec.yaw}};
  if (job.coord == PO_ECEF) ecef_to_geodetic({rec.x, rec.y, rec.z}, row.x, row.y, row.z);
  if (part) {
    const bool plane = job.coord == PO_PROJ;
    double north = 0;
    dxyz p;
    if (!plane && !geo_forward_north(*job.georef, row.x, row.y, row.z, p, north)) return false;
    xyz grid = row.Att;
    grid.z += static_cast<float>(north);
    const TrackShift shift = comp_TrackShift(*job.corr, *part, rec.t, grid);
    row.Att += shift.A;
    if (plane)
      row.x += shift.T.x, row.y += shift.T.y, row.z += shift.T.z;
    else if (!shift_geographic(*job.georef, shift.T, row.x, row.y, row.z))
      return false;
  }
  if (job.coord == PO_PROJ) row.x /= DATAUNIT, row.y /= DATAUNIT, row.z /= DATAUNIT_Z;
  row.Att.z -= 360 * std::floor(row.Att.z / 360);
  return true;
}

// Whether three decimals hold all times.
bool whole_milliseconds(const Vector<PO>& po, double tcorr) {
  for (const PO& rec : po) {
    const double ms = (rec.t - tcorr) * 1000;
    if (std::fabs(ms - std::round(ms)) > 0.01) return false;
  }
  return true;
}

std::string row_text(const TextRow& r, bool plane, int time_digits) {
  const auto wide = [](float v) { return static_cast<double>(v); };
  char text[200];
  std::snprintf(text, sizeof text,
                plane ? "%.*f  %.3f %.3f %.3f  %.4f %.4f %.4f\n" : "%.*f  %.8f %.8f %.3f  %.4f %.4f %.4f\n",
                time_digits, r.t, r.x, r.y, r.z, wide(r.Att.x), wide(r.Att.y), wide(r.Att.z));
  return text;
}

bool corr_PO_txt(const PoCorrJob& job, PoCorrResult& result) {
  LOG_LINE("corr_PO_txt rad=" << job.read.rad << " '" << job.path << "' -> '" << result.out << "'");
  const bool plane = job.coord == PO_PROJ;
  Vector<PO> po;
  bool adj = false;
  ResultFile file;
  if (!read_PO(job.path, job.read, po, adj) || !file.open(result.out)) return false;
  const int time_digits = whole_milliseconds(po, job.corr->tcorr) ? 3 : 6;
  file.fs << (plane ? "Time X Y Z Roll Pitch Yaw\n" : "Time Lon Lat h Roll Pitch Yaw\n");
  double before = NODATA;
  for (const PO& rec : po) {
    const TrackPart* const part = part_at(*job.corr, rec.t);
    TextRow row;
    if (!corrected_row(job, rec, part, row)) {
      ERROR_MSG("position out of the projection's range, PO file " << job.path);
      return false;
    }
    file.fs << row_text(row, plane, time_digits);
    count_sample(part != nullptr, rec.t, before, result);
    before = rec.t;
  }
  return file.commit();
}
}  // namespace

bool corr_PO_file(const PoCorrJob& job, PoCorrResult& result) {
  const bool sbet = PO_format(job.path) == PO_SBET;
  result = PoCorrResult();
  result.out = job.stem + (sbet ? ".out" : ".txt");
  LOG_ENTER("corr_PO_file '" << job.path << "'");
  return sbet ? corr_SBET(job, result) : corr_PO_txt(job, result);
}
}  // namespace veld
