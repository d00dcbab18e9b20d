// Point files of any makers in a folder: VELD_LAS_SAMPLES of the environment, or ../shared/data/las beside
// the project; skipped where there is none. Writes each as LAZ and back. A MANIFEST.tsv in the folder tells count and
// digest of the records, or that the file must be refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "las/las_access.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
std::string folder() {
  const char* given = std::getenv("VELD_LAS_SAMPLES");
  return given ? std::string(given) + "/" : std::string(VELD_SHARED) + "/data/las/";
}

struct Expected {  // a line of the manifest
  std::string digest, note;
  uint64_t npoints = 0;
};

std::map<std::string, Expected> read_manifest() {
  std::map<std::string, Expected> files;
  std::ifstream in(folder() + "MANIFEST.tsv");
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
    if (column.size() >= 12)
      files[column[0]] = {column[9], column[11], std::strtoull(column[5].c_str(), nullptr, 10)};
  }
  return files;
}

// All point files below the folder, in order.
std::vector<std::string> list_files() {
  std::vector<std::string> files;
  std::error_code none;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder(), none))
    for (const char* ext : {".las", ".laz", ".txt"})
      if (entry.is_regular_file() && entry.path().extension() == ext)
        files.push_back(entry.path().lexically_relative(folder()));
  std::sort(files.begin(), files.end());
  return files;
}

struct Contents {
  bool opened = false, whole = false;
  LASheader header;
  std::vector<uint8_t> records;
  std::string text;  // what went to standard error
};

Contents read_all(const std::string& name) {
  Contents c;
  testing::internal::CaptureStderr();
  if (auto reader = las_read_open(name, "xyzt", false)) {
    c.opened = true;
    c.header = reader->header;
    uint64_t n = 0;
    while (const uint8_t* block = reader->read_block(n))
      c.records.insert(c.records.end(), block, block + n * c.header.point_reclen);
    c.whole = reader->p_count == c.header.npoints && !reader->failed();
  }
  c.text = testing::internal::GetCapturedStderr();
  return c;
}

// Records before and behind the points as one text; without those that are true of one file only.
std::string records_around(const LASheader& h) {
  std::string all;
  const auto add = [&all](const auto& record) {
    if (las_text(record.user_id) == "copc" ||
        (las_text(record.user_id) == "LAStools" && record.record_id == 30))
      return;
    all.append(record.user_id.data(), 16).append(std::to_string(record.record_id));
    all.append(record.description.data(), 32).append(record.data.begin(), record.data.end());
  };
  for (const LASvlr& v : h.vlrs) add(v);
  all += " | ";
  for (const LASevlr& v : h.evlrs) add(v);
  return all;
}

bool write_all(const Contents& c, const std::string& name) {
  auto writer = las_write_open(name, c.header, "");
  return writer && writer->write_raw_records(c.records.data(), c.records.size() / c.header.point_reclen) &&
         las_write_close(writer);
}

// LAS, LAZ and LAS again: records, VLRs and EVLRs stay as they are.
bool survives_writing(const Contents& c) {
  const TempDir dir;
  for (const char* name : {"/1.las", "/2.laz", "/3.las"}) {
    testing::internal::CaptureStderr();
    const bool written = write_all(c, dir.path + name);
    testing::internal::GetCapturedStderr();
    const Contents back = read_all(dir.path + name);
    if (!written || !back.whole || back.records != c.records ||
        records_around(back.header) != records_around(c.header))
      return false;
  }
  return read_text(dir.path + "/1.las") == read_text(dir.path + "/3.las");
}

// SHA-256 of the records, by the system's own program.
std::string digest_of(const std::vector<uint8_t>& records) {
  const TempDir dir;
  write_text(dir.path + "/r", {records.begin(), records.end()});
  const std::string command = "sha256sum < " + dir.path + "/r > " + dir.path + "/sum";
  return std::system(command.c_str()) == 0 ? read_text(dir.path + "/sum").substr(0, 64) : "";
}
}  // namespace

TEST(LasSamples, EachGivesItsDigestOrIsRefused) {
  const std::map<std::string, Expected> manifest = read_manifest();
  const std::vector<std::string> files = list_files();
  if (files.empty()) GTEST_SKIP() << "no point files under " << folder();
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    const Contents c = read_all(folder() + file);
    las_set_threads(2);
    const Contents threaded = read_all(folder() + file);
    las_set_threads(1);
    EXPECT_TRUE(threaded.records == c.records && threaded.text == c.text);
    const std::string digest = digest_of(c.records);
    const auto known = manifest.find(file);
    const bool must_fail = known != manifest.end() && known->second.digest.starts_with("must fail");
    if (must_fail) {
      EXPECT_FALSE(c.whole);
      const std::string& refusal = known->second.digest;
      const std::string cause = refusal.substr(refusal.find(": ") + 2);
      if (cause.ends_with("is unknown")) {
        EXPECT_TRUE(holds(c.text, "ERROR: " + cause)) << c.text;
      }
      EXPECT_TRUE(holds(c.text, file)) << c.text;
      if (known->second.note.starts_with("sha256 of the ")) {
        EXPECT_TRUE(known->second.note.ends_with(digest));
      }
      continue;
    }
    EXPECT_TRUE(!c.whole || survives_writing(c));
    if (known == manifest.end()) continue;
    EXPECT_TRUE(c.whole) << c.text;
    EXPECT_EQ(c.records.size() / c.header.point_reclen, known->second.npoints);
    EXPECT_EQ(known->second.digest, digest);
  }
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
    const std::string text = read_text(folder() + c.file);
    const std::vector<uint8_t> bytes(text.begin(), text.end());
    if (bytes.empty()) GTEST_SKIP() << "no sample " << folder() + c.file;
    auto reader = las_read_open(folder() + "v12_autzen_trim.laz", "", false);
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
}  // namespace veld
