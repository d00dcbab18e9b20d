// las/point_source.h
// Where a reader's records come from and where a writer's go: the two interfaces that plain LAS, LAZ and text
// stand behind. Both move whole blocks of raw records, never single points.
#pragma once
#include <cstdint>

namespace veld {
// Yields blocks of raw records in file order. The block belongs to the source and may be changed by the user;
// it lives until the next call.
class PointSource {
 public:
  virtual ~PointSource() = default;
  // Gives the next n > 0 records, or n = 0 at the end of the data. False, after an ERROR line, on damage.
  [[nodiscard]] virtual bool next(uint8_t*& block, uint64_t& n) = 0;
  // Makes the record of this index the first of the next block. False when it cannot be reached.
  [[nodiscard]] virtual bool seek(uint64_t index) = 0;
};

// Takes blocks of raw records in file order.
class PointSink {
 public:
  virtual ~PointSink() = default;
  // False, after an ERROR line, when they could not be written. The block may be used anew after the call.
  [[nodiscard]] virtual bool write(const uint8_t* records, uint64_t n) = 0;
  // Writes what is pending and what must follow the points. No write may come after it.
  [[nodiscard]] virtual bool finish() = 0;
};
}  // namespace veld
