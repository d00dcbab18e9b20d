// fuzz/fuzz_layered.cpp
// Chunks of layers: formats 6 to 10, items of version 3 and 4.
#include "fuzz/fuzz_decoder.h"

namespace veld {
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  if (nbytes < 4) return 0;
  static const uint32_t base[5] = {30, 36, 38, 59, 67};
  const int format = bytes[0] % 5;
  LASzip scheme;
  std::string error;
  if (!scheme.setup(6 + format, base[format] + bytes[1] % 4, error)) return 0;
  if (bytes[1] & 0x80)
    for (LazItem& item : scheme.items) item.version = 4;
  fuzz_decoders(scheme, 1 + bytes[2] + 8u * bytes[3], bytes + 4, nbytes - 4);
  return 0;
}
}  // namespace veld
