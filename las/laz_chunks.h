// las/laz_chunks.h
// The table of chunks of a LAZ file: where each chunk lies and how many points it holds.
// Here:     finding, checking and decoding the table; encoding it.
// Not here: the chunks themselves (laz_codec.h).
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "las/laz_scheme.h"

namespace veld {
struct LazChunk {
  uint64_t offset;       // absolute file position of its first byte
  uint64_t nbytes;       // compressed
  uint64_t first_point;  // index of its first point in the file
  uint64_t npoints;
};

struct LazChunkTable {
  std::vector<LazChunk> chunks;  // in file order, back to back
  uint64_t npoints = 0;          // in all chunks together, at most those of the header
  uint64_t table_offset = 0;     // absolute file position of the table
  std::string note;              // difference from the header's point count, for a warning; empty if none
};

// Reads n bytes at an absolute position; false if they can't be had.
using LazReadAt = std::function<bool(uint64_t offset, uint8_t* to, uint64_t n)>;

// Reads and checks the table of a chunked scheme. `point_offset`: offset to point data of the header;
// `npoints`: point count of the header. Memory is bounded by the file's size whatever the table claims.
// False with the cause in `error` if there is no sound table: a file with chunks of fixed size can then still
// be decoded from point_offset + 8 on by LazStreamDecoder, one with variable chunks can't.
// Chunks beyond the header's points are left out, and `note` reports points more or less than there should
// be.
[[nodiscard]] bool read_laz_chunk_table(const LASzip& scheme, const LazReadAt& read_at, uint64_t file_size,
                                        uint64_t point_offset, uint64_t npoints, LazChunkTable& table,
                                        std::string& error);

// Appends the table of chunks of these sizes to `out`. `npoints` is used by variable schemes only: as many
// entries as `nbytes` then, else it may be empty. With no chunk at all the table is 8 bytes.
void write_laz_chunk_table(const LASzip& scheme, const std::vector<uint32_t>& nbytes,
                           const std::vector<uint32_t>& npoints, std::vector<uint8_t>& out);
}  // namespace veld
