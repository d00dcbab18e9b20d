// las/laz_pointwise.h
// The items of pointwise chunks, point after point in one stream.
// Here:     PointItems, one run of points for a given list of items. Private to the codec's sources.
// Not here: chunks, buffers and their limits (laz_decoder.cpp, laz_encoder.cpp).
#pragma once
#include <memory>

#include "las/laz_arith.h"
#include "las/laz_scheme.h"

namespace veld {
template <class C>
class PointItems {
 public:
  virtual ~PointItems() = default;
  // All models and predictors as at the beginning of a chunk that starts with this record.
  virtual void start(const uint8_t* first) = 0;
  // Codes n records, `stride` bytes each. The coder's buffer must have n * max_bytes() bytes left.
  virtual void run(C& c, typename C::Byte* records, uint64_t n) = 0;
  virtual unsigned max_bytes() const = 0;  // compressed, of one point at most
};

// The fastest form there is for the scheme's list of items. The scheme must have been checked.
std::unique_ptr<PointItems<ArithDecoder>> make_point_decoder(const LASzip& scheme);
std::unique_ptr<PointItems<ArithEncoder>> make_point_encoder(const LASzip& scheme);
}  // namespace veld
