// tests/las/laz_samples_test.cpp
// Sample files of other software decode to the records of their manifest, and those survive being encoded
// here.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/las/laz_file.h"

namespace {
const std::string samples = std::string(VELD_SHARED) + "/data/las/";

struct Sample {
  std::string name, digest;  // the digest may be a sentence: then the file must be refused
};

std::vector<Sample> read_manifest() {
  std::vector<Sample> list;
  std::ifstream in(samples + "MANIFEST.tsv");
  std::string line, field;
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::vector<std::string> fields;
    for (std::istringstream row(line); std::getline(row, field, '\t');) fields.push_back(field);
    if (fields.size() > 9 && fields[0].find(".lax") == std::string::npos)
      list.push_back({fields[0], fields[9]});
  }
  return list;
}
}  // namespace

TEST(LazSamples, DecodeToTheirDigestsAndSurviveBeingEncodedHere) {
  const std::vector<Sample> list = read_manifest();
  if (list.empty()) GTEST_SKIP() << "no sample files in '" << samples << "'";
  for (const Sample& sample : list) {
    SCOPED_TRACE(sample.name);
    LazTestFile file;
    std::string error;
    std::vector<uint8_t> records, chunk;
    const bool ok =
        open_laz(read_bytes(samples + sample.name), file, error) && decode_file(file, records, error);
    if (sample.digest.starts_with("must fail")) {
      EXPECT_FALSE(ok || error.empty());
      continue;
    }
    ASSERT_TRUE(ok) << error;
    EXPECT_EQ(sha256_hex(records), sample.digest);

    LASzip scheme;
    LazEncoder encoder;
    LazDecoder decoder;
    const uint32_t length = file.record_length;
    ASSERT_TRUE(scheme.setup(file.format, length, error) && encoder.open(scheme, error) &&
                decoder.open(scheme, error))
        << error;
    std::vector<uint8_t> back(records.size());
    for (uint64_t i = 0; i < file.npoints; i += LAZ_CHUNK_SIZE) {
      const uint64_t n = std::min<uint64_t>(LAZ_CHUNK_SIZE, file.npoints - i);
      encoder.encode_chunk(records.data() + i * length, n, chunk);
      ASSERT_TRUE(decoder.decode_chunk(chunk.data(), chunk.size(), n, back.data() + i * length, n * length,
                                       nullptr, error))
          << error;
    }
    EXPECT_TRUE(back == records);
  }
}
