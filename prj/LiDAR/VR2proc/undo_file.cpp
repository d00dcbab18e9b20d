#include "prj/LiDAR/VR2proc/undo_file.h"

#include <algorithm>
#include <cmath>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr char UNDO_SUFFIX[] = "_p2p_corr.laz";
constexpr char UNDO_SOFTWARE[] = "Corr Vectors (undo)";
constexpr double XY_SCALE = 0.005, Z_SCALE = 0.002;  // m
constexpr double FEET_FACTOR = 3;                    // steps are about the same length in feet
constexpr double INDEX_MARGIN = 10;                  // m around the corrected file that the index covers

// The header of undo data. It keeps the records of the source that the stamp of the correction replaces.
LASheader undo_header(const LASheader& source, const std::string& sid) {
  LASheader h;
  h.version_minor = 2;
  h.point_format = 0;
  h.point_reclen = static_cast<uint16_t>(las_base_length(0));
  set_las_text(h.system_identifier, sid);
  set_las_text(h.generating_software, UNDO_SOFTWARE);
  h.x_scale_factor = h.y_scale_factor = undo_steps().xy;
  h.z_scale_factor = undo_steps().z;
  h.vlrs = las_identity_records(source);
  return h;
}

int32_t undo_step(double d, double scale) {
  constexpr double MOST = 2147483647.0;  // 10000 km
  return static_cast<int32_t>(std::clamp(std::round(d / scale), -MOST, MOST));
}

// Opens both files and compares them. False after an ERROR line.
bool open_both(const UndoJob& job, std::unique_ptr<LASreader>& swath, std::unique_ptr<LASreader>& undo) {
  const std::string name = undo_name(job.path);
  if (!is_regular_file(name)) {
    ERROR_MSG("missing point correction file " << name);
    return false;
  }
  swath = las_read_open(job.path, INPARSE, true);
  undo = swath ? las_read_open(name, "xyz", true) : nullptr;
  if (!undo) return false;
  if (!las_text(undo->header.generating_software).starts_with(UNDO_SOFTWARE)) {
    ERROR_MSG("wrong format for point correction file " << name);
    return false;
  }
  if (swath->header.npoints == undo->header.npoints) return true;
  ERROR_MSG("point count mismatch between swath and point correction file, swath "
            << job.sw << ", " << swath->header.npoints << " and " << undo->header.npoints << ", file "
            << job.path);
  return false;
}

enum class BlockState { done, short_undo, out_of_range };

// Takes the corrections off n records in place.
BlockState undo_records(uint8_t* records, uint64_t n, LASpoint point, LASreader& undo) {
  for (uint64_t i = 0; i < n; i++) {
    if (!undo.read_point()) return BlockState::short_undo;
    point.rec = records + i * static_cast<uint64_t>(point.lay.reclen);
    int32_t X, Y, Z;
    if (!las_to_grid(point.x() - undo.point.x(), point.offset[0], point.scale[0], X) ||
        !las_to_grid(point.y() - undo.point.y(), point.offset[1], point.scale[1], Y) ||
        !las_to_grid(point.z() - undo.point.z(), point.offset[2], point.scale[2], Z))
      return BlockState::out_of_range;
    point.set_X(X);
    point.set_Y(Y);
    point.set_Z(Z);
  }
  return BlockState::done;
}
}  // namespace

UndoSteps undo_steps() {
  return {XY_SCALE * (DATAUNIT == 1 ? 1 : FEET_FACTOR), Z_SCALE * (DATAUNIT_Z == 1 ? 1 : FEET_FACTOR)};
}

std::string undo_name(const std::string& corrected) { return change_extension(corrected, "") + UNDO_SUFFIX; }
bool is_undo_name(const std::string& path) { return path.ends_with(UNDO_SUFFIX); }

bool UndoWriter::open(const std::string& corrected, const LASheader& source, const std::string& sid,
                      const std::vector<std::string>& sources) {
  writer_ = las_write_open(undo_name(corrected), undo_header(source, sid), "xyz", sources);
  if (!writer_) {
    ERROR_MSG("could not write point correction file " << undo_name(corrected));
    return false;
  }
  point_ = writer_->header.point();
  return true;
}

void UndoWriter::begin_block(uint64_t n) { block_.assign(n * static_cast<uint64_t>(point_.lay.reclen), 0); }

void UndoWriter::set(uint64_t i, double dx, double dy, double dz) {
  point_.rec = block_.data() + i * static_cast<uint64_t>(point_.lay.reclen);
  point_.set_X(undo_step(dx, point_.scale[0]));
  point_.set_Y(undo_step(dy, point_.scale[1]));
  point_.set_Z(undo_step(dz, point_.scale[2]));
}

bool UndoWriter::end_block() {
  const std::string name = writer_->file_name();
  if (writer_->write_raw_records(block_.data(), block_.size() / static_cast<uint64_t>(point_.lay.reclen)))
    return true;
  ERROR_MSG("could not write point correction file " << name);
  return false;
}

bool UndoWriter::close(int64_t& nbytes) {
  const std::string name = writer_->file_name();
  if (las_write_close(writer_, &nbytes)) return true;
  ERROR_MSG("could not write point correction file " << name);
  return false;
}

bool undo_corr_swath_las(const UndoJob& job, CorrCount& count) {
  LOG_ENTER("undo_corr_swath_las sw=" << job.sw << " '" << job.path << "' -> '" << job.out << "'");
  std::unique_ptr<LASreader> swath, undo;
  if (!open_both(job, swath, undo)) return false;
  LASheader header = swath->header;
  unset_las_header_sid(header, las_identity_records(undo->header));
  std::unique_ptr<LASwriter> writer = las_write_open(job.out, header, OUTPARSE, *job.sources);
  if (!writer) return false;
  LASindex index;
  bool index_ok = job.lax && index.prepare(header, INDEX_MARGIN / DATAUNIT);

  BlockState state = BlockState::done;
  bool written = true;
  uint64_t n;
  while (state == BlockState::done && written) {
    uint8_t* const records = swath->read_block(n);
    if (!records) break;
    state = undo_records(records, n, swath->header.point(), *undo);
    index_ok = index_ok && index.add_records(header.point(), records, n, writer->p_count);
    written = state != BlockState::done || writer->write_raw_records(records, n);
    count.nread += n;
  }
  const bool whole =
      state != BlockState::short_undo && !swath->failed() && count.nread == swath->header.npoints;
  las_read_close(swath);
  las_read_close(undo);
  if (!whole || state == BlockState::out_of_range) {  // an unfinished file is removed by its writer
    if (state == BlockState::out_of_range)
      ERROR_MSG("could not write file " << job.out << ", a coordinate is out of its range");
    else
      ERROR_MSG("output may be truncated, error reading swath or point correction file, swath "
                << job.sw << ", file " << job.path);
    return false;
  }
  count.nwritten = writer->p_count;
  const bool closed =
      written && (index_ok ? las_write_close(writer, index, job.lax_append, index_ok, &count.nbytes)
                           : las_write_close(writer, &count.nbytes));
  if (!closed) {
    ERROR_MSG("could not write file " << job.out);
    return false;
  }
  if (job.lax && !index_ok) WARNING_MSG("failed to write LAS index, swath " << job.sw);
  LOG_LINE("Written corrected/undo las " << job.out << ' ' << static_cast<double>(count.nwritten) * 1e-6
                                         << "Mp " << static_cast<double>(count.nbytes) * 1e-6 << "Mb");
  return true;
}
}  // namespace veld
