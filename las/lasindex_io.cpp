// The spatial index between memory and its two places: the .lax file, the record at the end of a LAZ file.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "las/las_access.h"
#include "las/las_sources.h"
#include "lib/general/log.h"
#include "lib/general/path.h"

namespace veld {
namespace {
constexpr char EVLR_USER[] = "LAStools";
constexpr uint16_t EVLR_RECORD = 30;
constexpr uint64_t MAX_INDEX_BYTES = uint64_t{1} << 31;  // a larger index is not believed
constexpr uint64_t SPECIAL_AT = 16;  // place of the index in the compression record: count, then position

template <typename T>
void put(std::vector<uint8_t>& to, T value) {
  const size_t at = to.size();
  to.resize(at + sizeof value);
  std::memcpy(to.data() + at, &value, sizeof value);
}

// Reads values off bytes; `ok` turns false where they end.
struct Taker {
  const uint8_t* at;
  const uint8_t* end;
  bool ok = true;
  uint64_t left() const { return static_cast<uint64_t>(end - at); }
  template <typename T>
  T take() {
    T value{};
    ok = ok && left() >= sizeof value;
    if (!ok) return value;
    std::memcpy(&value, at, sizeof value);
    at += sizeof value;
    return value;
  }
  bool signature(const char* text) {
    const bool same = left() >= 4 && std::memcmp(at, text, 4) == 0;
    if (same) at += 4;
    return same;
  }
};

bool take_quadtree(Taker& in, LASquadtree& tree) {
  if (!in.signature("LASS") || in.take<uint32_t>() != 0) return false;
  if (in.signature("LASQ") && in.take<uint32_t>() != 0) return false;  // older files have no such signature
  tree.levels = in.take<uint32_t>();
  in.take<uint32_t>();  // level index
  in.take<uint32_t>();  // implicit levels
  for (float* v : {&tree.min_x, &tree.max_x, &tree.min_y, &tree.max_y}) *v = in.take<float>();
  return in.ok && tree.levels <= LAX_MAX_LEVELS && std::isfinite(tree.min_x) && std::isfinite(tree.max_x) &&
         std::isfinite(tree.min_y) && std::isfinite(tree.max_y) && tree.min_x < tree.max_x &&
         tree.min_y < tree.max_y;
}

bool take_cell(Taker& in, uint64_t npoints, LASindex::Cell& cell) {
  const uint32_t nintervals = in.take<uint32_t>();
  cell.npoints = in.take<uint32_t>();
  if (!in.ok || nintervals == 0 || nintervals > in.left() / sizeof(LASinterval)) return false;
  cell.intervals.resize(nintervals);
  for (size_t i = 0; i < nintervals; i++) {
    LASinterval& interval = cell.intervals[i];
    interval.start = in.take<uint32_t>();
    interval.end = in.take<uint32_t>();
    if (interval.start > interval.end || interval.end >= npoints) return false;
    if (i > 0 && interval.start <= cell.intervals[i - 1].end) return false;
  }
  return true;
}

// Bytes of the index within a LAZ file; empty when there is none.
std::vector<uint8_t> embedded_index(const LasInFile& file, const LASzip& scheme) {
  std::vector<uint8_t> bytes;
  if (scheme.nspecial_evlr < 1 || scheme.special_evlr_offset < 0) return bytes;
  const uint64_t at = static_cast<uint64_t>(scheme.special_evlr_offset);
  uint8_t head[LAS_EVLR_HEADER];
  if (!file.read_at(at, head, sizeof head)) return bytes;
  uint16_t record;
  uint64_t length;
  std::memcpy(&record, head + 18, 2);
  std::memcpy(&length, head + 20, 8);
  if (std::strncmp(reinterpret_cast<const char*>(head) + 2, EVLR_USER, 16) != 0 || record != EVLR_RECORD)
    return bytes;
  if (length > file.size() - at - LAS_EVLR_HEADER || length > MAX_INDEX_BYTES) return bytes;
  bytes.resize(length);
  if (!file.read_at(at + LAS_EVLR_HEADER, bytes.data(), length)) bytes.clear();
  return bytes;
}

std::vector<uint8_t> index_record(const std::vector<uint8_t>& index) {
  LASevlr evlr;
  set_las_text(evlr.user_id, EVLR_USER);
  evlr.record_id = EVLR_RECORD;
  set_las_text(evlr.description, "LAX spatial indexing (LASindex)");
  evlr.length = index.size();
  std::vector<uint8_t> bytes = las_evlr_header_bytes(evlr);
  bytes.insert(bytes.end(), index.begin(), index.end());
  return bytes;
}

bool write_all(int fd, uint64_t offset, const void* from, uint64_t n) {
  const char* bytes = static_cast<const char*>(from);
  while (n > 0) {
    const ssize_t put = pwrite(fd, bytes, n, static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return false;
    bytes += put;
    offset += static_cast<uint64_t>(put);
    n -= static_cast<uint64_t>(put);
  }
  return true;
}

// Where a record goes: the end of the file, or the place of an older index that ends there.
uint64_t record_place(const LasInFile& file, const LASzip& scheme) {
  const uint64_t old_bytes = embedded_index(file, scheme).size();
  const uint64_t at = static_cast<uint64_t>(scheme.special_evlr_offset);
  return old_bytes > 0 && at + LAS_EVLR_HEADER + old_bytes == file.size() ? at : file.size();
}

// Adds the record at the end of the file, then enters it in the compression record; takes it back on
// failure.
bool append_record(const std::string& name, uint64_t size, uint64_t scheme_payload,
                   const std::vector<uint8_t>& record, std::string& error) {
  const int fd = ::open(name.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    error = std::strerror(errno);
    return false;
  }
  const int64_t special[2] = {1, static_cast<int64_t>(size)};
  bool ok =
      write_all(fd, size, record.data(), record.size()) &&
      ::ftruncate(fd, static_cast<off_t>(size + record.size())) == 0;  // an older one may have been longer
  if (!ok) {
    error = std::strerror(errno);
    if (::ftruncate(fd, static_cast<off_t>(size)) != 0) error += ", the file has bytes too many at its end";
  } else if (!write_all(fd, scheme_payload + SPECIAL_AT, special, sizeof special)) {
    error = std::strerror(errno);
    ok = false;
  }
  if (::close(fd) != 0 && ok) {
    error = std::strerror(errno);
    ok = false;
  }
  return ok;
}
}  // namespace

std::vector<uint8_t> LASindex::to_bytes() const {
  std::vector<uint8_t> out;
  using Signature = std::array<char, 4>;
  const auto part = [&out](const Signature& signature) {
    put(out, signature);
    put(out, uint32_t{0});  // version, or the type quadtree
  };
  part({'L', 'A', 'S', 'X'});
  part({'L', 'A', 'S', 'S'});
  part({'L', 'A', 'S', 'Q'});
  put(out, quadtree.levels);
  put(out, uint32_t{0});
  put(out, uint32_t{0});
  for (const float v : {quadtree.min_x, quadtree.max_x, quadtree.min_y, quadtree.max_y}) put(out, v);
  part({'L', 'A', 'S', 'V'});
  put(out, static_cast<uint32_t>(cells.size()));
  for (const auto& [at, cell] : cells) {
    put(out, at);
    put(out, static_cast<uint32_t>(cell.intervals.size()));
    put(out, cell.npoints);
    for (const LASinterval& interval : cell.intervals) {
      put(out, interval.start);
      put(out, interval.end);
    }
  }
  return out;
}

bool LASindex::from_bytes(const uint8_t* bytes, size_t nbytes, uint64_t npoints, std::string& reason) {
  cells.clear();
  Taker in{bytes, bytes + nbytes};
  reason = "spatial index is damaged";
  if (!in.signature("LASX") || in.take<uint32_t>() != 0 || !take_quadtree(in, quadtree)) return false;
  if (!in.signature("LASV") || in.take<uint32_t>() != 0) return false;
  const uint32_t ncells = in.take<uint32_t>();
  const int32_t past_last = LASquadtree::level_base(quadtree.levels + 1);
  uint64_t largest_end = 0;
  for (uint32_t i = 0; i < ncells && in.ok; i++) {
    const int32_t at = in.take<int32_t>();
    if (!in.ok || at < 0 || at >= past_last) return false;
    const auto [cell, is_new] = cells.try_emplace(at);
    if (!is_new || !take_cell(in, npoints, cell->second)) return false;
    largest_end = std::max<uint64_t>(largest_end, cell->second.intervals.back().end);
  }
  if (!in.ok) return false;
  if (ncells > 0 ? largest_end + 1 != npoints : npoints > 0) {
    reason = "spatial index belongs to another file";
    return false;
  }
  return true;
}

bool LASindex::write(const std::string& point_file) const {
  const std::string name = change_extension(point_file, ".lax");
  const std::vector<uint8_t> bytes = to_bytes();
  LasOutFile file;
  std::string error;
  if (file.open(name, {point_file}, error)) {
    if (file.append(bytes.data(), bytes.size()) && file.finish()) return true;
    error = file.error();
  }
  ERROR_MSG("could not write spatial index, " << error << ", file '" << name << "'");
  return false;
}

bool LASindex::append(const std::string& laz_file) const {
  std::string error;
  LASheader header;
  LasFileInfo info;
  uint64_t size = 0;
  bool ok = !las_is_open_for_reading(laz_file);
  if (!ok) error = "file is open for reading";
  if (ok) {
    LasInFile file;
    ok = file.open(laz_file, error) && read_las_header(file, header, info, error);
    size = ok ? record_place(file, info.scheme) : 0;
    int64_t table = 0;
    if (ok && (!info.has_scheme || !file.read_at(header.offset_to_point_data, &table, sizeof table) ||
               table == -1)) {
      error = "file can't take an index at its end";  // its chunk table must stay last, or it is no LAZ
      ok = false;
    }
  }
  if (ok && append_record(laz_file, size, info.scheme_payload, index_record(to_bytes()), error)) return true;
  ERROR_MSG("could not append spatial index, " << error << ", file '" << laz_file << "'");
  return false;
}

bool LASindex::read(const std::string& point_file) {
  std::string error;
  LasInFile points, lax;
  LASheader header;
  LasFileInfo info;
  if (!points.open(point_file, error) || !read_las_header(points, header, info, error) || !info.sound)
    return false;
  const std::string name = change_extension(point_file, ".lax");
  std::vector<uint8_t> bytes;
  if (is_regular_file(name)) {
    if (lax.open(name, error) && lax.size() <= MAX_INDEX_BYTES) {
      bytes.resize(lax.size());
      if (!lax.read_at(0, bytes.data(), bytes.size())) bytes.clear();
    }
  } else {
    bytes = embedded_index(points, info.scheme);
    if (bytes.empty()) return false;
  }
  if (from_bytes(bytes.data(), bytes.size(), header.npoints, error)) return true;
  cells.clear();
  WARNING_MSG(error << ", it is not used, file '" << point_file << "'");
  return false;
}

bool las_write_close(std::unique_ptr<LASwriter>& writer, LASindex& index, bool append, bool& index_ok,
                     int64_t* nbytes) {
  index_ok = false;
  if (!writer) return true;
  const std::string name = writer->file_name();
  writer->update_header();
  const LASheader& h = writer->header;
  const LASquadtree& tree = index.quadtree;
  const bool covered = h.npoints == 0 || (h.min_x >= tree.min_x && h.max_x <= tree.max_x &&
                                          h.min_y >= tree.min_y && h.max_y <= tree.max_y);
  if (!las_write_close(writer, nbytes)) return false;
  if (!covered) {  // points that lie outside would never be found
    LOG_LINE("<!> points outside of the quadtree, file " << name);
    return true;
  }
  index.complete();
  index_ok = append && las_is_laz_name(name) ? index.append(name) : index.write(name);
  return true;
}
}  // namespace veld
