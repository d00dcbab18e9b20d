// prj/LiDAR/LmTidx_w/point_filter.h
// Which points of a file are used: flags, classes, returns.
// Here:     the filter as tables over the bytes of a record.
// Not here: its options (TilingParam), coordinates and times (sw_LAS2TT.cpp).
#pragma once
#include <array>
#include <cstdint>

#include "prj/LiDAR/LmTidx_r/LmTidx_files.h"

namespace veld {
// What a byte of the record says: 0 the point stays.
constexpr uint8_t DROP_FLAG = 1;  // withheld, or synthetic
constexpr uint8_t DROP_CLASS = 2;
constexpr uint8_t DROP_RETURN = 4;

struct PointFilter {
  std::array<uint8_t, 256> flags{};    // by byte 15: flags (and, in formats 0 to 5, the class)
  std::array<uint8_t, 256> classes{};  // by byte 16, extended formats only
  std::array<uint8_t, 256> returns{};  // by byte 14
};
PointFilter make_PointFilter(const TilingParam& par, bool extended);

// 0, or what drops a raw record.
inline uint8_t drop_of(const PointFilter& f, const uint8_t* rec, bool extended) {
  return static_cast<uint8_t>(f.flags[rec[15]] | f.returns[rec[14]] | (extended ? f.classes[rec[16]] : 0));
}
}  // namespace veld
