#include "prj/LiDAR/VR2proc/corr_swath.h"

#include <cmath>
#include <cstring>
#include <memory>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// Rounding of a coordinate to the file's grid, half away from the offset; false out of the range of 32 bits.
bool to_grid(double value, double offset, double scale, int32_t& out) {
  const double q = (value - offset) / scale;
  const double r = q < 0 ? q - 0.5 : q + 0.5;
  if (!(r > -2147483648.0 && r < 2147483648.0)) return false;
  out = static_cast<int32_t>(r);
  return true;
}

constexpr double INDEX_MARGIN = 10;  // m around the source that the index of the corrected file covers

// Corrects n records in place and moves those that are kept together. Returns how many are kept.
uint64_t corr_records(uint8_t* records, uint64_t n, LASpoint point, const SwathCorr& corr,
                      const SwathClock& clock, bool FWD, CorrCursor& cursor) {
  const Unroll unroll = clock.unroll();
  const size_t reclen = static_cast<size_t>(point.lay.reclen);
  uint8_t* to = records;
  for (uint64_t i = 0; i < n; i++) {
    point.rec = records + i * reclen;
    const double t = clock.sync(unroll(point.gps_time()));
    const dxyz P{point.x() * DATAUNIT, point.y() * DATAUNIT, point.z() * DATAUNIT_Z};
    xyz C = comp_point_corr(corr, cursor, P, t);
    if (FWD && C.z != NODATA) C = comp_point_corr(corr, cursor, P + to_dxyz(C), t);
    int32_t X, Y, Z;
    if (C.z == NODATA || !to_grid((P.x + C.x) / DATAUNIT, point.offset[0], point.scale[0], X) ||
        !to_grid((P.y + C.y) / DATAUNIT, point.offset[1], point.scale[1], Y) ||
        !to_grid((P.z + C.z) / DATAUNIT_Z, point.offset[2], point.scale[2], Z))
      continue;
    point.set_X(X);
    point.set_Y(Y);
    point.set_Z(Z);
    if (to != point.rec) std::memmove(to, point.rec, reclen);
    to += reclen;
  }
  return static_cast<uint64_t>(to - records) / reclen;
}
}  // namespace

bool corr_swath_las(const CorrJob& job, const SwathCorr& corr, CorrCount& count) {
  LOG_ENTER("corr_swath_las sw=" << job.sw << " '" << job.path << "' deltat=" << job.clock.shift << " adj="
                                 << job.clock.raw_adj << " rover=" << (job.clock.rover != Rollover::none)
                                 << " ws=" << (job.clock.rover == Rollover::week));
  std::unique_ptr<LASreader> reader = las_read_open(job.path, INPARSE, true);
  if (!reader) return false;
  if (!reader->header.layout().extended && reader->header.layout().gps < 0) {
    ERROR_MSG("missing timestamps (point format " << static_cast<int>(reader->header.point_format)
                                                  << "), file " << job.path);
    return false;
  }
  LASheader header = reader->header;
  if (!set_las_header_sid(header, job.sid, SOFTINFO)) {
    ERROR_MSG("header records too long, file " << job.path);
    return false;
  }
  std::unique_ptr<LASwriter> writer = las_write_open(job.out, header, OUTPARSE, *job.sources);
  if (!writer) return false;
  LASindex index;
  bool index_ok = job.lax && index.prepare(header, INDEX_MARGIN / DATAUNIT);
  if (job.lax && !index_ok) LOG_LINE("<!> lasquadtree setup");

  CorrCursor cursor;
  bool ok = true;
  uint64_t n;
  while (uint8_t* records = reader->read_block(n)) {
    const uint64_t kept = corr_records(records, n, reader->header.point(), corr, job.clock, job.FWD, cursor);
    index_ok = index_ok && index.add_records(header.point(), records, kept, writer->p_count);
    count.nread += n;
    count.nwritten += kept;
    if (kept > 0 && !writer->write_raw_records(records, kept)) {
      ok = false;
      break;
    }
  }
  count.ndropped = count.nread - count.nwritten;
  const bool short_read = reader->failed() || count.nread < reader->header.npoints;
  las_read_close(reader);

  if (count.nwritten == 0) {  // an unfinished file is removed by its writer
    ERROR_MSG((ok ? "no point left, file " : "could not write file ") << job.path);
    return false;
  }
  const bool closed = index_ok ? las_write_close(writer, index, job.lax_append, index_ok, &count.nbytes)
                               : las_write_close(writer, &count.nbytes);
  if (!closed || !ok) {
    ERROR_MSG("could not write file " << job.out);
    return false;
  }
  if (job.lax && !index_ok) WARNING_MSG("failed to write LAS index, swath " << job.sw);
  if (count.ndropped > 0)
    WARNING_MSG(count.ndropped << " points dropped (timestamp error), swath " << job.sw);
  if (short_read) WARNING_MSG("output may be truncated, error reading file " << job.path);
  LOG_LINE("Written corrected las " << job.out << ' ' << static_cast<double>(count.nwritten) * 1e-6 << "Mp "
                                    << static_cast<double>(count.nbytes) * 1e-6 << "Mb");
  return true;
}
}  // namespace veld
