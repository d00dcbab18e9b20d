// tests/las/laz_file.h
// What the codec's tests and the benchmark need beside the codec: SHA-256, a minimal reader of whole files
// that stands on the codec alone, and made records.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "las/laz_chunks.h"
#include "las/laz_codec.h"

namespace veld {
std::string sha256_hex(const std::vector<uint8_t>& bytes);

// Reads the whole file; empty if it can't be read.
std::vector<uint8_t> read_bytes(const std::string& path);

struct LazTestFile {
  std::vector<uint8_t> bytes;
  uint64_t npoints = 0, point_offset = 0;
  int format = 0;
  uint32_t record_length = 0;
  bool compressed = false;
  LASzip scheme;
};

// Header and LAZ record. False with the cause in `error`.
bool open_laz(std::vector<uint8_t> bytes, LazTestFile& file, std::string& error);

// All records of the file, by its chunk table, or from the start if there is none. On failure `records` has
// those that came before it.
bool decode_file(const LazTestFile& file, std::vector<uint8_t>& records, std::string& error);

enum class Flight {
  smooth,
  random
};  // records as flown, with returns, channels and colours; or random bytes

// n records of a point format with extra bytes behind its fields.
std::vector<uint8_t> made_records(int format, uint32_t nextra, uint64_t n, Flight flight, uint32_t seed);
}  // namespace veld
