// las/laz_bytes.h
// Unaligned access to the fields of point records, and byte arithmetic that several LAZ items share.
// Private to the codec's sources.
#pragma once
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

// Running median of five values: keeps them sorted, and drops the largest and the smallest in turn.
struct Median5 {
  int32_t v[5] = {0, 0, 0, 0, 0};
  bool high = true;

  int32_t get() const { return v[2]; }
  void add(int32_t x) {
    if (high) {
      if (x < v[2]) {
        v[4] = v[3];
        v[3] = v[2];
        if (x < v[0]) {
          v[2] = v[1];
          v[1] = v[0];
          v[0] = x;
        } else if (x < v[1]) {
          v[2] = v[1];
          v[1] = x;
        } else {
          v[2] = x;
        }
      } else {
        if (x < v[3]) {
          v[4] = v[3];
          v[3] = x;
        } else {
          v[4] = x;
        }
        high = false;
      }
    } else {
      if (v[2] < x) {
        v[0] = v[1];
        v[1] = v[2];
        if (v[4] < x) {
          v[2] = v[3];
          v[3] = v[4];
          v[4] = x;
        } else if (v[3] < x) {
          v[2] = v[3];
          v[3] = x;
        } else {
          v[2] = x;
        }
      } else {
        if (v[1] < x) {
          v[0] = v[1];
          v[1] = x;
        } else {
          v[0] = x;
        }
        high = true;
      }
    }
  }
};
