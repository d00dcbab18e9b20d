// fuzz/fuzz_decoder.h
// A chunk through both decoders: from memory as a whole, and as a stream in odd parts. Two bytes choose the
// items, two the number of points, the chunk follows.
#pragma once
#include <algorithm>
#include <memory>
#include <vector>

#include "las/laz_codec.h"

namespace veld {
inline void fuzz_decoders(const LASzip& scheme, uint64_t npoints, const uint8_t* bytes, size_t nbytes) {
  std::string error;
  const uint64_t length = scheme.record_length();
  std::vector<uint8_t> whole(npoints * length), parts(npoints * length);
  LazDecoder decoder;
  uint64_t consumed = 0;
  if (!decoder.open(scheme, error)) return;
  const bool ok = decoder.decode_chunk(bytes, nbytes, npoints, whole.data(), whole.size(), &consumed, error);
  if (ok && consumed > nbytes) __builtin_trap();

  if (scheme.layered() && npoints % 2 == 0) {  // some layers only
    LazDecoder some;
    if (!some.open(scheme, error, uint32_t(npoints / 2))) return;
    if (!some.decode_chunk(bytes, nbytes, npoints, parts.data(), parts.size(), &consumed, error) && ok)
      __builtin_trap();
  }

  size_t at = 0;
  const LazPull pull = [&](uint8_t* to, uint64_t n) {
    n = std::min<uint64_t>(n, nbytes - at);
    std::copy_n(bytes + at, n, to);
    at += n;
    return n;
  };
  LazStreamDecoder stream;
  if (scheme.variable() || !stream.open(scheme, pull, npoints, error)) return;
  uint64_t done = 0, now = 0;
  while (stream.decode(7, parts.data() + done * length, now, error) && now > 0) done += now;
  done += now;
  if (ok && (done != npoints || parts != whole)) __builtin_trap();
}
}  // namespace veld
