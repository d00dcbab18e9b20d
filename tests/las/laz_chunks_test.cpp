// tests/las/laz_chunks_test.cpp
// The chunk table: known encodings, round trips, missing and damaged tables.
#include "las/laz_chunks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

namespace veld {
namespace {
constexpr uint64_t POINTS = 300;  // offset to point data of the made files

LASzip scheme_of(bool variable) {
  LASzip scheme;
  std::string error;
  EXPECT_TRUE(scheme.setup(0, 20, error));
  if (variable) scheme.chunk_size = LAZ_VARIABLE;
  return scheme;
}

// A file of zeros with the table behind chunks of these sizes.
std::vector<uint8_t> file_with_table(const LASzip& scheme, const std::vector<uint32_t>& nbytes,
                                     const std::vector<uint32_t>& npoints) {
  uint64_t at = POINTS + 8;
  for (const uint32_t n : nbytes) at += n;
  std::vector<uint8_t> file(at);
  std::memcpy(&file[POINTS], &at, 8);
  write_laz_chunk_table(scheme, nbytes, npoints, file);
  return file;
}

bool read_table(const LASzip& scheme, const std::vector<uint8_t>& file, uint64_t npoints,
                LazChunkTable& table, std::string& error) {
  const LazReadAt read_at = [&file](uint64_t offset, uint8_t* to, uint64_t n) {
    if (offset > file.size() || n > file.size() - offset) return false;
    std::copy_n(file.data() + offset, n, to);
    return true;
  };
  return read_laz_chunk_table(scheme, read_at, file.size(), POINTS, npoints, table, error);
}
}  // namespace

TEST(LazChunkTable, KnownEncodings) {
  const struct {
    std::vector<uint32_t> nbytes, npoints;
    std::vector<uint8_t> table;
  } cases[] = {
      {{}, {}, {0, 0, 0, 0, 0, 0, 0, 0}},
      {{12552}, {}, {0, 0, 0, 0, 1, 0, 0, 0, 0x72, 0x8A, 0xC9, 0, 0, 0}},
      {{283499, 262423, 55259}, {}, {0,    0,    0,    0,    3,    0,    0,    0, 0x97, 0x95,
                                     0x55, 0x15, 0x5D, 0xC7, 0x3A, 0x6A, 0x63, 0, 0,    0}},
      {{4389, 14503, 12442, 3905, 13877, 13168},
       {178, 674, 605, 169, 708, 666},
       {0,    0,    0,    0,    6,    0,    0,    0,    0x43, 0x6D, 0xD8, 0xD5,
        0x5D, 0xA6, 0xA4, 0x89, 0x3C, 0x35, 0xD9, 0xDD, 0x4B, 0x13, 0xE1, 0xE9,
        0x86, 0x7A, 0x9E, 0x5A, 0xE1, 0xDF, 0xCA, 0x18, 0,    0,    0}},
  };
  for (const auto& c : cases) {
    std::vector<uint8_t> table;
    write_laz_chunk_table(scheme_of(!c.npoints.empty()), c.nbytes, c.npoints, table);
    EXPECT_EQ(table, c.table);
  }
}

TEST(LazChunkTable, RoundTripAndPointCounts) {
  std::mt19937 rng(1);
  for (const bool variable : {false, true}) {
    const LASzip scheme = scheme_of(variable);
    std::vector<uint32_t> nbytes, npoints;
    uint64_t sum = 0;
    for (int i = 0; i < 700; i++) {
      nbytes.push_back(24 + rng() % (1u << rng() % 16));
      npoints.push_back(variable ? 1 + rng() % 100000 : 50000);
      sum += npoints.back();
    }
    const std::vector<uint8_t> file = file_with_table(scheme, nbytes, npoints);
    const struct {
      uint64_t header, chunks;
      bool note;
    } cases[] = {{sum, 700, false}, {sum + 5, 700, true}, {npoints[0], 1, true}, {0, 0, true}};
    for (const auto& c : cases) {
      LazChunkTable table;
      std::string error;
      ASSERT_TRUE(read_table(scheme, file, c.header, table, error)) << error;
      EXPECT_EQ(table.chunks.size(), c.chunks);
      EXPECT_EQ(table.npoints, std::min(c.header, sum));
      EXPECT_EQ(!table.note.empty(), c.note) << table.note;
      uint64_t offset = POINTS + 8, first = 0;
      for (size_t i = 0; i < table.chunks.size(); i++) {
        EXPECT_EQ(table.chunks[i].offset, offset);
        EXPECT_EQ(table.chunks[i].nbytes, nbytes[i]);
        EXPECT_EQ(table.chunks[i].first_point, first);
        EXPECT_EQ(table.chunks[i].npoints, npoints[i]);
        offset += nbytes[i];
        first += npoints[i];
      }
    }
  }
}

TEST(LazChunkTable, PositionAtTheEndOfTheFile) {
  const LASzip scheme = scheme_of(false);
  std::vector<uint8_t> file = file_with_table(scheme, {1000, 500}, {});
  const size_t size = file.size();
  file.resize(size + 8);
  std::copy_n(&file[POINTS], 8, &file[size]);
  std::fill_n(&file[POINTS], 8, uint8_t(0xFF));
  LazChunkTable table;
  std::string error;
  ASSERT_TRUE(read_table(scheme, file, 70000, table, error)) << error;
  EXPECT_EQ(table.chunks.size(), 2u);
  EXPECT_EQ(table.chunks[1].npoints, 20000u);
}

TEST(LazChunkTable, MissingOrDamagedIsRefused) {
  const LASzip scheme = scheme_of(false);
  const std::vector<uint8_t> sound = file_with_table(scheme, {1000, 500}, {});
  const size_t at = POINTS + 8 + 1500;
  const struct {
    const char* what;
    size_t offset;
    std::vector<uint8_t> bytes;
    size_t size;
    const char* error;
  } cases[] = {
      {"never patched", POINTS, {44, 1, 0, 0, 0, 0, 0, 0}, 0, "the chunk table was never written"},
      {"behind the file", POINTS, {0, 0, 0, 1, 0, 0, 0, 0}, 0, "the chunk table lies outside the file"},
      {"before the points", POINTS, {9, 0, 0, 0, 0, 0, 0, 0}, 0, "the chunk table lies outside the file"},
      {"version", at, {7, 0, 0, 0}, 0, "the chunk table has version 7"},
      {"huge", at + 4, {255, 255, 255, 255}, 0, "the chunk table has 4294967295 chunks for 1500 bytes"},
      {"cut in its stream", at, {}, at + 9, "entry 0 of the chunk table is damaged"},
      {"cut before", at, {}, at + 3, "the chunk table lies outside the file"},
      {"no points at all", at, {}, POINTS - 1, "the file ends before its points"},
      {"damaged stream", at + 8, {0xFF, 0xFF, 0xFF, 0xFF}, 0, "entry 0 of the chunk table is damaged"},
  };
  for (const auto& c : cases) {
    std::vector<uint8_t> file = sound;
    std::copy(c.bytes.begin(), c.bytes.end(), file.begin() + int64_t(c.offset));
    if (c.size > 0) file.resize(c.size);
    LazChunkTable table;
    std::string error;
    EXPECT_FALSE(read_table(scheme, file, 100000, table, error)) << c.what;
    EXPECT_EQ(error, c.error) << c.what;
  }
}
}  // namespace veld
