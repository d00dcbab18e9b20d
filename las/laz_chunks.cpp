// las/laz_chunks.cpp
#include "las/laz_chunks.h"

#include <algorithm>
#include <memory>

#include "las/laz_bytes.h"
#include "las/laz_integer.h"

namespace veld {
namespace {
constexpr uint64_t HEAD_BYTES = 8;    // version and number of chunks
constexpr uint64_t ENTRY_BYTES = 16;  // that one entry of the stream takes at most
constexpr uint64_t NO_SEEK = ~uint64_t(0);

// Finds the table: its position stands in front of the chunks, or in the last bytes of a file whose writer
// could not seek.
bool find_table(const LazReadAt& read_at, uint64_t file_size, uint64_t point_offset, uint64_t& at,
                uint64_t& end, std::string& error) {
  uint8_t bytes[8];
  end = file_size;
  if (file_size < point_offset || file_size - point_offset < sizeof bytes ||
      !read_at(point_offset, bytes, sizeof bytes)) {
    error = "the file ends before its points";
    return false;
  }
  at = laz_get<uint64_t>(bytes);
  if (at == NO_SEEK) {
    end = file_size - sizeof bytes;
    if (!read_at(end, bytes, sizeof bytes)) {
      error = "the position of the chunk table can't be read";
      return false;
    }
    at = laz_get<uint64_t>(bytes);
  }
  if (at == point_offset) {
    error = "the chunk table was never written";
    return false;
  }
  if (at < point_offset + 8 || at > end || end - at < HEAD_BYTES) {
    error = "the chunk table lies outside the file";
    return false;
  }
  return true;
}

// Decodes `n` entries of the stream and lays the chunks back to back, from first_offset up to table_offset.
bool decode_entries(const std::vector<uint8_t>& bytes, uint64_t nbytes, uint64_t n, const LASzip& scheme,
                    uint64_t first_offset, LazChunkTable& table, std::string& error) {
  ArithDecoder c;
  c.start(bytes.data());
  const auto model = std::make_unique<IntegerModel<ArithDecoder, 32, 2>>();
  model->init();
  uint32_t npoints = scheme.variable() ? 0 : scheme.chunk_size, size = 0;
  uint64_t offset = first_offset, first_point = 0;
  table.chunks.reserve(n);
  for (uint64_t i = 0; i < n; i++) {
    if (scheme.variable()) npoints = model->code(c, npoints, 0, 0);
    size = model->code(c, size, 0, 1);
    c.settle();
    if (c.bad != 0 || c.at > bytes.data() + nbytes || size == 0 || size > table.table_offset - offset) {
      error = "entry " + std::to_string(i) + " of the chunk table is damaged";
      return false;
    }
    table.chunks.push_back({offset, size, first_point, npoints});
    offset += size;
    first_point += npoints;
  }
  return true;
}

// Cuts the chunks down to the header's points.
void match_points(uint64_t npoints, const LASzip& scheme, LazChunkTable& table) {
  uint64_t capacity = 0;
  size_t nused = 0;
  for (LazChunk& chunk : table.chunks) {
    capacity += chunk.npoints;
    if (chunk.first_point >= npoints || chunk.npoints == 0) continue;
    chunk.npoints = std::min(chunk.npoints, npoints - chunk.first_point);
    table.npoints += chunk.npoints;
    table.chunks[nused++] = chunk;
  }
  const bool extra_chunk = nused < table.chunks.size();
  table.chunks.resize(nused);
  const uint64_t unused = capacity - table.npoints;
  if (table.npoints < npoints || extra_chunk || (scheme.variable() && unused > 0))
    table.note = "chunks hold " + std::to_string(capacity) + " points" +
                 (scheme.variable() ? "" : " at most") + ", the header announces " + std::to_string(npoints);
}
}  // namespace

bool read_laz_chunk_table(const LASzip& scheme, const LazReadAt& read_at, uint64_t file_size,
                          uint64_t point_offset, uint64_t npoints, LazChunkTable& table, std::string& error) {
  LazChunkTable read;
  uint64_t end = 0;
  if (!find_table(read_at, file_size, point_offset, read.table_offset, end, error)) return false;
  uint8_t head[HEAD_BYTES];
  if (!read_at(read.table_offset, head, HEAD_BYTES)) {
    error = "the chunk table can't be read";
    return false;
  }
  const uint32_t version = laz_get<uint32_t>(head), nchunks = laz_get<uint32_t>(head + 4);
  const uint64_t chunk_bytes = read.table_offset - (point_offset + 8);
  const uint64_t least_bytes = scheme.record_length() + 4;  // of a chunk
  if (version != 0 || nchunks > chunk_bytes / least_bytes) {
    error = version != 0 ? "the chunk table has version " + std::to_string(version)
                         : "the chunk table has " + std::to_string(nchunks) + " chunks for " +
                               std::to_string(chunk_bytes) + " bytes";
    return false;
  }
  if (nchunks > 0) {
    const uint64_t most_bytes = ENTRY_BYTES * nchunks;
    const uint64_t nbytes = std::min(end - read.table_offset - HEAD_BYTES, 4 + most_bytes);
    std::vector<uint8_t> bytes(4 + 2 * most_bytes,
                               0);  // behind the stream zeros, for a stream that is too short
    if (!read_at(read.table_offset + HEAD_BYTES, bytes.data(), nbytes)) {
      error = "the chunk table can't be read";
      return false;
    }
    if (!decode_entries(bytes, nbytes, nchunks, scheme, point_offset + 8, read, error)) return false;
  }
  match_points(npoints, scheme, read);
  table = std::move(read);
  return true;
}

void write_laz_chunk_table(const LASzip& scheme, const std::vector<uint32_t>& nbytes,
                           const std::vector<uint32_t>& npoints, std::vector<uint8_t>& out) {
  const size_t at = out.size();
  out.resize(at + HEAD_BYTES + ArithEncoder::BYTES_BEHIND + ENTRY_BYTES * nbytes.size());
  laz_put(out.data() + at, uint32_t(0));
  laz_put(out.data() + at + 4, uint32_t(nbytes.size()));
  if (nbytes.empty()) {
    out.resize(at + HEAD_BYTES);
    return;
  }
  ArithEncoder c;
  c.start(out.data() + at + HEAD_BYTES);
  const auto model = std::make_unique<IntegerModel<ArithEncoder, 32, 2>>();
  model->init();
  uint32_t last_points = 0, last_bytes = 0;
  for (size_t i = 0; i < nbytes.size(); i++) {
    if (scheme.variable()) last_points = model->code(c, last_points, npoints[i], 0);
    last_bytes = model->code(c, last_bytes, nbytes[i], 1);
  }
  c.finish();
  out.resize(size_t(c.at - out.data()));
}
}  // namespace veld
