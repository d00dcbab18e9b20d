#include "prj/LiDAR/VR2proc/corr_swath.h"

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr double INDEX_MARGIN = 10;  // m around the source that the index of the corrected file covers

// Undo data of an earlier file would be applied to the new one.
void remove_old_undo(const std::string& corrected) {
  const std::string name = undo_name(corrected);
  if (is_regular_file(name) && remove_file(name))
    LOG_LINE("removed the undo data of an earlier file, " << name);
}

// The undo data get their name first: a corrected file never stands beside those of another.
bool close_files(const CorrJob& job, std::unique_ptr<LASwriter>& writer, LASindex& index, bool& index_ok,
                 UndoWriter& undo, CorrCount& count) {
  int64_t undo_bytes = 0;
  if (undo.is_open() && !undo.close(undo_bytes)) return false;
  if (!job.undo) remove_old_undo(job.out);
  if (!(index_ok ? las_write_close(writer, index, job.lax_append, index_ok, &count.nbytes)
                 : las_write_close(writer, &count.nbytes))) {
    if (job.undo) remove_file(undo_name(job.out));
    return false;
  }
  if (job.undo && count.nbytes > 0)
    LOG_LINE(undo_name(job.out) << " file size=" << static_cast<double>(undo_bytes) * 1e-6 << " MB, overhead="
                                << 100.0 * static_cast<double>(undo_bytes) / static_cast<double>(count.nbytes)
                                << " %");
  return true;
}
}  // namespace

std::unique_ptr<LASreader> open_corr_source(CorrJob& job) {
  std::unique_ptr<LASreader> reader = las_read_open(job.path, INPARSE, true);
  if (!reader) return nullptr;
  const LASheader& header = reader->header;
  if (!header.layout().extended && header.layout().gps < 0) {
    ERROR_MSG("missing timestamps (point format " << static_cast<int>(header.point_format) << "), file "
                                                  << job.path);
    return nullptr;
  }
  if (!job.points.split || job.points.split->type != SplitType::beam_id) return reader;
  const LASattribute* const beam_id = header.find_attribute("beam id");
  if (!beam_id) {
    ERROR_MSG("'beam id' extra attribute not available, file " << job.path);
    return nullptr;
  }
  job.points.beam_id = header.layout().base + beam_id->start;
  return reader;
}

bool corrected_header(const CorrJob& job, const LASheader& source, LASheader& header) {
  header = source;
  if (job.points.rewrite.time && job.adj) header.global_encoding |= 1;
  if (set_las_header_sid(header, job.sid, SOFTINFO)) return true;
  ERROR_MSG("header records too long, file " << job.path);
  return false;
}

void warn_corr_points(const CorrJob& job, const CorrCount& count, bool short_read) {
  if (count.ndropped > 0)
    WARNING_MSG(count.ndropped << " points dropped (timestamp error), swath " << job.sw);
  if (count.nunsplit > 0)
    WARNING_MSG(count.nunsplit << " points could not be split, beam calibration ignored, swath " << job.sw);
  if (short_read) WARNING_MSG("output may be truncated, error reading file " << job.path);
}

bool corr_swath_las(CorrJob job, CorrCount& count) {
  const SwathClock& clock = job.points.clock;
  LOG_ENTER("corr_swath_las sw=" << job.sw << " '" << job.path << "' deltat=" << clock.shift
                                 << " adj=" << clock.raw_adj << " rover=" << (clock.rover != Rollover::none)
                                 << " ws=" << (clock.rover == Rollover::week) << " undo=" << job.undo);
  std::unique_ptr<LASreader> reader = open_corr_source(job);
  LASheader header;
  if (!reader || !corrected_header(job, reader->header, header)) return false;
  std::unique_ptr<LASwriter> writer = las_write_open(job.out, header, OUTPARSE, *job.sources);
  if (!writer) return false;
  UndoWriter undo;
  if (job.undo && !undo.open(job.out, reader->header, job.sid, *job.sources)) return false;
  LASindex index;
  bool index_ok = job.lax && index.prepare(header, INDEX_MARGIN / DATAUNIT);
  if (job.lax && !index_ok) LOG_LINE("<!> lasquadtree setup");

  CorrCursor cursor;
  bool ok = true;
  uint64_t n;
  while (uint8_t* records = ok ? reader->read_block(n) : nullptr) {
    const uint64_t kept = corr_records(records, n, reader->header.point(), job.points, cursor, undo, count);
    index_ok = index_ok && index.add_records(header.point(), records, kept, writer->p_count);
    ok = (kept == 0 || writer->write_raw_records(records, kept)) && (!undo.is_open() || undo.end_block());
    count.nwritten += kept;
  }
  const bool short_read = reader->failed() || count.nread < reader->header.npoints;
  las_read_close(reader);

  if (ok && count.nwritten == 0) {  // unfinished files are removed by their writers
    ERROR_MSG("no point left, file " << job.path);
    return false;
  }
  if (!ok || !close_files(job, writer, index, index_ok, undo, count)) {
    ERROR_MSG("could not write file " << job.out);
    return false;
  }
  if (job.lax && !index_ok) WARNING_MSG("failed to write LAS index, swath " << job.sw);
  warn_corr_points(job, count, short_read);
  LOG_LINE("Written corrected las " << job.out << ' ' << static_cast<double>(count.nwritten) * 1e-6 << "Mp "
                                    << static_cast<double>(count.nbytes) * 1e-6 << "Mb");
  return true;
}
}  // namespace veld
