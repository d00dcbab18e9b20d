// fuzz/fuzz_chunk_table.cpp
// The LAZ record and the chunk table: 8 bytes of choice, then a file from its points on.
#include <algorithm>
#include <cstring>

#include "las/laz_chunks.h"

namespace veld {
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  LASzip scheme;
  std::string error;
  parse_laz_vlr(bytes, nbytes, scheme, error) ? void(make_laz_vlr(scheme)) : void();
  if (nbytes < 8 || !scheme.setup(bytes[0] % 11, 80, error)) return 0;
  if (bytes[1] & 1) scheme.chunk_size = LAZ_VARIABLE;
  const uint8_t* file = bytes + 8;
  const uint64_t size = nbytes - 8;
  const LazReadAt read_at = [&](uint64_t offset, uint8_t* to, uint64_t n) {
    if (offset > size || n > size - offset) return false;
    std::copy_n(file + offset, n, to);
    return true;
  };
  LazChunkTable table;
  if (!read_laz_chunk_table(scheme, read_at, size, bytes[2], uint64_t(bytes[3]) << (bytes[4] & 63), table,
                            error))
    return 0;
  uint64_t points = 0;
  for (const LazChunk& chunk : table.chunks) {
    if (chunk.nbytes == 0 || chunk.offset + chunk.nbytes > size || chunk.first_point != points)
      __builtin_trap();
    points += chunk.npoints;
  }
  if (points != table.npoints) __builtin_trap();
  return 0;
}
}  // namespace veld
