// fuzz/fuzz_pointwise.cpp
// Chunks coded point by point: formats 0 to 5, items of version 1 and 2.
#include "fuzz/fuzz_decoder.h"

namespace veld {
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  if (nbytes < 4) return 0;
  static const uint32_t base[6] = {20, 28, 26, 34, 57, 63};
  const int format = bytes[0] % 6;
  LASzip scheme;
  std::string error;
  if (!scheme.setup(format, base[format] + bytes[1] % 4, error)) return 0;
  if (bytes[1] & 0x80)
    for (LazItem& item : scheme.items) item.version = 1;
  if (bytes[1] & 0x40) scheme.compressor = LazCompressor::pointwise;
  fuzz_decoders(scheme, 1 + bytes[2] + 8u * bytes[3], bytes + 4, nbytes - 4);
  return 0;
}
}  // namespace veld
