// Sample files of other makers, with the digests of their records; skipped where the samples are absent.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "las/las_access.h"
#include "tests/las/laz_file.h"
#include "tests/support/temp_dir.h"

namespace {
const std::string SAMPLES = std::string(VELD_SHARED) + "/data/las/";

struct Sample {
  std::string file, version, digest, note;
  uint64_t npoints = 0;
};

std::vector<Sample> read_manifest() {
  std::vector<Sample> samples;
  std::ifstream in(SAMPLES + "MANIFEST.tsv");
  std::string line;
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::vector<std::string> column(1);
    for (const char c : line) {
      if (c == '\t')
        column.emplace_back();
      else
        column.back() += c;
    }
    if (column.size() < 12) continue;
    samples.push_back(
        {column[0], column[2], column[9], column[11], std::strtoull(column[5].c_str(), nullptr, 10)});
  }
  return samples;
}

std::vector<uint8_t> records_of(const std::string& name, bool& whole) {
  std::vector<uint8_t> records;
  auto reader = las_read_open(name, "", false);
  whole = false;
  if (!reader) return records;
  uint64_t n = 0;
  while (const uint8_t* block = reader->read_block(n))
    records.insert(records.end(), block, block + n * reader->header.point_reclen);
  whole = reader->p_count == reader->header.npoints;
  return records;
}

std::vector<uint8_t> rewritten(const std::string& from, const std::string& to, std::string& records_around) {
  auto reader = las_read_open(from, "", false);
  auto writer = las_write_open(to, reader->header, "");
  uint64_t n = 0;
  while (const uint8_t* block = reader->read_block(n))
    if (!writer->write_raw_records(block, n)) return {};
  for (const LASvlr& v : writer->header.vlrs) records_around.append(v.data.begin(), v.data.end());
  for (const LASevlr& v : writer->header.evlrs) records_around.append(v.data.begin(), v.data.end());
  if (!las_write_close(writer)) return {};
  bool whole = false;
  return records_of(to, whole);
}
}  // namespace

TEST(LasSamples, EachGivesItsDigestOrIsRefused) {
  const std::vector<Sample> samples = read_manifest();
  if (samples.empty()) GTEST_SKIP() << "no samples under " << SAMPLES;
  const TempDir dir;
  for (const Sample& sample : samples) {
    if (sample.version == "-") continue;
    for (const int nthreads : {1, 2}) {
      SCOPED_TRACE(sample.file);
      las_set_threads(nthreads);
      bool whole = false;
      testing::internal::CaptureStderr();
      const std::vector<uint8_t> records = records_of(SAMPLES + sample.file, whole);
      const std::string text = testing::internal::GetCapturedStderr();
      if (sample.digest.starts_with("must fail")) {
        EXPECT_FALSE(whole);
        const std::string cause = sample.digest.substr(sample.digest.find(": ") + 2);
        if (cause.ends_with("is unknown")) {
          EXPECT_NE(text.find("ERROR: " + cause), std::string::npos) << text;
        }
        EXPECT_NE(text.find(sample.file), std::string::npos) << text;
        if (sample.note.starts_with("sha256 of the ")) {
          EXPECT_TRUE(sample.note.ends_with(sha256_hex(records)));
        }
      } else {
        EXPECT_TRUE(whole) << text;
        EXPECT_EQ(sha256_hex(records), sample.digest);
        if (nthreads > 1) continue;
        std::string laz_around, las_around;
        testing::internal::CaptureStderr();
        EXPECT_TRUE(rewritten(SAMPLES + sample.file, dir.path + "/o.laz", laz_around) == records);
        EXPECT_TRUE(rewritten(dir.path + "/o.laz", dir.path + "/o.las", las_around) == records);
        EXPECT_EQ(laz_around, las_around);
        testing::internal::GetCapturedStderr();
      }
    }
  }
  las_set_threads(1);
}

TEST(LasSamples, IndexIsThatOfTheFile) {
  const struct {
    const char* file;
    float cell;
    uint32_t threshold, min_points;
    int max_intervals;
  } cases[] = {{"made/autzen_trim_100.lax", 100, 1000, 100000, -20},
               {"made/autzen_trim_25.lax", 25, 50, 2000, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const std::vector<uint8_t> bytes = read_bytes(SAMPLES + c.file);
    if (bytes.empty()) GTEST_SKIP() << "no sample " << SAMPLES + c.file;
    auto reader = las_read_open(SAMPLES + "v12_autzen_trim.laz", "", false);
    ASSERT_TRUE(reader);
    const LASheader& h = reader->header;
    LASindex sample, made;
    std::string reason;
    ASSERT_TRUE(sample.from_bytes(bytes.data(), bytes.size(), h.npoints, reason)) << reason;
    LASquadtree tree;
    ASSERT_TRUE(tree.setup(h.min_x, h.max_x, h.min_y, h.max_y, c.cell));
    made.prepare(tree, c.threshold);
    for (uint64_t i = 0; reader->read_point(); i++)
      ASSERT_TRUE(made.add(reader->point.x(), reader->point.y(), i));
    made.complete(c.min_points, c.max_intervals);
    EXPECT_EQ(made.to_bytes(), sample.to_bytes());
  }
}
