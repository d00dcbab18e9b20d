#include "prj/LiDAR/VR2proc/corr_points.h"

#include <cmath>
#include <cstring>

#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr float ANGLE_PER_DEG = 166.666672f;  // steps of the scan angle in extended formats

uint8_t attribute(const LASpoint& point, const PointJob& job) {
  switch (job.split->type) {
    case SplitType::direction:
      return static_cast<uint8_t>(point.scan_direction());
    case SplitType::channel:
      return static_cast<uint8_t>(point.scanner_channel());
    case SplitType::angle:
      return static_cast<uint8_t>(std::lround(point.scan_angle_deg()));
    case SplitType::user_data:
      return point.user_data();
    case SplitType::source_id:
      return static_cast<uint8_t>(point.point_source_id());
    case SplitType::classification:
      return static_cast<uint8_t>(point.classification() & 31);
    case SplitType::beam_id:
      return point.rec[job.beam_id];
  }
  return 0;
}

const SwathCorr& corr_of(const LASpoint& point, const PointJob& job, CorrCount& count) {
  if (!job.split) return *job.corr;
  const uint8_t beam = job.split->beam[attribute(point, job)];
  if (beam < job.beams.size()) return job.beams[beam];
  count.nunsplit++;
  return *job.corr;
}

void rewrite_point(const PointJob& job, const TrajFrame& frame, const dxyz& P, double t, LASpoint& point) {
  if (job.rewrite.time) point.set_gps_time(t + job.t_out);
  if (job.rewrite.las_angle || job.rewrite.int_angle) {
    const float angle = job.rewrite.las_angle ? comp_las_angle(frame, P) : comp_int_angle(frame, P);
    point.set_scan_angle(static_cast<int>(std::lround(point.lay.extended ? angle * ANGLE_PER_DEG : angle)));
  }
  if (job.rewrite.pitch) {
    const float pitch = comp_int_pitch(frame, P);
    point.set_user_data(pitch == NO_ANGLE ? uint8_t{0} : static_cast<uint8_t>(std::lround(pitch + 90)));
  }
}
}  // namespace

uint64_t corr_records(uint8_t* records, uint64_t n, LASpoint point, const PointJob& job, CorrCursor& cursor,
                      UndoWriter& undo, CorrCount& count) {
  const Unroll unroll = job.clock.unroll();
  const size_t reclen = static_cast<size_t>(point.lay.reclen);
  const bool keeps_undo = undo.is_open();
  if (keeps_undo) undo.begin_block(n);
  uint8_t* to = records;
  for (uint64_t i = 0; i < n; i++) {
    point.rec = records + i * reclen;
    const SwathCorr& corr = corr_of(point, job, count);
    const double t = job.clock.sync(unroll(point.gps_time()));
    const dxyz P{point.x() * DATAUNIT, point.y() * DATAUNIT, point.z() * DATAUNIT_Z};
    xyz C = comp_point_corr(corr, cursor, P, t);
    if (job.FWD && C.z != NODATA) C = comp_point_corr(corr, cursor, P + to_dxyz(C), t);
    int32_t X, Y, Z;
    if (C.z == NODATA || !las_to_grid((P.x + C.x) / DATAUNIT, point.offset[0], point.scale[0], X) ||
        !las_to_grid((P.y + C.y) / DATAUNIT, point.offset[1], point.scale[1], Y) ||
        !las_to_grid((P.z + C.z) / DATAUNIT_Z, point.offset[2], point.scale[2], Z))
      continue;
    // The correction as the file has it, rounded to its steps.
    const auto moved = [&point](int axis, int32_t to_step, int32_t from_step) {
      return (static_cast<double>(to_step) - from_step) * point.scale[axis];
    };
    if (keeps_undo) undo.set(i, moved(0, X, point.X()), moved(1, Y, point.Y()), moved(2, Z, point.Z()));
    point.set_X(X);
    point.set_Y(Y);
    point.set_Z(Z);
    rewrite_point(job, cursor.frame, P + to_dxyz(C), t, point);
    if (to != point.rec) std::memmove(to, point.rec, reclen);
    to += reclen;
  }
  const uint64_t kept = static_cast<uint64_t>(to - records) / reclen;
  count.nread += n;
  count.ndropped += n - kept;
  return kept;
}
}  // namespace veld
