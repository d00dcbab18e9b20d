// fuzz/fuzz_index.cpp
// The spatial index: read, queried, laid out again.
#include "las/lasindex.h"

namespace veld {
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  LASindex index;
  std::string reason;
  if (!index.from_bytes(bytes, nbytes, 110000, reason)) return 0;
  for (const double size : {1.0, 1000.0, 1e9})
    index.query(636000 - size, 636000 + size, -size, 850000 + size);
  index.to_bytes();
  index.complete();
  return 0;
}
}  // namespace veld
