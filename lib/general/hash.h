// lib/general/hash.h
// FNV-1a, 64 bits: the identity of short data (paths, headers, masks). Source: G. Fowler, L. C. Noll, K.-P. Vo, D. Eastlake.
#pragma once
#include <cstdint>
#include <string_view>

namespace veld {
constexpr uint64_t FNV1A_START = 0xCBF29CE484222325u;

// Continues the hash h with n bytes.
inline uint64_t fnv1a(const void* data, uint64_t n, uint64_t h = FNV1A_START) {
  const auto* byte = static_cast<const uint8_t*>(data);
  for (uint64_t i = 0; i < n; i++) h = (h ^ byte[i]) * 0x100000001B3u;
  return h;
}
inline uint64_t fnv1a(std::string_view text) { return fnv1a(text.data(), text.size()); }
}  // namespace veld
