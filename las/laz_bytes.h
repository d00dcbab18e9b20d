// las/laz_bytes.h
// Unaligned access to the fields of point records, and byte arithmetic that several LAZ items share.
// Private to the codec's sources.
#pragma once
#include <algorithm>
#include <cstdint>
#include <cstring>

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
// Written without branches, because they could not be foreseen.
struct Median5 {
  int32_t v[5] = {0, 0, 0, 0, 0};
  uint32_t low = 0;  // 1: the smallest goes next

  int32_t get() const { return v[2]; }
  void add(int32_t x) {
    const int32_t* w = v + low;  // the four that stay
    const int32_t w0 = w[0], w1 = w[1], w2 = w[2], w3 = w[3];
    low = low != 0 ? v[2] < x : x >= v[2];
    v[0] = std::min(w0, x);
    v[1] = std::max(w0, std::min(w1, x));
    v[2] = std::max(w1, std::min(w2, x));
    v[3] = std::max(w2, std::min(w3, x));
    v[4] = std::max(w3, x);
  }
};
