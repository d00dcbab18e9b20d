// las/laz_bytes.h
// Unaligned access to the fields of point records, and byte arithmetic that several LAZ items share.
// Private to the codec's sources.
#pragma once
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace veld {
template <typename T>
inline T laz_get(const uint8_t* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

template <typename T>
inline void laz_put(uint8_t* at, T value) {
  std::memcpy(at, &value, sizeof value);
}

inline uint32_t clamp_byte(int32_t v) { return uint32_t(v < 0 ? 0 : v > 255 ? 255 : v); }

// Running median of five values, kept sorted: a new value pushes out the largest or the smallest in turn.
// Without branches, because they could not be foreseen: of the five the lower four and the upper four are
// held, and those four that stay are shifted against each other.
struct Median5 {
  using Four = int32_t __attribute__((vector_size(16)));
  Four four[2] = {{0, 0, 0, 0}, {0, 0, 0, 0}};
  uint32_t upper = 0;  // 1: the smallest goes next

  int32_t get() const { return four[0][2]; }
  void add(int32_t x) {
    constexpr int32_t LEAST = std::numeric_limits<int32_t>::min(), MOST = std::numeric_limits<int32_t>::max();
    const Four stay = four[upper], all = {x, x, x, x};
    const int32_t median = get();
    upper = uint32_t(x > median) | (uint32_t(x == median) & (upper ^ 1));
    const Four below = __builtin_shufflevector(stay, Four{LEAST, LEAST, LEAST, LEAST}, 4, 0, 1, 2);
    const Four above = __builtin_shufflevector(stay, Four{MOST, MOST, MOST, MOST}, 1, 2, 3, 4);
    const Four low = stay < all ? stay : all, high = above < all ? above : all;
    four[0] = below > low ? below : low;
    four[1] = stay > high ? stay : high;
  }
};
}  // namespace veld
