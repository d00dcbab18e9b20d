// tests/las/laz_file.h
// Made point records, for tests and benchmarks.
#pragma once
#include <cstdint>
#include <vector>

namespace veld {
enum class Flight {
  smooth,
  random
};  // records as flown, with returns, channels and colours; or random bytes

// n records of a point format with extra bytes behind its fields.
std::vector<uint8_t> made_records(int format, uint32_t nextra, uint64_t n, Flight flight, uint32_t seed);
}  // namespace veld
