// tests/las/laz_codec_test.cpp
// The codec on its own: round trips of every format, coders in parts, and damage.
#include "las/laz_codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

#include "tests/las/laz_file.h"

namespace veld {
namespace {
struct Case {
  int format;
  uint32_t nextra;
  uint64_t n;
};

LASzip scheme_of(int format, const std::vector<uint8_t>& records, uint64_t n) {
  LASzip scheme;
  std::string error;
  EXPECT_TRUE(scheme.setup(format, uint32_t(records.size() / n), error)) << error;
  return scheme;
}

std::vector<uint8_t> encode(const LASzip& scheme, const std::vector<uint8_t>& records, uint64_t n) {
  LazEncoder encoder;
  std::string error;
  std::vector<uint8_t> chunk;
  EXPECT_TRUE(encoder.open(scheme, error)) << error;
  encoder.encode_chunk(records.data(), n, chunk);
  return chunk;
}

// The decoded records, or none and the cause.
std::vector<uint8_t> decode(const LASzip& scheme, const std::vector<uint8_t>& chunk, uint64_t n,
                            std::string& error, uint32_t fields = LAZ_ALL) {
  LazDecoder decoder;
  EXPECT_TRUE(decoder.open(scheme, error, fields)) << error;
  std::vector<uint8_t> records(n * scheme.record_length());
  if (!decoder.decode_chunk(chunk.data(), chunk.size(), n, records.data(), records.size(), nullptr, error))
    records.clear();
  return records;
}

LazPull pull_from(const std::vector<uint8_t>& bytes, size_t& at) {
  return [&bytes, &at](uint8_t* to, uint64_t n) {
    n = std::min<uint64_t>(n, bytes.size() - at);
    std::copy_n(bytes.data() + at, n, to);
    at += n;
    return n;
  };
}
}  // namespace

TEST(LazCodec, EveryFormatComesBackAsItWas) {
  for (int format = 0; format <= 10; format++)
    for (const Flight flight : {Flight::smooth, Flight::random})
      for (const uint32_t nextra : {0u, 3u})
        for (const uint64_t n : {1u, 2u, 65u, 6000u}) {
          SCOPED_TRACE(::testing::Message() << "format " << format << " random " << (flight == Flight::random)
                                            << " extra " << nextra << " n " << n);
          const std::vector<uint8_t> records = made_records(format, nextra, n, flight, 7);
          LASzip scheme = scheme_of(format, records, n);
          for (const uint16_t version : {3, 4}) {
            if (version == 4 && !scheme.layered()) continue;
            if (scheme.layered())
              for (LazItem& item : scheme.items) item.version = version;
            std::string error;
            const std::vector<uint8_t> chunk = encode(scheme, records, n);
            ASSERT_EQ(decode(scheme, chunk, n, error), records) << error;
            if (flight == Flight::smooth && n > 1000) {
              EXPECT_LT(chunk.size(), records.size() / 2);
            }
          }
        }
}

TEST(LazCodec, CodersAreReusableAndIndependentOfTheirPast) {
  for (const int format : {3, 10}) {
    const std::vector<uint8_t> first = made_records(format, 2, 3000, Flight::random, 1);
    const std::vector<uint8_t> second = made_records(format, 2, 5000, Flight::smooth, 2);
    const LASzip scheme = scheme_of(format, second, 5000);
    LazEncoder encoder;
    LazDecoder decoder;
    std::string error;
    std::vector<uint8_t> chunk, records(second.size());
    ASSERT_TRUE(encoder.open(scheme, error) && decoder.open(scheme, error));
    encoder.encode_chunk(first.data(), 3000, chunk);
    ASSERT_TRUE(decoder.decode_chunk(chunk.data(), chunk.size(), 3000, records.data(), records.size(),
                                     nullptr, error))
        << error;
    encoder.encode_chunk(second.data(), 5000, chunk);
    EXPECT_EQ(chunk, encode(scheme, second, 5000));
    ASSERT_TRUE(decoder.decode_chunk(chunk.data(), chunk.size(), 5000, records.data(), records.size(),
                                     nullptr, error))
        << error;
    EXPECT_EQ(records, second);
  }
}

TEST(LazCodec, FieldsLeftOutKeepTheFirstValueAndTheOthersTheirs) {
  const std::vector<uint8_t> records = made_records(7, 1, 500, Flight::smooth, 4);
  const LASzip scheme = scheme_of(7, records, 500);
  std::string error;
  const std::vector<uint8_t> some =
      decode(scheme, encode(scheme, records, 500), 500, error, LAZ_Z | LAZ_GPSTIME);
  ASSERT_EQ(some.size(), records.size()) << error;
  for (size_t at = 0; at < records.size(); at += 37) {
    EXPECT_TRUE(std::equal(&some[at], &some[at + 12], &records[at])) << "X, Y, Z of point " << at / 37;
    EXPECT_TRUE(std::equal(&some[at + 22], &some[at + 30], &records[at + 22])) << "time of point " << at / 37;
    EXPECT_TRUE(std::equal(&some[at + 30], &some[at + 37], &records[30])) << "colour of point " << at / 37;
    EXPECT_EQ(some[at + 16], records[16]);
  }
}

TEST(LazCodec, StreamWithoutTableGivesTheSamePoints) {
  const uint64_t n = 2500;
  for (const int format : {1, 5, 6, 10}) {
    const std::vector<uint8_t> records = made_records(format, 2, n, Flight::smooth, 5);
    LASzip scheme = scheme_of(format, records, n);
    scheme.chunk_size = 1000;
    const uint64_t length = scheme.record_length();
    std::vector<uint8_t> bytes;
    for (uint64_t i = 0; i < n; i += 1000) {
      const uint64_t now = std::min<uint64_t>(1000, n - i);
      const std::vector<uint8_t> part(records.begin() + int64_t(i * length),
                                      records.begin() + int64_t((i + now) * length));
      const std::vector<uint8_t> chunk = encode(scheme, part, now);
      bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    }
    for (const size_t cut : {size_t(0), bytes.size() / 2}) {  // whole, and a file that ends early
      SCOPED_TRACE(::testing::Message() << "format " << format << " cut " << cut);
      std::vector<uint8_t> have = bytes, out(records.size());
      have.resize(bytes.size() - cut);
      size_t at = 0;
      LazStreamDecoder decoder;
      std::string error;
      ASSERT_TRUE(decoder.open(scheme, pull_from(have, at), n, error)) << error;
      uint64_t done = 0, now = 1;
      bool ok = true;
      while (ok && done < n) {
        ok = decoder.decode(333, out.data() + done * length, now, error);
        done += now;
      }
      EXPECT_EQ(ok, cut == 0);
      EXPECT_EQ(done, decoder.position());
      EXPECT_EQ(decoder.chunk(), done / 1000);
      EXPECT_TRUE(cut == 0 ? done == n : done < n && !error.empty());
      EXPECT_TRUE(std::equal(out.begin(), out.begin() + int64_t(done * length), records.begin()));
    }
  }
}

TEST(LazCodec, TruncatedChunkEndsInAnError) {
  for (const int format : {0, 3, 5, 6, 10}) {
    const std::vector<uint8_t> records = made_records(format, 2, 300, Flight::smooth, 6);
    const LASzip scheme = scheme_of(format, records, 300);
    const std::vector<uint8_t> chunk = encode(scheme, records, 300);
    for (size_t size = 0; size < chunk.size(); size += size < 200 ? 1 : 37) {
      std::string error;
      EXPECT_TRUE(decode(scheme, {chunk.begin(), chunk.begin() + int64_t(size)}, 300, error).empty());
      EXPECT_FALSE(error.empty());
    }
    std::vector<uint8_t> longer = chunk;
    longer.push_back(0);
    std::string error;
    EXPECT_TRUE(decode(scheme, longer, 300, error).empty()) << "a byte behind the last point";
    EXPECT_TRUE(decode(scheme, chunk, 301, error).empty()) << "a point more than there is";
  }
}

TEST(LASzip, RecordComesBackAndNonsenseIsRefused) {
  std::string error;
  LASzip scheme, read;
  ASSERT_TRUE(scheme.setup(10, 70, error)) << error;
  const std::vector<uint8_t> payload = make_laz_vlr(scheme);
  ASSERT_EQ(payload.size(), 34u + 6 * 4);
  ASSERT_TRUE(parse_laz_vlr(payload.data(), payload.size(), read, error)) << error;
  EXPECT_EQ(make_laz_vlr(read), payload);
  EXPECT_TRUE(check_laz_scheme(read, 10, 70, error)) << error;
  EXPECT_FALSE(check_laz_scheme(read, 8, 70, error));
  EXPECT_FALSE(check_laz_scheme(read, 10, 71, error));
  const struct {
    const char* what;
    size_t at;
    uint8_t value;
    const char* error;
  } cases[] = {
      {"compressor", 0, 4, "compressor number 4 is unknown"},
      {"coder", 2, 1, "entropy coder number 1 is unknown"},
      {"items", 32, 3, "LAZ record of 58 bytes announces 3 items"},
      {"type", 34, 5, "item type 5 is unknown"},
      {"size", 36, 29, "item POINT14 has size 29"},
      {"version", 38, 1, "item version 1 of POINT14 is unknown"},
      {"old compressor", 0, 2, "item POINT14 does not go with the file's compressor"},
  };
  for (const auto& c : cases) {
    std::vector<uint8_t> wrong = payload;
    wrong[c.at] = c.value;
    EXPECT_FALSE(parse_laz_vlr(wrong.data(), wrong.size(), read, error)) << c.what;
    EXPECT_EQ(error, c.error);
  }
  for (size_t size = 0; size < payload.size(); size++)
    EXPECT_FALSE(parse_laz_vlr(payload.data(), size, read, error));
  EXPECT_FALSE(scheme.setup(11, 80, error));
  EXPECT_FALSE(scheme.setup(3, 33, error));
}
}  // namespace veld
